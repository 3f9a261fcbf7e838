#ifndef QEL_PICTURES_PIXEL_TARGET_H_
#define QEL_PICTURES_PIXEL_TARGET_H_

#include "pictures/codec.h"
#include "pictures/fresh_pages.h"

namespace qel::pictures {

/// Bytes of a row without padding.
inline size_t RowBytes(int width, int bit_count) {
  return (static_cast<size_t>(width) * static_cast<size_t>(bit_count) + 7) / 8;
}

/// Throws unless a picture of this size is within the limits. `PixelTarget` asks too; readers that
/// size something by the header before they have a target ask first.
void CheckSize(const Input& input, int64_t width, int64_t height);

/// The rows that a picture is decoded into, in the order in which the file stores them. They are
/// the caller's own wherever the orientation allows; otherwise rows wait in a buffer until
/// `Finish` turns them.
class PixelTarget {
 public:
  /// Checks the limits, makes `info`, which describes the stored picture, describe the upright
  /// one, and asks for its memory. `orientation` is an EXIF orientation, 1 to 8.
  PixelTarget(const Input& input, PictureInfo& info, int orientation = 1);
  PixelTarget(const PixelTarget&) = delete;
  PixelTarget& operator=(const PixelTarget&) = delete;

  /// False when only the header was asked for: there are no rows then.
  bool WantsPixels() const { return bits_ != nullptr; }
  uint8_t* Row(int y) const { return bits_ + ptrdiff_t{y} * stride_; }
  ptrdiff_t stride() const { return stride_; }
  /// To be called once all rows are there.
  void Finish();

 private:
  void MoveUpright() const;

  uint8_t* bits_ = nullptr;
  ptrdiff_t stride_ = 0;
  int orientation_;
  int stored_width_;
  int stored_height_;
  int upright_width_;
  int upright_height_;
  int bit_count_;
  PixelBuffer upright_;
  FreshPages waiting_;
};

}  // namespace qel::pictures

#endif  // QEL_PICTURES_PIXEL_TARGET_H_
