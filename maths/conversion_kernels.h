#ifndef QEL_MATHS_CONVERSION_KERNELS_H_
#define QEL_MATHS_CONVERSION_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "simd/cpu_level.h"

namespace qel {

/// Row functions that copy pixels from depth to depth and that fill. Nothing beyond the count is
/// touched.
struct ConversionKernels {
  /// Turns `count` pixels, or bytes, of `source` into `dest`.
  using CopyRow = void (*)(uint8_t* dest, const uint8_t* source, size_t count);

  CopyRow copy;        ///< bytes that do not overlap
  CopyRow one_to_3;    ///< a gray becomes three bytes
  CopyRow one_to_4;    ///< a gray becomes three bytes, opaque
  CopyRow three_to_4;  ///< opaque
  CopyRow four_to_3;   ///< drops the fourth byte
  CopyRow mean_of_3;   ///< the truncated mean of three bytes
  CopyRow mean_of_4;   ///< the same of the first three of four
  CopyRow fill_zeros;  ///< replaces the bytes of `dest` that are 0

  /// Repeats a pattern of `kFillPeriod` bytes. Fetching what is written `ahead` halves the time in
  /// memory, and takes half as long again in the near caches.
  void (*fill)(uint8_t* dest, size_t bytes, const uint8_t* pattern, bool ahead);
  /// Set the bytes, or the 4-byte pixels, whose byte of `mask` is not 0.
  void (*fill_bytes)(uint8_t* dest, const uint8_t* mask, size_t count, uint8_t value);
  void (*fill_words)(uint8_t* dest, const uint8_t* mask, size_t count, uint32_t value);
};

/// Period of the patterns of `fill`: a whole number of pixels of any size.
inline constexpr size_t kFillPeriod = 192;

QEL_TABLES_PER_LEVEL(ConversionKernels)

namespace sse2 {
extern const ConversionKernels kConversionsOneByOne;
}
/// Row functions that go one pixel after the other, whatever rows share memory, but for `copy`.
inline const ConversionKernels& ConversionsOneByOne() { return sse2::kConversionsOneByOne; }

}  // namespace qel

#endif  // QEL_MATHS_CONVERSION_KERNELS_H_
