#include "color/color_transform.h"

// Operations that are still to come; they answer failure and touch nothing.

namespace qel {

result_t CQELColorTransform::Colorize(IQEL*, uint8_t, uint8_t, float) { return kFail; }
result_t CQELColorTransform::SetImageAlpha(IQEL*, int, int) { return kFail; }
result_t CQELColorTransform::SetImageAlphaTransparency(IQEL*, int, uint32_t) { return kFail; }
result_t CQELColorTransform::SetImageTransparentPixel(IQEL*, uint32_t) { return kFail; }

}  // namespace qel
