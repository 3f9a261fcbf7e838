#ifndef QEL_IMAGE_LINE_LOOKUP_H_
#define QEL_IMAGE_LINE_LOOKUP_H_

#include "image/byte_line.h"
#include "simd/table_lookup.h"

namespace qel::QEL_LEVEL {
namespace {

/// A clamped line, computed for a whole vector of bytes at a time.
class LineLookup {
 public:
  explicit LineLookup(const ByteLine& line)
      : slope_(Set<U16>(line.slope)),
        raise_(Set<U16>(static_cast<uint16_t>(line.offset > 0 ? line.offset : 0))),
        lower_(Set<U16>(static_cast<uint16_t>(line.offset < 0 ? -line.offset : 0))),
        kept_(Set<U16>(line.wraps ? 0x00FF : 0xFFFF)),
        shift_(line.shift) {}

  QEL_SIMD_INLINE U8 operator()(U8 index) const {
    const U8 zero = Zero<U8>();
    return ReorderDemote2To<U8>(At(InterleaveLower(zero, index)), At(InterleaveUpper(zero, index)));
  }

 private:
  QEL_SIMD_INLINE I16 At(U8 times_256) const {
    const U16 products = MulHigh(BitCast<U16>(times_256), slope_);
    const U16 sums = SaturatedSub(SaturatedAdd(products, raise_), lower_);
    return BitCast<I16>(ShiftRightSame(sums, shift_) & kept_);
  }
  U16 slope_, raise_, lower_, kept_;
  int shift_;
};

/// Where the level looks bytes up in a few instructions, no line is worth being looked for, nor where
/// it adds 16 bits one by one.
constexpr bool kPrefersLines = kHasSaturatedWords && !kHasByteLookup;

/// Calls `walk(lookup)` with what is quicker for this map.
template <typename Walk>
QEL_SIMD_INLINE void WithLookup(const ByteMap& map, const Walk& walk) {
  if (kPrefersLines && map.line) return walk(LineLookup(*map.line));
  walk(TableLookup(map.table));
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_IMAGE_LINE_LOOKUP_H_
