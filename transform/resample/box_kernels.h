#ifndef QEL_TRANSFORM_RESAMPLE_BOX_KERNELS_H_
#define QEL_TRANSFORM_RESAMPLE_BOX_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "image/reciprocal_division.h"
#include "simd/cpu_level.h"

namespace qel {

/// Sizes of a box whose sums fit 16 bits, and the division by its area.
struct SmallBox {
  size_t columns;
  size_t rows;
  size_t pixel_bytes;
  ReciprocalDivision mean;
};
/// The largest area of a `SmallBox`: the reciprocal is exact for sums of so many bytes.
inline constexpr uint32_t kLargestSmallBox = 128;

/// Row functions of reductions by boxes.
struct BoxMeanKernels {
  /// dest[i] = mean of pixels 2 i and 2 i + 1 of two rows, `count` pixels of 1, 3 or 4 bytes. The
  /// fourth bytes of `dest` stay. `ahead` bytes behind the rows are those that come next.
  void (*halve1)(uint8_t* dest, const uint8_t* source, int64_t stride, int64_t ahead, size_t count);
  void (*halve3)(uint8_t* dest, const uint8_t* source, int64_t stride, int64_t ahead, size_t count);
  void (*halve4)(uint8_t* dest, const uint8_t* source, int64_t stride, int64_t ahead, size_t count);
  /// means[i] = mean of the box whose first byte is source[i], for each byte i from which the
  /// box ends within `count` bytes. `scratch` has room for 3 * `count` values.
  void (*box_means)(uint8_t* means, const uint8_t* source, int64_t stride, int64_t ahead,
                    size_t count, const SmallBox& box, uint16_t* scratch);
  /// sums[i] = sum of source[i] in `rows` rows, modulo 2^32.
  void (*sum_rows)(uint32_t* sums, const uint8_t* source, int64_t stride, size_t count,
                   size_t rows);
};

QEL_TABLES_PER_LEVEL(BoxMeanKernels)

}  // namespace qel

#endif  // QEL_TRANSFORM_RESAMPLE_BOX_KERNELS_H_
