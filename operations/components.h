#ifndef QEL_OPERATIONS_COMPONENTS_H_
#define QEL_OPERATIONS_COMPONENTS_H_

#include "qel/qel.h"

namespace qel::operations {

/// One object of each component of the module.
struct Components {
  SmartPtr<IQELColorTransform> color;
  SmartPtr<IQELTransform> transform;
  SmartPtr<IQELDeform> deform;
  SmartPtr<IQELFilterTransform> filter;
  SmartPtr<IQELMaths> maths;
};

/// One object of each component from a module that creates them as `host::ModuleLibrary` does, and
/// throws what that throws.
template <typename Module>
Components MakeComponents(const Module& module) {
  return {module.template Create<IQELColorTransform>(RefString(kColorTransformName)),
          module.template Create<IQELTransform>(RefString(kTransformName)),
          module.template Create<IQELDeform>(RefString(kDeformName)),
          module.template Create<IQELFilterTransform>(RefString(kFilterTransformName)),
          module.template Create<IQELMaths>(RefString(kMathsName))};
}

}  // namespace qel::operations

#endif  // QEL_OPERATIONS_COMPONENTS_H_
