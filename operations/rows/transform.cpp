#include <algorithm>
#include <climits>
#include <cmath>
#include <numbers>
#include <utility>

#include "operations/rows/common.h"
#include "operations/table.h"
#include "transform/rotate/rotated_frame.h"

namespace qel::operations {
namespace {

constexpr std::string_view kTransformComponent = "QELTransform";
constexpr std::string_view kColorDepths = "24, 32";

constexpr Choice kMethods[] = {{"nearest", kSampleNearest},
                               {"truncate", kSampleTruncated},
                               {"b-spline", kSampleCubicBSpline},
                               {"cubic", kSampleKeysCubic},
                               {"catmull-rom", kSampleCatmullRom},
                               {"lanczos", kSampleLanczos6},
                               {"box", kSampleBox},
                               {"hermite", kSampleHermite},
                               {"damped-hermite", kSampleDampedHermite},
                               {"sinc", kSampleSinc},
                               {"cosine", kSampleBlackman},
                               {"jinc", kSampleJinc},
                               {"gaussian", kSampleGaussian},
                               {"quadratic", kSampleQuadraticBSpline},
                               {"mitchell", kSampleMitchellNetravali},
                               {"catmull-rom-15", kSampleCatmullRomOfOffset}};
constexpr Choice kWiderDepths[] = {{"24", 24}, {"32", 32}};

const Parameter kMethod = {.name = "method",
                           .kind = Kind::kChoice,
                           .help = "interpolation, by name or number",
                           .standard = "catmull-rom",
                           .choices = kMethods};

void CheckResample(const Given& given) {
  if (given.arguments.Has("width") || given.arguments.Has("height")) return;
  Refuse(given, "give width=, height= or both");
}

/// The new size: what was given, the missing extent by the picture's proportions, and with fit= the
/// largest size of these proportions inside both.
Shape ShapeAfterResample(const Given& given, Shape shape) {
  const Arguments& arguments = given.arguments;
  const bool has_width = arguments.Has("width");
  const bool has_height = arguments.Has("height");
  const double x = has_width ? arguments.Pixels("width", shape.width) / shape.width : 0;
  const double y = has_height ? arguments.Pixels("height", shape.height) / shape.height : 0;
  const bool fits = has_width && has_height && arguments.Number("fit") != 0;
  const double x_scale = !has_width ? y : fits ? std::min(x, y) : x;
  const double y_scale = !has_height ? x : fits ? std::min(x, y) : y;
  const auto scale = [](int& extent, double factor) {
    extent = static_cast<int>(std::clamp<double>(std::round(extent * factor), 1, INT_MAX));
  };
  scale(shape.width, x_scale);
  scale(shape.height, y_scale);
  return shape;
}

result_t CallResample(Call& call) {
  const Shape shape = ShapeAfterResample(call, ShapeOf(*call.image));
  return call.components.transform->Resample(call.image, call.result, shape.width, shape.height,
                                             call.arguments.Int("method"),
                                             call.arguments.Int("nearest"));
}

/// Whether `Rotate` moves whole pixels. It samples for the same turn by another number of degrees.
bool MovesPixels(int angle) {
  return angle == -90 || angle == 0 || angle == 90 || angle == 180 || angle == 270;
}

/// The rectangle round the turned picture, to the pixel: what writes it goes by this size.
Shape ShapeAfterRotate(const Given& given, Shape shape) {
  const int angle = given.arguments.Int("angle");
  if (MovesPixels(angle)) {
    // The other arguments do not matter then.
    if (angle % 180 != 0) std::swap(shape.width, shape.height);
    return shape;
  }
  if (given.arguments.Int("force-alpha") != 0) shape.bits = 32;
  if (given.arguments.Int("keep-size") != 0) return shape;
  const auto frame = RotatedFrame::Bounding(shape.width, shape.height, Turn::ByDegrees(angle));
  shape.width = frame.width();
  shape.height = frame.height();
  return shape;
}

result_t CallRotatePaste(Call& call) {
  // A key colour with anything in its top byte matches no pixel.
  const int key = call.arguments.Has("key") ? call.arguments.Int("key") : -1;
  return call.components.transform->RotatePaste(
      &call.pictures.Get(call.arguments.Text("with")), call.image,
      call.arguments.Number("angle") * std::numbers::pi / 180, call.arguments.Int("method"), key);
}

bool ShrinksBoth(const Given& given, const Shape& shape) {
  const Shape after = ShapeAfterResample(given, shape);
  return after.width < shape.width && after.height < shape.height;
}

/// The kernels whose weights do not add up to 1.
bool ChangesBrightness(const Given& given) {
  const int method = given.arguments.Int("method");
  return method >= 8 && method <= 12;
}

constexpr std::string_view kBrightness =
    "The methods damped-hermite, sinc, cosine, jinc and gaussian change the brightness; "
    "catmull-rom, mitchell and lanczos keep it.";

const std::vector<Surprise> kResampleSurprises = {
    {"Boxes of whole pixels leave out the rest of the scale, and ignore the method; resize weighs "
     "all pixels.",
     [](const Given& given, const Shape& shape) {
       const Shape after = ShapeAfterResample(given, shape);
       return ShrinksBoth(given, shape) && given.arguments.Int("nearest") == 0 &&
              (shape.width % after.width != 0 || shape.height % after.height != 0);
     }},
    {kBrightness, [](const Given& given, const Shape& shape) {
       return ChangesBrightness(given) && !ShrinksBoth(given, shape);
     }}};

const std::vector<Surprise> kRotateSurprises = {
    {"Quarter turns go clockwise, all other angles counter-clockwise; turn always goes "
     "counter-clockwise.",
     [](const Given& given, const Shape&) {
       const int angle = given.arguments.Int("angle");
       return MovesPixels(angle) && angle % 180 != 0;
     }},
    {"A half turn at 24 bits is shifted by one column; turn angle=180 is exact.",
     [](const Given& given, const Shape& shape) {
       return given.arguments.Int("angle") == 180 && shape.bits == 24;
     }},
    {"About four pixels along every edge are not drawn; turn draws all of them.",
     [](const Given& given, const Shape&) { return !MovesPixels(given.arguments.Int("angle")); }},
    {"Turns by 0, 90, 180 and 270 degrees take the size that they need and add no alpha.",
     [](const Given& given, const Shape&) {
       const Arguments& arguments = given.arguments;
       const int angle = arguments.Int("angle");
       const bool asks = (arguments.Int("keep-size") != 0 && angle % 180 != 0) ||
                         arguments.Int("force-alpha") != 0;
       return MovesPixels(angle) && asks;
     }},
    {kBrightness, [](const Given& given, const Shape&) {
       return ChangesBrightness(given) && !MovesPixels(given.arguments.Int("angle"));
     }}};

}  // namespace

std::span<const Choice> InterpolationMethods() { return kMethods; }

std::vector<Operation> TransformOperations() {
  return {
      {.name = "flip",
       .component = kTransformComponent,
       .summary = "Turns the picture upside down.",
       .depths = kAllDepths,
       .example = "flip",
       .reach = [](const Given&, const Shape&) { return Reach::kPadding; },
       .fills_result = true,
       .method = &MethodNamed("Flip")},
      {.name = "mirror",
       .component = kTransformComponent,
       .summary = "Mirrors the picture left to right.",
       .depths = kByteDepths,
       .example = "mirror",
       .border = &WholeRow,
       .fills_result = true,
       .method = &MethodNamed("Mirror")},
      {.name = "flip-bits",
       .component = kTransformComponent,
       .summary = "Exchanges red and blue.",
       .depths = kColorDepths,
       .in_place = true,
       .example = "flip-bits",
       .border = &NoNeighbours,
       .method = &MethodNamed("FlipBits")},
      {.name = "flip-image-and-bits",
       .component = kTransformComponent,
       .summary = "Turns the picture upside down and exchanges red and blue.",
       .depths = kColorDepths,
       .in_place = true,
       .example = "flip-image-and-bits",
       .note = "Alpha is not turned.",
       .surprises = {{"Of the middle row of an odd number only the first half changes.",
                      [](const Given&, const Shape& shape) { return shape.height % 2 == 1; }}},
       .channel_order = ChannelOrder::kBlueGreenRed,
       .method = &MethodNamed("FlipImageAndBits")},
      {.name = "increase-bpp",
       .component = kTransformComponent,
       .summary = "Converts to a larger depth; indices become the palette's colours.",
       .depths = kByteDepths,
       .parameters = {{.name = "bits",
                       .kind = Kind::kChoice,
                       .help = "the new depth",
                       .standard = "32",
                       .choices = kWiderDepths}},
       .example = "increase-bpp bits=32",
       .note = "A picture of that depth or more comes back as it is. Palette colours at 32 bits "
               "have alpha 0.",
       .border = &NoNeighbours,
       .reach = &BeyondBelowEightBits,
       .call =
           [](Call& call) {
             const int bits = call.arguments.Int("bits");
             return call.components.transform->IncreaseBpp(call.image, call.result, bits,
                                                           bits == 32 ? kModelArgb : kModelBgr);
           },
       .result_shape =
           [](const Given& given, Shape shape) {
             shape.bits = std::max(shape.bits, given.arguments.Int("bits"));
             return shape;
           }},
      {.name = "resample",
       .component = kTransformComponent,
       .summary = "Scales the picture to a new size.",
       .depths = kAllDepths,
       .parameters = {{.name = "width",
                       .kind = Kind::kExtent,
                       .help = "the new width; without it, by the height",
                       .minimum = 1,
                       .maximum = 1e6,
                       .usual = {1, 4000},
                       .unit = "pixels",
                       .optional = true},
                      {.name = "height",
                       .kind = Kind::kExtent,
                       .help = "the new height; without it, by the width",
                       .minimum = 1,
                       .maximum = 1e6,
                       .usual = {1, 4000},
                       .unit = "pixels",
                       .optional = true},
                      {.name = "fit",
                       .kind = Kind::kFlag,
                       .help = "keep the proportions and stay inside width and height",
                       .standard = "no"},
                      kMethod,
                      {.name = "nearest",
                       .kind = Kind::kFlag,
                       .help = "copy the nearest pixels whatever the method",
                       .standard = "no"}},
       .example = "resample width=110% method=mitchell",
       .note = "Shrinking along both axes averages exact boxes of whole pixels without the rest, "
               "and leaves alpha undefined; for pictures to look at, see resize.",
       .surprises = kResampleSurprises,
       .reach = &BeyondBelowEightBits,
       .call = &CallResample,
       .check = &CheckResample,
       .result_shape = &ShapeAfterResample},
      {.name = "rotate",
       .component = kTransformComponent,
       .summary = "Turns the picture; what it does not cover takes its top-left colour.",
       .depths = kByteDepths,
       .parameters =
           {{.name = "angle", .help = "the turn", .usual = {-180, 180}, .unit = "degrees"},
            kMethod,
            {.name = "force-alpha",
             .kind = Kind::kFlag,
             .help = "make the result 32 bits deep",
             .standard = "no"},
            {.name = "keep-size",
             .kind = Kind::kFlag,
             .help = "keep the size instead of growing to hold the turned picture",
             .standard = "no"}},
       .example = "rotate angle=25 method=cubic",
       .surprises = kRotateSurprises,
       // A half turn of three-byte pixels reads one before each row.
       .reach =
           [](const Given& given, const Shape& shape) {
             const bool half_turn = given.arguments.Int("angle") % 180 == 0;
             return shape.bits < 8 || (shape.bits == 24 && half_turn) ? Reach::kBeyond
                                                                      : Reach::kRows;
           },
       .method = &MethodNamed("Rotate"),
       .result_shape = &ShapeAfterRotate},
      {.name = "rotate-paste",
       .component = kTransformComponent,
       .summary = "Draws a second picture, turned, into the top-left of this one.",
       .depths = kColorDepths,
       .in_place = true,
       .parameters = {{.name = "with", .kind = Kind::kPicture, .help = "the picture to draw"},
                      {.name = "angle",
                       .kind = Kind::kNumber,
                       .help = "the turn",
                       .standard = "0",
                       .usual = {-180, 180},
                       .unit = "degrees"},
                      kMethod,
                      {.name = "key",
                       .kind = Kind::kColor,
                       .help = "colour that is not drawn, of a picture without alpha",
                       .optional = true}},
       .example = "rotate-paste with=other.png angle=20",
       .note = "A picture with alpha is blended by it. Turns the other way round than rotate.",
       .channel_order = ChannelOrder::kByArguments,
       .reach = [](const Given&,
                   const Shape& shape) { return shape.bits < 24 ? Reach::kBeyond : Reach::kRows; },
       .call = &CallRotatePaste},
  };
}

}  // namespace qel::operations
