#ifndef QEL_TRANSFORM_WARP_PICKER_H_
#define QEL_TRANSFORM_WARP_PICKER_H_

#include <vector>

#include "transform/resample/resample_kernels.h"

namespace qel {

/// The pixels that every row of a destination picks from its source row.
class Picker {
 public:
  /// `offsets` are those of the pixels in the source row. Unless `keep_alpha`, pixels of 4 bytes
  /// are picked with their alpha.
  Picker(std::vector<int64_t> offsets, int pixel_bytes, bool keep_alpha);

  void Pick(uint8_t* dest, const uint8_t* source) const {
    pick_(dest, source, {offsets_.size(), offsets_.data(), blocks_.data(), keep_alpha_});
  }

  size_t RowBytes() const { return offsets_.size() * pixel_bytes_; }
  const std::vector<int64_t>& offsets() const { return offsets_; }

 private:
  /// Describes the bytes of a row from `first` on.
  void DescribeBlock(PickBlock& block, size_t first) const;

  std::vector<int64_t> offsets_;
  size_t pixel_bytes_;
  bool keep_alpha_;
  std::vector<PickBlock> blocks_;
  decltype(ResampleKernels::pick1) pick_;
};

}  // namespace qel

#endif  // QEL_TRANSFORM_WARP_PICKER_H_
