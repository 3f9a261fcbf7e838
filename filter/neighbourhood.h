#ifndef QEL_FILTER_NEIGHBOURHOOD_H_
#define QEL_FILTER_NEIGHBOURHOOD_H_

#include <algorithm>
#include <cstddef>

#include "image/image_view.h"

namespace qel {

// The one walk through neighbourhoods. Rows of the source are copied tile by tile into scratch rows
// that reach beyond the image, with the outside colour in place, so that no pixel is a border pixel
// any more and neighbour (i, j) of every pixel lies at a fixed distance. Scratch rows hold samples:
// whole pixels at 32 and 24 bits, one level per pixel at palette depths, whose channels are equal.

/// Bytes of a sample: 4, 3 or 1; 0 for depths that store nothing.
constexpr int SampleBytes(int bit_count) {
  return bit_count == 32                                      ? 4
         : bit_count >= 24                                    ? 3
         : bit_count == 8 || bit_count == 4 || bit_count == 1 ? 1
                                                              : 0;
}

/// How far the neighbourhood of a positive size reaches from its pixel, in both directions.
/// Deliberate: even sizes reach one further up and left than down and right.
struct Reach {
  explicit constexpr Reach(int size) : before(size / 2), after(int64_t{size} - 1 - size / 2) {}
  int64_t before;
  int64_t after;
};

/// All scratch of an operation together: a fixed block on the stack, whatever the image and size.
inline constexpr size_t kScratchBytes = 56 * 1024;
/// Most columns of a tile.
inline constexpr int64_t kTileColumns = 4096;
/// Readable bytes after the samples of a scratch row, for vectors that start inside it.
inline constexpr size_t kRowSlack = 128;

/// Bytes from scratch row to scratch row: room for `bytes` and the slack, in whole cache lines, and
/// an odd number of these so that rows do not meet in the same sets of the cache.
constexpr size_t ScratchPitch(size_t bytes) { return ((bytes + kRowSlack + 63) / 64 | 1) * 64; }

/// Divides `columns` evenly into tiles of at most `most` columns and calls visit(first, count).
template <typename Visitor>
void ForEachTile(int64_t columns, int64_t most, Visitor&& visit) {
  most = std::clamp<int64_t>(most, 1, kTileColumns);
  const int64_t tiles = (columns + most - 1) / most;
  if (tiles == 0) return;
  const int64_t even = (columns + tiles - 1) / tiles;
  const int64_t step = std::min(most, (even + 15) / 16 * 16);
  for (int64_t x = 0; x < columns; x += step) visit(x, std::min(step, columns - x));
}

/// Reads scratch rows of an image, anywhere in and around it.
class SourceRows {
 public:
  explicit SourceRows(const ImageView& source);

  int sample_bytes() const { return sample_bytes_; }
  /// The sample that stands in for everything outside.
  const uint8_t* outside() const { return outside_; }
  /// Writes the samples of the pixels (x, y) to (x + count - 1, y).
  void Fetch(int64_t y, int64_t x, int64_t count, uint8_t* samples) const;

 private:
  const ImageView source_;
  const int sample_bytes_;
  uint8_t outside_[4];
};

/// Writes samples to an image.
class DestRows {
 public:
  /// Samples are stored as they are.
  explicit DestRows(const ImageView& dest) : DestRows(dest, dest, 0) { keeps_alpha_ = true; }
  /// Alpha of 32-bit pixels is not taken from the samples but from the pixel of `source` that lies
  /// `alpha_shift` further right and down; outside, and without source pixels, it is the marker.
  DestRows(const ImageView& dest, const ImageView& source, int64_t alpha_shift)
      : dest_(dest), source_(source), alpha_shift_(alpha_shift) {}

  /// Where the samples of pixels from (x, y) on are to be written, at most `kTileColumns` of them.
  uint8_t* Open(int64_t y, int64_t x) {
    const bool whole_bytes = dest_.bit_count >= 8;
    return whole_bytes ? dest_.Row(y) + x * SampleBytes(dest_.bit_count) : packing_;
  }
  /// Stores what was written since `Open`.
  void Close(int64_t y, int64_t x, int64_t count);

 private:
  void CopyAlpha(int64_t y, int64_t x, int64_t count);

  const ImageView dest_;
  const ImageView source_;
  const int64_t alpha_shift_;
  bool keeps_alpha_ = false;
  uint8_t packing_[kTileColumns];
};

/// Fills `samples` with copies of one sample. They may begin with it.
void RepeatSample(uint8_t* samples, int64_t count, const uint8_t* sample, int sample_bytes);

/// Stores `colour` in every pixel.
void FillPixels(const ImageView& dest, uint32_t colour);

/// True when there is something to compute: pixels to write, of a depth that stores any.
inline bool StoresPixels(const ImageView& dest) {
  return dest.HasPixels() && SampleBytes(dest.bit_count) != 0;
}

}  // namespace qel

#endif  // QEL_FILTER_NEIGHBOURHOOD_H_
