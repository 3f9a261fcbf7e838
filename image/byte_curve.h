#ifndef QEL_IMAGE_BYTE_CURVE_H_
#define QEL_IMAGE_BYTE_CURVE_H_

#include <cstdint>
#include <optional>

namespace qel {

/// A smooth table of 256 bytes as chords, each through 16 values, and how much the values differ
/// from them: byte 16 c + k becomes base[c] + (k * slope[c] >> 4), and one more where bit i >> 5 of
/// above[i & 31] is set for i = 16 c + k. A vector takes half of the instructions of the table.
struct ByteCurve {
  int8_t slope[16];  ///< in 16ths
  uint8_t base[16];
  uint8_t above[32];
  /// Added to the first 32 values, all else being 0 there: powers below 1 start too steeply.
  uint8_t start[32];
  bool has_start;
};

/// Finds the chords of a table. Rounded powers, levels and other curves whose slope changes slowly
/// have them, rising or falling; for others there are none, which shows within a few hundred steps.
std::optional<ByteCurve> FindByteCurve(const uint8_t* table);

}  // namespace qel

#endif  // QEL_IMAGE_BYTE_CURVE_H_
