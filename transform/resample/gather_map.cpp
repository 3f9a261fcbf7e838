#include "transform/resample/gather_map.h"

#include <algorithm>

namespace qel {
namespace {

constexpr size_t kBlockBytes = sizeof(GatherBlock::index);
constexpr size_t kQuarterBytes = kBlockBytes / 4;

/// Describes the quarters of a block. They are loaded as a whole, all of them within the row.
void DescribeQuarters(GatherBlock& block, const int64_t* positions, size_t bytes,
                      int64_t row_bytes) {
  constexpr int64_t kLoaded = kQuarterBytes;
  const auto for_quarters = [&](auto&& describe) {
    for (size_t first = 0; first < bytes; first += kQuarterBytes) {
      const int64_t* const begin = positions + first;
      const int64_t* const end = positions + std::min(first + kQuarterBytes, bytes);
      const auto [low, high] = std::minmax_element(begin, end);
      describe(first, begin, end, *low, *high);
    }
  };
  int64_t loads = 1;
  for_quarters([&](size_t, const int64_t*, const int64_t*, int64_t low, int64_t high) {
    loads = std::max(loads, (high - low + kLoaded) / kLoaded);
  });
  const int64_t last_start = row_bytes - loads * kLoaded;
  block.loads = static_cast<int32_t>(loads);
  block.base = std::min(block.base, last_start);
  if (block.base < 0 || loads > kMostQuarterLoads) block.span = 0;
  for_quarters([&](size_t first, const int64_t* begin, const int64_t* end, int64_t low, int64_t) {
    const int64_t from = std::min(low, last_start);
    block.starts[first / kQuarterBytes] = static_cast<uint8_t>(from - block.base);
    for (uint8_t* index = block.index + first; begin < end; ++begin) {
      *index++ = static_cast<uint8_t>(*begin - from);
    }
  });
}

}  // namespace

GatherRow GatherRowFor(int pixel_bytes) {
  const ResampleKernels& kernels = ActiveResampleKernels();
  return pixel_bytes == 1   ? kernels.gather1
         : pixel_bytes == 2 ? kernels.gather2
         : pixel_bytes == 3 ? kernels.gather3
                            : kernels.gather4;
}

void DescribeBlocks(GatherBlock* blocks, const int32_t* offsets, size_t count, size_t pixel_bytes,
                    int64_t row_bytes) {
  int64_t positions[kBlockBytes];
  size_t pixel = 0;
  size_t byte = 0;
  for (size_t first = 0; first < count * pixel_bytes; first += kBlockBytes) {
    const size_t bytes = std::min(kBlockBytes, count * pixel_bytes - first);
    for (size_t i = 0; i < bytes; ++i) {
      positions[i] = int64_t{offsets[pixel]} + static_cast<int64_t>(byte);
      if (++byte < pixel_bytes) continue;
      byte = 0;
      ++pixel;
    }
    const auto [low, high] = std::minmax_element(positions, positions + bytes);
    GatherBlock& block = *blocks++;
    block = {*low, *high - *low < 256 ? static_cast<int32_t>(*high - *low + 1) : 0, 0, {}, {}};
    if (block.span == 0) continue;
    if (ActiveResampleKernels().block_kind == GatherBlockKind::kQuarters) {
      DescribeQuarters(block, positions, bytes, row_bytes);
      continue;
    }
    for (size_t i = 0; i < bytes; ++i) {
      block.index[i] = static_cast<uint8_t>(positions[i] - block.base);
    }
  }
}

}  // namespace qel
