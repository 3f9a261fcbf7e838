#ifndef QEL_MATHS_MATHS_H_
#define QEL_MATHS_MATHS_H_

#include "component/object.h"
#include "qel/maths.h"

namespace qel {

/// Pixel arithmetic between images; see `IQELMaths`.
class CQELMaths : public Component<CQELMaths, IQELMaths> {
 public:
  static constexpr tagREFString m_ObjectName = RefString(kMathsName);

  // The order of these functions is the binary interface: slots 7 and up of the primary table.
  result_t Equal(IQEL* image, IQEL* mask, int value) override;
  result_t Copy(IQEL* dest, IQEL* source, IQEL* mask, int x, int y) override;
  result_t AddScale(IQEL* dest, IQEL* a, IQEL* b, IQEL* mask, float factor_a, float factor_b,
                    float offset) override;
  result_t Scale(IQEL* dest, IQEL* source, IQEL* mask, float factor, float offset) override;
  result_t Subtract(IQEL* dest, IQEL* a, IQEL* b, int flags) override;
  result_t CreateDestImage(IQEL** dest, IQEL* model, int bit_count, int color_model) override;
  result_t Add(IQELImage* dest, IQEL* a, IQEL* b, float divisor) override;
  result_t Scale8(IQELImage* dest, IQEL* source, int offset, double factor) override;

 protected:
  ~CQELMaths() = default;
};
static_assert(sizeof(CQELMaths) == 4 * sizeof(void*), "part of the object layout");

}  // namespace qel

#endif  // QEL_MATHS_MATHS_H_
