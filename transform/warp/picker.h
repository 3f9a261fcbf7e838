#ifndef QEL_TRANSFORM_WARP_PICKER_H_
#define QEL_TRANSFORM_WARP_PICKER_H_

#include <algorithm>

#include "transform/resample/resample_kernels.h"

namespace qel {

using PickRow = decltype(ResampleKernels::pick1);
/// The row function for pixels of 1, 2, 3 or 4 bytes.
PickRow PickOf(int pixel_bytes);

/// Pixels that take whole blocks.
inline constexpr size_t kPickedPixels = sizeof(PickBlock::index);
/// Describes where up to `kPickedPixels` pixels at `offsets` come from.
void DescribeBlocks(PickBlock* blocks, const int32_t* offsets, size_t count, size_t pixel_bytes);

/// The pixels that every row of a tile of a destination picks from its source row. Tiles are what
/// `kBytes` bytes can describe, which an operation has on its stack.
template <size_t kBytes>
class Picker {
 public:
  /// Unless `keep_alpha`, pixels of 4 bytes are picked with their alpha. With `close`, those of 64
  /// bytes of a destination row lie within 256 bytes of the source row; wider tiles fit then.
  Picker(int pixel_bytes, bool keep_alpha, bool close)
      : pixel_bytes_(static_cast<size_t>(pixel_bytes)),
        keep_alpha_(keep_alpha),
        has_blocks_(ActiveResampleKernels().picks_blocks),
        has_offsets_(!has_blocks_ || !close),
        pick_(PickOf(pixel_bytes)) {
    const size_t offsets = has_offsets_ ? kPickedPixels * sizeof(int32_t) : 0;
    const size_t blocks = has_blocks_ ? pixel_bytes_ * sizeof(PickBlock) : 0;
    most_pixels_ = kBytes / (offsets + blocks) * kPickedPixels;
    offsets_ = reinterpret_cast<int32_t*>(memory_ + most_pixels_ / kPickedPixels * blocks);
  }
  Picker(const Picker&) = delete;
  Picker& operator=(const Picker&) = delete;

  /// Most pixels of a tile.
  int64_t most_pixels() const { return static_cast<int64_t>(most_pixels_); }

  /// Makes pixel i of the next tile, for i below `count`, the one at offset_of(i) in the source
  /// row.
  template <typename OffsetOf>
  void Describe(int64_t count, OffsetOf&& offset_of) {
    count_ = static_cast<size_t>(count);
    int32_t offsets[kPickedPixels];
    for (size_t first = 0; first < count_; first += kPickedPixels) {
      int32_t* const some = has_offsets_ ? offsets_ + first : offsets;
      const size_t end = std::min(kPickedPixels, count_ - first);
      for (size_t i = 0; i < end; ++i) {
        some[i] = static_cast<int32_t>(offset_of(static_cast<int64_t>(first + i)));
      }
      if (!has_blocks_) continue;
      DescribeBlocks(blocks_ + first / kPickedPixels * pixel_bytes_, some, end, pixel_bytes_);
    }
  }

  /// Copies the tile's pixels of a row.
  void Pick(uint8_t* dest, const uint8_t* source) const {
    pick_(dest, source, {count_, offsets_, blocks_, keep_alpha_});
  }

 private:
  const size_t pixel_bytes_;
  const bool keep_alpha_;
  const bool has_blocks_;
  const bool has_offsets_;
  const PickRow pick_;
  size_t most_pixels_;
  size_t count_ = 0;
  alignas(PickBlock) uint8_t memory_[kBytes];
  PickBlock* const blocks_ = reinterpret_cast<PickBlock*>(memory_);
  int32_t* offsets_;
};

}  // namespace qel

#endif  // QEL_TRANSFORM_WARP_PICKER_H_
