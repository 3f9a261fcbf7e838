#include "transform/warp/circle_plan.h"

#include "transform/warp/nearest_copy.h"

namespace qel {

bool CanTransformCircle(CircleMethod method, const Circle& circle, const ImageView& source,
                        bool opaque) {
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

CircleMethod PlanCircle(const Circle& circle, const ImageView& source, bool opaque) {
  for (size_t i = 0; i < std::size(kCircleMethods); ++i) {
    const auto method = static_cast<CircleMethod>(i);
    if (CanTransformCircle(method, circle, source, opaque)) return method;
  }
  return CircleMethod::kOneByOne;
}

}  // namespace qel
