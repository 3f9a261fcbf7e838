#ifndef QEL_COLOR_COLOR_TRANSFORM_H_
#define QEL_COLOR_COLOR_TRANSFORM_H_

#include "component/object.h"
#include "qel/color_transform.h"

namespace qel {

/// Per-pixel tone, color and alpha operations; see `IQELColorTransform`.
class CQELColorTransform : public Component<CQELColorTransform, IQELColorTransform> {
 public:
  static constexpr tagREFString m_ObjectName = RefString(kColorTransformName);

  // The order of these functions is the binary interface: slots 7 and up of the primary table.
  result_t Colorize(IQEL* image, uint8_t hue, uint8_t saturation, float blend) override;
  result_t Lut(IQEL* image, uint8_t* table) override;
  result_t Negative(IQEL* image) override;
  result_t GrayScale(IQEL* image) override;
  result_t ShiftRGB(IQEL* image, int red, int green, int blue) override;
  result_t Gamma(IQEL* image, float gamma) override;
  result_t Light(IQEL* image, int brightness, int contrast) override;
  result_t SetImageAlpha(IQEL* image, int alpha, int reserved) override;
  result_t SetImageAlphaTransparency(IQEL* image, int alpha, uint32_t key) override;
  result_t SetImageTransparentPixel(IQEL* image, uint32_t key) override;
  result_t Threshold(IQEL* image, int level) override;

 protected:
  ~CQELColorTransform() = default;
};
static_assert(sizeof(CQELColorTransform) == 4 * sizeof(void*), "part of the object layout");

}  // namespace qel

#endif  // QEL_COLOR_COLOR_TRANSFORM_H_
