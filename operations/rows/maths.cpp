#include <algorithm>
#include <string>

#include "operations/rows/common.h"
#include "operations/table.h"

namespace qel::operations {
namespace {

constexpr std::string_view kMathsComponent = "QELMaths";

const Parameter kWith = {.name = "with", .kind = Kind::kPicture, .help = "the second picture"};
const Parameter kMask = {.name = "mask",
                         .kind = Kind::kPicture,
                         .help = "8-bit picture; pixels where it is 0 stay as they are",
                         .optional = true};

std::string Named(const Given& given, std::string_view parameter) {
  return std::string(parameter) + "=" + given.arguments.Text(parameter);
}

void NeedSameDepth(const Given& given, const Shape& first, const Shape& second) {
  if (second.bits == first.bits && second.model == first.model) return;
  RefuseDepth(given, Named(given, "with") + " has " + second.Bits() + " and the picture " +
                         first.Bits() + "; bring both to one depth, for example with scale depth=" +
                         std::to_string(std::min(second.bits, first.bits)));
}

/// The mask, if there is one, must have a byte for every pixel of `area`.
void NeedMask(const Given& given, const Shape& area, const ShapeOfPicture& second) {
  if (!given.arguments.Has("mask")) return;
  const Shape shape = second(given.arguments.Text("mask"));
  if (shape.bits != 8) {
    RefuseDepth(given, Named(given, "mask") + " has " + shape.Bits() +
                           " and must have 8; make it grey with scale depth=8");
  }
  if (!shape.Covers(area)) {
    Refuse(given, Named(given, "mask") + " has " + shape.Size() + " pixels and must have " +
                      area.Size() + " at least");
  }
}

IQEL* MaskOf(const Call& call) {
  return call.arguments.Has("mask") ? &call.pictures.Get(call.arguments.Text("mask")) : nullptr;
}

IQEL& SecondOf(const Call& call) { return call.pictures.Get(call.arguments.Text("with")); }

result_t CallEqual(Call& call) {
  const auto color = static_cast<uint32_t>(call.arguments.Number("colour"));
  const auto alpha = static_cast<uint32_t>(call.arguments.Int("alpha"));
  // At 24 bits the value's third byte becomes blue.
  const uint32_t value = ShapeOf(*call.image).bits == 24
                             ? (color & 0xFF) << 16 | (color & 0xFF00) | color >> 16
                             : alpha << 24 | color;
  return call.components.maths->Equal(call.image, MaskOf(call), static_cast<int>(value));
}

void CheckCopy(const Given& given, const Shape& shape, const ShapeOfPicture& second) {
  const Shape source = second(given.arguments.Text("with"));
  if (!source.HasBytes()) {
    RefuseDepth(given, Named(given, "with") + " has " + source.Bits() + "; it needs 8, 24 or 32");
  }
  const int x = given.arguments.Int("x"), y = given.arguments.Int("y");
  if (x >= shape.width || y >= shape.height) {
    Refuse(given, "x=" + std::to_string(x) + " y=" + std::to_string(y) +
                      " lies outside the picture of " + shape.Size() + " pixels");
  }
  if (given.arguments.Int("keep") != 0) NeedSameDepth(given, shape, source);
}

result_t CallCopy(Call& call) {
  IQEL* const mask = call.arguments.Int("keep") != 0 ? call.image : nullptr;
  return call.components.maths->Copy(call.image, &SecondOf(call), mask, call.arguments.Int("x"),
                                     call.arguments.Int("y"));
}

void CheckAdd(const Given& given, const Shape& shape, const ShapeOfPicture& second) {
  const Shape other = second(given.arguments.Text("with"));
  NeedSameDepth(given, shape, other);
  if (other.Covers(shape)) return;
  Refuse(given, Named(given, "with") + " has " + other.Size() + " pixels and must have " +
                    shape.Size() + " at least");
}

result_t CallAdd(Call& call) {
  SmartPtr<IQELImageDIB> sum = call.NewImage();
  const result_t result = call.components.maths->Add(sum.Get(), call.image, &SecondOf(call),
                                                     call.arguments.Real("divisor"));
  *call.result = sum.Detach();
  return result;
}

void CheckSubtract(const Given& given, const Shape& shape, const ShapeOfPicture& second) {
  NeedSameDepth(given, shape, second(given.arguments.Text("with")));
}

result_t CallSubtract(Call& call) {
  const int flags = call.arguments.Int("absolute") | call.arguments.Int("clear-alpha") << 1;
  const result_t tally =
      call.components.maths->Subtract(call.image, call.image, &SecondOf(call), flags);
  if (Succeeded(tally) && ShapeOf(*call.image).bits != 8) {
    call.notes.push_back("subtract: " + std::to_string(tally) + " channel values are 2 or more");
  }
  return tally;
}

void CheckAddScale(const Given& given, const Shape& shape, const ShapeOfPicture& second) {
  const Shape other = second(given.arguments.Text("with"));
  const bool mixed = other.bits != shape.bits;
  if (mixed && (std::min(other.bits, shape.bits) < 24 || given.arguments.Has("mask"))) {
    NeedSameDepth(given, shape, other);
  }
  NeedMask(given, {std::min(shape.width, other.width), std::min(shape.height, other.height)},
           second);
}

result_t CallAddScale(Call& call) {
  const Arguments& arguments = call.arguments;
  return call.components.maths->AddScale(call.image, call.image, &SecondOf(call), MaskOf(call),
                                         arguments.Real("factor"), arguments.Real("with-factor"),
                                         arguments.Real("offset"));
}

/// Of operations with the argument depth=.
Shape ShapeOfDepth(const Given& given, Shape shape) {
  const int depth = given.arguments.Int("depth");
  if (depth != 0) shape.bits = depth;
  return shape;
}

void CheckScale(const Given& given, const Shape& shape, const ShapeOfPicture& second) {
  const int depth = ShapeOfDepth(given, shape).bits;
  if (shape.bits == 8 && depth == 32) RefuseDepth(given, "8 bits become 24 at most", "depth");
  if (given.arguments.Has("mask") && (shape.bits != 8 || depth != 8)) {
    RefuseDepth(given, "takes a mask from 8 to 8 bits only", "mask");
  }
  NeedMask(given, shape, second);
}

result_t CallScale(Call& call) {
  const Shape shape = ShapeOf(*call.image);
  const int depth = ShapeOfDepth(call, shape).bits;
  IQELMaths& maths = *call.components.maths.Get();
  IQEL* dest = call.image;
  if (depth != shape.bits) {
    const result_t result =
        maths.CreateDestImage(call.result, call.image, depth, static_cast<int>(ModelOf(depth)));
    if (Failed(result)) return result;
    dest = *call.result;
  }
  return maths.Scale(dest, call.image, MaskOf(call), call.arguments.Real("factor"),
                     call.arguments.Real("offset"));
}

result_t CallScale8(Call& call) {
  const Shape shape = ShapeOf(*call.image);
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
       .component = kMathsComponent,
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
       .call = &CallEqual,
       .check_shapes = &NeedMask},
      {.name = "copy",
       .component = kMathsComponent,
       .summary = "Pastes another picture into this one, whatever the two depths.",
       .depths = kByteDepths,
       .in_place = true,
       .parameters = {kWith, Place("x", "column of its left edge"),
                      Place("y", "row of its top edge"),
                      Flag("keep", "replaces zero bytes only; needs equal depths")},
       .example = "copy with=other.png x=240 y=100",
       .picture_step = "copy with=other.png x=80 y=33",
       .note = "Colours become grey as the truncated mean; what hangs over is cut off.",
       .call = &CallCopy,
       .check_shapes = &CheckCopy},
      {.name = "add-scale",
       .component = kMathsComponent,
       .summary = "Weighted sum of two pictures.",
       .depths = kByteDepths,
       .in_place = true,
       .parameters = {kWith, Number("factor", "weight of the picture", "0.5", {-2, 2}),
                      Number("with-factor", "weight of the second picture", "0.5", {-2, 2}),
                      Number("offset", "added to the sum", "0", {-255, 255}), kMask},
       .example = "add-scale with=other.png factor=0.7 with-factor=0.6",
       .note = "Alpha takes part where both have 32 bits; 24 and 32 bits mix without a mask.",
       .border = &NoNeighbours,
       .call = &CallAddScale,
       .check_shapes = &CheckAddScale},
      {.name = "scale",
       .component = kMathsComponent,
       .summary = "Multiplies channel values by a factor and adds an offset; changes the depth.",
       .depths = kByteDepths,
       .in_place = true,
       .parameters = {Number("factor", "multiplies every channel value", "1", {0, 4}),
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
       .check_shapes = &CheckScale,
       .result_shape = &ShapeOfDepth},
      {.name = "subtract",
       .component = kMathsComponent,
       .summary = "Difference of two pictures, clamped at 0 or absolute.",
       .depths = kByteDepths,
       .in_place = true,
       .parameters = {kWith, Flag("absolute", "takes the absolute difference"),
                      Flag("clear-alpha", "alpha of the result is 0, otherwise 255")},
       .example = "subtract with=other.png absolute=yes",
       .note = "clear-alpha=yes selects the absolute difference as well at 8 and 24 bits.",
       .border = &NoNeighbours,
       .call = &CallSubtract,
       .counts = true,
       .check_shapes = &CheckSubtract},
      {.name = "create-dest-image",
       .component = kMathsComponent,
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
       .component = kMathsComponent,
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
       .call = &CallAdd,
       .check_shapes = &CheckAdd},
      {.name = "scale8",
       .component = kMathsComponent,
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
