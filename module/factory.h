#ifndef QEL_MODULE_FACTORY_H_
#define QEL_MODULE_FACTORY_H_

#include "qel/entry.h"

namespace qel {

/// The creation function of the component called `name`, or null.
CreationFunction FindComponent(tagREFString name);

}  // namespace qel

#endif  // QEL_MODULE_FACTORY_H_
