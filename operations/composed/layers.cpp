#include <algorithm>

#include "compose/blend.h"
#include "compose/text.h"
#include "operations/composed/common.h"
#include "operations/table.h"

namespace qel::operations {
namespace {

const Parameter kOpacity = {.name = "opacity",
                            .kind = Kind::kNumber,
                            .help = "how much of it shows",
                            .standard = "1",
                            .minimum = 0,
                            .maximum = 1};

/// Where something of `inner` pixels comes to lie, by gravity=, x= and y=.
compose::Box PlaceOf(const Given& given, const Shape& outer, const compose::Size& inner) {
  return compose::Place(GravityOf(given), SizeOf(outer), inner, PixelsIn(given, "x", outer.width),
                        PixelsIn(given, "y", outer.height));
}

/// The shape of a picture that some are laid on: a grey one takes colours.
Shape WithColor(Shape shape, bool has_color) {
  if (shape.bits == 8 && has_color) shape.bits = 24;
  return shape;
}

/// True when text is written in colours.
bool HasColor(const Given& given) {
  return !PaintOf(given, "colour").IsGray() || !PaintOf(given, "background").IsGray();
}

/// A copy with colours of a grey picture that some are laid on; null for others, which can be
/// changed themselves.
SmartPtr<IQEL> CopyFor(Call& call, bool has_color) {
  const Shape shape = ShapeOf(*call.image);
  if (ChannelsOf(shape) != 1 || !has_color) return {};
  return MakeWithPicture(call, SizeOf(shape), 3, {}, 0, 0);
}

SmartPtr<IQEL> Overlay(Call& call) {
  const Shape& shape = call.band.whole;
  const compose::ConstPixels over = PixelsOf(call, call.pictures.Get(call.arguments.Text("with")));
  PixelsOf(call, *call.image);
  const compose::Box box = PlaceOf(call, shape, {over.width, over.height});
  const bool tiles = call.arguments.Int("tile") != 0;
  const bool is_seen = box.x < shape.width && box.y < shape.height && box.x + box.width > 0 &&
                       box.y + box.height > 0;
  if (!tiles && !is_seen) {
    Refuse(call,
           "with=" + call.arguments.Text("with") + " of " + std::to_string(box.width) + " x " +
               std::to_string(box.height) + " at " + std::to_string(box.x) + ", " +
               std::to_string(box.y) + " lies outside the picture of " + shape.Size(),
           "with");
  }
  SmartPtr<IQEL> result = CopyFor(call, over.channels != 1);
  const compose::Pixels dest = PixelsOf(call, result ? *result.Get() : *call.image);
  const auto lay = tiles ? &compose::BlendTiles : &compose::BlendOver;
  lay(over, call.arguments.Number("opacity"), dest, box.x, box.y - call.band.first_row);
  return result;
}

SmartPtr<IQEL> DrawText(Call& call) {
  const Shape shape = ShapeOf(*call.image);
  PixelsOf(call, *call.image);
  const compose::Color color = PaintOf(call, "colour"), ground = PaintOf(call, "background");
  const int size = std::max(1, PixelsIn(call, "size", shape.height));
  compose::TextMask mask;
  try {
    mask = compose::DrawText(call.arguments.Text("text"), call.arguments.Text("font"), size);
  } catch (const compose::TextError& error) {
    Refuse(call, error.what(), "text");
  }
  if (mask.lacks_letters) {
    call.notes.push_back("text: no installed font has all of its letters; boxes stand for them");
  }
  const compose::Box box = PlaceOf(call, shape, {mask.width, mask.height});
  SmartPtr<IQEL> result = CopyFor(call, HasColor(call));
  const compose::Pixels dest = PixelsOf(call, result ? *result.Get() : *call.image);
  const auto lay = [&](std::vector<uint8_t> pixels) {
    compose::BlendOver({pixels.data(), ptrdiff_t{4} * mask.width, mask.width, mask.height, 4},
                       call.arguments.Number("opacity"), dest, box.x, box.y);
  };
  if (ground.alpha != 0) {
    lay(compose::PaintText(
        {mask.width, mask.height, std::vector<uint8_t>(mask.cover.size(), 255), false}, ground));
  }
  lay(compose::PaintText(mask, color));
  if (box.x < 0 || box.x + box.width > shape.width) {
    call.notes.push_back("text: the line is " + std::to_string(box.width) +
                         " pixels wide and stands over the picture of " + shape.Size() +
                         "; a smaller size= fits");
  }
  return result;
}

/// The picture without alpha.
SmartPtr<IQEL> FlattenOnto(Call& call, compose::Color ground) {
  const compose::Pixels source = PixelsOf(call, *call.image);
  SmartPtr<IQEL> result = MakeImage(call, {source.width, source.height}, 3);
  compose::Flatten(source, ground, PixelsOf(call, *result.Get()));
  return result;
}

SmartPtr<IQEL> Flatten(Call& call) {
  if (ShapeOf(*call.image).bits != 32) return {};
  return FlattenOnto(call, PaintOf(call, "background"));
}

SmartPtr<IQEL> Gray(Call& call) {
  const compose::Pixels source = PixelsOf(call, *call.image);
  if (source.channels == 1) return {};
  SmartPtr<IQEL> colors;
  if (source.channels == 4) colors = FlattenOnto(call, PaintOf(call, "background"));
  SmartPtr<IQEL> result = MakeImage(call, {source.width, source.height}, 1);
  compose::ToGray(colors ? PixelsOf(call, *colors.Get()) : source, PixelsOf(call, *result.Get()));
  return result;
}

void NeedOpaqueBackground(const Given& given) {
  if (PaintOf(given, "background").alpha == 255) return;
  Refuse(given, "background= needs an opaque colour", "background");
}

}  // namespace

std::vector<Operation> LayerRows() {
  Parameter corner = kGravityParameter;
  corner.standard = "south-east";
  Parameter ground = kBackgroundParameter;
  ground.help = "the colour that shows through";
  ground.standard = "white";
  Parameter behind = ground;
  behind.help = "a box of this colour behind the letters";
  behind.standard = "transparent";
  std::vector<Operation> rows = {
      {.name = "overlay",
       .component = kEveryday,
       .summary = "Lays a second picture on this one by its alpha, such as a logo.",
       .depths = kByteDepths,
       .in_place = true,
       .parameters = {{.name = "with", .kind = Kind::kPicture, .help = "the second picture"},
                      corner,
                      OffsetParameter("x", "columns from the side of gravity"),
                      OffsetParameter("y", "rows from the side of gravity"),
                      kOpacity,
                      {.name = "tile",
                       .kind = Kind::kFlag,
                       .help = "repeat it over the whole picture",
                       .standard = "no"}},
       .example = "overlay with=other.png x=20 y=20",
       .picture_step = "overlay with=other.png opacity=0.5",
       .note = "A grey picture takes colours, and then has 24 bits.",
       .channel_order = ChannelOrder::kBlueGreenRed,
       .compose = &Overlay,
       .source_rows =
           [](const Given&, const Shape& shape, RowRange result) {
             // A grey picture may get another depth.
             return shape.bits == 8 ? RowRange{} : result;
           },
       .shape_with_second = [](const Given&, Shape shape,
                               const Shape& over) { return WithColor(shape, over.bits > 8); }},
      {.name = "text",
       .component = kEveryday,
       .summary = "Writes a line of text on the picture.",
       .depths = kByteDepths,
       .in_place = true,
       .parameters =
           {{.name = "text", .kind = Kind::kText, .help = "the line"},
            {.name = "size",
             .kind = Kind::kExtent,
             .help = "height of the font; with %, of the picture",
             .standard = "5%",
             .minimum = 1,
             .maximum = 10000,
             .usual = {8, 200}},
            {.name = "font",
             .kind = Kind::kText,
             .help = "a font by fontconfig's names, as serif or \"DejaVu Sans:bold\"",
             .standard = "sans"},
            {.name = "colour", .kind = Kind::kPaint, .help = "of the letters", .standard = "white"},
            behind,
            corner,
            OffsetParameter("x", "columns from the side of gravity"),
            OffsetParameter("y", "rows from the side of gravity"),
            kOpacity},
       .example = "text 'text=Hello there' size=24 x=10 y=10",
       .picture_step =
           "text text=Hello size=24 'font=DejaVu Sans' colour=yellow background=#00000080",
       .note = "Right-to-left and joined scripts are not shaped.",
       .channel_order = ChannelOrder::kBlueGreenRed,
       .compose = &DrawText,
       .result_shape = [](const Given& given,
                          Shape shape) { return WithColor(shape, HasColor(given)); }},
      {.name = "flatten",
       .component = kEveryday,
       .summary = "Lays a picture with alpha on a colour.",
       .depths = kByteDepths,
       .parameters = {ground},
       .example = "flatten background=white",
       .note = "Pictures without alpha stay as they are.",
       .sets_alpha = true,
       .channel_order = ChannelOrder::kBlueGreenRed,
       .border = &NoNeighbours,
       .compose = &Flatten,
       .check = &NeedOpaqueBackground,
       .result_shape =
           [](const Given&, Shape shape) {
             if (shape.bits == 32) shape.bits = 24;
             return shape;
           }},
      {.name = "grey",
       .component = kEveryday,
       .summary = "Makes a grey picture of one channel, by the brightness that people see.",
       .depths = kByteDepths,
       .parameters = {ground},
       .example = "grey",
       .note = "Brightness is 0.299 red + 0.587 green + 0.114 blue. Alpha is laid on the "
               "background.",
       .channel_order = ChannelOrder::kBlueGreenRed,
       .border = &NoNeighbours,
       .compose = &Gray,
       .check = &NeedOpaqueBackground,
       .result_shape =
           [](const Given&, Shape shape) {
             shape.bits = 8;
             return shape;
           }},
  };
  if (!compose::HasText())
    std::erase_if(rows, [](const Operation& row) { return row.name == "text"; });
  return rows;
}

}  // namespace qel::operations
