#ifndef QEL_TRANSFORM_ROTATE_ROTATE_PLAN_H_
#define QEL_TRANSFORM_ROTATE_ROTATE_PLAN_H_

#include <optional>

#include "image/image_view.h"
#include "image/plan.h"
#include "transform/rotate/rotated_frame.h"

namespace qel {

/// How the pixels of a turned frame are sampled, in the order of preference.
enum class RotateMethod { kGather, kPolynomial, kBounded, kRemembered, kComputed, kOneByOne };

inline constexpr MethodText kRotateMethods[] = {
    {"gather", "methods 0 and 1, whose taps are one pixel: one scattered read"},
    {"polynomial",
     "kernels that are polynomials, with weights by vectors; then 16 products a channel, summed in "
     "one stated order"},
    {"bounded",
     "12 x 12 taps: sums down columns, then across, 13 products a column, with cubics for weights "
     "and a proven bound of their distance from the stated sum; where a byte is in doubt, as "
     "computed; from where on one in eight is in doubt, as remembered"},
    {"remembered",
     "other kernels in images of 256 x 256 pixels and more, with weights by the mathematics "
     "library once for each of the fractions that single-precision positions repeat; then 16 or "
     "144 products a channel"},
    {"computed", "the same in smaller images, with weights for every pixel"},
    {"one-by-one", "any depth and memory, every sample for itself"},
};

/// What sampling a turned frame takes, made from the source alone.
struct RotatePlan {
  RotateMethod method;
  int interpolation;  ///< 0 to 15; others act as 1
};

/// The plan with the first method that can and pays. `shares_memory` when what is written is read
/// again.
RotatePlan PlanRotate(const ImageView& source, int interpolation, bool shares_memory);

/// The same with `method`; nothing when that does not give the right pixels.
std::optional<RotatePlan> PlanRotateBy(RotateMethod method, const ImageView& source,
                                       int interpolation, bool shares_memory);

/// Draws the turned source over the background of `dest`, which has the frame's size.
void RunRotate(const RotatePlan& plan, const ImageView& source, const ImageView& dest,
               const RotatedFrame& frame);

}  // namespace qel

#endif  // QEL_TRANSFORM_ROTATE_ROTATE_PLAN_H_
