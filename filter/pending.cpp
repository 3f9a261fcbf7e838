#include "filter/filter_transform.h"

// Operations that are still to come; they answer failure and touch nothing.

namespace qel {

result_t CQELFilterTransform::GaussianBlur(IQEL*, int, IQEL**) { return kFail; }
result_t CQELFilterTransform::Sharpen(IQEL*, IQEL**) { return kFail; }
result_t CQELFilterTransform::Soften(IQEL*, IQEL**) { return kFail; }
result_t CQELFilterTransform::Blur(IQEL*, IQEL**) { return kFail; }
result_t CQELFilterTransform::Emboss(IQEL*, IQEL**) { return kFail; }
result_t CQELFilterTransform::Median(IQEL*, int, IQEL**) { return kFail; }
result_t CQELFilterTransform::Noise(IQEL*, int, IQEL**) { return kFail; }
result_t CQELFilterTransform::Jitter(IQEL*, int, IQEL**) { return kFail; }
result_t CQELFilterTransform::Filter(IQEL*, int*, int, int, int, IQEL**) { return kFail; }
result_t CQELFilterTransform::Kernel(IQEL*, int16_t*, int, int, int, IQEL**) { return kFail; }

}  // namespace qel
