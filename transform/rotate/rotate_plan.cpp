#include "transform/rotate/rotate_plan.h"

#include <cstdlib>

#include "image/interpolated_sampling.h"

namespace qel {
namespace {

/// True where `RotateKernels::weights` has a function.
bool IsPolynomial(int interpolation) {
  constexpr uint32_t kPolynomials = 0b1110'0001'1101'1100;  // 2 to 4, 6 to 8 and 13 to 15
  return interpolation >= 0 && interpolation < 16 && (kPolynomials >> interpolation & 1) != 0;
}

/// Whether a method gives the right pixels.
bool Can(RotateMethod method, const ImageView& source, int interpolation, bool shares_memory) {
  if (method == RotateMethod::kOneByOne) return true;
  const int64_t bytes = std::abs(int64_t{source.stride}) * source.Rows() + source.Columns() * 4;
  if (shares_memory || !source.HasPixels() || bytes >= INT32_MAX ||
      (source.bit_count != 8 && source.bit_count < 24)) {
    return false;
  }
  const bool weighs = MethodOf(interpolation).kernel != nullptr;
  // Up to here, single precision has the positions of all taps.
  constexpr int64_t kLargestSize = 1 << 23;
  if (weighs && (source.Columns() > kLargestSize || source.Rows() > kLargestSize)) return false;
  switch (method) {
    case RotateMethod::kGather:
      return !weighs;
    case RotateMethod::kPolynomial:
      return IsPolynomial(interpolation);
    case RotateMethod::kBounded:
      return MethodOf(interpolation).sampling == Sampling::kKernel12;
    default:
      return weighs;
  }
}

}  // namespace

std::optional<RotatePlan> PlanRotateBy(RotateMethod method, const ImageView& source,
                                       int interpolation, bool shares_memory) {
  if (!Can(method, source, interpolation, shares_memory)) return std::nullopt;
  return RotatePlan{method, interpolation};
}

RotatePlan PlanRotate(const ImageView& source, int interpolation, bool shares_memory) {
  constexpr int64_t kPixelsWorthRemembering = 256 * 256;
  const bool is_large = source.Columns() * source.Rows() >= kPixelsWorthRemembering;
  for (size_t i = 0; i < std::size(kRotateMethods); ++i) {
    const auto method = static_cast<RotateMethod>(i);
    const bool pays = method != RotateMethod::kRemembered || is_large;
    const auto plan = PlanRotateBy(method, source, interpolation, shares_memory);
    if (pays && plan) return *plan;
  }
  return {RotateMethod::kOneByOne, interpolation};
}

}  // namespace qel
