#include "transform/resample/gather_map.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace qel {
namespace {

constexpr size_t kBlockBytes = sizeof(GatherBlock::index);
constexpr size_t kMostPixelBytes = 4;
constexpr int kMostSpan = 256;

struct Range {
  int low;
  int high;
};
template <typename Integer>
Range RangeOf(const Integer* values, size_t count) {
  Integer low = values[0], high = values[0];
  for (size_t i = 1; i < count; ++i) {
    low = std::min(low, values[i]);
    high = std::max(high, values[i]);
  }
  return {low, high};
}

/// Describes the parts of a block, of `part` items each, which are loaded as wholes within the row.
/// Its positions, of bytes or words, are counted from `origin` in the row.
template <typename Index>
void DescribeParts(GatherBlock& block, const int16_t* positions, int64_t origin, size_t part,
                   int64_t row_bytes) {
  constexpr size_t kItems = kBlockBytes / sizeof(Index);
  constexpr auto kItem = static_cast<int>(sizeof(Index));
  const auto loaded = static_cast<int>(part * sizeof(Index));
  int lows[sizeof(GatherBlock::starts)];
  int loads = 1;
  for (size_t k = 0; k < kItems / part; ++k) {
    const Range range = RangeOf(positions + k * part, part);
    lows[k] = range.low;
    loads = std::max(loads, (range.high - range.low + kItem - 1 + loaded) / loaded);
  }
  const int64_t last_start = row_bytes - int64_t{loads} * loaded;
  block.loads = loads;
  block.base = std::min(block.base, last_start);
  if (block.base < 0 || loads > kMostPartLoads) block.span = 0;
  for (size_t k = 0; k < kItems / part; ++k) {
    const int64_t from = std::min(origin + lows[k], last_start);
    block.starts[k] = static_cast<uint8_t>(from - block.base);
    const auto before = static_cast<int>(from - origin);
    for (size_t i = k * part; i < (k + 1) * part; ++i) {
      const auto place = static_cast<Index>((positions[i] - before) / kItem);
      std::memcpy(block.index + i * sizeof(Index), &place, sizeof(place));
    }
  }
}

/// Writes where the bytes of the pixels at `offsets` lie, from `origin` on.
template <size_t kPixelBytes>
void ListBytes(int16_t* positions, const int32_t* offsets, size_t count, int32_t origin) {
  for (size_t i = 0; i < count; ++i) {
    for (size_t k = 0; k < kPixelBytes; ++k) {
      positions[i * kPixelBytes + k] =
          static_cast<int16_t>(offsets[i] - origin + static_cast<int>(k));
    }
  }
}

}  // namespace

GatherRow GatherRowFor(int pixel_bytes) {
  const GatherKernels& kernels = ActiveGatherKernels();
  return pixel_bytes == 1   ? kernels.gather1
         : pixel_bytes == 2 ? kernels.gather2
         : pixel_bytes == 3 ? kernels.gather3
                            : kernels.gather4;
}

void DescribeBlocks(GatherBlock* blocks, GatherBlockKind kind, const int32_t* offsets, size_t count,
                    size_t pixel_bytes, int64_t row_bytes) {
  const bool has_words = kind == GatherBlockKind::kVectors;
  const auto list = has_words || pixel_bytes == 1 ? &ListBytes<1>
                    : pixel_bytes == 2            ? &ListBytes<2>
                    : pixel_bytes == 3            ? &ListBytes<3>
                                                  : &ListBytes<4>;
  const size_t unit = has_words ? 1 : pixel_bytes;
  const size_t items = has_words ? kBlockBytes / pixel_bytes : kBlockBytes;
  // A block of bytes begins and ends with parts of pixels.
  int16_t listed[kBlockBytes + 2 * kMostPixelBytes];
  for (size_t first = 0; first < count * pixel_bytes; first += kBlockBytes) {
    const size_t begin = first / pixel_bytes;
    const size_t end = std::min((first + kBlockBytes + pixel_bytes - 1) / pixel_bytes, count);
    const Range pixels = RangeOf(offsets + begin, end - begin);
    const int64_t origin = pixels.low;
    GatherBlock& block = *blocks++;
    block = {origin, 0, 0, {}, {}};
    if (pixels.high - origin > kMostSpan) continue;
    list(listed, offsets + begin, end - begin, pixels.low);
    // Behind the last pixel, its last byte is repeated.
    int16_t* const behind = listed + (end - begin) * unit;
    std::fill(behind, std::end(listed), behind[-1]);
    const int16_t* const positions = listed + (has_words ? 0 : first % pixel_bytes);
    const Range range = RangeOf(positions, items);
    const int span = range.high - range.low + static_cast<int>(has_words ? pixel_bytes : 1);
    if (span > kMostSpan) continue;
    block.base = origin + range.low;
    block.span = span;
    if (kind == GatherBlockKind::kQuarters) {
      DescribeParts<uint8_t>(block, positions, origin, kBlockBytes / 4, row_bytes);
    } else if (has_words) {
      DescribeParts<uint32_t>(block, positions, origin,
                              ActiveGatherKernels().vector_bytes / sizeof(uint32_t), row_bytes);
    } else {
      for (size_t i = 0; i < kBlockBytes; ++i) {
        block.index[i] = static_cast<uint8_t>(positions[i] - range.low);
      }
    }
  }
}

}  // namespace qel
