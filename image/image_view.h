#ifndef QEL_IMAGE_IMAGE_VIEW_H_
#define QEL_IMAGE_IMAGE_VIEW_H_

#include "image/image_contract.h"

namespace qel {

/// Size and format of an image, as its `GetSize` and `GetFormat` report them.
struct ImageShape {
  int width = 0;   ///< pixels; negative acts as 0
  int height = 0;  ///< rows; negative acts as 0
  int planes = 0;
  int bit_count = 0;
  uint32_t model = 0;

  bool Empty() const { return width <= 0 || height <= 0; }
  /// Width and height as counts: never negative, 64 bits for products.
  int64_t Columns() const { return width > 0 ? width : 0; }
  int64_t Rows() const { return height > 0 ? height : 0; }
};

/// The pixels of one plane: the image's memory, which it does not own. Valid until the image is
/// created or assigned anew.
struct ImageView : ImageShape {
  uint8_t* bits = nullptr;
  int stride = 0;  ///< bytes from row to row, may be negative

  /// Start of row `y`. The only address computation; the product has 64 bits.
  uint8_t* Row(int64_t y) const { return bits + y * stride; }
  /// False when there is nothing to read or write.
  bool HasPixels() const { return bits != nullptr && !Empty(); }
};

// These are the only callers of the images' Get slots. Results are ignored unless returned: a call
// that fails without writing looks like an empty image.

void ReadSize(IQEL& image, ImageShape& shape);
result_t ReadFormat(IQEL& image, ImageShape& shape);
/// Reads the memory of plane `plane` of an image whose shape is known.
ImageView ReadPlane(IQEL& image, const ImageShape& shape, int plane);

/// The pixels of an image from a call of `Create` on. Hosts may fail to make them and let the image
/// keep what it had, which is then written only if it is as large as was asked for.
class NewPixels {
 public:
  NewPixels() = default;
  /// Creates `image` in `shape`. Its own size and format are read after a failure only.
  NewPixels(IQEL& image, const ImageShape& shape);

  /// What `Create` answered.
  result_t result() const { return result_; }
  /// Plane `plane`, in the shape that was asked for; without memory where the image has none such.
  ImageView Plane(int plane) const;

 private:
  IQEL* image_ = nullptr;
  ImageShape shape_;
  int usable_planes_ = 0;
  result_t result_ = kFail;
};

// Hosts are asked in the same order at all times; which one is a matter of the operation.

/// Format, then size.
ImageShape ReadShape(IQEL& image);
/// Format, size, then the memory of plane 0.
ImageView ReadView(IQEL& image);
/// Size, then format.
ImageShape ReadSizeAndFormat(IQEL& image);
/// Size, the memory of plane 0, then format.
ImageView ReadSizeBitsAndFormat(IQEL& image);

}  // namespace qel

#endif  // QEL_IMAGE_IMAGE_VIEW_H_
