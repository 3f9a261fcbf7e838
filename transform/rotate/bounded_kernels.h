#ifndef QEL_TRANSFORM_ROTATE_BOUNDED_KERNELS_H_
#define QEL_TRANSFORM_ROTATE_BOUNDED_KERNELS_H_

#include "transform/rotate/rotate_kernels.h"
#include "transform/tap_tolerance.h"

namespace qel {

/// Values that may be read behind the last one of a tile.
inline constexpr size_t kTileMargin = 16;

/// The lowest and the highest of some bytes.
struct ByteRange {
  uint8_t lowest = 255;
  uint8_t highest = 0;
};

/// A rectangle of the source's pixels, their bytes as values.
struct SampleTile {
  const float* values;
  int32_t stride;  ///< values from one row to the next
  int32_t column;  ///< of the source, where the tile begins
  int32_t row;
  float bound;  ///< by what sums of the tile's values may be off
};

/// Sums of weighted taps of up to `kSampleChunk` points, all taps in `tile`, as colors. Bit i of
/// the result is set where color i is in doubt: it may be another as stated.
using BlendBounded = uint64_t (*)(uint32_t* colors, const SampleTile& tile,
                                  const SamplePoints& points, size_t count);

/// Positions from here on are sampled so, up to where all taps have positions of single precision:
/// their fractions are multiples of 2^-21, and so are exactly the distances of taps, up to 6.
inline constexpr float kLeastBounded = 4;
/// For all these fractions: by what the twelve weights differ from those stated, added without
/// their signs, times 2^24, and quantities of lines of weights.
inline constexpr double kBoundedWeightError = 13;
inline constexpr WeightLine kLanczosLine = {1.00073, 1.97750, 6.0567, 10.9460};
/// The same where lanes of a vector, or rows by turns, have sums of their own that are added in the
/// end: each of up to six roundings before the last one meets sums whose sizes together are at most
/// those of all weights. Taps one after the other stay below that, too.
inline constexpr WeightLine kLanczosApart = {kLanczosLine.sum, kLanczosLine.sizes,
                                             6 * kLanczosLine.sizes, 6 * kLanczosLine.sizes};

struct BoundedKernels {
  /// Makes values of bytes and widens `range` by them.
  void (*spread)(float* values, const uint8_t* bytes, size_t count, ByteRange& range);
  /// The twelve weights of method 5 of `count` positions inside, nearly: weight k of position i
  /// goes to weights[k * `kSampleChunk` + i].
  void (*weigh)(float* weights, const float* positions, size_t count);
  /// For 1, 3 or 4 bytes per pixel. Alpha is 0 except at 4 bytes.
  BlendBounded blend[3];
};

QEL_TABLES_PER_LEVEL(BoundedKernels)

}  // namespace qel

#endif  // QEL_TRANSFORM_ROTATE_BOUNDED_KERNELS_H_
