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
  size_t count;     ///< at most `kWarpTile`
  int32_t limit;    ///< the transform reaches distances below it, those of the run among them
  double farthest;  ///< the largest of these
  double scale_x;   ///< unwrapping: columns per radian
  double scale_y;   ///< unwrapping: rows of the picture
  double turn;      ///< swirling: radians per pixel of distance
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

/// Pixels of runs that are copied as a whole where all quarters are inside.
inline constexpr size_t kInsideRun = 256;

/// Where the pixels of such a run are in the source, in bytes from the pixel that samples are
/// counted from, and opposite to that; and how far they go.
struct CircleOffsets {
  int32_t left[2][kInsideRun];
  int32_t right[2][kInsideRun];
  int32_t least_x, most_x;
  int32_t least_y, most_y;
};

/// Copies `count` pixels from `offsets` about `center`, all inside, those of 3 bytes together with
/// the byte behind them, and has the memory bring `later_count` ones from `later`.
using CopyQuarter = void (*)(uint8_t* dest, size_t count, const uint8_t* center,
                             const int32_t* offsets, const int32_t* later, size_t later_count);

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
  /// Offsets of a run in pictures of so many bytes from row to row and from pixel to pixel.
  void (*offsets)(CircleOffsets& offsets, const CircleSamples& samples, size_t count,
                  int32_t stride, int32_t pixel_bytes);
  /// Of 3 and 4 bytes; `reversed` from the last one back.
  CopyQuarter copy3, copy3_reversed, copy4, copy4_reversed;
};

QEL_TABLES_PER_LEVEL(CircleKernels)

}  // namespace qel

#endif  // QEL_TRANSFORM_WARP_CIRCLE_KERNELS_H_
