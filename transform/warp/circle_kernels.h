#ifndef QEL_TRANSFORM_WARP_CIRCLE_KERNELS_H_
#define QEL_TRANSFORM_WARP_CIRCLE_KERNELS_H_

#include "transform/warp/warp_kernels.h"

namespace qel {

// The mappings of the circle transform are symmetric about the centre, so each is computed for one
// quarter of the picture and holds for the other three with other signs.

/// Pixels of a quarter: those `dx` = `first_dx` + i columns and `dy` rows from the centre.
struct CircleRun {
  int32_t first_dx;
  int32_t dy;
  size_t count;    ///< at most `kWarpTile`
  int32_t limit;   ///< the transform reaches distances below it, those of the run among them
  double scale_x;  ///< unwrapping: columns per radian
  double scale_y;  ///< unwrapping: rows of the picture
  double turn;     ///< swirling: radians per pixel of distance
};

/// Where the pixels of a run and their mirror images sample: distances from the centre, counted
/// like dx and dy; when unwrapping, columns and rows. The lower quarters mirror the upper ones.
struct CircleSamples {
  int32_t left_x[kWarpTile], left_y[kWarpTile];    ///< of (dx, dy), the upper left quarter
  int32_t right_x[kWarpTile], right_y[kWarpTile];  ///< of (-dx, dy), the upper right quarter
};
/// Stands in `left_x` and `right_x` for pixels whose exact position decides on which side of a
/// whole number they lie.
inline constexpr int32_t kTooClose = INT32_MIN + 1;
/// Callers have this there for pixels out of reach.
inline constexpr int32_t kOutOfReach = INT32_MIN;

/// The kernels compute with errors well below this; whoever is nearer to a whole number is left to
/// the mathematics library.
inline constexpr double kCircleTolerance = 1e-7;
/// The same needs pictures whose squared distances fit 31 bits, and turns of few radians.
inline constexpr double kLargestTurn = 1000.0;

/// Returns true when `kTooClose` occurs.
using CircleMapping = bool (*)(const CircleRun& run, CircleSamples& samples);

struct CircleKernels {
  CircleMapping bulge;
  CircleMapping pinch;
  CircleMapping swirl;
  CircleMapping unwrap;
  /// to[i] = centre + sign * from[i], `sign` being 1 or -1; the same from the last one back.
  void (*place)(int32_t* to, const int32_t* from, size_t count, int32_t center, int32_t sign);
  void (*place_reversed)(int32_t* to, const int32_t* from, size_t count, int32_t center,
                         int32_t sign);
};

QEL_TABLES_PER_LEVEL(CircleKernels)

}  // namespace qel

#endif  // QEL_TRANSFORM_WARP_CIRCLE_KERNELS_H_
