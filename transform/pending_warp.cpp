#include "transform/image_transform.h"

// Operations that are still to come; they answer failure and touch nothing.

namespace qel {

result_t CQELImageTransform::Skew(IQEL*, IQEL**, float, float, int, int, int, int) { return kFail; }
result_t CQELImageTransform::Quad(IQEL*, IQEL**, double, double, double, double, double, double,
                                  double, double, uint32_t, uint32_t, int16_t) {
  return kFail;
}
result_t CQELImageTransform::Transform(ITransform*, IQEL*, IQEL**, int, int, uint32_t, uint32_t,
                                       int16_t, int16_t) {
  return kFail;
}
result_t CQELImageTransform::TransformPaste(ITransform*, IQEL*, IQEL*, int, int, int16_t, int16_t) {
  return kFail;
}
result_t CQELImageTransform::FillVoids(IQEL*) { return kFail; }

}  // namespace qel
