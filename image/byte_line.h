#ifndef QEL_IMAGE_BYTE_LINE_H_
#define QEL_IMAGE_BYTE_LINE_H_

#include <cstdint>
#include <optional>

#include "image/byte_curve.h"

namespace qel {

/// A clamped line through the values of bytes, in 16 bits: byte i becomes
/// ((i * slope >> 8) + offset) >> shift, the sum kept within 0 to 65535. Of what is above 255,
/// the low byte is taken if the line `wraps`, else 255. A vector takes a quarter of the
/// instructions of a table of 256 bytes.
struct ByteLine {
  uint16_t slope;
  int32_t offset;  ///< -65535 to 65535
  int shift;       ///< 1 to 8
  bool wraps;
};

/// Finds a line that gives `values[i]` for every byte i: values from 0 to 255, or above as well if
/// the line shall wrap. Nearly all straight lines with a slope above 0, rounded in any way, have
/// one; what else has none is left without after a few microseconds at most.
std::optional<ByteLine> FindByteLine(const int32_t (&values)[256], bool wraps);

/// From how many bytes on a line or a curve pays for being looked for.
inline constexpr int64_t kBytesForLine = 1 << 16;

/// What every byte becomes: by a table of 256 entries, which must outlive it, and by a line or a
/// curve where there is one.
struct ByteMap {
  const uint8_t* table;
  std::optional<ByteLine> line = {};
  std::optional<ByteCurve> curve = {};
};

}  // namespace qel

#endif  // QEL_IMAGE_BYTE_LINE_H_
