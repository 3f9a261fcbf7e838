#ifndef QEL_TRANSFORM_ROTATE_SOURCE_TILE_H_
#define QEL_TRANSFORM_ROTATE_SOURCE_TILE_H_

#include <memory>

#include "image/image_view.h"
#include "transform/rotate/bounded_kernels.h"

namespace qel {

/// Columns and rows of an image, from `left` and `top` to before `right` and `bottom`.
struct PixelBox {
  int left;
  int top;
  int right;
  int bottom;

  bool Holds(const PixelBox& other) const {
    return left <= other.left && top <= other.top && right >= other.right && bottom >= other.bottom;
  }
};

/// Makes values of a rectangle of the source and of what stands in outside, which samples then
/// share.
class SourceTile {
 public:
  /// Of pixels of 1, 3 or 4 bytes.
  SourceTile(const ImageView& source, int pixel_bytes);

  /// False when there is no memory.
  [[nodiscard]] bool Reserve();

  /// Whether the pixels of `box` have values.
  bool Holds(const PixelBox& box) const { return box_.Holds(box); }
  /// Makes values of `box` but for what no sample reaches; false where that is too much.
  bool Fill(PixelBox box);

  const SampleTile& values() const { return tile_; }

 private:
  /// Values of all pixels: 64 columns at any angle, at 4 bytes.
  static constexpr int64_t kMostValues = 16000;

  const ImageView source_;
  const int pixel_bytes_;
  uint8_t outside_[4];
  PixelBox box_ = {0, 0, -1, -1};
  SampleTile tile_ = {};
  std::unique_ptr<float[]> memory_;
};

}  // namespace qel

#endif  // QEL_TRANSFORM_ROTATE_SOURCE_TILE_H_
