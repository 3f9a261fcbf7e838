#ifndef QEL_FILTER_CONVOLUTION_KERNELS_H_
#define QEL_FILTER_CONVOLUTION_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "image/cpu_level.h"

namespace qel {

/// sum * factor, truncated, then the offset, then a clamp to a byte. See exact_division.h.
struct Division {
  double factor = 1;
  float single_factor = 1;
  bool in_single = false;  ///< the sums are small enough for single precision
  int32_t offset = 0;
};

/// (sum * multiplier >> 16) >> shift, for sums of 16 bits; multiplier 0 means no division.
struct ShortDivision {
  uint16_t multiplier = 0;
  uint16_t shift = 0;
};

/// Weights of whole neighbourhoods for the direct functions, row by row. A word holds one weight of
/// 32 bits, or two of 16, or four of 8, of neighbours side by side, the left one in the low bits.
struct DirectWeights {
  const int32_t* words;
  size_t words_per_row;
  size_t stride;  ///< words from row to row
  size_t rows;
  size_t step;  ///< bytes from a sample to its right neighbour
};

/// Sums of columns and their way across rows, in lanes of one width. All sums wrap.
template <typename Lane>
struct SplitKernels {
  /// sums[i] += weight * (entering[i] - leaving[i])
  void (*slide)(Lane* sums, const uint8_t* entering, const uint8_t* leaving, Lane weight,
                size_t count);
  /// sums[i] = weights[0] * rows[0][i] + weights[1] * rows[1][i] + ...
  void (*down)(Lane* sums, const uint8_t* const* rows, const Lane* weights, size_t taps,
               size_t count);
  /// out[i] = weights[0] * sums[i] + weights[1] * sums[i + step] + ...
  void (*across)(Lane* out, const Lane* sums, const Lane* weights, size_t taps, size_t step,
                 size_t count);
  /// The same with weights of 1. `spare` has twice the room of `sums`.
  void (*box)(Lane* out, const Lane* sums, Lane* spare, size_t taps, size_t step, size_t count);
};

/// Row functions of the convolution. Direct functions and sums read up to `kRowSlack` bytes past
/// the samples that count, in scratch rows; nothing else is touched beyond `count`.
struct ConvolutionKernels {
  SplitKernels<uint16_t> split16;
  SplitKernels<uint32_t> split32;
  /// sums[i] += weight * row[i]
  void (*accumulate)(uint32_t* sums, const uint8_t* row, uint32_t weight, size_t count);

  /// Whole neighbourhoods by weights of 32, 16 or 8 bits. The narrow ones are null at levels that
  /// have no instruction for them.
  using Direct = void (*)(uint8_t* dest, const uint8_t* const* rows, const DirectWeights& weights,
                          const Division& division, size_t count);
  Direct direct32;
  Direct direct16;
  Direct direct8;

  /// Bytes from sums.
  void (*finish16)(uint8_t* dest, const uint16_t* sums, ShortDivision division, size_t count);
  void (*finish32)(uint8_t* dest, const uint32_t* sums, const Division& division, size_t count);
};

namespace sse2 {
extern const ConvolutionKernels kConvolutionKernels;
}
namespace avx2 {
extern const ConvolutionKernels kConvolutionKernels;
}
namespace avx512 {
extern const ConvolutionKernels kConvolutionKernels;
}
namespace avx512vbmi {
extern const ConvolutionKernels kConvolutionKernels;
}

inline const ConvolutionKernels& ConvolutionKernelsFor(CpuLevel level) {
  return TableForLevel(level, sse2::kConvolutionKernels, avx2::kConvolutionKernels,
                       avx512::kConvolutionKernels, avx512vbmi::kConvolutionKernels);
}
inline const ConvolutionKernels& ActiveConvolutionKernels() {
  return ConvolutionKernelsFor(kActiveCpuLevel);
}

}  // namespace qel

#endif  // QEL_FILTER_CONVOLUTION_KERNELS_H_
