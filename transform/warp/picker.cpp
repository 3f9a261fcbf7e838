#include "transform/warp/picker.h"

#include <algorithm>

namespace qel {
namespace {

constexpr size_t kBlockBytes = sizeof(PickBlock::index);

}  // namespace

PickRow PickOf(int pixel_bytes) {
  const ResampleKernels& kernels = ActiveResampleKernels();
  return pixel_bytes == 1   ? kernels.pick1
         : pixel_bytes == 2 ? kernels.pick2
         : pixel_bytes == 3 ? kernels.pick3
                            : kernels.pick4;
}

void DescribeBlocks(PickBlock* blocks, const int32_t* offsets, size_t count, size_t pixel_bytes) {
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
    block = {*low, *high - *low < 256 ? static_cast<int32_t>(*high - *low + 1) : 0, {}};
    for (size_t i = 0; block.span > 0 && i < bytes; ++i) {
      block.index[i] = static_cast<uint8_t>(positions[i] - block.base);
    }
  }
}

}  // namespace qel
