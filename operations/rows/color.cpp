#include <algorithm>
#include <cmath>

#include "operations/rows/common.h"
#include "operations/table.h"

namespace qel::operations {
namespace {

constexpr std::string_view kColorComponent = "QELColorTransform";
constexpr std::string_view kAlphaDepths = "32";

constexpr size_t kTableSize = 256;

/// The 256 values of table=. Throws `StepError` when there are others.
const std::vector<double>& TableOf(const Given& given) {
  const std::vector<double>& values = given.arguments.Numbers("table");
  const bool all_bytes = std::ranges::all_of(values, [](double value) {
    return value >= 0 && value <= 255 && value == std::floor(value);
  });
  if (values.size() != kTableSize || !all_bytes) {
    Refuse(given,
           "table= takes 256 whole numbers from 0 to 255, there are " +
               std::to_string(values.size()) + (all_bytes ? "" : " and some are others"),
           "table");
  }
  return values;
}

result_t CallLut(Call& call) {
  uint8_t table[kTableSize];
  if (call.arguments.Has("table")) {
    std::ranges::transform(TableOf(call), table,
                           [](double value) { return static_cast<uint8_t>(value); });
    return call.components.color->Lut(call.image, table);
  }
  const double points[] = {call.arguments.Number("black"), call.arguments.Number("dark"),
                           call.arguments.Number("light"), call.arguments.Number("white")};
  for (int i = 0; i < 256; ++i) {
    const double position = i / 85.0;
    const int left = i == 255 ? 2 : static_cast<int>(position);
    const double share = position - left;
    table[i] = static_cast<uint8_t>(points[left] * (1 - share) + points[left + 1] * share + 0.5);
  }
  return call.components.color->Lut(call.image, table);
}

/// A colour as the alpha operations take it: red in the low byte.
uint32_t KeyOf(const Call& call) {
  const auto color = static_cast<uint32_t>(call.arguments.Number("key"));
  return (color & 0xFF) << 16 | (color & 0xFF00) | color >> 16;
}

/// At 8 bits each pixel is mixed with the two bytes after it in memory: at the end of a row with
/// what lies behind, which may be the next one.
Border GrayBorder(const Given&, const Shape& shape) {
  return shape.bits == 8 ? Border{.rows = 1, .columns = Border::kAll} : Border{};
}
Reach ReachOfGray(const Given&, const Shape& shape) {
  return shape.bits == 8 ? Reach::kBeyond : Reach::kRows;
}

Parameter Byte(std::string_view name, std::string_view help, std::string_view standard) {
  return {.name = name, .help = help, .standard = standard, .minimum = 0, .maximum = 255};
}
Parameter Offset(std::string_view name, std::string_view help) {
  return {.name = name, .help = help, .standard = "0", .usual = {-255, 255}};
}

const Parameter kAlpha = {
    .name = "alpha", .help = "0 is stored as 1", .minimum = 0, .maximum = 255};
const Parameter kKey = {
    .name = "key", .kind = Kind::kColor, .help = "the colour that becomes transparent"};

}  // namespace

std::vector<Operation> ColorOperations() {
  std::vector<Operation> rows = {
      {.name = "lut",
       .summary = "Maps every colour byte through a table, or the curve through four points.",
       .depths = kByteDepths,
       .parameters = {Byte("black", "what 0 becomes", "0"),
                      Byte("dark", "what 85 becomes", "85"),
                      Byte("light", "what 170 becomes", "170"),
                      Byte("white", "what 255 becomes", "255"),
                      {.name = "table",
                       .kind = Kind::kNumbers,
                       .help = "what 0 to 255 become, all 256 of them, instead of the curve",
                       .optional = true}},
       .example = "lut dark=60 light=200",
       .note = "Alpha of 32-bit pictures is not mapped.",
       .call = &CallLut,
       .check =
           [](const Given& given) {
             if (given.arguments.Has("table")) TableOf(given);
           }},
      {.name = "negative",
       .summary = "Replaces every colour byte v by 255 - v.",
       .depths = kByteDepths,
       .example = "negative",
       .cheap_on_rows = true,
       .method = &MethodNamed("Negative")},
      {.name = "light",
       .summary = "Adds brightness and scales contrast about the middle grey.",
       .depths = kByteDepths,
       .parameters = {{.name = "brightness",
                       .help = "added to every channel",
                       .standard = "0",
                       .usual = {-255, 255}},
                      {.name = "contrast",
                       .help = "added to 100 percent of contrast",
                       .standard = "0",
                       .usual = {-100, 300},
                       .unit = "percent"}},
       .example = "light brightness=30 contrast=10",
       .surprises = {{"contrast=-100 and less gives one flat tone.",
                      [](const Given& given, const Shape&) {
                        return given.arguments.Int("contrast") <= -100;
                      }}},
       .method = &MethodNamed("Light")},
      {.name = "gamma",
       .summary = "Applies a gamma curve; above 1 brightens.",
       .depths = kByteDepths,
       .parameters = {{.name = "gamma",
                       .kind = Kind::kNumber,
                       .help = "exponent is 1 / gamma",
                       .minimum = 0,
                       .maximum = 1000,
                       .usual = {0.1, 5}}},
       .example = "gamma gamma=1.8",
       .surprises = {{"gamma=0 makes everything black.",
                      [](const Given& given, const Shape&) {
                        return given.arguments.Number("gamma") == 0;
                      }}},
       .method = &MethodNamed("Gamma")},
      {.name = "shift-rgb",
       .summary = "Adds an offset to each channel.",
       .depths = kAllDepths,
       .parameters = {Offset("red", "added to red"), Offset("green", "added to green"),
                      Offset("blue", "added to blue")},
       .example = "shift-rgb red=20 blue=-20",
       .note = "Grey pictures take the grey nearest to the shifted colour.",
       .channel_order = ChannelOrder::kByArguments,
       .swapped = {"red", "blue"},
       .method = &MethodNamed("ShiftRGB")},
      {.name = "gray-scale",
       .summary = "Replaces each colour by the mean of its channels.",
       .depths = kByteDepths,
       .example = "gray-scale",
       .surprises =
           {{"8-bit pictures are mixed: each pixel with the two after it, past the end of the "
             "row; they are grey already.",
             [](const Given&, const Shape& shape) { return shape.bits == 8; }}},
       .border = &GrayBorder,
       .reach = &ReachOfGray,
       .method = &MethodNamed("GrayScale")},
      {.name = "threshold",
       .summary = "Makes pixels above a grey level white and all others black.",
       .depths = kAllDepths,
       .parameters = {{.name = "level",
                       .help = "the brightest grey that becomes black",
                       .standard = "127",
                       .usual = {0, 255}}},
       .example = "threshold level=100",
       .note = "The picture goes through gray-scale first.",
       .border = &GrayBorder,
       .reach = &ReachOfGray,
       .method = &MethodNamed("Threshold")},
      {.name = "colorize",
       .summary = "Gives every pixel one hue and saturation and keeps its lightness.",
       .depths = kAllDepths,
       .parameters = {{.name = "hue",
                       .help = "round the colour circle, red at 0",
                       .minimum = 0,
                       .maximum = 255,
                       .unit = "255ths of 360 degrees"},
                      Byte("saturation", "0 is grey", "128"),
                      {.name = "blend",
                       .kind = Kind::kNumber,
                       .help = "share of the new colour",
                       .standard = "1",
                       .minimum = 0,
                       .maximum = 1}},
       .example = "colorize hue=20 saturation=90 blend=0.8",
       .note = "Grey pictures stay grey: they take the grey nearest to the tinted colour.",
       .channel_order = ChannelOrder::kBlueGreenRed,
       .method = &MethodNamed("Colorize")},
      {.name = "set-image-alpha",
       .summary = "Writes one alpha to every pixel.",
       .depths = kAlphaDepths,
       .parameters = {kAlpha},
       .example = "set-image-alpha alpha=128",
       .note = "Fails without an alpha channel.",
       .sets_alpha = true,
       .method = &MethodNamed("SetImageAlpha")},
      {.name = "set-image-transparent-pixel",
       .summary = "Makes the pixels of one colour transparent.",
       .depths = kAlphaDepths,
       .parameters = {kKey},
       .example = "set-image-transparent-pixel key=#FFFFFF",
       .note = "Fails without an alpha channel. Only the exact colour counts.",
       .sets_alpha = true,
       .channel_order = ChannelOrder::kByArguments,
       .call =
           [](Call& call) {
             return call.components.color->SetImageTransparentPixel(call.image, KeyOf(call));
           }},
      {.name = "set-image-alpha-transparency",
       .summary = "Makes the pixels of one colour transparent and gives all others one alpha.",
       .depths = kAlphaDepths,
       .parameters = {kAlpha, kKey},
       .example = "set-image-alpha-transparency alpha=200 key=#FFFFFF",
       .note = "Fails without an alpha channel. Only the exact colour counts.",
       .sets_alpha = true,
       .channel_order = ChannelOrder::kByArguments,
       .call =
           [](Call& call) {
             return call.components.color->SetImageAlphaTransparency(
                 call.image, call.arguments.Int("alpha"), KeyOf(call));
           }},
  };
  for (Operation& row : rows) {
    row.component = kColorComponent;
    row.in_place = true;
    if (row.border == nullptr) row.border = &NoNeighbours;
  }
  return rows;
}

}  // namespace qel::operations
