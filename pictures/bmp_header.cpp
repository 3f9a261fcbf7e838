#include "pictures/bmp_header.h"

#include <algorithm>
#include <cstdlib>
#include <initializer_list>
#include <iterator>

namespace qel::pictures {
namespace {

void ReadMasks(const ByteReader& reader, BmpHeader& header) {
  if (header.compression == BmpHeader::kMasks || header.compression == BmpHeader::kAlphaMasks) {
    // Red, green, blue (, alpha), inside newer headers or after the oldest one.
    for (size_t i = 0; i < 3; ++i) {
      header.masks[2 - i] = reader.U32(kFileHeaderBytes + kInfoHeader + 4 * i);
    }
    const bool alpha = header.compression == BmpHeader::kAlphaMasks || header.bytes >= 56;
    if (alpha) header.masks[3] = reader.U32(kFileHeaderBytes + kInfoHeader + 12);
    if (header.bytes == kInfoHeader) header.palette_at += alpha ? 16 : 12;
  } else if (header.depth == 16) {
    header.masks[0] = 0x1F, header.masks[1] = 0x3E0, header.masks[2] = 0x7C00;
  } else if (header.depth == 32) {
    header.masks[0] = 0xFF, header.masks[1] = 0xFF00, header.masks[2] = 0xFF0000;
  }
}

BmpHeader ReadHeader(const Input& input, Metadata& metadata) {
  const ByteReader reader(input.source.Load(0, kFileHeaderBytes + kV5Header));
  BmpHeader header;
  header.pixels_at = reader.U32(10);
  header.bytes = reader.U32(kFileHeaderBytes);
  constexpr uint32_t kKnown[] = {kCoreHeader, kShortOs2Header, kInfoHeader, 52,
                                 56,          kOs2Header,      kV4Header,   kV5Header};
  if (std::ranges::find(kKnown, header.bytes) == std::end(kKnown)) {
    input.Unsupported("a BMP header of {} bytes is not known", header.bytes);
  }
  if (!reader.Holds(kFileHeaderBytes, header.bytes)) input.Truncated();
  header.palette_at = kFileHeaderBytes + header.bytes;
  if (header.bytes == kCoreHeader) {
    header.width = reader.U16(18);
    header.height = reader.U16(20);
    header.depth = reader.U16(24);
    return header;
  }
  const int64_t height = reader.S32(22);
  header.width = reader.S32(18);
  header.height = std::abs(height);
  header.top_down = height < 0;
  header.depth = reader.U16(28);
  if (header.bytes == kShortOs2Header) return header;
  header.compression = reader.U32(30);
  metadata.dpi_x = DpiFromMetre(std::max(reader.S32(38), 0));
  metadata.dpi_y = DpiFromMetre(std::max(reader.S32(42), 0));
  header.colors = reader.U32(46);
  ReadMasks(reader, header);
  return header;
}

void CheckVariety(const Input& input, const BmpHeader& header) {
  bool known = false;
  switch (header.compression) {
    case BmpHeader::kPlain:
      known = std::ranges::count(std::initializer_list<int>{1, 2, 4, 8, 16, 24, 32}, header.depth);
      break;
    case BmpHeader::kRle8:
      known = header.depth == 8;
      break;
    case BmpHeader::kRle4:
      known = header.depth == 4;
      break;
    case BmpHeader::kMasks:
    case BmpHeader::kAlphaMasks:
      // OS/2 gives another meaning to the number.
      known = (header.depth == 16 || header.depth == 32) && header.bytes != kOs2Header;
      break;
    default:
      break;
  }
  if (!known) {
    input.Unsupported("a BMP of {} bits with compression {} is not read; save it uncompressed",
                      header.depth, header.compression);
  }
}

}  // namespace

BmpHeader ReadBmpHeader(const Input& input, Metadata& metadata) {
  const BmpHeader header = ReadHeader(input, metadata);
  CheckVariety(input, header);
  return header;
}

std::vector<PaletteEntry> ReadBmpPalette(const Input& input, const BmpHeader& header) {
  const size_t most = size_t{1} << header.depth;
  const size_t entry_bytes = header.PaletteEntryBytes();
  size_t count = header.colors == 0 ? most : std::min(header.colors, most);
  // Some writers leave out what they do not use and let the pixels begin earlier.
  if (header.pixels_at > header.palette_at) {
    count = std::min(count, (header.pixels_at - header.palette_at) / entry_bytes);
  }
  const Bytes entries = input.source.Load(header.palette_at, count * entry_bytes);
  if (entries.size() < count * entry_bytes) input.Truncated();
  std::vector<PaletteEntry> palette;
  for (size_t i = 0; i < count; ++i) {
    const uint8_t* const entry = entries.data() + i * entry_bytes;
    palette.push_back({entry[0], entry[1], entry[2], 0});
  }
  return palette;
}

void CheckBmpLength(const Input& input, const BmpHeader& header) {
  if (header.Runs()) {
    // A move of four bytes passes over 255 x 255 pixels at most.
    constexpr uint64_t kBestRatio = 255 * 255 / 4;
    input.CheckHolds(static_cast<uint64_t>(header.width * header.height), kBestRatio);
    return;
  }
  const size_t size = input.source.size();
  if (header.pixels_at > size || header.PixelBytes() > size - header.pixels_at) input.Truncated();
}

}  // namespace qel::pictures
