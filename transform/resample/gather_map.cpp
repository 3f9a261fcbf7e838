#include <algorithm>

#include "transform/resample/gather_map.h"

namespace qel {
namespace {

constexpr size_t kBlockBytes = sizeof(PickBlock::index);
constexpr size_t kQuarterBytes = kBlockBytes / 4;

/// Describes the quarters of a block. They are loaded as a whole, all of them within the row.
void DescribeQuarters(PickBlock& block, const int64_t* positions, size_t bytes, int64_t row_bytes) {
  constexpr int64_t kLoaded = kQuarterBytes;
  block.base = std::min(block.base, row_bytes - kLoaded);
  if (block.base < 0) block.span = 0;
  for (size_t quarter = 0; quarter < bytes; quarter += kQuarterBytes) {
    const int64_t* const begin = positions + quarter;
    const int64_t* const end = positions + std::min(quarter + kQuarterBytes, bytes);
    const int64_t from = std::min(*std::min_element(begin, end), row_bytes - kLoaded);
    if (*std::max_element(begin, end) - from >= kLoaded) block.span = 0;
    block.starts[quarter / kQuarterBytes] = static_cast<uint8_t>(from - block.base);
    for (size_t i = quarter; begin + (i - quarter) < end; ++i) {
      block.index[i] = static_cast<uint8_t>(positions[i] - from);
    }
  }
}

}  // namespace

PickRow PickOf(int pixel_bytes) {
  const ResampleKernels& kernels = ActiveResampleKernels();
  return pixel_bytes == 1   ? kernels.pick1
         : pixel_bytes == 2 ? kernels.pick2
         : pixel_bytes == 3 ? kernels.pick3
                            : kernels.pick4;
}

void DescribeBlocks(PickBlock* blocks, const int32_t* offsets, size_t count, size_t pixel_bytes,
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
    PickBlock& block = *blocks++;
    block = {*low, *high - *low < 256 ? static_cast<int32_t>(*high - *low + 1) : 0, {}, {}};
    if (block.span == 0) continue;
    if (ActiveResampleKernels().pick_blocks == PickBlocks::kQuarters) {
      DescribeQuarters(block, positions, bytes, row_bytes);
      continue;
    }
    for (size_t i = 0; i < bytes; ++i) {
      block.index[i] = static_cast<uint8_t>(positions[i] - block.base);
    }
  }
}

}  // namespace qel
