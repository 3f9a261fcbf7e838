#ifndef QEL_COMPONENT_RESULT_IMAGE_H_
#define QEL_COMPONENT_RESULT_IMAGE_H_

#include "component/host_services.h"
#include "image/image_view.h"

namespace qel {

/// Owns a new image of the host from its creation to its hand-over, so that every early return and
/// every passing exception releases it. Empty when the host made none.
class ResultImage {
 public:
  /// A new image through the host's collection, without pixels yet.
  static ResultImage FromCollection() { return ResultImage(QELObject::CreateImage(), nullptr); }
  /// A new image through the image component's locator, without pixels yet. Can be filled.
  static ResultImage FromLocator() {
    SmartPtr<IQELImageDIB> image = QELObject::CreateImageDIB();
    IQELImageDIB* const dib = image.Get();
    return ResultImage(SmartPtr<IQELImage>::Adopt(image.Detach()), dib);
  }
  /// `FromLocator`, created in `shape`.
  static ResultImage Like(const ImageShape& shape) {
    ResultImage result = FromLocator();
    if (result) result.Create(shape);
    return result;
  }

  explicit operator bool() const { return static_cast<bool>(image_); }
  IQELImage* Get() const { return image_.Get(); }

  /// Gives the image its pixels. The result may be ignored: without pixels nothing is written.
  result_t Create(const ImageShape& shape) {
    pixels_ = NewPixels(*image_, shape);
    return pixels_.result();
  }

  /// The pixels of plane 0, in the shape that was asked for.
  ImageView View() const { return pixels_.Plane(0); }

  /// Sets every pixel. Only for images from the locator.
  void Fill(uint32_t color) const { dib_->Fill(color); }

  /// Gives the reference to the caller's output.
  void Store(IQEL** result) { *result = image_.Detach(); }

  /// Replaces the content of `image` by this one; nothing happens when it does not answer.
  void AssignTo(IQEL* image) const {
    if (const auto target = QueryFor<IQELImage>(image)) target->Assign(image_.Get(), 0);
  }

  /// Stores the image in `*result`, or assigns it to `source` when `result` is null. Returns kOk.
  result_t HandOver(IQEL* source, IQEL** result) {
    if (result != nullptr) {
      Store(result);
    } else {
      AssignTo(source);
    }
    return kOk;
  }

 private:
  ResultImage(SmartPtr<IQELImage> image, IQELImageDIB* dib) : image_(std::move(image)), dib_(dib) {}

  SmartPtr<IQELImage> image_;
  IQELImageDIB* dib_;  // the same object as image_, or null
  NewPixels pixels_;
};

}  // namespace qel

#endif  // QEL_COMPONENT_RESULT_IMAGE_H_
