#ifndef QEL_SIMD_ROW_WALK_H_
#define QEL_SIMD_ROW_WALK_H_

#include "simd/prefetch.h"
#include "simd/simd.h"

namespace qel::QEL_LEVEL {
namespace {

/// Rows that are walked in blocks, by the bytes of one unit. Blocks may read `kAhead` bytes past
/// their units.
template <size_t kBytes, size_t kAhead = 0>
struct From {
  static constexpr size_t kUnitBytes = kBytes;
  const uint8_t* at;

  template <size_t kUnits>
  struct Rest {
    Rest(const uint8_t* row, size_t units) {
      __builtin_memcpy(bytes, row, units * kBytes + kAhead);
    }
    alignas(64) uint8_t bytes[kBytes * kUnits + kAhead] = {};
  };
};
template <size_t kBytes>
struct To {
  uint8_t* at;
};

/// Calls `block(to, from...)` for every `kUnits` units, and for copies of what remains at the end
/// of the rows, so that nothing beyond them is touched. Blocks may read what `to` holds. The next
/// pages are fetched ahead, those that are written as well: a line that is not there when it is
/// written is read first.
template <size_t kUnits, size_t kToBytes, typename... Sources, typename Block>
inline void WalkBlocks(size_t count, Block&& block, To<kToBytes> to, Sources... from) {
  const bool in_place = (... || (to.at == from.at));
  for (; count >= kUnits; count -= kUnits) {
    if (!in_place) PrefetchInSteps<kToBytes * kUnits>(to.at);
    (PrefetchInSteps<Sources::kUnitBytes * kUnits>(from.at), ...);
    block(to.at, from.at...);
    to.at += kToBytes * kUnits;
    ((from.at += Sources::kUnitBytes * kUnits), ...);
  }
  if (count == 0) return;
  alignas(64) uint8_t rest[kToBytes * kUnits] = {};
  __builtin_memcpy(rest, to.at, count * kToBytes);
  block(rest, typename Sources::template Rest<kUnits>(from.at, count).bytes...);
  __builtin_memcpy(to.at, rest, count * kToBytes);
}

/// The walk with one source whose units are as long as those written.
template <size_t kUnitBytes, size_t kUnits, size_t kAhead = 0, typename Block>
inline void ForEachBlock(uint8_t* to, const uint8_t* from, size_t count, Block&& block) {
  WalkBlocks<kUnits>(count, block, To<kUnitBytes>{to}, From<kUnitBytes, kAhead>{from});
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_SIMD_ROW_WALK_H_
