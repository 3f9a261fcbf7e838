#include "pictures/codec.h"

#include <algorithm>
#include <cstring>

namespace qel::pictures {
namespace {

/// Moves one pixel of `bit_count` bits.
void MovePixel(const uint8_t* from, int from_x, uint8_t* to, int to_x, int bit_count) {
  if (bit_count >= 8) {
    const int bytes = bit_count / 8;
    std::memcpy(to + ptrdiff_t{to_x} * bytes, from + ptrdiff_t{from_x} * bytes,
                static_cast<size_t>(bytes));
    return;
  }
  const int64_t position = int64_t{to_x} * bit_count;
  const int shift = static_cast<int>(8 - bit_count - (position & 7));
  const unsigned mask = ((1u << bit_count) - 1) << shift;
  uint8_t& byte = to[position >> 3];
  byte = static_cast<uint8_t>((byte & ~mask) | PackedIndex(from, bit_count, from_x) << shift);
}

}  // namespace

void CheckLimits(const Input& input, int64_t width, int64_t height, int bit_count) {
  if (width < 1 || height < 1) input.Broken("a picture without pixels");
  const Limits& limits = input.options.limits;
  // Products stay within 64 bits: sides are checked before pixels, and pixels before bytes.
  const bool fits = width <= INT32_MAX && height <= INT32_MAX &&
                    width * height <= limits.max_pixels &&
                    (width * bit_count + 7) / 8 * height <= limits.max_bytes;
  if (!fits) {
    throw PictureError(PictureError::Kind::kTooLarge, input.name,
                       std::to_string(width) + " x " + std::to_string(height) +
                           " pixels is beyond the limit of " + std::to_string(limits.max_pixels) +
                           " pixels or " + std::to_string(limits.max_bytes) + " bytes");
  }
}

PixelTarget::PixelTarget(const Input& input, PictureInfo& info, int orientation)
    : orientation_(orientation),
      stored_width_(info.width),
      stored_height_(info.height),
      bit_count_(info.bit_count) {
  CheckLimits(input, info.width, info.height, info.bit_count);
  if (orientation_ >= 5) std::swap(info.width, info.height);
  if (orientation_ >= 5) std::swap(info.metadata.dpi_x, info.metadata.dpi_y);
  oriented_ = input.allocate(info);
  bits_ = oriented_.bits;
  stride_ = oriented_.stride;
  if (orientation_ != 1) {
    stride_ = static_cast<ptrdiff_t>(RowBytes(stored_width_, bit_count_));
    stored_.resize(static_cast<size_t>(stride_) * static_cast<size_t>(stored_height_));
    bits_ = stored_.data();
  }
}

void PixelTarget::Finish() {
  if (orientation_ == 1) return;
  // The eight orientations are made of an exchange of the axes and mirrors along each of them.
  const bool transposed = orientation_ >= 5;
  const bool mirrored_x =
      orientation_ == 2 || orientation_ == 3 || orientation_ == 7 || orientation_ == 8;
  const bool mirrored_y =
      orientation_ == 3 || orientation_ == 4 || orientation_ == 6 || orientation_ == 7;
  const int width = transposed ? stored_height_ : stored_width_;
  const int height = transposed ? stored_width_ : stored_height_;
  for (int y = 0; y < height; ++y) {
    uint8_t* const row = oriented_.bits + ptrdiff_t{y} * oriented_.stride;
    for (int x = 0; x < width; ++x) {
      int from_x = transposed ? y : x;
      int from_y = transposed ? x : y;
      if (mirrored_x) from_x = stored_width_ - 1 - from_x;
      if (mirrored_y) from_y = stored_height_ - 1 - from_y;
      MovePixel(Row(from_y), from_x, row, x, bit_count_);
    }
  }
}

int ExifOrientation(Bytes exif) {
  constexpr uint8_t kPrefix[] = {'E', 'x', 'i', 'f', 0, 0};
  if (exif.size() >= sizeof(kPrefix) && std::memcmp(exif.data(), kPrefix, sizeof(kPrefix)) == 0) {
    exif = exif.subspan(sizeof(kPrefix));
  }
  if (exif.size() < 8) return 1;
  const bool little = exif[0] == 'I' && exif[1] == 'I';
  if (!little && !(exif[0] == 'M' && exif[1] == 'M')) return 1;
  const auto number = [&](size_t at, size_t bytes) -> size_t {
    if (at > exif.size() || exif.size() - at < bytes) return 0;
    size_t value = 0;
    for (size_t i = 0; i < bytes; ++i) {
      value = value << 8 | exif[at + (little ? bytes - 1 - i : i)];
    }
    return value;
  };
  constexpr size_t kOrientationTag = 0x0112;
  const size_t directory = number(4, 4);
  const size_t count = number(directory, 2);
  for (size_t i = 0; i < count; ++i) {
    const size_t entry = directory + 2 + 12 * i;
    if (entry + 12 > exif.size()) break;
    if (number(entry, 2) != kOrientationTag) continue;
    const size_t value = number(entry + 8, 2);
    return value >= 1 && value <= 8 ? static_cast<int>(value) : 1;
  }
  return 1;
}

void ExpandIndices(const uint8_t* packed, int bits, std::span<const PaletteEntry> palette,
                   bool with_alpha, uint8_t* row, int width) {
  const int bytes = with_alpha ? 4 : 3;
  for (int x = 0; x < width; ++x) {
    const unsigned index = PackedIndex(packed, bits, x);
    const PaletteEntry entry = index < palette.size() ? palette[index] : PaletteEntry{0, 0, 0, 255};
    uint8_t* const pixel = row + ptrdiff_t{x} * bytes;
    pixel[0] = entry.blue;
    pixel[1] = entry.green;
    pixel[2] = entry.red;
    if (with_alpha) pixel[3] = entry.reserved;
  }
}

void WidenToFourBits(const uint8_t* packed, uint8_t* row, int width) {
  for (int x = 0; x < width; x += 2) {
    const unsigned left = PackedIndex(packed, 2, x);
    const unsigned right = x + 1 < width ? PackedIndex(packed, 2, x + 1) : 0;
    row[x / 2] = static_cast<uint8_t>(left << 4 | right);
  }
}

std::vector<PaletteEntry> GreyPalette(int count, bool white_is_zero) {
  std::vector<PaletteEntry> palette;
  for (int i = 0; i < count; ++i) {
    const int level = (white_is_zero ? count - 1 - i : i) * 255 / (count - 1);
    const auto grey = static_cast<uint8_t>(level);
    palette.push_back({grey, grey, grey, 255});
  }
  return palette;
}

bool HasTransparency(const PictureView& picture) {
  if (picture.bit_count != 32) return false;
  for (int y = 0; y < picture.height; ++y) {
    const uint8_t* const row = picture.Row(y);
    for (int x = 0; x < picture.width; ++x) {
      if (row[4 * ptrdiff_t{x} + 3] != 255) return true;
    }
  }
  return false;
}

ColourRows::ColourRows(const PictureView& picture, bool keep_alpha)
    : picture_(picture), palette_(picture.palette.begin(), picture.palette.end()) {
  if (palette_.empty() && picture.bit_count < 8) palette_ = GreyPalette(1 << picture.bit_count);
  bit_count_ = picture.bit_count == 32 && keep_alpha        ? 32
               : picture.bit_count == 8 && palette_.empty() ? 8
                                                            : 24;
  row_.resize(RowBytes(picture.width, bit_count_));
}

const uint8_t* ColourRows::Row(int y) {
  const uint8_t* const row = picture_.Row(y);
  if (picture_.bit_count == bit_count_) return row;
  if (picture_.bit_count <= 8) {
    ExpandIndices(row, picture_.bit_count, palette_, false, row_.data(), picture_.width);
  } else {
    for (int x = 0; x < picture_.width; ++x) {
      std::memcpy(row_.data() + 3 * ptrdiff_t{x}, row + 4 * ptrdiff_t{x}, 3);
    }
  }
  return row_.data();
}

}  // namespace qel::pictures
