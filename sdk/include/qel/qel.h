#ifndef QEL_QEL_H_
#define QEL_QEL_H_

/// Everything that a host of the module needs. It implements `IComponentCollection`, locators and
/// strings (`host.h`) and images (`image.h`), loads the module's library, hands its collection to
/// `InitializeModule` and asks `CreateFunction` for components (`entry.h`), whose operations it
/// calls on its images. Everywhere: negative results are failures (`types.h`); whoever receives a
/// pointer through an output owns one reference (`smart_ptr.h`); functions are called by their
/// position.

#include "qel/color_transform.h"
#include "qel/deform.h"
#include "qel/entry.h"
#include "qel/filter_transform.h"
#include "qel/host.h"
#include "qel/iid.h"
#include "qel/image.h"
#include "qel/maths.h"
#include "qel/smart_ptr.h"
#include "qel/transform.h"
#include "qel/types.h"
#include "qel/unknown.h"

#endif  // QEL_QEL_H_
