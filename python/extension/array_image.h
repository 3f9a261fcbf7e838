#ifndef QEL_PYTHON_ARRAY_IMAGE_H_
#define QEL_PYTHON_ARRAY_IMAGE_H_

#include "compose/pixels.h"
#include "host/host_image.h"
#include "host/host_object.h"
#include "operations/operation.h"

namespace qel::python {

using compose::Pixels;

/// Copies rows between pixels of one shape.
void CopyRows(const Pixels& from, const Pixels& to);
/// The same for a few rows after which something else is done before the next ones are copied: asks
/// for memory ahead, since the processor by itself would begin again with each of them.
void CopyRowsAhead(const Pixels& from, const Pixels& to);

/// An image in somebody else's memory, which must outlive it. `Create` and `Assign` with another
/// shape than that of the memory go to an image of its own instead.
/// Threads: counting from any; everything else from one at a time.
class ArrayImage final : public host::HostObject<IQELImageDIB, IQELImage, IQEL> {
 public:
  /// An image that has the pixels of `rows`.
  static SmartPtr<ArrayImage> Of(const Pixels& rows) { return Make(rows, true); }
  /// An image without pixels that puts them into `rows` once they fit.
  static SmartPtr<ArrayImage> Into(const Pixels& rows) { return Make(rows, false); }
  /// Makes it an image of other rows.
  void MoveTo(const Pixels& rows) {
    rows_ = rows;
    fits_ = true;
  }

  result_t GetSize(int* width, int* height, int* planes) override;
  result_t GetFormat(int* bit_count, uint32_t* model, int* reserved) override;
  result_t GetBits(int plane, int* reserved, uint8_t** bits, int* stride) override;
  result_t Create(int width, int height, int planes, int bit_count, uint32_t model) override;
  result_t ReservedSlot7() override { return kFail; }
  result_t Assign(IQEL* source, int flags) override;
  result_t Fill(uint32_t color) override;

  /// True while the pixels are in the memory that was given.
  bool fits() const { return fits_; }

 private:
  ArrayImage(const Pixels& rows, bool fits)
      : rows_(rows), model_(operations::ModelOf(8 * rows.channels)), fits_(fits) {}
  static SmartPtr<ArrayImage> Make(const Pixels& rows, bool fits) {
    return SmartPtr<ArrayImage>::Adopt(new ArrayImage(rows, fits));
  }
  bool Fits(int width, int height, int planes, int bit_count) const {
    return width == rows_.width && height == rows_.height && planes <= 1 &&
           bit_count == 8 * rows_.channels;
  }
  host::HostImage& Own();

  Pixels rows_;
  uint32_t model_;
  bool fits_;
  SmartPtr<host::HostImage> own_;  ///< has the pixels when they do not fit
};

}  // namespace qel::python

#endif  // QEL_PYTHON_ARRAY_IMAGE_H_
