#ifndef QEL_FILTER_FILTER_TRANSFORM_H_
#define QEL_FILTER_FILTER_TRANSFORM_H_

#include "component/object.h"
#include "qel/filter_transform.h"

namespace qel {

/// Neighbourhood filters; see `IQELFilterTransform`, whose functions stand in another order.
class CQELFilterTransform : public Component<CQELFilterTransform, IQELFilterTransform> {
 public:
  static constexpr tagREFString m_ObjectName = RefString(kFilterTransformName);

  // The order of these functions is the binary interface: slots 7 and up of the primary table.
  result_t GaussianBlur(IQEL* image, int level, IQEL** result) override;
  result_t Sharpen(IQEL* image, IQEL** result) override;
  result_t Soften(IQEL* image, IQEL** result) override;
  result_t Blur(IQEL* image, IQEL** result) override;
  result_t Emboss(IQEL* image, IQEL** result) override;
  result_t Median(IQEL* image, int size, IQEL** result) override;
  result_t Noise(IQEL* image, int amount, IQEL** result) override;
  result_t Jitter(IQEL* image, int amount, IQEL** result) override;
  result_t Contour(IQEL* image, IQEL** result) override;
  result_t Filter(IQEL* image, int* kernel, int size, int divisor, int offset,
                  IQEL** result) override;
  result_t Dilate(IQEL* image, int size, IQEL** result) override;
  result_t Edge(IQEL* image, int size, IQEL** result) override;
  result_t Erode(IQEL* image, int size, IQEL** result) override;

  /// Reachable inside the module only: weighs 32-bit "MONO" pixels with the last tap of `kernel`.
  /// Result: kOk; kInvalidArgument for a null image; kFail when the host makes no image.
  virtual result_t Kernel(IQEL* image, int16_t* kernel, int size, int divisor, int offset,
                          IQEL** result);

 protected:
  ~CQELFilterTransform() = default;
};
static_assert(sizeof(CQELFilterTransform) == 4 * sizeof(void*), "part of the object layout");

}  // namespace qel

#endif  // QEL_FILTER_FILTER_TRANSFORM_H_
