#ifndef QEL_QEL_H_
#define QEL_QEL_H_

/// Everything that a host of the module needs.

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
