#include "image/byte_curve.h"

#include <algorithm>

namespace qel {
namespace {

constexpr int kChord = 16;  // values of a chord

/// Tries one slope; the base follows from it. False if the values differ by more than one bit.
bool TrySlope(const uint8_t* values, int slope, int& base) {
  int least = 255, most = -255;
  for (int k = 0; k < kChord; ++k) {
    const int difference = values[k] - (k * slope >> 4);
    least = std::min(least, difference);
    most = std::max(most, difference);
    if (most - least > 1) return false;
  }
  base = least;
  return true;
}

bool FindChord(const uint8_t* values, int chord, ByteCurve& curve) {
  // Farther slopes miss the last value.
  constexpr int kTries[] = {0, 1, -1, 2, -2, 3};
  const int steepness = 16 * (values[kChord - 1] - values[0]) / (kChord - 1);
  for (const int more : kTries) {
    const int slope = steepness + more;
    int base = 0;
    if (slope < -128 || slope > 127 || !TrySlope(values, slope, base)) continue;
    curve.slope[chord] = static_cast<int8_t>(slope);
    curve.base[chord] = static_cast<uint8_t>(base);
    for (int k = 0; k < kChord; ++k) {
      const int i = kChord * chord + k;
      const int above = values[k] - (k * slope >> 4) - base;
      curve.above[i & 31] = static_cast<uint8_t>(curve.above[i & 31] | above << (i >> 5));
    }
    return true;
  }
  return false;
}

}  // namespace

std::optional<ByteCurve> FindByteCurve(const uint8_t* table) {
  ByteCurve curve = {};
  // The last one comes first: it tells at once what is no curve.
  for (int chord = 15; chord >= 2; --chord) {
    if (!FindChord(table + kChord * chord, chord, curve)) return {};
  }
  ByteCurve whole = curve;
  if (FindChord(table, 0, whole) && FindChord(table + kChord, 1, whole)) return whole;
  curve.has_start = true;
  std::copy_n(table, 2 * kChord, curve.start);
  return curve;
}

}  // namespace qel
