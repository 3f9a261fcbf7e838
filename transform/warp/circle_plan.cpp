#include "transform/warp/circle_plan.h"

#include "transform/warp/nearest_copy.h"

namespace qel {
namespace {

/// Whether a method gives the right pixels.
bool Can(CircleMethod method, const Circle& circle, const ImageView& source, bool opaque) {
  const bool folds = circle.mode >= kCircleFold;
  switch (method) {
    case CircleMethod::kFoldRows:
      return folds && circle.HasExactSquares() && !opaque && source.HasPixels() &&
             AccessPixelBytes(source.bit_count) > 0;
    case CircleMethod::kFold:
      return folds && circle.HasExactSquares();
    case CircleMethod::kQuarters:
      return !folds && circle.HasExactSquares() &&
             (circle.mode != kCircleSwirl || circle.TurnsLittle());
    case CircleMethod::kOneByOne:
      return true;
  }
  return false;
}

}  // namespace

std::optional<CirclePlan> PlanCircleBy(CircleMethod method, const Circle& circle,
                                       const ImageView& source, bool opaque) {
  if (!Can(method, circle, source, opaque)) return std::nullopt;
  return CirclePlan{method, circle, opaque};
}

CirclePlan PlanCircle(const Circle& circle, const ImageView& source, bool opaque) {
  for (size_t i = 0; i < std::size(kCircleMethods); ++i) {
    const auto plan = PlanCircleBy(static_cast<CircleMethod>(i), circle, source, opaque);
    if (plan) return *plan;
  }
  return {CircleMethod::kOneByOne, circle, opaque};
}

}  // namespace qel
