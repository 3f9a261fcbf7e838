#include "filter/filter_transform.h"

// Operations that are still to come; they answer failure and touch nothing.

namespace qel {

result_t CQELFilterTransform::Median(IQEL*, int, IQEL**) { return kFail; }

}  // namespace qel
