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
  }

  QEL_SIMD_INLINE U8 operator()(U8 index) const {
    if constexpr (kHasByteLookup) {
      return IfNegativeThenElse(index, TwoTablesLookupLanes(parts_[2], parts_[3], index),
                                TwoTablesLookupLanes(parts_[0], parts_[1], index));
    } else if constexpr (kHasTableLookupBytes) {
      // Sixteen shuffles by the low halves of the indices, of whose results the bits of the high
      // halves choose one.
      const U8 low = index & Set<U8>(0x0F);
      const auto raised = [&]<int kBits>(std::integral_constant<int, kBits>) {
        return BitCast<U8>(ShiftLeft<kBits>(BitCast<U16>(index)));
      };
      const U8 bit4 = raised(std::integral_constant<int, 3>());
      const U8 bit5 = raised(std::integral_constant<int, 2>());
      const U8 bit6 = raised(std::integral_constant<int, 1>());
      const auto entry = [&](size_t k) { return TableLookupBytesOr0(parts_[k], low); };
      const auto pair = [&](size_t k) { return IfNegativeThenElse(bit4, entry(k + 1), entry(k)); };
      const auto four = [&](size_t k) { return IfNegativeThenElse(bit5, pair(k + 2), pair(k)); };
      const auto eight = [&](size_t k) { return IfNegativeThenElse(bit6, four(k + 4), four(k)); };
      return IfNegativeThenElse(index, eight(8), eight(0));
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
