#include "transform/image_transform.h"

// Operations that are still to come; they answer failure and touch nothing.

namespace qel {

result_t CQELImageTransform::Flip(IQEL*, IQEL**) { return kFail; }
result_t CQELImageTransform::Mirror(IQEL*, IQEL**) { return kFail; }
result_t CQELImageTransform::Rotate(IQEL*, IQEL**, int, int, int, int) { return kFail; }
result_t CQELImageTransform::Resample(IQEL*, IQEL**, int, int, int, int) { return kFail; }
result_t CQELImageTransform::IncreaseBpp(IQEL*, IQEL**, int, uint32_t) { return kFail; }
result_t CQELImageTransform::RotatePaste(IQEL*, IQEL*, double, int, int) { return kFail; }
result_t CQELImageTransform::FlipBits(IQEL*) { return kFail; }
result_t CQELImageTransform::FlipImageAndBits(IQEL*) { return kFail; }
result_t CQELImageTransform::Rotate4(IQEL*, IQELImage*, int) { return kFail; }

}  // namespace qel
