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

using CopyLine = void (*)(uint8_t* dest, const SampleSource& source, const SampleLine& line,
                          int32_t first, size_t count, float offset);

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
