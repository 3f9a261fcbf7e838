#ifndef QEL_TRANSFORM_IMAGE_DEFORM_H_
#define QEL_TRANSFORM_IMAGE_DEFORM_H_

#include "component/object.h"
#include "qel/deform.h"

namespace qel {

/// Circular deformations; see `IQELDeform`.
class CQELImageDeform : public Component<CQELImageDeform, IQELDeform> {
 public:
  static constexpr tagREFString m_ObjectName = RefString(kDeformName);

  // The order of these functions is the binary interface: slots 7 and up of the primary table.
  result_t CircleTransform(IQEL* image, int mode, int with_alpha, float factor) override;

 protected:
  ~CQELImageDeform() = default;
};
static_assert(sizeof(CQELImageDeform) == 4 * sizeof(void*), "part of the object layout");

}  // namespace qel

#endif  // QEL_TRANSFORM_IMAGE_DEFORM_H_
