#ifndef QEL_TRANSFORM_LAYOUT_DEPTH_KERNELS_H_
#define QEL_TRANSFORM_LAYOUT_DEPTH_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "simd/cpu_level.h"

namespace qel {

/// The colors of 256 indices: blue, green and red from the lowest byte on, above them 0.
struct PaletteColors {
  uint32_t of[256];
};

/// Row functions that widen pixels. Names say bits per pixel; alpha becomes 255 unless said.
struct DepthKernels {
  void (*gray_to_24)(uint8_t* dest, const uint8_t* source, size_t count);
  void (*gray_to_32)(uint8_t* dest, const uint8_t* source, size_t count);
  void (*color_to_32)(uint8_t* dest, const uint8_t* source, size_t count);
  void (*palette_to_24)(uint8_t* dest, const uint8_t* source, size_t count,
                        const PaletteColors& palette);
  /// Keeps the fourth byte of the destination's pixels.
  void (*palette_to_32)(uint8_t* dest, const uint8_t* source, size_t count,
                        const PaletteColors& palette);
};

QEL_TABLES_PER_LEVEL(DepthKernels)

}  // namespace qel

#endif  // QEL_TRANSFORM_LAYOUT_DEPTH_KERNELS_H_
