#ifndef QEL_TRANSFORM_ROTATE_TAP_KERNELS_H_
#define QEL_TRANSFORM_ROTATE_TAP_KERNELS_H_

#include "transform/rotate/rotate_kernels.h"

namespace qel {

/// Weights lie in groups of so many points: their first taps, their second ones and so on.
inline constexpr size_t kWeightGroup = 16;

/// Weights of the taps of all points.
struct SampleWeights {
  const float* x;
  const float* y;
};

/// Fractions of positions from 64 on, which single precision has as multiples of 2^-17, have
/// places: those of 0, 1/2, 1/4, 1/8, 3/8 and so on come first, because large positions, which are
/// many, have no others. A fraction and its complement to 1 share a place.
inline constexpr int kFractionBits = 17;
inline constexpr float kFirstPlaced = 1 << (23 - kFractionBits);
inline constexpr size_t kFractionPlaces = (size_t{1} << (kFractionBits - 1)) + 1;

/// Floats from one entry of remembered weights to the next: twelve taps get a line of the cache to
/// themselves.
template <size_t kTaps>
inline constexpr ptrdiff_t kEntryStride = kTaps == 12 ? 16 : kTaps;

/// Where the weights of each point are.
struct WeightEntries {
  const float* of[kSampleChunk];
  uint64_t mirrored;  ///< the points whose weights lie there in the opposite order
};
static_assert(kSampleChunk <= 64);

/// Place of tap 0 of a point among weights; the other taps follow at distances of `kWeightGroup`.
static constexpr size_t WeightPlace(size_t point, size_t taps) {
  return point / kWeightGroup * kWeightGroup * taps + point % kWeightGroup;
}

/// Writes the weights of the taps of positions inside, in groups.
using WeighTaps = void (*)(float* weights, const float* positions, size_t count);

struct TapKernels {
  /// The four tap weights of each position by polynomial method 2 to 4, 6 to 8 or 13 to 15, or the
  /// twelve by method 5; null for all other methods.
  WeighTaps weights[16];

  /// The places of the fractions of positions; -1 below `kFirstPlaced`, and from 2^23 on. Bit i of
  /// the result is set where fraction i, above one half, has the place of its complement.
  uint64_t (*fraction_places)(int32_t* places, const float* positions, size_t count);

  /// Writes the weights of four or twelve taps.
  void (*spread4)(float* weights, const WeightEntries& entries, size_t count);
  void (*spread12)(float* weights, const WeightEntries& entries, size_t count);
  /// The same from entries at places of `memory`, from -1 on. False when one of them begins with 0:
  /// it is not remembered yet.
  bool (*recall4)(float* weights, const float* memory, const int32_t* places, uint64_t mirrored,
                  size_t count);
  bool (*recall12)(float* weights, const float* memory, const int32_t* places, uint64_t mirrored,
                   size_t count);

  /// Sums of weighted taps for 1, 3 or 4 bytes per pixel. Pixels of 3 bytes, and of 1 byte when
  /// there are twelve taps, are read with four bytes behind the last tap of each row. Alpha is 0
  /// except at 4 bytes.
  void (*blend4[3])(uint32_t* colors, const SampleSource& source, const SamplePoints& points,
                    const SampleWeights& weights, size_t count);
  void (*blend12[3])(uint32_t* colors, const SampleSource& source, const SamplePoints& points,
                     const SampleWeights& weights, size_t count);
};

QEL_TABLES_PER_LEVEL(TapKernels)

}  // namespace qel

#endif  // QEL_TRANSFORM_ROTATE_TAP_KERNELS_H_
