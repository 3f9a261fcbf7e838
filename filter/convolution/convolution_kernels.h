#ifndef QEL_FILTER_CONVOLUTION_CONVOLUTION_KERNELS_H_
#define QEL_FILTER_CONVOLUTION_CONVOLUTION_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "image/reciprocal_division.h"
#include "simd/cpu_level.h"

namespace qel {

/// sum * factor, truncated, then the offset, then a clamp to a byte. See exact_division.h.
struct Division {
  double factor = 1;
  float single_factor = 1;
  bool in_single = false;  ///< the sums are small enough for single precision
  int32_t offset = 0;
};

/// Weights of whole neighbourhoods for the direct functions, row by row. A word holds one weight of
/// 32 bits, or two of 16, of neighbours side by side, the left one in the low bits.
struct DirectWeights {
  const int32_t* words;
  size_t words_per_row;
  size_t stride;  ///< words from row to row
  size_t rows;
  size_t step;  ///< bytes from a pixel to its right neighbour
  /// True where the fourth bytes of pixels of four are those of the last pixel of each window.
  bool takes_alpha = false;
  size_t last_column = 0;  ///< bytes from a window's first pixel in a row to its last one
};

/// A separable kernel: weight (j, i) = down[j] * across[i].
struct SeparableWeights {
  const int16_t* down;
  size_t rows;
  const int16_t* across;
  size_t columns;
  size_t step;     ///< bytes from a pixel to its right neighbour
  uint16_t start;  ///< what every sum down a column starts from
  uint32_t bias;   ///< added to the sums across, to take that out again: -start * sum of across
};

/// Two neighbours that are weighed together, as bytes from the first pixel of their rows.
struct TapPair {
  size_t rows[2];
  size_t offsets[2];
  int32_t weights;  ///< two signed bytes, twice
};

/// Which sums of 16 bits a kernel gives, and so what becomes of them.
enum class ShortSums {
  kUnsigned,   ///< up to 65535: divided
  kCutAtZero,  ///< signed; what lies below 0 would be clamped to it: made 0, then divided
  kSigned,     ///< signed: divided, offset added
};

/// What becomes of sums of 16 bits.
struct ShortFinish {
  ShortSums sums;
  ReciprocalDivision division;  ///< by the size of the divisor
  bool negate;                  ///< for `kSigned`: the divisor is negative
  int16_t offset;               ///< for `kSigned`
};

/// A kernel as pairs of taps. Sums of 16 bits hold it, and those of each pair fit signed ones.
struct PairWeights {
  const TapPair* pairs;
  size_t count;
  ShortFinish finish;
  /// Of pixels of four bytes: where the pixel lies that gives the fourth one.
  struct Place {
    size_t row;
    size_t offset;
  };
  const Place* alpha = nullptr;  ///< null: the fourth bytes are sums as all others
};

/// A 3 x 3 kernel whose sums fit 16 bits. A pair is two signed bytes, twice; two bytes weighed by
/// one fit signed 16 bits.
struct Square3Weights {
  /// The weights of a column as pairs: rows 0 and 1; row 2 and 0.
  struct Column {
    int32_t upper;
    int32_t lower;
  };
  Column columns[3];
  /// kernel = columns[0] x across + centre: the centre weight alone departs from rank 1.
  bool is_separable;
  int16_t across[3];
  int32_t center;  ///< the pair of what the centre weighs beyond the product, and 0
  size_t step;     ///< bytes from a pixel to its right neighbour
  ShortFinish finish;
};

/// Sums of columns whose weights are equal, and the bytes that they give.
template <typename Sum, typename Quotient>
struct BoxKernels {
  /// sums[i] += weight * (entering[i] - leaving[i]). What lies `ahead` bytes further on in any row
  /// of bytes, here and below, is brought near meanwhile.
  void (*running_sums)(Sum* sums, const uint8_t* entering, const uint8_t* leaving, Sum weight,
                       ptrdiff_t ahead, size_t count);
  /// dest[i] from sums[i] + sums[i + step] + ..., `columns` of them. Every fourth byte is that of
  /// `alpha`, of which a vector is read where there is less, unless that is null.
  void (*across)(uint8_t* dest, const Sum* sums, size_t columns, size_t step,
                 const Quotient& division, const uint8_t* alpha, ptrdiff_t ahead, size_t count);
};

/// Row functions of the convolution. All sums wrap in their lanes. `rows` are scratch rows: up to
/// `kRowSlack` bytes past their pixels are read. Nothing else is touched beyond `count`.
struct ConvolutionKernels {
  /// Whole neighbourhoods by weights of 32 or 16 bits.
  using Direct = void (*)(uint8_t* dest, const uint8_t* const* rows, const DirectWeights& weights,
                          const Division& division, size_t count);
  Direct direct32;
  Direct direct16;

  /// Few weights, two by two. Reads no more than the pixels unless there are less than a vector
  /// of them.
  void (*sparse)(uint8_t* dest, const uint8_t* const* rows, const PairWeights& weights,
                 size_t count);

  /// 3 x 3 kernels. Reads like `sparse`. The fourth bytes of pixels of four are those of the last
  /// pixel of each window.
  void (*square3)(uint8_t* dest, const uint8_t* const* rows, const Square3Weights& weights,
                  size_t count);

  /// Separable kernels whose sums fit 16 unsigned bits, in two steps; the sums across fit 15 and
  /// stand in the order of interleaving. Rows are read like those of `sparse`, and up to
  /// `kRowSlack` bytes past the sums are written.
  void (*across16)(uint16_t* sums, const uint8_t* row, const SeparableWeights& weights,
                   size_t count);
  void (*down16)(uint8_t* dest, const uint16_t* const* sums, const SeparableWeights& weights,
                 const ReciprocalDivision& division, size_t count);
  /// Separable kernels in one step: sums down the columns fit 16 signed bits, counted from their
  /// start.
  void (*separable32)(uint8_t* dest, const uint8_t* const* rows, const SeparableWeights& weights,
                      const Division& division, size_t count);

  BoxKernels<uint16_t, ReciprocalDivision> box16;
  BoxKernels<uint32_t, Division> box32;

  /// sums[i] += weight * row[i]
  void (*accumulate)(uint32_t* sums, const uint8_t* row, uint32_t weight, size_t count);
  /// Bytes from sums.
  void (*finish)(uint8_t* dest, const uint32_t* sums, const Division& division, size_t count);
};

/// Most pairs of taps.
inline constexpr size_t kMostPairs = 5;
/// Most rows and columns of the direct and separable functions.
inline constexpr size_t kMostTaps = 63;

QEL_TABLES_PER_LEVEL(ConvolutionKernels)

}  // namespace qel

#endif  // QEL_FILTER_CONVOLUTION_CONVOLUTION_KERNELS_H_
