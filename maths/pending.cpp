#include "maths/maths.h"

// Operations that are still to come; they answer failure and touch nothing.

namespace qel {

result_t CQELMaths::Equal(IQEL*, IQEL*, int) { return kFail; }
result_t CQELMaths::Copy(IQEL*, IQEL*, IQEL*, int, int) { return kFail; }
result_t CQELMaths::AddScale(IQEL*, IQEL*, IQEL*, IQEL*, float, float, float) { return kFail; }
result_t CQELMaths::Scale(IQEL*, IQEL*, IQEL*, float, float) { return kFail; }
result_t CQELMaths::Subtract(IQEL*, IQEL*, IQEL*, int) { return kFail; }
result_t CQELMaths::CreateDestImage(IQEL**, IQEL*, int, int) { return kFail; }
result_t CQELMaths::Add(IQELImage*, IQEL*, IQEL*, float) { return kFail; }
result_t CQELMaths::Scale8(IQELImage*, IQEL*, int, double) { return kFail; }

}  // namespace qel
