#ifndef QEL_TRANSFORM_WARP_CIRCLE_PLAN_H_
#define QEL_TRANSFORM_WARP_CIRCLE_PLAN_H_

#include <optional>

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

/// What a circle transform takes, made from its geometry and the source.
struct CirclePlan {
  CircleMethod method;
  Circle circle;
  bool opaque;  ///< the result gets alpha
};

/// The plan with the first method that can.
CirclePlan PlanCircle(const Circle& circle, const ImageView& source, bool opaque);

/// The same with `method`; nothing when that does not give the right pixels.
std::optional<CirclePlan> PlanCircleBy(CircleMethod method, const Circle& circle,
                                       const ImageView& source, bool opaque);

/// Writes `source` to `dest`, which has its size and pixels to store.
void RunCircle(const CirclePlan& plan, const ImageView& source, const ImageView& dest);

}  // namespace qel

#endif  // QEL_TRANSFORM_WARP_CIRCLE_PLAN_H_
