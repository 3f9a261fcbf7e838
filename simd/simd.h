#ifndef QEL_SIMD_SIMD_H_
#define QEL_SIMD_SIMD_H_

// Vectors for kernel sources, which are compiled once per processor level. A kernel includes this
// header, or one of those that stand on it, and knows neither levels nor instructions.
//
// Types. `U8`, `I8`, `U16`, `I16`, `U32`, `I32`, `U64`, `F32`, `F64` are vectors of as many such
// lanes as a register of the level holds: `U8::kLanes`, `kVectorBytes`. A block is 16 bytes of a
// vector; where a function says so, it works within each block. `Half<V>` has half the lanes of
// `V`.
//
// Words. Names and the order of arguments are those of the well-known portable library, with the
// type as a template argument in place of a tag:
//   memory        LoadU<V>(from)  StoreU(v, to)  LoadDup128<V>(from)  LoadBlocks<V>(from, stride)
//                 StoreBlocks(v, to, stride)  MaskedLoad<V>(mask, from)  BlendedStore(v, mask, to)
//   constants     Zero<V>()  Set<V>(value)  Iota<V>(first)
//   lanes         + - * / & | ^ ~  Min Max Abs Sqrt  SaturatedAdd SaturatedSub AverageRound MulHigh
//                 MulAdd MulSub  ShiftLeft<bits> ShiftRight<bits> ShiftRightSame(v, bits)
//   neighbours    SatWidenMulPairwiseAdd(u8, i8)  WidenMulPairwiseAdd(i16, i16)
//                 SumOfMulQuadAccumulate(u8, i8, sum)  SumsOf8(u8)  ReduceSum(v)
//   masks         == != < <= > >= make a `Mask<V>`; & | ^ ~  IfThenElse(mask, yes, no)
//                 IfNegativeThenElse(v, yes, no)  FirstN<V>(count)  BitsFromMask  CountTrue
//                 AllFalse VecFromMask<V>  MaskFromVec  RebindMask<To>
//   conversions   BitCast<To>  ConvertTo<To>  ReorderDemote2To<To>(a, b)  LowerHalf UpperHalf
//   Combine within blocks InterleaveLower InterleaveUpper  TableLookupBytesOr0(bytes, places)
//                 CombineShiftRightBytes<bytes>(upper, lower)
//   anywhere      TableLookupLanes(v, places)  TwoTablesLookupLanes(a, b, places)
//                 NextBlocks(upper, lower)
// Every function is there at every level and gives the same. What a level has no instruction for
// takes as long as plain loops; where another way is then quicker, kernels ask one of
//   kHasTableLookupBytes   TableLookupBytesOr0, SatWidenMulPairwiseAdd and shifts of bytes in
//   blocks kHasByteLookup         TableLookupLanes and TwoTablesLookupLanes of bytes
//   kHasDotProducts        SumOfMulQuadAccumulate
//   kHasMaskedMemory       MaskedLoad, BlendedStore; masks as bits
//   kHasFusedMulAdd        MulAdd and MulSub round once
// by `if constexpr`.
//
// Built on these: simd/interleaved.h (channels apart and together), simd/table_lookup.h (tables of
// 256 bytes), simd/window.h (windows of a few columns), simd/row_walk.h (rows in blocks).
//
// Everything has internal linkage: the linker must not pick one level's copy for all.

#include <cstddef>

#if defined(QEL_LEVEL_avx2)
#define QEL_SIMD_BYTES 32
#elif defined(QEL_LEVEL_avx512) || defined(QEL_LEVEL_avx512vbmi)
#define QEL_SIMD_BYTES 64
#else
#define QEL_SIMD_BYTES 16
#endif
namespace qel::QEL_LEVEL {
namespace {
/// Bytes of a vector.
constexpr size_t kVectorBytes = QEL_SIMD_BYTES;
}  // namespace
}  // namespace qel::QEL_LEVEL

#include "simd/levels/vec.h"
#if QEL_SIMD_BYTES < 64
#include "simd/levels/lane_masks.h"
#endif

#if defined(QEL_LEVEL_avx2)
#include "simd/levels/avx2.h"
#elif defined(QEL_LEVEL_avx512) || defined(QEL_LEVEL_avx512vbmi)
#include "simd/levels/avx512.h"
#elif defined(__SSE2__)
#include "simd/levels/sse2.h"
#endif

namespace qel::QEL_LEVEL {
namespace {
#if defined(QEL_LEVEL_avx512vbmi)
constexpr bool kHasByteLookup = true;
constexpr bool kHasDotProducts = true;
#else
constexpr bool kHasByteLookup = false;
constexpr bool kHasDotProducts = false;
#endif
constexpr bool kHasTableLookupBytes = kVectorBytes > 16;
constexpr bool kHasMaskedMemory = kVectorBytes == 64;
constexpr bool kHasFusedMulAdd = kVectorBytes == 64;
}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_SIMD_SIMD_H_
