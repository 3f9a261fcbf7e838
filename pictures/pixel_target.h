#ifndef QEL_PICTURES_PIXEL_TARGET_H_
#define QEL_PICTURES_PIXEL_TARGET_H_

#include "pictures/codec.h"
#include "pictures/fresh_pages.h"

namespace qel::pictures {

/// Bytes of a row without padding.
inline size_t RowBytes(int width, int bit_count) {
  return (static_cast<size_t>(width) * static_cast<size_t>(bit_count) + 7) / 8;
}

/// Throws unless a picture of this size is within the limits. Decoders ask before they size
/// anything by the header.
void CheckSize(const Input& input, int64_t width, int64_t height);

/// Whether the upright picture has its rows in the order of the file.
bool KeepsRowOrder(int orientation);
/// Whether stored rows wait in a buffer of their size until they are turned.
bool NeedsBuffer(int orientation);
/// Makes the description of a stored picture the one of the upright picture. `orientation` is an
/// EXIF orientation, 1 to 8, as everywhere here.
void MakeUpright(PictureInfo& info, int orientation);

/// Rows that are decoded into, in the order in which the file stores them. They are the caller's
/// own wherever the orientation allows; otherwise `Finish` turns them.
class PixelTarget {
 public:
  /// `upright` are the rows of a picture that is stored as `width` x `height` pixels. Where the
  /// orientation keeps the order of rows they may be some of its rows.
  PixelTarget(const PixelBuffer& upright, int width, int height, int bit_count, int orientation);
  PixelTarget(const PixelTarget&) = delete;
  PixelTarget& operator=(const PixelTarget&) = delete;

  const PixelBuffer& stored() const { return stored_; }
  /// To be called once all rows are there. Unused bits of the last byte of a row become 0.
  void Finish() const;

 private:
  void MoveUpright() const;

  PixelBuffer upright_;
  PixelBuffer stored_;
  int stored_width_;
  int stored_height_;
  int upright_width_;
  int upright_height_;
  int bit_count_;
  int orientation_;
  FreshPages waiting_;
};

}  // namespace qel::pictures

#endif  // QEL_PICTURES_PIXEL_TARGET_H_
