#include "transform/warp/picker.h"

#include <algorithm>
#include <utility>

namespace qel {
namespace {

constexpr size_t kBlockBytes = sizeof(PickBlock::index);

}  // namespace

Picker::Picker(std::vector<int64_t> offsets, int pixel_bytes, bool keep_alpha)
    : offsets_(std::move(offsets)),
      pixel_bytes_(static_cast<size_t>(pixel_bytes)),
      keep_alpha_(keep_alpha),
      blocks_((RowBytes() + kBlockBytes - 1) / kBlockBytes) {
  const ResampleKernels& kernels = ActiveResampleKernels();
  pick_ = pixel_bytes == 1   ? kernels.pick1
          : pixel_bytes == 2 ? kernels.pick2
          : pixel_bytes == 3 ? kernels.pick3
                             : kernels.pick4;
  for (size_t k = 0; k < blocks_.size(); ++k) DescribeBlock(blocks_[k], k * kBlockBytes);
}

void Picker::DescribeBlock(PickBlock& block, size_t first) const {
  const size_t count = std::min(kBlockBytes, RowBytes() - first);
  int64_t positions[kBlockBytes];
  size_t pixel = first / pixel_bytes_;
  size_t byte = first % pixel_bytes_;
  for (size_t i = 0; i < count; ++i) {
    positions[i] = offsets_[pixel] + static_cast<int64_t>(byte);
    if (++byte < pixel_bytes_) continue;
    byte = 0;
    ++pixel;
  }
  const auto [low, high] = std::minmax_element(positions, positions + count);
  block = {*low, *high - *low < 256 ? static_cast<int32_t>(*high - *low + 1) : 0, {}};
  for (size_t i = 0; block.span > 0 && i < count; ++i) {
    block.index[i] = static_cast<uint8_t>(positions[i] - block.base);
  }
}

}  // namespace qel
