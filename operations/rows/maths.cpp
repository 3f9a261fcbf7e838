#include <algorithm>
#include <string>

#include "operations/rows/borders.h"
#include "operations/table.h"

namespace qel::operations {
namespace {

constexpr std::string_view kComponent = "QELMaths";
constexpr std::string_view kByteDepths = "8, 24, 32";

const Parameter kWith = {.name = "with", .kind = Kind::kPicture, .help = "the second picture"};
const Parameter kMask = {.name = "mask",
                         .kind = Kind::kPicture,
                         .help = "8-bit picture; pixels where it is 0 stay as they are",
                         .optional = true};

std::string Named(const Call& call, std::string_view parameter) {
  return std::string(parameter) + "=" + call.arguments.Text(parameter);
}

void NeedBytes(const Call& call, const Shape& shape) {
  if (shape.HasBytes()) return;
  Refuse(call, "works on 8, 24 and 32 bits per pixel, the picture has " + shape.Bits() +
                   "; bring it to one of these first");
}

/// The second picture, which must have the depth of the first.
IQEL& SecondOfSameDepth(Call& call, const Shape& first) {
  IQEL& second = call.pictures.Get(call.arguments.Text("with"));
  const Shape shape = ShapeOf(second);
  NeedBytes(call, first);
  if (shape.bits != first.bits || shape.model != first.model) {
    Refuse(call, Named(call, "with") + " has " + shape.Bits() + " and the picture " + first.Bits() +
                     "; bring both to one depth, for example with scale depth=" +
                     std::to_string(std::min(shape.bits, first.bits)));
  }
  return second;
}

/// The mask, which must have a byte for every pixel of `area`; null when there is none.
IQEL* MaskFor(Call& call, const Shape& area) {
  if (!call.arguments.Has("mask")) return nullptr;
  IQEL& mask = call.pictures.Get(call.arguments.Text("mask"));
  const Shape shape = ShapeOf(mask);
  if (shape.bits != 8) {
    Refuse(call, Named(call, "mask") + " has " + shape.Bits() +
                     " and must have 8; make it grey with scale depth=8");
  }
  if (!shape.Covers(area)) {
    Refuse(call, Named(call, "mask") + " has " + shape.Size() + " pixels and must have " +
                     area.Size() + " at least");
  }
  return &mask;
}

result_t CallEqual(Call& call) {
  const Shape shape = ShapeOf(*call.image);
  NeedBytes(call, shape);
  IQEL* const mask = MaskFor(call, shape);
  const auto colour = static_cast<uint32_t>(call.arguments.Number("colour"));
  const auto alpha = static_cast<uint32_t>(call.arguments.Int("alpha"));
  // At 24 bits the value's third byte becomes blue.
  const uint32_t value = shape.bits == 24 ? (colour & 0xFF) << 16 | (colour & 0xFF00) | colour >> 16
                                          : alpha << 24 | colour;
  return call.components.maths->Equal(call.image, mask, static_cast<int>(value));
}

result_t CallCopy(Call& call) {
  const Shape shape = ShapeOf(*call.image);
  IQEL& source = call.pictures.Get(call.arguments.Text("with"));
  NeedBytes(call, shape);
  NeedBytes(call, ShapeOf(source));
  const int x = call.arguments.Int("x"), y = call.arguments.Int("y");
  if (x >= shape.width || y >= shape.height) {
    Refuse(call, "x=" + std::to_string(x) + " y=" + std::to_string(y) +
                     " lies outside the picture of " + shape.Size() + " pixels");
  }
  const bool keep = call.arguments.Int("keep") != 0;
  if (keep) SecondOfSameDepth(call, shape);
  return call.components.maths->Copy(call.image, &source, keep ? call.image : nullptr, x, y);
}

result_t CallAdd(Call& call) {
  const Shape shape = ShapeOf(*call.image);
  IQEL& second = SecondOfSameDepth(call, shape);
  if (!ShapeOf(second).Covers(shape)) {
    Refuse(call, Named(call, "with") + " has " + ShapeOf(second).Size() + " pixels and must have " +
                     shape.Size() + " at least");
  }
  SmartPtr<IQELImageDIB> sum = call.NewImage();
  const result_t result =
      call.components.maths->Add(sum.Get(), call.image, &second, call.arguments.Real("divisor"));
  *call.result = sum.Detach();
  return result;
}

result_t CallSubtract(Call& call) {
  IQEL& second = SecondOfSameDepth(call, ShapeOf(*call.image));
  const int flags = call.arguments.Int("absolute") | call.arguments.Int("clear-alpha") << 1;
  const result_t tally = call.components.maths->Subtract(call.image, call.image, &second, flags);
  if (Succeeded(tally) && ShapeOf(*call.image).bits != 8) {
    call.notes.push_back("subtract: " + std::to_string(tally) + " samples are 2 or more");
  }
  return tally;
}

result_t CallAddScale(Call& call) {
  const Shape shape = ShapeOf(*call.image);
  IQEL& second = call.pictures.Get(call.arguments.Text("with"));
  const Shape other = ShapeOf(second);
  NeedBytes(call, shape);
  const bool mixed = other.bits != shape.bits;
  if (mixed && (std::min(other.bits, shape.bits) < 24 || call.arguments.Has("mask"))) {
    SecondOfSameDepth(call, shape);
  }
  const Shape area = {std::min(shape.width, other.width), std::min(shape.height, other.height)};
  const Arguments& arguments = call.arguments;
  return call.components.maths->AddScale(call.image, call.image, &second, MaskFor(call, area),
                                         arguments.Real("factor"), arguments.Real("with-factor"),
                                         arguments.Real("offset"));
}

/// Of operations with the argument depth=.
Shape ShapeOfDepth(const Given& given, Shape shape) {
  const int depth = given.arguments.Int("depth");
  if (depth != 0) shape.bits = depth;
  return shape;
}

result_t CallScale(Call& call) {
  const Shape shape = ShapeOf(*call.image);
  NeedBytes(call, shape);
  const int wanted = call.arguments.Int("depth");
  const int depth = wanted == 0 ? shape.bits : wanted;
  if (shape.bits == 8 && depth == 32) Refuse(call, "8 bits become 24 at most");
  if (call.arguments.Has("mask") && (shape.bits != 8 || depth != 8)) {
    Refuse(call, "takes a mask from 8 to 8 bits only");
  }
  IQEL* const mask = MaskFor(call, shape);
  IQELMaths& maths = *call.components.maths.Get();
  IQEL* dest = call.image;
  if (depth != shape.bits) {
    const result_t result =
        maths.CreateDestImage(call.result, call.image, depth, static_cast<int>(ModelOf(depth)));
    if (Failed(result)) return result;
    dest = *call.result;
  }
  return maths.Scale(dest, call.image, mask, call.arguments.Real("factor"),
                     call.arguments.Real("offset"));
}

result_t CallScale8(Call& call) {
  const Shape shape = ShapeOf(*call.image);
  if (shape.bits != 32) {
    Refuse(call, "takes 32 bits per pixel as one integer, the picture has " + shape.Bits());
  }
  IQELMaths& maths = *call.components.maths.Get();
  SmartPtr<IQEL> integers = SmartPtr<IQEL>::Retain(call.image);
  if (shape.model != kModelMono) {
    // The same bytes under another name.
    const result_t result = maths.CreateDestImage(integers.Put(), call.image, 0, kModelMono);
    if (Failed(result)) return result;
    maths.Copy(integers.Get(), call.image, nullptr, 0, 0);
  }
  SmartPtr<IQELImageDIB> bytes = call.NewImage();
  const result_t result = maths.Scale8(bytes.Get(), integers.Get(), call.arguments.Int("offset"),
                                       call.arguments.Number("factor"));
  *call.result = bytes.Detach();
  return result;
}

constexpr Choice kDepths[] = {{"same", 0}, {"8", 8}, {"24", 24}, {"32", 32}};

Parameter Number(std::string_view name, std::string_view help, std::string_view standard,
                 Range usual) {
  return {.name = name,
          .kind = Kind::kNumber,
          .help = help,
          .standard = standard,
          .minimum = -1e9,
          .maximum = 1e9,
          .usual = usual};
}
Parameter Place(std::string_view name, std::string_view help) {
  return {.name = name,
          .help = help,
          .standard = "0",
          .minimum = 0,
          .usual = {0, 4000},
          .unit = "pixels"};
}
Parameter Flag(std::string_view name, std::string_view help) {
  return {.name = name, .kind = Kind::kFlag, .help = help, .standard = "no"};
}
Parameter Depth(std::string_view help) {
  return {
      .name = "depth", .kind = Kind::kChoice, .help = help, .standard = "same", .choices = kDepths};
}

}  // namespace

std::vector<Operation> MathsOperations() {
  return {
      {.name = "equal",
       .component = kComponent,
       .summary = "Fills the picture, or what a mask selects, with one colour.",
       .depths = kByteDepths,
       .in_place = true,
       .parameters = {{.name = "colour",
                       .kind = Kind::kColor,
                       .help = "8-bit pictures take its blue"},
                      {.name = "alpha",
                       .help = "at 32 bits",
                       .standard = "255",
                       .minimum = 0,
                       .maximum = 255},
                      kMask},
       .example = "equal colour=#204080 mask=mask.png",
       .note = "24-bit pictures are filled whatever the mask says.",
       .channel_order = ChannelOrder::kByArguments,
       .border = &NoNeighbours,
       .call = &CallEqual},
      {.name = "copy",
       .component = kComponent,
       .summary = "Pastes another picture into this one, whatever the two depths.",
       .depths = kByteDepths,
       .in_place = true,
       .parameters = {kWith, Place("x", "column of its left edge"),
                      Place("y", "row of its top edge"),
                      Flag("keep", "replaces zero bytes only; needs equal depths")},
       .example = "copy with=other.png x=240 y=100",
       .picture_step = "copy with=other.png x=80 y=33",
       .note = "Colours become grey as the truncated mean; what hangs over is cut off.",
       .call = &CallCopy},
      {.name = "add-scale",
       .component = kComponent,
       .summary = "Weighted sum of two pictures.",
       .depths = kByteDepths,
       .in_place = true,
       .parameters = {kWith, Number("factor", "weight of the picture", "0.5", {-2, 2}),
                      Number("with-factor", "weight of the second picture", "0.5", {-2, 2}),
                      Number("offset", "added to the sum", "0", {-255, 255}), kMask},
       .example = "add-scale with=other.png factor=0.7 with-factor=0.6",
       .note = "Alpha takes part where both have 32 bits; 24 and 32 bits mix without a mask.",
       .border = &NoNeighbours,
       .call = &CallAddScale},
      {.name = "scale",
       .component = kComponent,
       .summary = "Multiplies samples by a factor and adds an offset; changes the depth.",
       .depths = kByteDepths,
       .in_place = true,
       .parameters = {Number("factor", "multiplies every sample", "1", {0, 4}),
                      Number("offset", "added to every product", "0", {-255, 255}),
                      Depth("bits of the result; from 8 to 32 there is no way"), kMask},
       .example = "scale factor=1.4 offset=-30 depth=24",
       .note = "Another depth makes a new picture.",
       .surprises = {{"From 24 to 32 bits only the first pixel of each row is converted; "
                      "increase-bpp converts all.",
                      [](const Given& given, const Shape& shape) {
                        return shape.bits == 24 && given.arguments.Int("depth") == 32;
                      }},
                     {"From 32 to 32 bits values above 255 wrap, and alpha takes part.",
                      [](const Given& given, const Shape& shape) {
                        return shape.bits == 32 && given.arguments.Int("depth") % 32 == 0;
                      }}},
       .border =
           [](const Given& given, const Shape& shape) {
             const int depth = given.arguments.Int("depth");
             return shape.bits == 24 && depth == 32 ? Border{.rows = 0, .columns = Border::kAll}
                                                    : Border{};
           },
       .call = &CallScale,
       .result_shape = &ShapeOfDepth},
      {.name = "subtract",
       .component = kComponent,
       .summary = "Difference of two pictures, clamped at 0 or absolute.",
       .depths = kByteDepths,
       .in_place = true,
       .parameters = {kWith, Flag("absolute", "takes the absolute difference"),
                      Flag("clear-alpha", "alpha of the result is 0, otherwise 255")},
       .example = "subtract with=other.png absolute=yes",
       .note = "clear-alpha=yes selects the absolute difference as well at 8 and 24 bits.",
       .border = &NoNeighbours,
       .call = &CallSubtract},
      {.name = "create-dest-image",
       .component = kComponent,
       .summary = "Makes an empty picture of the same size.",
       .depths = kByteDepths,
       .parameters = {Depth("bits of the result")},
       .example = "create-dest-image depth=8",
       .sets_alpha = true,
       .border = &NoNeighbours,
       .call =
           [](Call& call) {
             const int depth = call.arguments.Int("depth");
             const uint32_t model = depth == 0 ? 0 : ModelOf(depth);
             return call.components.maths->CreateDestImage(call.result, call.image, depth,
                                                           static_cast<int>(model));
           },
       .result_shape = &ShapeOfDepth},
      {.name = "add",
       .component = kComponent,
       .summary = "Sum of two pictures, divided.",
       .depths = kByteDepths,
       .parameters = {kWith, Number("divisor", "0 divides by nothing", "0", {0, 4})},
       .example = "add with=other.png divisor=1.5",
       .surprises = {{"divisor=2 multiplies by four.",
                      [](const Given& given, const Shape&) {
                        return given.arguments.Number("divisor") == 2;
                      }},
                     {"At 32 bits the last quarter of every row is empty.",
                      [](const Given&, const Shape& shape) { return shape.bits == 32; }}},
       .channel_order = ChannelOrder::kAlikeWithoutAlpha,
       .border =
           [](const Given&, const Shape& shape) {
             return shape.bits == 32 ? Border{.rows = 0, .columns = Border::kAll} : Border{};
           },
       .call = &CallAdd},
      {.name = "scale8",
       .component = kComponent,
       .summary = "Scales 32-bit pixels, each read as one integer, to 8-bit greys.",
       .depths = "32",
       .parameters = {Number("factor", "multiplies every integer", "0.0000152587890625",
                             {0, 0.0001}),
                      {.name = "offset",
                       .help = "added to the product",
                       .standard = "256",
                       .usual = {-255, 511}}},
       .example = "scale8 factor=0.0000152587890625 offset=256",
       .note = "Alpha is the highest byte and counts as a sign, then red: the standard values give "
               "the red of opaque pixels.",
       .channel_order = ChannelOrder::kBlueGreenRed,
       .border = &NoNeighbours,
       .call = &CallScale8,
       .result_shape =
           [](const Given&, Shape shape) {
             shape.bits = 8;
             return shape;
           }},
  };
}

}  // namespace qel::operations
