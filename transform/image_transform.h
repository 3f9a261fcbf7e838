#ifndef QEL_TRANSFORM_IMAGE_TRANSFORM_H_
#define QEL_TRANSFORM_IMAGE_TRANSFORM_H_

#include "component/object.h"
#include "qel/transform.h"

namespace qel {

/// Geometric operations; see `IQELTransform`. The last two are reachable inside the module only.
class CQELImageTransform : public Component<CQELImageTransform, IQELTransform> {
 public:
  static constexpr tagREFString m_ObjectName = RefString(kTransformName);

  // The order of these functions is the binary interface: slots 7 and up of the primary table.
  result_t Flip(IQEL* source, IQEL** result) override;
  result_t Mirror(IQEL* source, IQEL** result) override;
  result_t Rotate(IQEL* source, IQEL** result, int angle, int method, int force_alpha,
                  int keep_size) override;
  result_t Skew(IQEL* source, IQEL** result, float x_gain, float y_gain, int x_pivot, int y_pivot,
                int reserved, int force_alpha) override;
  result_t Resample(IQEL* source, IQEL** result, int new_width, int new_height, int method,
                    int nearest_only) override;
  result_t IncreaseBpp(IQEL* source, IQEL** result, int bit_count, uint32_t color_model) override;
  result_t RotatePaste(IQEL* source, IQEL* target, double angle, int method, int key) override;
  result_t FlipBits(IQEL* image) override;
  result_t Quad(IQEL* source, IQEL** result, double x1, double y1, double x2, double y2, double x3,
                double y3, double x4, double y4, uint32_t new_width, uint32_t new_height,
                int16_t blend) override;
  result_t Transform(ITransform* transform, IQEL* source, IQEL** result, int x_offset, int y_offset,
                     uint32_t new_width, uint32_t new_height, int16_t reserved1,
                     int16_t reserved2) override;
  result_t TransformPaste(ITransform* transform, IQEL* source, IQEL* target, int x_offset,
                          int y_offset, int16_t fill_voids, int16_t reserved) override;
  result_t FlipImageAndBits(IQEL* image) override;

  /// Turns `source` by `angle` (90, 180 or 270 degrees) into `dest`, which is created anew; every
  /// plane. Other angles do nothing. Result: kOk, or the source's failing `GetFormat`.
  virtual result_t Rotate4(IQEL* source, IQELImage* dest, int angle);

  /// Fills zero samples of `image` from their neighbours, in place.
  /// Result: kOk; kFail at other depths than 8, 24 and 32 bits.
  virtual result_t FillVoids(IQEL* image);

 protected:
  ~CQELImageTransform() = default;
};
static_assert(sizeof(CQELImageTransform) == 4 * sizeof(void*), "part of the object layout");

}  // namespace qel

#endif  // QEL_TRANSFORM_IMAGE_TRANSFORM_H_
