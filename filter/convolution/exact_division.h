#ifndef QEL_FILTER_CONVOLUTION_EXACT_DIVISION_H_
#define QEL_FILTER_CONVOLUTION_EXACT_DIVISION_H_

#include <cmath>
#include <limits>

#include "filter/convolution/convolution_kernels.h"

namespace qel {

// Dividing weighted sums by multiplying. Every form here gives the truncated quotient exactly.

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

/// True when there is a reciprocal multiplication of 16 bits that divides all sums from 0 to
/// `largest` by `divisor`: multiplier m = ceil(2^(16 + shift) / divisor) whose excess
/// m * divisor - 2^(16 + shift) stays below 2^(16 + shift) / largest.
inline bool FindReciprocalDivision(int32_t divisor, int64_t largest, ReciprocalDivision& division) {
  division = {};
  if (largest > std::numeric_limits<uint16_t>::max() || divisor < 0) return false;
  if (divisor <= 1) return true;
  for (int shift = 0; shift < 16; ++shift) {
    const int64_t power = int64_t{1} << (16 + shift);
    const int64_t multiplier = (power + divisor - 1) / divisor;
    // What the rounded-up multiplier adds must not carry any sum over the next whole number.
    const int64_t excess = multiplier * divisor - power;
    if (multiplier > std::numeric_limits<uint16_t>::max()) break;
    if (excess * largest < power) {
      division = {static_cast<uint16_t>(multiplier), static_cast<uint16_t>(shift)};
      return true;
    }
  }
  return false;
}

}  // namespace qel

#endif  // QEL_FILTER_CONVOLUTION_EXACT_DIVISION_H_
