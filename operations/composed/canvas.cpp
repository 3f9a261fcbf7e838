#include <algorithm>
#include <cmath>

#include "compose/blend.h"
#include "compose/turn.h"
#include "operations/composed/common.h"
#include "operations/table.h"

namespace qel::operations {
namespace {

/// True when an argument asks for a size of its own.
bool AsksForSize(const Given& given, std::initializer_list<std::string_view> names) {
  return std::ranges::any_of(names,
                             [&](std::string_view name) { return given.arguments.Has(name); });
}

std::string Text(const compose::Size& size) {
  return std::to_string(size.width) + " x " + std::to_string(size.height);
}

// ---- crop

/// The part of the picture that is kept.
compose::Box CropBox(const Given& given, const Shape& shape) {
  const Arguments& arguments = given.arguments;
  const bool has_width = arguments.Has("width"), has_height = arguments.Has("height");
  const bool has_place = AsksForSize(given, {"x", "y"});
  const int x = arguments.Has("x") ? PixelsIn(given, "x", shape.width) : 0;
  const int y = arguments.Has("y") ? PixelsIn(given, "y", shape.height) : 0;
  // What is left from the place on, and on both sides of the middle everything.
  const bool central = arguments.Has("gravity") || !has_place;
  compose::Size size = central ? SizeOf(shape) : compose::Size{shape.width - x, shape.height - y};
  if (has_width) size.width = PixelsIn(given, "width", shape.width);
  if (has_height) size.height = PixelsIn(given, "height", shape.height);
  if (arguments.Has("aspect")) {
    const double ratio = RatioOf(given, "aspect");
    // Of an extent that is not given, as much as the proportions take.
    constexpr int kAny = 1000000;
    if (has_width) size.height = kAny;
    if (has_height) size.width = kAny;
    size = compose::LargestInside(size, ratio);
  }
  const compose::Gravity gravity = arguments.Has("gravity") ? GravityOf(given)
                                   : has_place              ? compose::Gravity::kNorthWest
                                                            : compose::Gravity::kCenter;
  return compose::Place(gravity, SizeOf(shape), {std::max(size.width, 1), std::max(size.height, 1)},
                        x, y);
}

SmartPtr<IQEL> Crop(Call& call) {
  const Shape& shape = call.band.whole;
  const compose::Box box = CropBox(call, shape);
  if (!box.LiesIn(SizeOf(shape))) {
    Refuse(call, Text({box.width, box.height}) + " at " + std::to_string(box.x) + ", " +
                     std::to_string(box.y) + " reaches beyond the picture of " + shape.Size() +
                     "; pad makes room");
  }
  const RowRange rows = call.band.result;
  return MakeWithPicture(call, {box.width, rows.size()}, ChannelsOf(shape), {}, -box.x,
                         call.band.first_row - box.y - rows.begin);
}

RowRange RowsOfCrop(const Given& given, const Shape& shape, RowRange result) {
  const int top = CropBox(given, shape).y;
  return ClampRows({result.begin + top, result.end + top}, shape.height);
}

void CheckCrop(const Given& given) {
  if (!AsksForSize(given, {"x", "y", "width", "height", "aspect"})) {
    Refuse(given, "give x=, y=, width=, height= or aspect=");
  }
  if (!given.arguments.Has("aspect")) return;
  RatioOf(given, "aspect");
  if (given.arguments.Has("width") && given.arguments.Has("height")) {
    Refuse(given, "give width=, height= or aspect=, two of them at most", "aspect");
  }
}

// ---- pad

compose::Size PaddedSize(const Given& given, const Shape& shape) {
  const Arguments& arguments = given.arguments;
  compose::Size size = SizeOf(shape);
  if (arguments.Has("border")) {
    size.width += 2 * PixelsIn(given, "border", shape.width);
    size.height += 2 * PixelsIn(given, "border", shape.height);
  }
  if (arguments.Has("width")) {
    size.width = std::max(size.width, PixelsIn(given, "width", shape.width));
  }
  if (arguments.Has("height")) {
    size.height = std::max(size.height, PixelsIn(given, "height", shape.height));
  }
  if (arguments.Has("aspect")) size = compose::SmallestRound(size, RatioOf(given, "aspect"));
  return size;
}

int PaddedChannels(const Given& given, const Shape& shape) {
  if (PaddedSize(given, shape) == SizeOf(shape)) return ChannelsOf(shape);
  return compose::ChannelsWith(ChannelsOf(shape), BackgroundOf(given, shape));
}

/// Where the picture comes to lie.
compose::Box PlaceInPad(const Given& given, const Shape& shape) {
  return compose::Place(GravityOf(given), PaddedSize(given, shape), SizeOf(shape), 0, 0);
}

SmartPtr<IQEL> Pad(Call& call) {
  const Shape& shape = call.band.whole;
  const RowRange rows = call.band.result;
  const compose::Box place = PlaceInPad(call, shape);
  return MakeWithPicture(call, {PaddedSize(call, shape).width, rows.size()},
                         PaddedChannels(call, shape), BackgroundOf(call, shape), place.x,
                         call.band.first_row + place.y - rows.begin);
}

RowRange RowsOfPad(const Given& given, const Shape& shape, RowRange result) {
  const int top = PlaceInPad(given, shape).y;
  return ClampRows({result.begin - top, result.end - top}, shape.height);
}

void CheckPad(const Given& given) {
  if (!AsksForSize(given, {"width", "height", "aspect", "border"})) {
    Refuse(given, "give width=, height=, aspect= or border=");
  }
  if (given.arguments.Has("aspect")) RatioOf(given, "aspect");
}

// ---- turn

/// Quarter and half turns cover their canvas.
int TurnedChannels(const Given& given, const Shape& shape) {
  if (std::fmod(given.arguments.Number("angle"), 90) == 0) return ChannelsOf(shape);
  return compose::ChannelsWith(ChannelsOf(shape), BackgroundOf(given, shape));
}

SmartPtr<IQEL> Turn(Call& call) {
  const Shape& shape = call.band.whole;
  const RowRange rows = call.band.result;
  const double angle = call.arguments.Number("angle");
  const compose::Pixels source = PixelsOf(call, *call.image);
  const int width = compose::TurnedSize(SizeOf(shape), angle).width;
  SmartPtr<IQEL> result = MakeImage(call, {width, rows.size()}, TurnedChannels(call, shape));
  const compose::Pixels dest = PixelsOf(call, *result.Get());
  compose::Turn(source, angle, BackgroundOf(call, shape), dest, rows.begin);
  return result;
}

/// A row of the result crosses many rows of the picture.
RowRange AllRows(const Given&, const Shape& shape, RowRange) { return {0, shape.height}; }

Shape WithSize(Shape shape, const compose::Size& size, int channels) {
  shape.width = size.width;
  shape.height = size.height;
  shape.bits = 8 * channels;
  return shape;
}

}  // namespace

std::vector<Operation> CanvasRows() {
  Parameter crop_gravity = kGravityParameter;
  crop_gravity.help =
      "the side or corner to start from; without it the top-left with x= or y=, else the middle";
  crop_gravity.standard = {};
  crop_gravity.optional = true;
  const Parameter aspect = {.name = "aspect",
                            .kind = Kind::kText,
                            .help = "proportions, as 16:9, 3/2 or 1.5",
                            .optional = true};
  const auto offset = [](std::string_view name, std::string_view help) {
    Parameter parameter = OffsetParameter(name, help);
    parameter.standard = {};
    parameter.optional = true;
    return parameter;
  };
  return {
      {.name = "crop",
       .component = kEveryday,
       .summary = "Cuts out a part of the picture.",
       .depths = kByteDepths,
       .parameters = {offset("x", "columns from the side of gravity"),
                      offset("y", "rows from the side of gravity"),
                      ExtentParameter("width", "columns of the part; without it, what is left"),
                      ExtentParameter("height", "rows of the part; without it, what is left"),
                      aspect, crop_gravity},
       .example = "crop x=10% y=10% width=80% height=80%",
       .picture_step = "crop width=90 height=60",
       .note = "aspect= alone keeps the largest part of these proportions.",
       .compose = &Crop,
       .source_rows = &RowsOfCrop,
       .check = &CheckCrop,
       .result_shape =
           [](const Given& given, Shape shape) {
             const compose::Box box = CropBox(given, shape);
             return WithSize(shape, {box.width, box.height}, ChannelsOf(shape));
           }},
      {.name = "pad",
       .component = kEveryday,
       .summary = "Makes room round the picture, to a size or to proportions.",
       .depths = kByteDepths,
       .parameters = {ExtentParameter("width", "the new width; never less than the picture's"),
                      ExtentParameter("height", "the new height; never less than the picture's"),
                      aspect, ExtentParameter("border", "room on every side"), kGravityParameter,
                      kBackgroundParameter},
       .example = "pad aspect=1:1 background=white",
       .picture_step = "pad border=12 background=#204060",
       .channel_order = ChannelOrder::kBlueGreenRed,
       .compose = &Pad,
       .source_rows = &RowsOfPad,
       .check = &CheckPad,
       .result_shape =
           [](const Given& given, Shape shape) {
             return WithSize(shape, PaddedSize(given, shape), PaddedChannels(given, shape));
           }},
      {.name = "turn",
       .component = kEveryday,
       .summary = "Turns the picture by any angle; the canvas grows to hold all of it.",
       .depths = kByteDepths,
       .parameters = {{.name = "angle",
                       .kind = Kind::kNumber,
                       .help = "the turn, counter-clockwise",
                       .minimum = -36000,
                       .maximum = 36000,
                       .usual = {-180, 180},
                       .unit = "degrees"},
                      kBackgroundParameter},
       .example = "turn angle=1.5",
       .picture_step = "turn angle=20",
       .note = "Quarter and half turns are exact.",
       .channel_order = ChannelOrder::kBlueGreenRed,
       .compose = &Turn,
       .source_rows = &AllRows,
       .result_shape =
           [](const Given& given, Shape shape) {
             return WithSize(shape,
                             compose::TurnedSize(SizeOf(shape), given.arguments.Number("angle")),
                             TurnedChannels(given, shape));
           }},
  };
}

}  // namespace qel::operations
