#ifndef QEL_FILTER_FILTER_KERNELS_H_
#define QEL_FILTER_FILTER_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "simd/cpu_level.h"

namespace qel {

/// One extremum of bytes: minimum or maximum. Rows are distinct unless they are the same argument.
struct ExtremumKernels {
  /// into[i] = extremum(into[i], row[i])
  void (*fold)(uint8_t* into, const uint8_t* row, size_t count);
  /// dest[i] = extremum(a[i], b[i]); `a` and `b` may overlap
  void (*of_two)(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t count);
  /// `running` becomes its extremum with `row`, and combined[i] the extremum of that and `above`;
  /// then dest[i] = extremum(combined[i], combined[i + step], ...) of `size` pixels, at most
  /// `kMostAcross`. `running`, `above` and `combined` are scratch rows. The fourth bytes of pixels
  /// of four are those of the last pixel of each window in `row`. Vectors that begin within the
  /// pixels are read as a whole, and written in `running`.
  void (*advance)(uint8_t* dest, uint8_t* running, const uint8_t* row, const uint8_t* above,
                  uint8_t* combined, size_t size, size_t step, size_t count);
  /// dest[i] = extremum of `size` rows and `size` pixels of each, at most `kMostSquare`. The fourth
  /// bytes of pixels of four are those of the last pixel of each window. Where there are fewer
  /// bytes than a vector has, a vector and the neighbours of its last pixel are read.
  void (*square)(uint8_t* dest, const uint8_t* const* rows, size_t size, size_t step, size_t count);
};

inline constexpr size_t kMostAcross = 127;
inline constexpr size_t kMostSquare = 7;

/// Row functions of the filters. Nothing beyond the count is touched.
struct FilterKernels {
  ExtremumKernels minimum;
  ExtremumKernels maximum;
  /// The maximum less the minimum; everything else as of `square`.
  void (*range)(uint8_t* dest, const uint8_t* const* rows, size_t size, size_t step, size_t count);
  /// dest[i] = a[i] - b[i]; the fourth bytes of pixels of four are those of `a`
  void (*subtract)(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t step, size_t count);
  /// 4-byte pixels with the colors of one row and the fourth bytes of another.
  void (*with_alpha)(uint8_t* dest, const uint8_t* colors, const uint8_t* alphas, size_t pixels);
  /// The inverted contour of pixels: `rows` are the three rows about `dest`, each beginning one
  /// pixel of `pixel_bytes` to the left. The fourth bytes of pixels of four are those of the
  /// middle. Fewer bytes than a vector has are read as a vector.
  void (*contour)(uint8_t* dest, const uint8_t* const* rows, size_t count, size_t pixel_bytes);
};

QEL_TABLES_PER_LEVEL(FilterKernels)

}  // namespace qel

#endif  // QEL_FILTER_FILTER_KERNELS_H_
