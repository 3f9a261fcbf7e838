#ifndef QEL_TRANSFORM_WARP_OFFSET_RULE_H_
#define QEL_TRANSFORM_WARP_OFFSET_RULE_H_

#include <cstdint>

namespace qel {

/// Where positions may lie, and how they become offsets from the first byte of row 0. Offsets are
/// at most `kLargestOffset` away from 0.
struct OffsetRule {
  int32_t left, top;      ///< first column and row inside
  int32_t columns, rows;  ///< how many are inside
  int32_t stride;         ///< bytes from row to row
  int32_t pixel_bytes;    ///< 1, 3 or 4
  int32_t narrow_column;  ///< of 3 bytes: this column's offsets come lowered by `kNarrow`
};
inline constexpr int32_t kLargestOffset = (1 << 29) - 1;
inline constexpr int32_t kNarrow = 1 << 30;
/// The offset of positions that are not inside.
inline constexpr int32_t kOutsideOffset = INT32_MIN;

}  // namespace qel

#endif  // QEL_TRANSFORM_WARP_OFFSET_RULE_H_
