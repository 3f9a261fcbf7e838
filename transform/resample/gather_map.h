#ifndef QEL_TRANSFORM_RESAMPLE_GATHER_MAP_H_
#define QEL_TRANSFORM_RESAMPLE_GATHER_MAP_H_

#include <algorithm>

#include "simd/prefetch.h"
#include "transform/resample/gather_kernels.h"

namespace qel {

using GatherRow = decltype(GatherKernels::gather1);
/// The row function for pixels of 1, 2, 3 or 4 bytes.
GatherRow GatherRowFor(int pixel_bytes);

/// Pixels that take whole blocks.
inline constexpr size_t kBlockPixels = sizeof(GatherBlock::index);
/// Describes where up to `kBlockPixels` pixels at `offsets` come from, in a source row of
/// `row_bytes` bytes.
void DescribeBlocks(GatherBlock* blocks, GatherBlockKind kind, const int32_t* offsets, size_t count,
                    size_t pixel_bytes, int64_t row_bytes);

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
        kind_(KindFor(pixel_bytes, step)),
        has_blocks_(kind_ != GatherBlockKind::kNone),
        // Up to this step, 64 bytes of a destination row come from 256 bytes of a source row. Tiles
        // whose pixels all lie in blocks are wider.
        has_offsets_(kind_ != GatherBlockKind::kSpans || !(step <= 3.5f)),
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
      DescribeBlocks(blocks_ + first / kBlockPixels * pixel_bytes_, kind_, some, end, pixel_bytes_,
                     row_bytes_);
    }
  }

  /// Copies the tile's pixels of a row; with `next`, the memory brings those of that row meanwhile.
  void Gather(uint8_t* dest, const uint8_t* source, const uint8_t* next = nullptr) const {
    // The processor has only so many lines on their way: an order for a whole row would wait for
    // most of them before the first pixel is copied.
    constexpr int64_t kBytesOnTheirWay = 1024;
    const int64_t read = next == nullptr ? 0 : LastByte() + 1 - FirstByte(0);
    const auto parts = static_cast<size_t>(read / kBytesOnTheirWay + 1);
    const size_t part = std::max(count_ / parts / kBlockPixels, size_t{1}) * kBlockPixels;
    for (size_t first = 0; first < count_; first += part) {
      const size_t pixels = std::min(part, count_ - first);
      if (next != nullptr) {
        const int64_t begin = FirstByte(first);
        const bool is_last = first + pixels == count_;
        const int64_t end = is_last ? LastByte() + 1 : FirstByte(first + pixels);
        PrefetchRun(next + begin, end - begin);
      }
      gather_(dest + first * pixel_bytes_, source,
              {pixels, has_offsets_ ? offsets_ + first : nullptr, kind_,
               has_blocks_ ? blocks_ + first / kBlockPixels * pixel_bytes_ : nullptr, keep_alpha_});
    }
  }

 private:
  static GatherBlockKind KindFor(int pixel_bytes, float step) {
    const GatherKernels& kernels = ActiveGatherKernels();
    // Up to these steps, looking a quarter up takes less than moving its pixels one by one, which
    // takes two stores for 3 bytes, or than looking up words in vectors.
    const float most_quarters = pixel_bytes == 1 ? 3.5f : pixel_bytes == 4 ? 1.5f : 2.5f;
    const bool has_vectors = pixel_bytes == 4 && kernels.vector_bytes != 0 && step <= 3.5f;
    if (has_vectors && step > most_quarters) return GatherBlockKind::kVectors;
    if (kernels.block_kind != GatherBlockKind::kQuarters) return kernels.block_kind;
    return step <= most_quarters ? GatherBlockKind::kQuarters : GatherBlockKind::kNone;
  }

  /// Where pixel `first` of the tile begins, which begins a block.
  int64_t FirstByte(size_t first) const {
    return has_offsets_ ? offsets_[first] : blocks_[first / kBlockPixels * pixel_bytes_].base;
  }
  int64_t LastByte() const {
    if (has_offsets_) return offsets_[count_ - 1] + static_cast<int64_t>(pixel_bytes_) - 1;
    const GatherBlock& last = blocks_[(count_ * pixel_bytes_ - 1) / kBlockPixels];
    return last.base + last.span - 1;
  }

  const size_t pixel_bytes_;
  const int64_t row_bytes_;
  const bool keep_alpha_;
  const GatherBlockKind kind_;
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
