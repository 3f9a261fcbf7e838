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
    if constexpr (!kAddsUp) return;
    // Differences, so that those that count add up to the entry.
    for (size_t k = 0; k < kParts; k += 4) {
      parts_[k + 3] = (parts_[k] ^ parts_[k + 1]) ^ (parts_[k + 2] ^ parts_[k + 3]);
      parts_[k + 1] = parts_[k] ^ parts_[k + 1];
      parts_[k + 2] = parts_[k] ^ parts_[k + 2];
    }
  }

  QEL_SIMD_INLINE U8 operator()(U8 index) const {
    if constexpr (kHasByteLookup) {
      return IfNegativeThenElse(index, TwoTablesLookupLanes(parts_[2], parts_[3], index),
                                TwoTablesLookupLanes(parts_[0], parts_[1], index));
    } else if constexpr (kHasTableLookupBytes) {
      // Sixteen shuffles by the low halves of the indices. Bits 4 and 5 of the index say which ones
      // of every four count, bits 6 and 7 which four.
      const auto raised = [&]<int kBits>(std::integral_constant<int, kBits>) {
        return BitCast<U8>(ShiftLeft<kBits>(BitCast<U16>(index)));
      };
      const U8 low = index & Set<U8>(0x0F);
      const auto entry = [&](size_t k, U8 places) {
        return TableLookupBytesOr0(parts_[k], places);
      };
      const auto four = [&](size_t k) {
        if constexpr (kAddsUp) {
          // A place with its highest bit set gives 0.
          const U8 if4 = (index & Set<U8>(0x1F)) - Set<U8>(0x10);
          const U8 if5 = (index & Set<U8>(0x2F)) - Set<U8>(0x20);
          return (entry(k, low) ^ entry(k + 1, if4)) ^
                 (entry(k + 2, if5) ^ entry(k + 3, if4 | if5));
        } else {
          const U8 bit4 = raised(std::integral_constant<int, 3>());
          const U8 bit5 = raised(std::integral_constant<int, 2>());
          const auto pair = [&](size_t i) {
            return IfNegativeThenElse(bit4, entry(i + 1, low), entry(i, low));
          };
          return IfNegativeThenElse(bit5, pair(k + 2), pair(k));
        }
      };
      const U8 bit6 = raised(std::integral_constant<int, 1>());
      const auto eight = [&](size_t k) { return IfNegativeThenElse(bit6, four(k + 4), four(k)); };
      return IfNegativeThenElse(index, eight(8), eight(0));
    } else {
      return EachLane<U8>([&](uint8_t i) { return table_[i]; }, index);
    }
  }

 private:
  /// Blends by masks of bits are quick; those by bytes take as long as three additions.
  static constexpr bool kAddsUp = kHasTableLookupBytes && kVectorBytes < 64;
  static constexpr size_t kParts = kHasByteLookup ? 4 : kHasTableLookupBytes ? 16 : 0;

  const uint8_t* table_;
  U8 parts_[kParts == 0 ? 1 : kParts];
};

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_SIMD_TABLE_LOOKUP_H_
