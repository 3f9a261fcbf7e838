#ifndef QEL_FILTER_CONVOLUTION_EXACT_DIVISION_H_
#define QEL_FILTER_CONVOLUTION_EXACT_DIVISION_H_

#include <cmath>

#include "filter/convolution/convolution_kernels.h"

namespace qel {

// Dividing weighted sums by multiplying: the truncated quotient, exactly. Sums of 16 bits have
// `ReciprocalDivision` as well.

/// Sums below this size are divided in single precision.
inline constexpr int64_t kSingleRange = int64_t{1} << 21;

/// The exact division by `divisor`, 0 meaning none, of sums that `largest` bounds in size.
///
/// The factors lie between 1 / d and (1 + e) / d, so an exact quotient never falls below itself,
/// and one that is 1 / d short of the next whole number stays short of it as long as the sum is
/// below about 1 / (e + half a unit of rounding).
inline Division DivisionBy(int32_t divisor, int32_t offset, int64_t largest) {
  Division division;
  division.offset = offset;
  division.in_single = largest < kSingleRange;
  if (divisor == 0 || divisor == 1) return division;
  const double away = divisor < 0 ? -1 : 1;
  const double quotient = 1.0 / divisor;
  division.factor = std::nextafter(quotient, 2 * away);
  division.single_factor =
      std::nextafter(static_cast<float>(quotient), static_cast<float>(2 * away));
  return division;
}

}  // namespace qel

#endif  // QEL_FILTER_CONVOLUTION_EXACT_DIVISION_H_
