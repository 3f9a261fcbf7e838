#include "image/reciprocal_division.h"

namespace qel {

bool FindReciprocalDivision(int32_t divisor, int64_t largest, ReciprocalDivision& division) {
  division = {};
  if (largest > UINT16_MAX || divisor < 0) return false;
  if (divisor <= 1) return true;
  for (int shift = 0; shift < 16; ++shift) {
    const int64_t power = int64_t{1} << (16 + shift);
    const int64_t multiplier = (power + divisor - 1) / divisor;
    // What the rounded-up multiplier adds must not carry any sum over the next whole number.
    const int64_t excess = multiplier * divisor - power;
    if (multiplier > UINT16_MAX) break;
    if (excess * largest < power) {
      division = {static_cast<uint16_t>(multiplier), static_cast<uint16_t>(shift)};
      return true;
    }
  }
  return false;
}

}  // namespace qel
