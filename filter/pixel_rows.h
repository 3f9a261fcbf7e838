#ifndef QEL_FILTER_PIXEL_ROWS_H_
#define QEL_FILTER_PIXEL_ROWS_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

#include "image/image_view.h"

namespace qel {

// Rows of pixels outside of images: 4 bytes a pixel at 32 bits, 3 at 24, and one level a pixel at
// palette depths, whose channels are equal.

/// Bytes of a pixel in rows: 4, 3 or 1; 0 for depths that store nothing.
constexpr int PixelBytes(int bit_count) {
  return bit_count == 32                                      ? 4
         : bit_count >= 24                                    ? 3
         : bit_count == 8 || bit_count == 4 || bit_count == 1 ? 1
                                                              : 0;
}

/// Scratch rows of an operation: one block on the stack, whatever the image and size. Threads of
/// hosts may be small: an operation stays within 64 KiB, its row functions included, which take up
/// to 18 KiB where they sort many taps.
template <size_t kBytes>
struct ScratchBlock {
  operator std::span<uint8_t>() { return bytes; }
  alignas(64) uint8_t bytes[kBytes];
};
/// Most columns that are assembled, or written, at a time.
inline constexpr int64_t kTileColumns = 4096;
/// Readable bytes after the pixels of a scratch row, for vectors that start inside it.
inline constexpr size_t kRowSlack = 128;

/// Bytes from scratch row to scratch row: room for `bytes` and the slack, in whole cache lines, and
/// an odd number of these so that rows do not meet in the same sets of the cache.
constexpr size_t ScratchPitch(size_t bytes) { return ((bytes + kRowSlack + 63) / 64 | 1) * 64; }
/// Most bytes of pixels in each of `rows` scratch rows that share `bytes`; may be negative.
constexpr int64_t ScratchRowBytes(size_t bytes, int64_t rows) {
  const int64_t lines = (static_cast<int64_t>(bytes) / rows / 64 - 1) | 1;
  return lines * 64 - int64_t{kRowSlack};
}

/// The columns from `first` up to `end`, divided evenly into tiles of at most `most` columns.
class Tiles {
 public:
  Tiles(int64_t first, int64_t end, int64_t most) : first_(first), columns_(end - first) {
    most = std::max<int64_t>(most, 1);
    // Rows mostly are one tile, and divisions take as long as short rows.
    count_ = columns_ <= most ? std::min<int64_t>(columns_, 1) : (columns_ + most - 1) / most;
  }
  int64_t count() const { return count_; }
  /// Where tile `i` begins; that of number `count` is the end.
  int64_t operator[](int64_t i) const {
    return first_ + (count_ == 1 ? columns_ * i : columns_ * i / count_);
  }

 private:
  int64_t first_;
  int64_t columns_;
  int64_t count_;
};

/// Calls visit(x, count) for each of these tiles.
template <typename Visitor>
void ForEachTile(int64_t first, int64_t end, int64_t most, Visitor&& visit) {
  const Tiles tiles(first, end, most);
  for (int64_t i = 0; i < tiles.count(); ++i) visit(tiles[i], tiles[i + 1] - tiles[i]);
}

/// Fills `pixels` with copies of one pixel. They may begin with it.
void RepeatPixel(uint8_t* pixels, int64_t count, const uint8_t* pixel, int pixel_bytes);

/// Reads scratch rows of an image, anywhere in and around it.
class SourceRows {
 public:
  explicit SourceRows(const ImageView& source);

  int pixel_bytes() const { return pixel_bytes_; }
  /// The pixel that stands in for everything outside.
  const uint8_t* outside() const { return outside_; }
  /// True when rows of the image are as scratch rows would be.
  bool InPlace() const { return source_.HasPixels() && source_.bit_count >= 8; }
  /// Where pixel (x, y) lies in the image, which is `InPlace`; null for rows outside of it.
  const uint8_t* At(int64_t y, int64_t x) const {
    return y >= 0 && y < source_.Rows() ? source_.Row(y) + x * pixel_bytes_ : nullptr;
  }
  int64_t Columns() const { return source_.Columns(); }
  /// Writes pixels (x, y) to (x + count - 1, y), in and around the image, to `pixels`.
  void CopyPixels(int64_t y, int64_t x, int64_t count, uint8_t* pixels) const;

 private:
  void CopyOutside(int64_t count, uint8_t* pixels) const;

  static constexpr int64_t kOutsidePixels = 64;

  const ImageView source_;
  const int pixel_bytes_;
  uint8_t outside_[kOutsidePixels * 4];
};

/// Writes rows of pixels to an image.
class DestRows {
 public:
  /// Most columns that are opened at a time where pixels get another alpha.
  static constexpr int64_t kAlphaColumns = 1024;

  /// Pixels are stored as they are.
  explicit DestRows(const ImageView& dest) : DestRows(dest, dest, 0) { KeepAlpha(); }
  /// Alpha of 32-bit pixels is not what was written but that of the pixel of `source` that lies
  /// `alpha_shift` further right and down; outside, and without source pixels, it is the marker.
  DestRows(const ImageView& dest, const ImageView& source, int64_t alpha_shift)
      : dest_(dest), source_(source), alpha_shift_(alpha_shift) {}

  /// Where pixels from (x, y) on are to be written, at most `MostOpened` of them.
  uint8_t* Open(int64_t y, int64_t x) {
    return dest_.bit_count >= 8 && !TakesAlpha() ? At(y, x) : row_;
  }
  int64_t MostOpened() const { return TakesAlpha() ? kAlphaColumns : kTileColumns; }
  /// Stores what was written since `Open`.
  void Close(int64_t y, int64_t x, int64_t count);
  int64_t Rows() const { return dest_.Rows(); }
  int64_t Columns() const { return dest_.Columns(); }
  /// Where pixel (x, y) lies, at whole bytes.
  uint8_t* At(int64_t y, int64_t x) const { return dest_.Row(y) + x * PixelBytes(dest_.bit_count); }

  /// From now on, pixels bring their alpha with them.
  void KeepAlpha() { keeps_alpha_ = true; }
  /// True when pixels are stored with another alpha than their own.
  bool TakesAlpha() const { return dest_.bit_count == 32 && !keeps_alpha_; }

 private:
  void StoreWithAlpha(int64_t y, int64_t x, int64_t count);

  const ImageView dest_;
  const ImageView source_;
  const int64_t alpha_shift_;
  bool keeps_alpha_ = false;
  uint8_t row_[std::max(kTileColumns, 4 * kAlphaColumns)];
};

/// Stores `color` in every pixel.
void FillPixels(const ImageView& dest, uint32_t color);

/// True when there is something to compute: pixels to write, of a depth that stores any.
inline bool StoresPixels(const ImageView& dest) {
  return dest.HasPixels() && PixelBytes(dest.bit_count) != 0;
}

}  // namespace qel

#endif  // QEL_FILTER_PIXEL_ROWS_H_
