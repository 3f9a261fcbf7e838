#ifndef QEL_TRANSFORM_RESAMPLE_GATHER_MAP_H_
#define QEL_TRANSFORM_RESAMPLE_GATHER_MAP_H_

#include <algorithm>

#include "transform/resample/resample_kernels.h"

namespace qel {

using GatherRow = decltype(ResampleKernels::gather1);
/// The row function for pixels of 1, 2, 3 or 4 bytes.
GatherRow GatherRowFor(int pixel_bytes);

/// Pixels that take whole blocks.
inline constexpr size_t kBlockPixels = sizeof(GatherBlock::index);
/// Describes where up to `kBlockPixels` pixels at `offsets` come from, in a source row of
/// `row_bytes` bytes.
void DescribeBlocks(GatherBlock* blocks, const int32_t* offsets, size_t count, size_t pixel_bytes,
                    int64_t row_bytes);

/// The pixels that every row of a tile of a destination takes from its source row. Tiles are what
/// `kBytes` bytes can describe, which an operation has on its stack.
template <size_t kBytes>
class GatherMap {
 public:
  /// Unless `keep_alpha`, pixels of 4 bytes are gathered with their alpha. `step` is how many
  /// pixels of the source row lie between neighbours at the most, and `row_bytes` how much of it
  /// may be read.
  GatherMap(int pixel_bytes, bool keep_alpha, float step, int64_t row_bytes)
      : pixel_bytes_(static_cast<size_t>(pixel_bytes)),
        row_bytes_(row_bytes),
        keep_alpha_(keep_alpha),
        block_kind_(ActiveResampleKernels().block_kind),
        has_blocks_(block_kind_ == GatherBlockKind::kSpans ||
                    (block_kind_ == GatherBlockKind::kQuarters &&
                     step <= MostQuarterStep(pixel_bytes, keep_alpha))),
        // Up to this step, 64 bytes of a destination row come from 256 bytes of a source row. Tiles
        // whose pixels all lie in blocks are wider.
        has_offsets_(block_kind_ != GatherBlockKind::kSpans || !(step <= 3.5f)),
        gather_(GatherRowFor(pixel_bytes)) {
    const size_t offsets = has_offsets_ ? kBlockPixels * sizeof(int32_t) : 0;
    const size_t blocks = has_blocks_ ? pixel_bytes_ * sizeof(GatherBlock) : 0;
    most_pixels_ = kBytes / (offsets + blocks) * kBlockPixels;
    offsets_ = reinterpret_cast<int32_t*>(memory_ + most_pixels_ / kBlockPixels * blocks);
  }
  GatherMap(const GatherMap&) = delete;
  GatherMap& operator=(const GatherMap&) = delete;

  /// Most pixels of a tile.
  int64_t most_pixels() const { return static_cast<int64_t>(most_pixels_); }

  /// Makes pixel i of the next tile, for i below `count`, the one at offset_of(i) in the source
  /// row.
  template <typename OffsetOf>
  void Describe(int64_t count, OffsetOf&& offset_of) {
    count_ = static_cast<size_t>(count);
    int32_t offsets[kBlockPixels];
    for (size_t first = 0; first < count_; first += kBlockPixels) {
      int32_t* const some = has_offsets_ ? offsets_ + first : offsets;
      const size_t end = std::min(kBlockPixels, count_ - first);
      for (size_t i = 0; i < end; ++i) {
        some[i] = static_cast<int32_t>(offset_of(static_cast<int64_t>(first + i)));
      }
      if (!has_blocks_) continue;
      DescribeBlocks(blocks_ + first / kBlockPixels * pixel_bytes_, some, end, pixel_bytes_,
                     row_bytes_);
    }
  }

  /// Copies the tile's pixels of a row.
  void Gather(uint8_t* dest, const uint8_t* source) const {
    gather_(dest, source, {count_, offsets_, has_blocks_ ? blocks_ : nullptr, keep_alpha_});
  }

 private:
  /// Up to this step, looking a quarter up takes less than moving its pixels one by one, which
  /// takes two stores for 3 bytes.
  static constexpr float MostQuarterStep(int pixel_bytes, bool keep_alpha) {
    if (pixel_bytes == 4 && !keep_alpha) return 1.5f;
    return pixel_bytes == 1 ? 3.5f : 2.5f;
  }

  const size_t pixel_bytes_;
  const int64_t row_bytes_;
  const bool keep_alpha_;
  const GatherBlockKind block_kind_;
  const bool has_blocks_;
  const bool has_offsets_;
  const GatherRow gather_;
  size_t most_pixels_;
  size_t count_ = 0;
  alignas(GatherBlock) uint8_t memory_[kBytes];
  GatherBlock* const blocks_ = reinterpret_cast<GatherBlock*>(memory_);
  int32_t* offsets_;
};

}  // namespace qel

#endif  // QEL_TRANSFORM_RESAMPLE_GATHER_MAP_H_
