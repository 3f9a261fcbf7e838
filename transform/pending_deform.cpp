#include "transform/image_deform.h"

// Operations that are still to come; they answer failure and touch nothing.

namespace qel {

result_t CQELImageDeform::CircleTransform(IQEL*, int, int, float) { return kFail; }

}  // namespace qel
