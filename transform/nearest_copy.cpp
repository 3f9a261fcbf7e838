#include "transform/nearest_copy.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "image/numeric.h"
#include "image/pixel_access.h"
#include "image/pixel_layout.h"

namespace qel {
namespace {

/// Copies pixels of `kFrom` bytes as pixels of `kTo` bytes. Pixels of 3 bytes are loaded with the
/// byte behind them, unless their offset tells that it lies past the row.
template <int kFrom, int kTo, bool kOpaque>
void CopyPixels(uint8_t* dest, size_t count, const uint8_t* source, const int32_t* offsets,
                uint32_t outside) {
  constexpr int kLoaded = kFrom == 3 ? 4 : kFrom;
  const auto make_opaque = [](uint32_t pixel) {
    if (!kOpaque || (kFrom == 4 && AlphaOf(pixel) == kOutsideMarker)) return pixel;
    return WithAlpha(kFrom == 1 ? GreyColour(pixel) : pixel, 255);
  };
  const auto pixel_at = [&](size_t i) {
    const int32_t offset = offsets[i];
    if (offset < -kLargestOffset) [[unlikely]] {
      if (kFrom != 3 || offset == kOutsideOffset) return outside;
      uint32_t last = 0;
      std::memcpy(&last, source + (int64_t{offset} + kNarrow), 3);
      return make_opaque(last);
    }
    uint32_t pixel = 0;
    std::memcpy(&pixel, source + offset, kLoaded);
    return make_opaque(pixel);
  };
  // Four bytes are stored for three: the next pixel overwrites the last one.
  constexpr int kStored = kTo == 3 ? 4 : kTo;
  const size_t whole = kStored > kTo && count > 0 ? count - 1 : count;
  for (size_t i = 0; i < whole; ++i) {
    const uint32_t pixel = pixel_at(i);
    std::memcpy(dest + kTo * i, &pixel, kStored);
  }
  for (size_t i = whole; i < count; ++i) {
    const uint32_t pixel = pixel_at(i);
    std::memcpy(dest + kTo * i, &pixel, kTo);
  }
}

/// Pixels that are copied at once where they follow each other in the source too.
constexpr size_t kRun = 64;

bool IsRun(const int32_t* offsets, int32_t step) {
  if (offsets[kRun - 1] != WrapAdd(offsets[0], (static_cast<int32_t>(kRun) - 1) * step)) {
    return false;
  }
  uint32_t difference = 0;
  for (size_t i = 1; i < kRun; ++i) {
    difference |= static_cast<uint32_t>(WrapSubtract(offsets[i], offsets[i - 1]) ^ step);
  }
  return difference == 0;
}

/// Bytes per pixel of the depths of pixel access that have whole ones, else 0.
int AccessPixelBytes(int bit_count) {
  return bit_count >= 24 ? DirectPixelBytes(bit_count) : bit_count == 8 ? 1 : 0;
}

}  // namespace

bool HasSmallOffsets(const ImageView& source, int pixel_bytes) {
  return std::abs(int64_t{source.stride}) * source.Rows() + pixel_bytes * source.Columns() <=
         kLargestOffset;
}

NearestCopy::CopyFunction NearestCopy::FunctionFor(const Depths& depths) {
  if (depths.opaque) {
    return depths.source_bytes == 1   ? &CopyPixels<1, 4, true>
           : depths.source_bytes == 3 ? &CopyPixels<3, 4, true>
           : depths.source_bytes == 4 ? &CopyPixels<4, 4, true>
                                      : nullptr;
  }
  return depths.source_bytes == 1   ? &CopyPixels<1, 1, false>
         : depths.source_bytes == 3 ? &CopyPixels<3, 3, false>
         : depths.source_bytes == 4 ? &CopyPixels<4, 4, false>
                                    : nullptr;
}

NearestCopy::NearestCopy(const ImageView& source, const Depths& depths, int margin,
                         uint32_t outside)
    : bits_(source.bits),
      outside_(outside),
      same_bytes_(!depths.opaque),
      dest_bytes_(depths.opaque ? 4 : static_cast<size_t>(depths.source_bytes)) {
  if (!source.HasPixels() || !HasSmallOffsets(source, depths.source_bytes)) return;
  const auto inner = [=](int size) { return size > 2 * margin ? size - 2 * margin : 0; };
  rule_ = {.left = margin,
           .top = margin,
           .columns = inner(source.width),
           .rows = inner(source.height),
           .stride = source.stride,
           .pixel_bytes = depths.source_bytes,
           .narrow_column = depths.source_bytes == 3 ? source.width - 1 : -1};
  copy_ = FunctionFor(depths);
}

void NearestCopy::operator()(uint8_t* dest, const int32_t* sx, const int32_t* sy,
                             size_t count) const {
  int32_t offsets[kWarpTile];
  ActiveWarpKernels().offsets(offsets, sx, sy, count, rule_);
  const auto pixel_bytes = static_cast<size_t>(rule_.pixel_bytes);
  const auto starts_run = [&](size_t i) {
    return same_bytes_ && i + kRun <= count && IsRun(offsets + i, rule_.pixel_bytes);
  };
  for (size_t i = 0; i < count;) {
    const size_t single = i;
    while (i < count && !starts_run(i)) i += kRun;
    const size_t run = std::min(i, count);
    copy_(dest + single * dest_bytes_, run - single, bits_, offsets + single, outside_);
    for (; starts_run(i); i += kRun) {
      std::memcpy(dest + i * pixel_bytes, bits_ + offsets[i], kRun * pixel_bytes);
    }
  }
}

ColourCopy::ColourCopy(const ImageView& source, const ImageView& dest, bool opaque)
    : source_(source),
      dest_(dest),
      opaque_(opaque),
      nearest_(source, {AccessPixelBytes(source.bit_count), opaque}, 0, OutsideColor(source)) {}

void ColourCopy::operator()(int y, int x, const int32_t* sx, const int32_t* sy,
                            size_t count) const {
  if (nearest_) {
    const int64_t pixel_bytes = AccessPixelBytes(dest_.bit_count);
    nearest_(dest_.Row(y) + x * pixel_bytes, sx, sy, count);
    return;
  }
  for (size_t i = 0; i < count; ++i) {
    uint32_t colour = GetPixelColor(source_.bits, sx[i], sy[i], source_.width, source_.height,
                                    source_.stride, source_.bit_count);
    if (opaque_ && AlphaOf(colour) != kOutsideMarker) colour = WithAlpha(colour, 255);
    SetPixelColor(dest_.bits, x + static_cast<int>(i), y, dest_.width, dest_.height, dest_.stride,
                  colour, dest_.bit_count);
  }
}

}  // namespace qel
