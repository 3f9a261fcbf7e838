#ifndef QEL_COLOR_LINE_WALK_H_
#define QEL_COLOR_LINE_WALK_H_

#include "simd/row_walk.h"

namespace qel::QEL_LEVEL {
namespace {

/// Replaces the bytes of a row, a multiple of what `change` wants together, by change(vector), a
/// line of the cache at a time.
template <typename Change>
inline void ForEachLine(uint8_t* row, size_t bytes, const Change& change) {
  ForEachBlock<1, 64>(row, row, bytes, [&](uint8_t* to, const uint8_t* from) {
    for (size_t i = 0; i < 64; i += kVectorBytes) StoreU(change(LoadU<U8>(from + i)), to + i);
  });
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_COLOR_LINE_WALK_H_
