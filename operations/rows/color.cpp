#include <algorithm>
#include <cmath>

#include "operations/rows/borders.h"
#include "operations/table.h"

namespace qel::operations {
namespace {

constexpr std::string_view kComponent = "QELColorTransform";
constexpr std::string_view kAllDepths = "1, 4, 8, 24, 32";
constexpr std::string_view kByteDepths = "8, 24, 32";
constexpr std::string_view kAlphaDepths = "32";

constexpr size_t kTableSize = 256;

/// The 256 values of table=. Throws `StepError` when there are others.
std::vector<double> TableOf(const Given& given) {
  std::vector<double> values = given.arguments.Numbers("table");
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
  const auto colour = static_cast<uint32_t>(call.arguments.Number("key"));
  return (colour & 0xFF) << 16 | (colour & 0xFF00) | colour >> 16;
}

/// At 8 bits each pixel is mixed with the two bytes after it in memory: at the end of a row with
/// what lies behind, which may be the next one.
Border GreyBorder(const Given&, const Shape& shape) {
  return shape.bits == 8 ? Border{.rows = 1, .columns = Border::kAll} : Border{};
}
Reach ReachOfGrey(const Given&, const Shape& shape) {
  return shape.bits == 8 ? Reach::kBeyond : Reach::kRows;
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
  return {
      {.name = "lut",
       .component = kComponent,
       .summary = "Maps every colour byte through a table, or the curve through four points.",
       .depths = kByteDepths,
       .in_place = true,
       .parameters = {{.name = "black",
                       .help = "what 0 becomes",
                       .standard = "0",
                       .minimum = 0,
                       .maximum = 255},
                      {.name = "dark",
                       .help = "what 85 becomes",
                       .standard = "85",
                       .minimum = 0,
                       .maximum = 255},
                      {.name = "light",
                       .help = "what 170 becomes",
                       .standard = "170",
                       .minimum = 0,
                       .maximum = 255},
                      {.name = "white",
                       .help = "what 255 becomes",
                       .standard = "255",
                       .minimum = 0,
                       .maximum = 255},
                      {.name = "table",
                       .kind = Kind::kNumbers,
                       .help = "what 0 to 255 become, all 256 of them, instead of the curve",
                       .optional = true}},
       .example = "lut dark=60 light=200",
       .note = "Alpha of 32-bit pictures is not mapped.",
       .border = &NoNeighbours,
       .call = &CallLut,
       .check =
           [](const Given& given) {
             if (given.arguments.Has("table")) TableOf(given);
           }},
      {.name = "negative",
       .component = kComponent,
       .summary = "Replaces every colour byte v by 255 - v.",
       .depths = kByteDepths,
       .in_place = true,
       .example = "negative",
       .border = &NoNeighbours,
       .call = [](Call& call) { return call.components.color->Negative(call.image); }},
      {.name = "light",
       .component = kComponent,
       .summary = "Adds brightness and scales contrast about the middle grey.",
       .depths = kByteDepths,
       .in_place = true,
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
       .border = &NoNeighbours,
       .call =
           [](Call& call) {
             return call.components.color->Light(call.image, call.arguments.Int("brightness"),
                                                 call.arguments.Int("contrast"));
           }},
      {.name = "gamma",
       .component = kComponent,
       .summary = "Applies a gamma curve; above 1 brightens.",
       .depths = kByteDepths,
       .in_place = true,
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
       .border = &NoNeighbours,
       .call =
           [](Call& call) {
             return call.components.color->Gamma(call.image, call.arguments.Real("gamma"));
           }},
      {.name = "shift-rgb",
       .component = kComponent,
       .summary = "Adds an offset to each channel.",
       .depths = kAllDepths,
       .in_place = true,
       .parameters = {Offset("red", "added to red"), Offset("green", "added to green"),
                      Offset("blue", "added to blue")},
       .example = "shift-rgb red=20 blue=-20",
       .note = "Grey pictures take the grey nearest to the shifted colour.",
       .channel_order = ChannelOrder::kByArguments,
       .swapped = {"red", "blue"},
       .border = &NoNeighbours,
       .call =
           [](Call& call) {
             const Arguments& arguments = call.arguments;
             return call.components.color->ShiftRGB(call.image, arguments.Int("red"),
                                                    arguments.Int("green"), arguments.Int("blue"));
           }},
      {.name = "gray-scale",
       .component = kComponent,
       .summary = "Replaces each colour by the mean of its channels.",
       .depths = kByteDepths,
       .in_place = true,
       .example = "gray-scale",
       .surprises =
           {{"8-bit pictures are mixed: each pixel with the two after it, past the end of the "
             "row; they are grey already.",
             [](const Given&, const Shape& shape) { return shape.bits == 8; }}},
       .border = &GreyBorder,
       .reach = &ReachOfGrey,
       .call = [](Call& call) { return call.components.color->GrayScale(call.image); }},
      {.name = "threshold",
       .component = kComponent,
       .summary = "Makes pixels above a grey level white and all others black.",
       .depths = kAllDepths,
       .in_place = true,
       .parameters = {{.name = "level",
                       .help = "the brightest grey that becomes black",
                       .standard = "127",
                       .usual = {0, 255}}},
       .example = "threshold level=100",
       .note = "The picture goes through gray-scale first.",
       .border = &GreyBorder,
       .reach = &ReachOfGrey,
       .call =
           [](Call& call) {
             return call.components.color->Threshold(call.image, call.arguments.Int("level"));
           }},
      {.name = "colorize",
       .component = kComponent,
       .summary = "Gives every pixel one hue and saturation and keeps its lightness.",
       .depths = kAllDepths,
       .in_place = true,
       .parameters = {{.name = "hue",
                       .help = "round the colour circle, red at 0",
                       .minimum = 0,
                       .maximum = 255,
                       .unit = "255ths of 360 degrees"},
                      {.name = "saturation",
                       .help = "0 is grey",
                       .standard = "128",
                       .minimum = 0,
                       .maximum = 255},
                      {.name = "blend",
                       .kind = Kind::kNumber,
                       .help = "share of the new colour",
                       .standard = "1",
                       .minimum = 0,
                       .maximum = 1}},
       .example = "colorize hue=20 saturation=90 blend=0.8",
       .note = "Grey pictures stay grey: they take the grey nearest to the tinted colour.",
       .channel_order = ChannelOrder::kBlueGreenRed,
       .border = &NoNeighbours,
       .call =
           [](Call& call) {
             const Arguments& arguments = call.arguments;
             return call.components.color->Colorize(
                 call.image, static_cast<uint8_t>(arguments.Int("hue")),
                 static_cast<uint8_t>(arguments.Int("saturation")), arguments.Real("blend"));
           }},
      {.name = "set-image-alpha",
       .component = kComponent,
       .summary = "Writes one alpha to every pixel.",
       .depths = kAlphaDepths,
       .in_place = true,
       .parameters = {kAlpha},
       .example = "set-image-alpha alpha=128",
       .note = "Fails without an alpha channel.",
       .sets_alpha = true,
       .border = &NoNeighbours,
       .call =
           [](Call& call) {
             return call.components.color->SetImageAlpha(call.image, call.arguments.Int("alpha"),
                                                         0);
           }},
      {.name = "set-image-transparent-pixel",
       .component = kComponent,
       .summary = "Makes the pixels of one colour transparent.",
       .depths = kAlphaDepths,
       .in_place = true,
       .parameters = {kKey},
       .example = "set-image-transparent-pixel key=#FFFFFF",
       .note = "Fails without an alpha channel. Only the exact colour counts.",
       .sets_alpha = true,
       .channel_order = ChannelOrder::kByArguments,
       .border = &NoNeighbours,
       .call =
           [](Call& call) {
             return call.components.color->SetImageTransparentPixel(call.image, KeyOf(call));
           }},
      {.name = "set-image-alpha-transparency",
       .component = kComponent,
       .summary = "Makes the pixels of one colour transparent and gives all others one alpha.",
       .depths = kAlphaDepths,
       .in_place = true,
       .parameters = {kAlpha, kKey},
       .example = "set-image-alpha-transparency alpha=200 key=#FFFFFF",
       .note = "Fails without an alpha channel. Only the exact colour counts.",
       .sets_alpha = true,
       .channel_order = ChannelOrder::kByArguments,
       .border = &NoNeighbours,
       .call =
           [](Call& call) {
             return call.components.color->SetImageAlphaTransparency(
                 call.image, call.arguments.Int("alpha"), KeyOf(call));
           }},
  };
}

}  // namespace qel::operations
