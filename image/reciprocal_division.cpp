#include "image/reciprocal_division.h"

namespace qel {

bool FindReciprocalDivision(int32_t divisor, int64_t largest, ReciprocalDivision& division) {
  division = {};
  if (largest > UINT16_MAX || divisor < 0) return false;
  if (divisor <= 1) return true;
  // Divisions of 64 bits take several times as long on some processors.
  const auto narrow_divisor = static_cast<uint32_t>(divisor);
  for (int shift = 0; shift < 16; ++shift) {
    const uint32_t power = uint32_t{1} << (16 + shift);
    const uint32_t multiplier = (power + narrow_divisor - 1) / narrow_divisor;
    if (multiplier > UINT16_MAX) break;
    // What the rounded-up multiplier adds must not carry any sum over the next whole number.
    const int64_t excess = multiplier * narrow_divisor - power;
    if (excess * largest < power) {
      division = {static_cast<uint16_t>(multiplier), static_cast<uint16_t>(shift)};
      return true;
    }
  }
  return false;
}

}  // namespace qel
