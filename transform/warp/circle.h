#ifndef QEL_TRANSFORM_WARP_CIRCLE_H_
#define QEL_TRANSFORM_WARP_CIRCLE_H_

#include <cmath>

#include "image/image_view.h"
#include "image/numeric.h"
#include "qel/deform.h"
#include "transform/warp/circle_kernels.h"

namespace qel {

// The full turn as unwrapping counts it, short by its hundred millionth part.
inline constexpr double kFullTurn = 6.2831852;

/// The geometry of one call.
struct Circle {
  Circle(const ImageShape& shape, int circle_mode, float factor)
      : width(shape.width), height(shape.height), mode(circle_mode) {
    const double half_width = cx;
    const double half_height = cy;
    limit = TruncateToInt(std::sqrt(half_width * half_width + half_height * half_height));
    swirl = static_cast<double>(static_cast<float>(limit / 2) * factor);
  }

  struct Sample {
    int32_t x, y;
  };
  /// Distance of pixels that lie so far from the centre, as single precision has it.
  static double Distance(int32_t dx, int32_t dy) {
    const int32_t square = WrapAdd(WrapMultiply(dx, dx), WrapMultiply(dy, dy));
    return static_cast<double>(std::sqrt(static_cast<float>(square)));
  }

  /// Folding: the column that column `x` samples.
  static int32_t FoldedColumn(int32_t x) { return WrapAdd(x - 16, x % 32); }

  /// Where pixel (x, y) samples the source.
  Sample At(int32_t x, int32_t y) const {
    const int32_t dx = cx - x;
    const int32_t dy = cy - y;
    const double d = Distance(dx, dy);
    if (!(d < limit)) return {-1, -1};
    if (mode >= kCircleFold) return {FoldedColumn(x), y};
    double a = std::atan2(static_cast<double>(dy), static_cast<double>(dx));
    if (mode == kCircleUnwrap) {
      // Deliberate: the lower half circle falls on the same columns as the upper one.
      return {TruncateToInt(std::fabs(width * a / kFullTurn)),
              TruncateToInt(std::fabs(height * d / limit))};
    }
    double r = d;
    if (mode == kCircleBulge) r = d * d / limit;
    if (mode == kCirclePinch) r = std::sqrt(limit * d);
    if (mode == kCircleSwirl) a = a + d / swirl;
    return {WrapSubtract(cx, TruncateToInt(r * std::cos(a))),
            WrapSubtract(cy, TruncateToInt(r * std::sin(a)))};
  }

  /// True when squared distances do not wrap, so that pixels in reach form a disc.
  bool HasExactSquares() const {
    return int64_t{cx} * cx + int64_t{cy} * cy <= INT32_MAX && limit > 0;
  }

  /// True for turns that kernels compute exactly enough.
  bool TurnsLittle() const { return std::fabs(limit / swirl) <= kLargestTurn; }

  int32_t width, height, mode;
  int32_t cx = width / 2, cy = height / 2;
  int32_t limit;  ///< pixels at this distance and beyond are outside
  double swirl;   ///< pixels of distance per radian of turn
};

}  // namespace qel

#endif  // QEL_TRANSFORM_WARP_CIRCLE_H_
