#ifndef QEL_TRANSFORM_ROTATE_ROTATE_KERNELS_H_
#define QEL_TRANSFORM_ROTATE_ROTATE_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "simd/cpu_level.h"

namespace qel {

/// Pixels that are sampled together. Counts are rounded up to `kSampleGroup` inside kernels, so
/// all arrays have room for `kSampleChunk` values, and the last position is repeated up to there.
inline constexpr size_t kSampleChunk = 64;
inline constexpr size_t kSampleGroup = 32;
/// Weights lie in groups of so many points: their first taps, their second ones and so on.
inline constexpr size_t kWeightGroup = 16;

/// The way from the pixels of an output row to the source; see `RotatedFrame::Row`.
struct SampleLine {
  float start_x;
  float cosine;
  float sine;
  float sine_y;
  float cosine_y;
  float shift_x;
  float shift_y;
};

/// Positions in the source, all of whose taps lie inside.
struct SamplePoints {
  float x[kSampleChunk];
  float y[kSampleChunk];
};

/// The source of samples: at most 2^31 bytes from the lowest to the highest address.
struct SampleSource {
  const uint8_t* bits;
  int32_t stride;
};

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

using CopyLine = void (*)(uint8_t* dest, const SampleSource& source, const SampleLine& line,
                          int32_t first, size_t count, float offset);

/// Writes the weights of the taps of positions inside, in groups.
using WeighTaps = void (*)(float* weights, const float* positions, size_t count);

struct RotateKernels {
  /// The positions of output pixels `first` to `first` + `count` - 1.
  void (*positions)(SamplePoints& points, const SampleLine& line, int32_t first, size_t count);

  /// Has the memory bring the pixels at these positions, which may lie outside.
  void (*prefetch)(const SampleSource& source, int32_t pixel_bytes, const SampleLine& line,
                   int32_t first, size_t count);

  /// The pixel at the truncated positions after adding `offset`: (pixel & keep) | add. Pixels of 3
  /// bytes are read together with the byte behind them.
  void (*gather1)(uint32_t* colors, const SampleSource& source, const SamplePoints& points,
                  size_t count, float offset, uint32_t keep, uint32_t add);
  void (*gather3)(uint32_t* colors, const SampleSource& source, const SamplePoints& points,
                  size_t count, float offset, uint32_t keep, uint32_t add);
  void (*gather4)(uint32_t* colors, const SampleSource& source, const SamplePoints& points,
                  size_t count, float offset, uint32_t keep, uint32_t add);

  /// Writes the pixels of output pixels `first` to `first` + `count` - 1 at the truncated positions
  /// after adding `offset`, all of them inside; of 4 bytes also opaque. Pixels of 3 bytes are read
  /// together with the byte behind them.
  CopyLine copy1, copy3, copy4, copy4_opaque;

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

  /// Mixes colors into pixels of 4 bytes by their alpha, which replaces that of the pixels:
  /// c a / 255.0 + p (255 - a) / 255.0 in double precision, truncated.
  void (*mix4)(uint8_t* dest, const uint32_t* colors, size_t count);

  /// Stores colors as pixels: the red byte alone, three bytes, or four.
  void (*store1)(uint8_t* dest, const uint32_t* colors, size_t count);
  void (*store3)(uint8_t* dest, const uint32_t* colors, size_t count);
  void (*store4)(uint8_t* dest, const uint32_t* colors, size_t count);
};

QEL_TABLES_PER_LEVEL(RotateKernels)

}  // namespace qel

#endif  // QEL_TRANSFORM_ROTATE_ROTATE_KERNELS_H_
