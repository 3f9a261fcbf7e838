#ifndef QEL_IMAGE_LINE_LOOKUP_H_
#define QEL_IMAGE_LINE_LOOKUP_H_

#include "image/byte_line.h"
#include "simd/table_lookup.h"

namespace qel::QEL_LEVEL {
namespace {

/// Which steps a line takes. Offsets are added or subtracted; only what wraps is cut off.
enum class LineSteps { kRaises, kLowers, kAll };

/// A clamped line, computed for a whole vector of bytes at a time.
template <LineSteps kSteps>
class LineLookup {
 public:
  explicit LineLookup(const ByteLine& line)
      : slope_(Set<U16>(line.slope)),
        raise_(Set<U16>(static_cast<uint16_t>(line.offset > 0 ? line.offset : 0))),
        lower_(Set<U16>(static_cast<uint16_t>(line.offset < 0 ? -line.offset : 0))),
        unit_(Set<U16>(static_cast<uint16_t>(1 << (16 - line.shift)))) {}

  QEL_SIMD_INLINE U8 operator()(U8 index) const {
    const U8 zero = Zero<U8>();
    return ReorderDemote2To<U8>(At(InterleaveLower(zero, index)), At(InterleaveUpper(zero, index)));
  }

 private:
  QEL_SIMD_INLINE I16 At(U8 times_256) const {
    U16 sums = MulHigh(BitCast<U16>(times_256), slope_);
    if constexpr (kSteps != LineSteps::kLowers) sums = SaturatedAdd(sums, raise_);
    if constexpr (kSteps != LineSteps::kRaises) sums = SaturatedSub(sums, lower_);
    // A shift by a number that is not known before takes two steps, a product one.
    const U16 values = MulHigh(sums, unit_);
    return BitCast<I16>(kSteps == LineSteps::kAll ? values & Set<U16>(0xFF) : values);
  }
  U16 slope_, raise_, lower_, unit_;
};

/// Where the level looks bytes up in a few instructions, no line is worth being looked for, nor
/// where it adds 16 bits one by one.
constexpr bool kPrefersLines = kHasSaturated16 && !kHasByteLookup;

/// Calls `walk(lookup)` with what is quicker for this map.
template <typename Walk>
QEL_SIMD_INLINE void WithLookup(const ByteMap& map, const Walk& walk) {
  if (kPrefersLines && map.line) {
    if (map.line->wraps) return walk(LineLookup<LineSteps::kAll>(*map.line));
    if (map.line->offset < 0) return walk(LineLookup<LineSteps::kLowers>(*map.line));
    return walk(LineLookup<LineSteps::kRaises>(*map.line));
  }
  walk(TableLookup(map.table));
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_IMAGE_LINE_LOOKUP_H_
