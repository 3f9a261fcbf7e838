#ifndef QEL_FILTER_CONVOLUTION_CONVOLUTION_PLAN_H_
#define QEL_FILTER_CONVOLUTION_CONVOLUTION_PLAN_H_

#include <optional>

#include "filter/convolution/kernel_weights.h"
#include "image/plan.h"

namespace qel {

/// How a convolution is carried out, in the order of preference. Integer sums are the same in any
/// order, so each kernel goes the shortest way. All sums wrap.
enum class ConvolutionMethod {
  kSquare3,
  kBox,
  kSeparable16,
  kSparse,
  kSeparable32,
  kRowPairs,
  kDirect,
  kLarge
};

inline constexpr MethodText kConvolutionMethods[] = {
    {"square3",
     "3 x 3 weights with sums of 16 bits, in registers; column x row + centre weight goes down and "
     "then across"},
    {"box",
     "equal weights of which rows + columns are more than 10, by running sums down the columns: "
     "the same for every height, and nearly for every width"},
    {"separable16",
     "column x row, of which rows + columns are more than 8, with sums of 16 bits: one product a "
     "row and column"},
    {"sparse", "up to 10 weights with sums of 16 bits, two products an instruction"},
    {"separable32", "column x row with wider sums"},
    {"row-pairs",
     "weights of a byte, up to 63 x 63, two output rows at a time: one instruction weighs two "
     "source rows, which are interleaved once; sums of 16 bits widen only before they could "
     "overflow"},
    {"direct", "up to 63 x 63 larger weights, two products of 16 bits at a time, or one"},
    {"large", "any kernel, one weight after the other"},
};

/// Most bytes of a row under a box: sums, and the rows that enter and leave, stay in the nearest
/// cache.
inline constexpr size_t kMostBoxBytes = 6 * 1024;

/// What a convolution takes, made from its weights alone.
struct ConvolutionPlan {
  /// Only what its method takes is filled in: forms have room for large kernels.
  ConvolutionPlan(const Weights& all_weights, int bit_count)
      : weights(all_weights), step(static_cast<size_t>(PixelBytes(bit_count))) {}

  ConvolutionMethod method = ConvolutionMethod::kLarge;
  Weights weights;
  size_t step;  ///< bytes from a pixel to its right neighbour

  Division division;              ///< of any sum: kBox, kSeparable32, kDirect, kLarge
  bool is_short = false;          ///< sums of 16 unsigned bits, without an offset, ...
  ReciprocalDivision reciprocal;  ///< ... and their division: kBox, kSeparable16
  Square3Weights square3;         ///< kSquare3
  Pairs pairs;                    ///< kSparse
  Factors factors;                ///< kSeparable16, kSeparable32
  RowPairs row_pairs;             ///< kRowPairs
};

/// The plan with the first method that can and pays, for a kernel of `size` x `size` weights, which
/// must live on; `size` is at least 1. Sums are divided by `divisor` unless that is 0, and `offset`
/// is added. `bit_count` is that of an image that stores pixels.
ConvolutionPlan PlanConvolution(const int* kernel, int size, int divisor, int offset,
                                int bit_count);

/// The same with `method`; nothing when that cannot carry the kernel out.
std::optional<ConvolutionPlan> PlanConvolutionBy(ConvolutionMethod method, const int* kernel,
                                                 int size, int divisor, int offset, int bit_count);

/// Writes `source` weighed to `dest`, which has its shape and pixels to store. Allocates nothing.
void RunConvolution(const ConvolutionPlan& plan, const ImageView& source, const ImageView& dest);

}  // namespace qel

#endif  // QEL_FILTER_CONVOLUTION_CONVOLUTION_PLAN_H_
