#ifndef QEL_OPERATIONS_SHAPE_AFTER_H_
#define QEL_OPERATIONS_SHAPE_AFTER_H_

#include <cstdint>

#include "operations/steps.h"

namespace qel::operations {

/// What a step makes of a picture of this shape, without running it.
/// Throws `DepthError` when the operation does not take the depth of a picture, and `StepError`
/// when pictures do not go together, or the result would have no pixels, or more than `max_pixels`.
Shape ShapeAfter(const Step& step, const Shape& shape, int64_t max_pixels,
                 const ShapeOfPicture& second);

}  // namespace qel::operations

#endif  // QEL_OPERATIONS_SHAPE_AFTER_H_
