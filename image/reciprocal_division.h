#ifndef QEL_IMAGE_RECIPROCAL_DIVISION_H_
#define QEL_IMAGE_RECIPROCAL_DIVISION_H_

#include <cstdint>

namespace qel {

/// (sum * multiplier >> 16) >> shift, for sums of 16 bits; multiplier 0 means no division. A
/// reciprocal multiplication after Granlund and Montgomery (1994).
struct ReciprocalDivision {
  uint16_t multiplier = 0;
  uint16_t shift = 0;
};

/// True when there is a reciprocal multiplication of 16 bits that divides all sums from 0 to
/// `largest` by `divisor`, truncating; 0 means none. It is multiplier
/// m = ceil(2^(16 + shift) / divisor) whose excess m * divisor - 2^(16 + shift) stays below
/// 2^(16 + shift) / largest.
bool FindReciprocalDivision(int32_t divisor, int64_t largest, ReciprocalDivision& division);

}  // namespace qel

#endif  // QEL_IMAGE_RECIPROCAL_DIVISION_H_
