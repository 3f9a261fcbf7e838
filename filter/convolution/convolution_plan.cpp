#include "filter/convolution/convolution_plan.h"

#include "filter/convolution/exact_division.h"

namespace qel {
namespace {

/// Fills in what all methods take.
void AddCommonParts(int divisor, int offset, ConvolutionPlan& plan) {
  const int64_t lowest = plan.weights.LowestSum(), highest = plan.weights.HighestSum();
  plan.division = DivisionBy(divisor, offset, std::max(-lowest, highest));
  plan.is_short =
      lowest == 0 && offset == 0 && FindReciprocalDivision(divisor, highest, plan.reciprocal);
}

/// False where a method that comes later is sooner done.
bool Pays(ConvolutionMethod method, const Weights& weights) {
  const size_t sides = weights.rows() + weights.columns();
  switch (method) {
    case ConvolutionMethod::kBox:
      return sides > 10;
    case ConvolutionMethod::kSeparable16:
    case ConvolutionMethod::kSeparable32:
      return sides > 8;
    default:
      return true;
  }
}

/// Makes what `method` needs; false when it cannot carry the kernel out.
bool Prepare(ConvolutionMethod method, int divisor, int offset, ConvolutionPlan& plan) {
  constexpr size_t kFewWeights = 4;
  const Weights& weights = plan.weights;
  plan.method = method;
  switch (method) {
    case ConvolutionMethod::kSquare3:
      // Few weights are sooner taken two by two, unless they are a product.
      return FindSquare3(weights, plan.step, divisor, offset, plan.square3) &&
             (plan.square3.is_separable || weights.Count() > kFewWeights);
    case ConvolutionMethod::kBox:
      return weights.AllEqual() && weights.columns() * plan.step <= kMostBoxBytes;
    case ConvolutionMethod::kSeparable16:
      return plan.is_short && plan.factors.Find(weights) && plan.factors.ShortAcross();
    case ConvolutionMethod::kSparse:
      return plan.pairs.Find(weights, plan.step, divisor, offset);
    case ConvolutionMethod::kSeparable32:
      return plan.factors.Find(weights) && plan.factors.ShortDown();
    case ConvolutionMethod::kRowPairs:
      return plan.row_pairs.Find(weights, divisor, offset, plan.division.in_single);
    case ConvolutionMethod::kDirect:
      return weights.rows() <= kMostTaps && weights.columns() <= kMostTaps;
    case ConvolutionMethod::kLarge:
      return true;
  }
  return false;
}

}  // namespace

ConvolutionPlan PlanConvolution(const int* kernel, int size, int divisor, int offset,
                                int bit_count) {
  ConvolutionPlan plan(Weights(kernel, size), bit_count);
  AddCommonParts(divisor, offset, plan);
  for (size_t i = 0; i < std::size(kConvolutionMethods); ++i) {
    const auto method = static_cast<ConvolutionMethod>(i);
    if (Pays(method, plan.weights) && Prepare(method, divisor, offset, plan)) break;
  }
  return plan;
}

std::optional<ConvolutionPlan> PlanConvolutionBy(ConvolutionMethod method, const int* kernel,
                                                 int size, int divisor, int offset, int bit_count) {
  std::optional<ConvolutionPlan> plan(std::in_place, Weights(kernel, size), bit_count);
  AddCommonParts(divisor, offset, *plan);
  if (!Prepare(method, divisor, offset, *plan)) plan.reset();
  return plan;
}

}  // namespace qel
