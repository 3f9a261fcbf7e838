#ifndef QEL_OPERATIONS_COMPONENTS_H_
#define QEL_OPERATIONS_COMPONENTS_H_

#include "qel/qel.h"

namespace qel::cli {

/// One object of each component of the module.
struct Components {
  SmartPtr<IQELColorTransform> color;
  SmartPtr<IQELTransform> transform;
  SmartPtr<IQELDeform> deform;
  SmartPtr<IQELFilterTransform> filter;
  SmartPtr<IQELMaths> maths;
};

}  // namespace qel::cli

#endif  // QEL_OPERATIONS_COMPONENTS_H_
