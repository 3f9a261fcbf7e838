#ifndef QEL_TRANSFORM_WARP_NEAREST_COPY_H_
#define QEL_TRANSFORM_WARP_NEAREST_COPY_H_

#include <optional>

#include "image/image_view.h"
#include "image/pixel_layout.h"
#include "transform/warp/warp_kernels.h"

namespace qel {

/// Copies single pixels from given positions of an image: of 1, 3 or 4 bytes, in images whose
/// offsets are small. Does not own the image.
class NearestCopy {
 public:
  struct Depths {
    int source_bytes;
    bool opaque;  ///< 4 bytes are written, with alpha 255 but where it is the outside marker
  };

  /// Positions from `margin` pixels off the border are copied, all others become `outside` or stay
  /// as they are.
  NearestCopy(const ImageView& source, const Depths& depths, int margin,
              std::optional<uint32_t> outside);

  /// False when the depths or the image do not fit; nothing may be copied then.
  explicit operator bool() const { return copy_ != nullptr; }

  /// Writes `count` pixels from positions (sx[i], sy[i]), at most `kWarpTile`, not later than the
  /// next call or `Finish`: until then the memory brings their lines. The same pixels go to
  /// `repeat` as well, if that is not null; then there must be an `outside`.
  void operator()(uint8_t* dest, const int32_t* sx, const int32_t* sy, size_t count,
                  uint8_t* repeat = nullptr);
  /// The same at the cells that hold points. Reads and writes whole groups of points and cells.
  void AtPoints(uint8_t* dest, const double* x, const double* y, size_t count);
  /// Writes what is not written yet.
  void Finish() { Write(tiles_[1 - turn_]); }

 private:
  struct Tile {
    uint8_t* dest;
    uint8_t* repeat;
    size_t count = 0;
    bool all_inside;
    alignas(64) int32_t offsets[kWarpTile];
  };
  static CopyScattered FunctionFor(const Depths& depths);
  void TakeTurn(uint8_t* dest, uint8_t* repeat, size_t count, bool all_inside,
                size_t pixels_per_fetch);
  void WriteClose(uint8_t* dest, const int32_t* sx, const int32_t* sy, size_t count,
                  const CloseRows& close) const;
  void Write(Tile& tile);
  void WriteOffsets(uint8_t* dest, const int32_t* offsets, size_t count, bool all_inside) const;

  const uint8_t* bits_ = nullptr;
  size_t dest_bytes_;
  OffsetRule rule_{};
  std::optional<uint32_t> outside_;
  CopyScattered copy_ = nullptr;
  bool copies_close_ = false;
  Tile tiles_[2];
  int turn_ = 0;  ///< the tile that is filled next; the other one may wait
};

/// True when every offset within the rows of `source` is within `kLargestOffset`.
bool HasSmallOffsets(const ImageView& source, int pixel_bytes);

/// Writes pixels of `dest` in the colors that `source` has at given positions, at any depth.
/// Outside the source that is its outside color, whose marker stays the alpha of 32-bit pixels.
class ColorCopy {
 public:
  /// `dest` has the depth of `source`, or 32 bits when `opaque`: alpha is then 255, but where it is
  /// the outside marker.
  ColorCopy(const ImageView& source, const ImageView& dest, bool opaque);

  /// Writes `count` pixels, at most `kWarpTile`, of row `y` from column `x` on, not later than the
  /// next call or `Finish`; the same to row `repeat_y`, if that is another one.
  void operator()(int y, int x, const int32_t* sx, const int32_t* sy, size_t count, int repeat_y);
  void operator()(int y, int x, const int32_t* sx, const int32_t* sy, size_t count) {
    (*this)(y, x, sx, sy, count, y);
  }
  void Finish() { nearest_.Finish(); }

 private:
  ImageView source_;
  ImageView dest_;
  bool opaque_;
  NearestCopy nearest_;
};

}  // namespace qel

#endif  // QEL_TRANSFORM_WARP_NEAREST_COPY_H_
