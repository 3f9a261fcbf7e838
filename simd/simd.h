#ifndef QEL_SIMD_SIMD_H_
#define QEL_SIMD_SIMD_H_

// Vectors for kernel sources, which are compiled once per processor level. A kernel includes this
// header, or one of those that stand on it, and knows neither levels nor instructions.
//
// Types: `U8`, `I8`, `U16`, `I16`, `U32`, `I32`, `U64`, `F32`, `F64` are vectors of as many such
// lanes as a register of the level holds: `U8::kLanes`, `kVectorBytes`. A block is 16 bytes of a
// vector; where a function says so, it works within each block. `Half<V>` has half the lanes of
// `V`, `Block<V>` as many as a block, `kBlockLanes<V>`.
//
// Words: names and the order of arguments are those of the well-known portable library, with the
// type as a template argument in place of a tag.
// - Memory: LoadU<V>(from), StoreU(v, to), LoadDup128<V>(from), LoadBlocks<V>(from, stride),
//   StoreBlocks(v, to, stride), GatherBlocks<V>(address_of), MaskedLoad<V>(mask, from),
//   BlendedStore(v, mask, to), LanesOf(v).at, KeepInRegister(v).
// - Constants: Zero<V>(), Set<V>(value), Iota<V>(first), LanesFrom<V>(of).
// - Lanes: + - * / & | ^ ~, Min, Max, Abs, Sqrt, SaturatedAdd, SaturatedSub, AverageRound, MulHigh,
//   MulAdd, ShiftLeft<bits>(v), ShiftRight<bits>(v), ShiftRightSame(v, bits).
// - Neighbours: SatWidenMulPairwiseAdd(u8, i8), WidenMulPairwiseAdd(i16, i16), SumsOf8(u8).
// - Masks: == != < <= > >= make a `Mask<V>`; & | ^ ~, IfThenElse(mask, yes, no),
//   IfNegativeThenElse(v, yes, no), IncrementWhere(mask, v), DecrementWhere(mask, v),
//   FirstN<V>(count), AllFalse, MaskFromBits<V, bits>(), BitsFromMask, BitsEqual,
//   VecFromMask, RebindMask<To>.
// - Conversions: BitCast<To>(v), ConvertTo<To>(v), ReorderDemote2To<To>(a, b), LowerHalf(v),
//   UpperHalf(v), Combine(upper, lower), ExtractBlock<k>(v).
// - Within blocks: InterleaveLower(a, b), InterleaveUpper(a, b),
//   TableLookupBytesOr0(bytes, places), CombineShiftRightBytes<bytes>(upper, lower).
// - Anywhere: Shuffled<R>(a, b, at), TableLookupLanes(v, places), TwoTablesLookupLanes(a, b,
//   places), NextBlocks(upper, lower).
//
// Every function is there at every level and gives the same, but for the rounding of MulAdd.
// What a level has no instruction for takes as long as plain loops; where another way is
// then quicker, kernels ask, with `if constexpr`, for
// - kHasTableLookupBytes: TableLookupBytesOr0, SatWidenMulPairwiseAdd, shifts of bytes in blocks;
// - kHasByteLookup: TableLookupLanes and TwoTablesLookupLanes of bytes;
// - kHasSaturated16: SaturatedAdd and SaturatedSub of 16 bits;
// - kHasFusedMulAdd: MulAdd rounds once.
//
// Built on these: simd/convert.h (conversions of several steps), simd/interleaved.h (channels apart
// and together), simd/table_lookup.h (tables of 256 bytes), simd/row_walk.h (rows in blocks),
// simd/window.h (rows a vector at a time, windows of a few columns).
//
// The functions stand in simd/levels: vec.h and moves.h in plain C++ for all levels, x86.h and the
// files of the higher levels where the compiler makes too little of that. A new word goes
// into vec.h or moves.h, into the levels that have an instruction, and into
// tests/simd/primitives_kernels.cpp. Everything has internal linkage: the linker must not pick one
// level's copy for all.

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

#if QEL_SIMD_BYTES == 64
#include "simd/levels/avx512.h"
#elif QEL_SIMD_BYTES == 32
#include "simd/levels/avx2.h"
#elif defined(__SSE2__)
#include "simd/levels/x86.h"
#else
#include "simd/levels/moves.h"
#endif

namespace qel::QEL_LEVEL {
namespace {
#if defined(QEL_LEVEL_avx512vbmi)
constexpr bool kHasByteLookup = true;
#else
constexpr bool kHasByteLookup = false;
#endif
constexpr bool kHasTableLookupBytes = kVectorBytes > 16;
#ifdef __SSE2__
constexpr bool kHasSaturated16 = true;
#else
constexpr bool kHasSaturated16 = false;
#endif
constexpr bool kHasFusedMulAdd = kVectorBytes > 16;

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_SIMD_SIMD_H_
