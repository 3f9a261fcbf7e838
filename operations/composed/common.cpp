#include "operations/composed/common.h"

#include <algorithm>
#include <cmath>

#include "compose/blend.h"
#include "operations/text/numbers.h"

namespace qel::operations {
namespace {

constexpr Choice kGravities[] = {{"north-west", 0}, {"north", 1},  {"north-east", 2},
                                 {"west", 3},       {"centre", 4}, {"east", 5},
                                 {"south-west", 6}, {"south", 7},  {"south-east", 8}};

bool HasPalette(IQEL& image) {
  SmartPtr<IQELImagePalette> palette;
  image.QueryInterface(IID_IQELImagePalette, palette.PutVoid());
  return static_cast<bool>(palette);
}

}  // namespace

const Parameter kGravityParameter = {.name = "gravity",
                                     .kind = Kind::kChoice,
                                     .help = "the side or corner to lie at",
                                     .standard = "centre",
                                     .choices = kGravities};

Parameter OffsetParameter(std::string_view name, std::string_view help) {
  return {.name = name,
          .kind = Kind::kExtent,
          .help = help,
          .standard = "0",
          .minimum = -1e6,
          .maximum = 1e6,
          .usual = {0, 100}};
}

Parameter ExtentParameter(std::string_view name, std::string_view help) {
  return {.name = name,
          .kind = Kind::kExtent,
          .help = help,
          .minimum = 1,
          .maximum = 1e6,
          .usual = {1, 4000},
          .optional = true};
}

const Parameter kBackgroundParameter = {
    .name = "background",
    .kind = Kind::kPaint,
    .help = "fills the new room; without it transparent if the picture has alpha, else white",
    .optional = true};

compose::Pixels PixelsOf(const Given& given, IQEL& image) {
  const Shape shape = ShapeOf(image);
  if (!shape.HasBytes() || (shape.bits == 8 && HasPalette(image))) {
    Refuse(given, "works on grey at 8 bits and on colours at 24 and 32, not on the palette of " +
                      shape.Bits() + "; put increase-bpp before it, or leave out --keep-depth");
  }
  uint8_t* bits = nullptr;
  int stride = 0, unread = 0;
  image.GetBits(0, &unread, &bits, &stride);
  return {bits, stride, shape.width, shape.height, ChannelsOf(shape)};
}

SmartPtr<IQEL> MakeImage(Call& call, const compose::Size& size, int channels) {
  SmartPtr<IQELImageDIB> image = call.NewImage();
  const int bits = 8 * channels;
  if (Failed(image->Create(size.width, size.height, 1, bits, ModelOf(bits)))) {
    Refuse(call, "there is no memory for a picture of " + std::to_string(size.width) + " x " +
                     std::to_string(size.height) + " pixels");
  }
  return SmartPtr<IQEL>::Adopt(image.Detach());
}

SmartPtr<IQEL> MakeWithPicture(Call& call, const compose::Size& size, int channels,
                               compose::Color color, int x, int y) {
  const compose::Pixels source = PixelsOf(call, *call.image);
  SmartPtr<IQEL> result = MakeImage(call, size, channels);
  const compose::Pixels dest = PixelsOf(call, *result.Get());
  const compose::Box place = {x, y, source.width, source.height};
  const bool covers = place.x <= 0 && place.y <= 0 && place.x + place.width >= size.width &&
                      place.y + place.height >= size.height;
  if (!covers) compose::Fill(dest, color);
  compose::CopyTo(source, dest, x, y);
  return result;
}

RowRange ClampRows(RowRange rows, int height) {
  const int begin = std::clamp(rows.begin, 0, height - 1);
  return {begin, std::clamp(rows.end, begin + 1, height)};
}

compose::Color PaintOf(const Given& given, std::string_view name) {
  const auto value = static_cast<uint32_t>(given.arguments.Number(name));
  const auto byte = [&](int shift) { return static_cast<uint8_t>(value >> shift); };
  return {byte(0), byte(8), byte(16), byte(24)};
}

compose::Color BackgroundOf(const Given& given, const Shape& shape) {
  if (given.arguments.Has("background")) return PaintOf(given, "background");
  return shape.bits == 32 ? compose::Color{0, 0, 0, 0} : compose::Color{255, 255, 255};
}

compose::Gravity GravityOf(const Given& given) {
  return static_cast<compose::Gravity>(given.arguments.Int("gravity"));
}

int PixelsIn(const Given& given, std::string_view name, int whole) {
  return static_cast<int>(std::lround(given.arguments.Pixels(name, whole)));
}

double RatioOf(const Given& given, std::string_view name) {
  const std::string& text = given.arguments.Text(name);
  const size_t split = text.find_first_of(":/");
  const auto number = [](std::string_view part) {
    double value = 0;
    return ParseReal(part, value) ? value : 0;
  };
  const double left = number(std::string_view(text).substr(0, split));
  const double right = split == text.npos ? 1 : number(std::string_view(text).substr(split + 1));
  constexpr double kLargest = 1000;
  const double ratio = left > 0 && right > 0 ? left / right : 0;
  if (!(ratio >= 1 / kLargest && ratio <= kLargest)) {
    Refuse(given,
           std::string(name) + "=" + text + " does not fit: width by height, as 16:9, 3/2 or 1.5",
           name);
  }
  return ratio;
}

std::vector<Operation> ComposedOperations() {
  std::vector<Operation> rows = {ResizeRow()};
  for (const auto more : {&CanvasRows, &LayerRows}) {
    for (Operation& row : more()) rows.push_back(std::move(row));
  }
  return rows;
}

}  // namespace qel::operations
