#ifndef QEL_SIMD_TABLE_LOOKUP_H_
#define QEL_SIMD_TABLE_LOOKUP_H_

#include "simd/simd.h"

namespace qel::QEL_LEVEL {
namespace {

/// A table of 256 bytes, looked up for a whole vector at a time. The table must outlive it.
class TableLookup {
 public:
  explicit TableLookup(const uint8_t* table) : table_(table) {
    for (size_t k = 0; k < kParts; ++k) {
      if constexpr (kHasByteLookup) {
        parts_[k] = LoadU<U8>(table + k * kVectorBytes);
      } else {
        parts_[k] = LoadDup128<U8>(table + 16 * k);
      }
    }
    if constexpr (kHasByteLookup || !kHasTableLookupBytes) return;
    // Differences to the part before, so that those that count add up to the entry; then those of
    // the four parts to others.
    for (size_t k = 0; k < kParts; k += 4) {
      for (size_t i = 3; i > 0; --i) parts_[k + i] ^= parts_[k + i - 1];
    }
    for (size_t i = 0; i < 4; ++i) {
      parts_[12 + i] ^= parts_[8 + i];
      parts_[4 + i] ^= parts_[i];
    }
  }

  QEL_SIMD_INLINE U8 operator()(U8 index) const {
    if constexpr (kHasByteLookup) {
      return IfNegativeThenElse(index, TwoTablesLookupLanes(parts_[2], parts_[3], index),
                                TwoTablesLookupLanes(parts_[0], parts_[1], index));
    } else if constexpr (kHasTableLookupBytes) {
      // Sixteen shuffles by the low halves of the indices. A place with its highest bit set gives
      // 0: of every four parts, those up to the one of bits 4 and 5 count. Bit 6 adds another four.
      const U8 place = index & Set<U8>(0x3F);
      const U8 bit6 = BitCast<U8>(VecFromMask(BitCast<I8>(index + index) < Zero<I8>()));
      const auto entry = [&](size_t k, uint8_t from) {
        return TableLookupBytesOr0(parts_[k + from / 16], place - Set<U8>(from));
      };
      // Shuffles and sums by turns keep all parts of the processor busy: a sixth of the time.
      const auto four = [&](size_t k) {
        U8 sum = entry(k, 0);
        for (uint8_t from = 16; from < 64; from = static_cast<uint8_t>(from + 16)) {
          sum = KeepInRegister(sum ^ entry(k, from));
        }
        return sum;
      };
      const auto eight = [&](size_t k) {
        const U8 sum = four(k);
        return KeepInRegister(sum ^ (four(k + 4) & bit6));
      };
      const U8 below_128 = eight(0);
      return IfNegativeThenElse(index, eight(8), below_128);
    } else {
      return EachLane<U8>([&](uint8_t i) { return table_[i]; }, index);
    }
  }

 private:
  static constexpr size_t kParts = kHasByteLookup ? 4 : kHasTableLookupBytes ? 16 : 0;

  const uint8_t* table_;
  U8 parts_[kParts == 0 ? 1 : kParts];
};

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_SIMD_TABLE_LOOKUP_H_
