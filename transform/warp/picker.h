#ifndef QEL_TRANSFORM_WARP_PICKER_H_
#define QEL_TRANSFORM_WARP_PICKER_H_

#include "transform/resample/resample_kernels.h"

namespace qel {

using PickRow = decltype(ResampleKernels::pick1);
/// The row function for pixels of 1, 2, 3 or 4 bytes.
PickRow PickOf(int pixel_bytes);

/// Bytes of a destination row that a block describes.
inline constexpr size_t kPickedBytes = sizeof(PickBlock::index);
/// Describes where `count` pixels at `offsets` come from.
void DescribeBlocks(PickBlock* blocks, const int64_t* offsets, size_t count, size_t pixel_bytes);

/// The pixels that every row of a tile of a destination picks from its source row. Tiles are what
/// `kBytes` bytes can describe, which an operation has on its stack.
template <size_t kBytes>
class Picker {
 public:
  /// Unless `keep_alpha`, pixels of 4 bytes are picked with their alpha.
  Picker(int pixel_bytes, bool keep_alpha)
      : pixel_bytes_(static_cast<size_t>(pixel_bytes)),
        keep_alpha_(keep_alpha),
        pick_(PickOf(pixel_bytes)) {
    // Room for the last block, which may be an unfinished one.
    const size_t per_line = kPickedBytes * sizeof(int64_t) + pixel_bytes_ * sizeof(PickBlock);
    most_pixels_ = (kBytes - sizeof(PickBlock)) * kPickedBytes / per_line;
    blocks_ = reinterpret_cast<PickBlock*>(memory_ + most_pixels_ * sizeof(int64_t));
  }

  Picker(const Picker&) = delete;
  Picker& operator=(const Picker&) = delete;

  /// Most pixels of a tile.
  int64_t most_pixels() const { return static_cast<int64_t>(most_pixels_); }

  /// Makes pixel i of the next tile, for i below `count`, the one at offset_of(i) in the source
  /// row.
  template <typename OffsetOf>
  void Describe(int64_t count, OffsetOf&& offset_of) {
    for (int64_t i = 0; i < count; ++i) offsets_[i] = offset_of(i);
    count_ = static_cast<size_t>(count);
    DescribeBlocks(blocks_, offsets_, count_, pixel_bytes_);
  }

  /// Copies the tile's pixels of a row.
  void Pick(uint8_t* dest, const uint8_t* source) const {
    pick_(dest, source, {count_, offsets_, blocks_, keep_alpha_});
  }

 private:
  const size_t pixel_bytes_;
  const bool keep_alpha_;
  const PickRow pick_;
  size_t most_pixels_;
  size_t count_ = 0;
  alignas(int64_t) uint8_t memory_[kBytes];
  int64_t* const offsets_ = reinterpret_cast<int64_t*>(memory_);
  PickBlock* blocks_;
};

}  // namespace qel

#endif  // QEL_TRANSFORM_WARP_PICKER_H_
