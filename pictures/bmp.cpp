#include <bit>
#include <cmath>
#include <cstring>

#include "pictures/codec.h"

namespace qel::pictures {
namespace {

constexpr double kMetresPerInch = 0.0254;
constexpr uint32_t kNoCompression = 0, kRle8 = 1, kRle4 = 2, kBitfields = 3, kAlphaBitfields = 6;

/// Little-endian numbers at byte positions; positions beyond the end are an error.
class Reader {
 public:
  explicit Reader(const Input& input) : input_(input) {}
  uint32_t Number(size_t at, int bytes) const {
    if (at > input_.file.size() || input_.file.size() - at < static_cast<size_t>(bytes)) {
      input_.Broken("damaged BMP: truncated");
    }
    uint32_t value = 0;
    for (int i = bytes; i-- > 0;) value = value << 8 | input_.file[at + static_cast<size_t>(i)];
    return value;
  }
  uint16_t U16(size_t at) const { return static_cast<uint16_t>(Number(at, 2)); }
  uint32_t U32(size_t at) const { return Number(at, 4); }
  int32_t S32(size_t at) const { return static_cast<int32_t>(Number(at, 4)); }

 private:
  const Input& input_;
};

struct Header {
  size_t pixels_at, palette_at;
  int64_t width, height;
  bool top_down;
  int depth;
  uint32_t compression = kNoCompression;
  uint32_t masks[4] = {};  ///< red, green, blue, alpha
  size_t palette_entries = 0, palette_entry_bytes = 4;
};

Header ReadHeader(const Input& input, const Reader& read, Metadata& metadata) {
  Header header{};
  header.pixels_at = read.U32(10);
  const uint32_t size = read.U32(14);
  if (size == 12) {
    header.width = read.U16(18);
    header.height = read.U16(20);
    header.depth = read.U16(24);
    header.palette_entry_bytes = 3;
    header.palette_entries = header.depth <= 8 ? size_t{1} << header.depth : 0;
    header.palette_at = 26;
    return header;
  }
  if (size < 40) input.Unsupported("this kind of BMP header is not known");
  header.width = read.S32(18);
  const int64_t height = read.S32(22);
  header.top_down = height < 0;
  header.height = std::abs(height);
  header.depth = read.U16(28);
  header.compression = read.U32(30);
  metadata.dpi_x = std::max(read.S32(38), 0) * kMetresPerInch;
  metadata.dpi_y = std::max(read.S32(42), 0) * kMetresPerInch;
  header.palette_entries = read.U32(46);
  if (header.palette_entries == 0 && header.depth <= 8) {
    header.palette_entries = size_t{1} << header.depth;
  }
  header.palette_at = 14 + size_t{size};
  const bool masks_follow =
      size == 40 && (header.compression == kBitfields || header.compression == kAlphaBitfields);
  if (masks_follow) header.palette_at += header.compression == kBitfields ? 12 : 16;
  if (header.compression == kBitfields || header.compression == kAlphaBitfields) {
    const int count = size >= 56 || header.compression == kAlphaBitfields ? 4 : 3;
    for (int i = 0; i < count; ++i) header.masks[i] = read.U32(54 + 4 * static_cast<size_t>(i));
  } else if (header.depth == 16) {
    header.masks[0] = 0x7C00, header.masks[1] = 0x03E0, header.masks[2] = 0x001F;
  } else if (header.depth == 32) {
    header.masks[0] = 0xFF0000, header.masks[1] = 0x00FF00, header.masks[2] = 0x0000FF;
  }
  return header;
}

/// The bits of `value` that a mask selects, scaled to 0 to 255.
uint8_t Masked(uint32_t value, uint32_t mask) {
  if (mask == 0) return 0;
  const uint32_t largest = mask >> std::countr_zero(mask);
  const uint64_t selected = (value & mask) >> std::countr_zero(mask);
  return static_cast<uint8_t>((selected * 255 + largest / 2) / largest);
}

/// Unpacks a run-length coded picture to one index per byte, stored bottom row first.
std::vector<uint8_t> UnpackRuns(const Input& input, const Header& header) {
  const auto width = static_cast<size_t>(header.width);
  const auto height = static_cast<size_t>(header.height);
  std::vector<uint8_t> indices(width * height);
  const Bytes& file = input.file;
  size_t at = header.pixels_at, x = 0, y = 0;
  const bool nibbles = header.compression == kRle4;
  const auto next = [&]() -> unsigned {
    if (at >= file.size()) input.Broken("damaged BMP: truncated");
    return file[at++];
  };
  const auto put = [&](unsigned index) {
    if (x < width && y < height) indices[y * width + x] = static_cast<uint8_t>(index);
    ++x;
  };
  while (y < height) {
    const unsigned count = next();
    const unsigned value = next();
    if (count > 0) {
      for (unsigned i = 0; i < count; ++i) {
        put(nibbles ? (i % 2 == 0 ? value >> 4 : value & 15) : value);
      }
    } else if (value == 0) {
      x = 0;
      ++y;
    } else if (value == 1) {
      break;
    } else if (value == 2) {
      x += next();
      y += next();
    } else {
      unsigned byte = 0;
      for (unsigned i = 0; i < value; ++i) {
        if (!nibbles || i % 2 == 0) byte = next();
        put(nibbles ? (i % 2 == 0 ? byte >> 4 : byte & 15) : byte);
      }
      const unsigned stored = nibbles ? (value + 1) / 2 : value;
      if (stored % 2 != 0) next();
    }
  }
  return indices;
}

std::vector<PaletteEntry> ReadPalette(const Header& header, const Reader& read) {
  std::vector<PaletteEntry> palette;
  if (header.depth > 8) return palette;
  const size_t count = std::min<size_t>(header.palette_entries, 256);
  for (size_t i = 0; i < count; ++i) {
    const size_t at = header.palette_at + i * header.palette_entry_bytes;
    const uint32_t entry = read.Number(at, 3);
    palette.push_back({static_cast<uint8_t>(entry), static_cast<uint8_t>(entry >> 8),
                       static_cast<uint8_t>(entry >> 16), 255});
  }
  return palette;
}

bool IsGreyRamp(const std::vector<PaletteEntry>& palette) {
  if (palette.size() != 256) return false;
  for (size_t i = 0; i < palette.size(); ++i) {
    if (palette[i].blue != i || palette[i].green != i || palette[i].red != i) return false;
  }
  return true;
}

void PutNumber(std::vector<uint8_t>& bytes, uint32_t value, int count) {
  for (int i = 0; i < count; ++i) bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

}  // namespace

bool IsBmp(Bytes file) { return file.size() >= 26 && file[0] == 'B' && file[1] == 'M'; }

PictureInfo ReadBmp(const Input& input) {
  const Reader read(input);
  PictureInfo info;
  info.format = Format::kBmp;
  const Header header = ReadHeader(input, read, info.metadata);
  const int depth = header.depth;
  const bool runs = header.compression == kRle8 || header.compression == kRle4;
  const bool known = depth == 1 || depth == 2 || depth == 4 || depth == 8 || depth == 16 ||
                     depth == 24 || depth == 32;
  if (!known || header.compression > kAlphaBitfields || header.compression == 4 ||
      header.compression == 5 || (runs && depth != (header.compression == kRle8 ? 8 : 4))) {
    input.Unsupported("a BMP of " + std::to_string(depth) + " bits with compression " +
                      std::to_string(header.compression) + "; save it uncompressed");
  }
  CheckLimits(input, header.width, header.height, 32);
  std::vector<PaletteEntry> palette = ReadPalette(header, read);
  const bool keep = input.options.keep_palette_depth && depth <= 8;
  const bool grey = !keep && IsGreyRamp(palette) && depth == 8;
  info.width = static_cast<int>(header.width);
  info.height = static_cast<int>(header.height);
  info.bit_count = keep ? (depth == 2 ? 4 : depth) : grey ? 8 : header.masks[3] != 0 ? 32 : 24;
  if (keep) info.palette = palette;

  const size_t row_bytes = RowBytes(info.width, depth);
  const size_t step = (row_bytes + 3) / 4 * 4;
  const uint64_t needed =
      static_cast<uint64_t>(step) * (static_cast<uint64_t>(header.height) - 1) + row_bytes;
  if (!runs &&
      (header.pixels_at > input.file.size() || input.file.size() - header.pixels_at < needed)) {
    input.Broken("damaged BMP: truncated");
  }
  PixelTarget target(input, info);
  const std::vector<uint8_t> indices = runs ? UnpackRuns(input, header) : std::vector<uint8_t>();
  for (int y = 0; y < info.height; ++y) {
    const auto stored = static_cast<size_t>(header.top_down ? y : info.height - 1 - y);
    const uint8_t* const from = runs ? indices.data() + stored * static_cast<size_t>(info.width)
                                     : input.file.data() + header.pixels_at + stored * step;
    const int bits = runs ? 8 : depth;
    uint8_t* const row = target.Row(y);
    if (keep && depth == 2) {
      WidenToFourBits(from, row, info.width);
    } else if (keep && runs && depth == 4) {
      for (int x = 0; x < info.width; x += 2) {
        row[x / 2] = static_cast<uint8_t>(from[x] << 4 | (x + 1 < info.width ? from[x + 1] : 0));
      }
    } else if (keep || grey || depth == 24) {
      std::memcpy(row, from, RowBytes(info.width, info.bit_count));
    } else if (depth <= 8) {
      ExpandIndices(from, bits, palette, false, row, info.width);
    } else {
      for (int x = 0; x < info.width; ++x) {
        uint32_t value = 0;
        std::memcpy(&value, from + ptrdiff_t{x} * (depth / 8), static_cast<size_t>(depth / 8));
        uint8_t* const pixel = row + ptrdiff_t{x} * (info.bit_count / 8);
        for (int c = 0; c < 3; ++c) pixel[c] = Masked(value, header.masks[2 - c]);
        if (info.bit_count == 32) pixel[3] = Masked(value, header.masks[3]);
      }
    }
  }
  target.Finish();
  return info;
}

std::vector<uint8_t> EncodeBmp(const Output& output) {
  const PictureView& picture = output.picture;
  std::vector<PaletteEntry> palette(picture.palette.begin(), picture.palette.end());
  if (palette.empty() && picture.bit_count <= 8) palette = GreyPalette(1 << picture.bit_count);
  const bool alpha = picture.bit_count == 32;
  const uint32_t header_size = alpha ? 108 : 40;
  const size_t row_bytes = RowBytes(picture.width, picture.bit_count);
  const size_t step = (row_bytes + 3) / 4 * 4;
  const uint64_t pixels_at = 14 + header_size + 4 * palette.size();
  const uint64_t size = pixels_at + uint64_t{step} * static_cast<uint64_t>(picture.height);
  if (size > UINT32_MAX) output.Fail("BMP holds at most 4 GiB; choose PNG or TIFF");
  const auto per_metre = [](double dpi) {
    return dpi > 0 ? static_cast<uint32_t>(std::lround(dpi / kMetresPerInch)) : 0;
  };
  std::vector<uint8_t> bytes{'B', 'M'};
  bytes.reserve(size);
  PutNumber(bytes, static_cast<uint32_t>(size), 4);
  PutNumber(bytes, 0, 4);
  PutNumber(bytes, static_cast<uint32_t>(pixels_at), 4);
  PutNumber(bytes, header_size, 4);
  PutNumber(bytes, static_cast<uint32_t>(picture.width), 4);
  PutNumber(bytes, static_cast<uint32_t>(picture.height), 4);
  PutNumber(bytes, 1, 2);
  PutNumber(bytes, static_cast<uint32_t>(picture.bit_count), 2);
  PutNumber(bytes, alpha ? kBitfields : kNoCompression, 4);
  PutNumber(bytes, static_cast<uint32_t>(size - pixels_at), 4);
  PutNumber(bytes, per_metre(output.metadata.dpi_x), 4);
  PutNumber(bytes, per_metre(output.metadata.dpi_y), 4);
  PutNumber(bytes, static_cast<uint32_t>(palette.size()), 4);
  PutNumber(bytes, 0, 4);
  if (alpha) {
    for (const uint32_t mask : {0xFF0000u, 0x00FF00u, 0x0000FFu, 0xFF000000u}) {
      PutNumber(bytes, mask, 4);
    }
    PutNumber(bytes, 0x73524742, 4);  // sRGB
    bytes.resize(14 + header_size);
  }
  for (const PaletteEntry& entry : palette) {
    bytes.insert(bytes.end(), {entry.blue, entry.green, entry.red, 0});
  }
  if (!output.metadata.icc_profile.empty()) {
    output.notes.emplace_back("BMP holds no colour profile; it was left out");
  }
  for (int y = picture.height; y-- > 0;) {
    bytes.insert(bytes.end(), picture.Row(y), picture.Row(y) + row_bytes);
    bytes.resize(bytes.size() + step - row_bytes);
  }
  return bytes;
}

}  // namespace qel::pictures
