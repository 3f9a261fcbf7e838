#ifndef QEL_TRANSFORM_WARP_CIRCLE_PLAN_H_
#define QEL_TRANSFORM_WARP_CIRCLE_PLAN_H_

#include "image/image_view.h"
#include "image/plan.h"
#include "transform/warp/circle.h"

namespace qel {

/// How the circle transform is carried out, in the order of preference.
enum class CircleMethod { kFoldRows, kFold, kQuarters, kOneByOne };

inline constexpr MethodText kCircleMethods[] = {
    {"fold-rows", "folding whole pixels: columns are found once, and every row copies them"},
    {"fold", "folding at other depths: one scattered read a pixel"},
    {"quarters",
     "the other modes by symmetry: positions of one quarter by vectors, the mathematics library "
     "only where rounding could matter; one scattered read a pixel"},
    {"one-by-one", "images so large that squared distances wrap, and turns of many radians"},
};

/// Whether `method` gives the right pixels for an image; `opaque` when the result gets alpha.
bool CanTransformCircle(CircleMethod method, const Circle& circle, const ImageView& source,
                        bool opaque);

/// The first method that can.
CircleMethod PlanCircle(const Circle& circle, const ImageView& source, bool opaque);

/// Writes `source` to `dest`, which has its size and pixels to store.
void RunCircle(CircleMethod method, const Circle& circle, const ImageView& source,
               const ImageView& dest, bool opaque);

}  // namespace qel

#endif  // QEL_TRANSFORM_WARP_CIRCLE_PLAN_H_
