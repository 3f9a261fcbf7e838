#ifndef QEL_IMAGE_CURVE_LOOKUP_H_
#define QEL_IMAGE_CURVE_LOOKUP_H_

#include "image/byte_curve.h"
#include "image/line_lookup.h"

namespace qel::QEL_LEVEL {
namespace {

/// A curve, computed for a whole vector of bytes at a time. What it takes of the bytes alone is
/// shared by the curves that they go through.
template <bool kHasStart>
class CurveLookup {
 public:
  explicit CurveLookup(const ByteCurve& curve)
      : slopes_(LoadDup128<U8>(curve.slope)),
        bases_(LoadDup128<U8>(curve.base)),
        above_(LoadDup128<U8>(curve.above)),
        above_from_16_(above_ ^ LoadDup128<U8>(curve.above + 16)),
        start_from_16_(LoadDup128<U8>(curve.start + 16)),
        start_(LoadDup128<U8>(curve.start) - start_from_16_) {}

  QEL_SIMD_INLINE U8 operator()(U8 index) const {
    const U8 chord = BitCast<U8>(ShiftRight<4>(BitCast<U16>(index))) & Set<U8>(0x0F);
    // Places in 16ths, those of every other byte at a time: pairs of products are added.
    const U16 places = ShiftLeft<4>(BitCast<U16>(index));
    const I8 slopes = BitCast<I8>(TableLookupBytesOr0(slopes_, chord));
    const auto rises = [&](uint16_t of) {
      return BitCast<U16>(SatWidenMulPairwiseAdd(BitCast<U8>(places & Set<U16>(of)), slopes));
    };
    U8 values = TableLookupBytesOr0(bases_, chord) + BitCast<U8>(ShiftRight<8>(rises(0x00F0))) +
                BitCast<U8>(rises(0xF000) & Set<U16>(0xFF00));
    // A place with its highest bit set gives 0: what counts from 16 on adds to what counts always.
    const U8 below_32 = index & Set<U8>(0x1F);
    const U8 above = TableLookupBytesOr0(above_, below_32) ^
                     TableLookupBytesOr0(above_from_16_, below_32 - Set<U8>(16));
    const U8 bit = TableLookupBytesOr0(LoadU<U8>(kBits.bytes), chord);
    values = IncrementWhere((above & bit) == bit, values);
    if constexpr (!kHasStart) return values;
    return values + TableLookupBytesOr0(start_from_16_, SaturatedAdd(index, Set<U8>(128 - 32))) +
           TableLookupBytesOr0(start_, SaturatedAdd(index, Set<U8>(128 - 16)));
  }

 private:
  /// Two chords for each bit.
  static constexpr auto kBits =
      MakePattern<kVectorBytes>([](size_t i) { return size_t{1} << i % 16 / 2; });

  U8 slopes_, bases_, above_, above_from_16_, start_from_16_, start_;
};

/// Where bytes are shuffled within blocks only, curves are quicker than tables.
constexpr bool kPrefersCurves = kHasTableLookupBytes && !kHasByteLookup;

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_IMAGE_CURVE_LOOKUP_H_
