#include "pictures/exif.h"

#include <cmath>

#include "pictures/codec.h"

namespace qel::pictures {
namespace {

constexpr uint32_t kOrientationTag = 0x0112, kXResolutionTag = 0x011A, kYResolutionTag = 0x011B,
                   kUnitTag = 0x0128;
constexpr uint32_t kShort = 3, kRational = 5;
constexpr uint32_t kInch = 2, kCentimetre = 3;

/// The quotient whose position an entry states.
double Rational(const ByteReader& reader, size_t entry) {
  const size_t at = reader.U32(entry + 8);
  const double divisor = reader.U32(at + 4);
  return divisor == 0 ? 0 : reader.U32(at) / divisor;
}

}  // namespace

Exif ParseExif(Bytes block) {
  constexpr size_t kPrefixBytes = 6;
  if (StartsWith(block, "Exif") && block.size() > kPrefixBytes) block = block.subspan(kPrefixBytes);
  const bool big = StartsWith(block, "MM");
  Exif exif;
  if (!big && !StartsWith(block, "II")) return exif;
  const ByteReader reader(block, big ? ByteOrder::kBig : ByteOrder::kLittle);
  const size_t directory = reader.U32(4);
  const size_t count = reader.U16(directory);
  uint32_t unit = kInch;
  for (size_t i = 0; i < count; ++i) {
    const size_t entry = directory + 2 + 12 * i;
    const uint16_t value = reader.U16(entry + 8);
    switch (reader.U16(entry)) {
      case kOrientationTag:
        if (value >= 1 && value <= 8) exif.orientation = value;
        break;
      case kXResolutionTag:
        exif.dpi_x = Rational(reader, entry);
        break;
      case kYResolutionTag:
        exif.dpi_y = Rational(reader, entry);
        break;
      case kUnitTag:
        unit = value;
        break;
      default:
        break;
    }
  }
  const double scale = unit == kInch ? 1 : unit == kCentimetre ? kCentimetresPerInch : 0;
  exif.dpi_x *= scale;
  exif.dpi_y *= scale;
  return exif;
}

std::vector<uint8_t> MakeExif(double dpi_x, double dpi_y) {
  std::vector<uint8_t> block{'I', 'I', 42, 0, 8, 0, 0, 0};
  constexpr uint32_t kEntries = 3;
  constexpr uint32_t kValuesAt = 8 + 2 + 12 * kEntries + 4;
  const auto entry = [&](uint32_t tag, uint32_t type, uint32_t value) {
    AppendLittle(block, tag, 2);
    AppendLittle(block, type, 2);
    AppendLittle(block, 1, 4);
    AppendLittle(block, value, 4);
  };
  AppendLittle(block, kEntries, 2);
  entry(kXResolutionTag, kRational, kValuesAt);
  entry(kYResolutionTag, kRational, kValuesAt + 8);
  entry(kUnitTag, kShort, kInch);
  AppendLittle(block, 0, 4);
  constexpr uint32_t kDivisor = 1000;
  for (const double dpi : {dpi_x, dpi_y}) {
    AppendLittle(block, static_cast<uint32_t>(std::lround(std::min(dpi, 1e6) * kDivisor)), 4);
    AppendLittle(block, kDivisor, 4);
  }
  return block;
}

}  // namespace qel::pictures
