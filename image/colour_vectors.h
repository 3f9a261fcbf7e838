#ifndef QEL_IMAGE_COLOUR_VECTORS_H_
#define QEL_IMAGE_COLOUR_VECTORS_H_

#include <cstddef>
#include <cstdint>

// Vectors of bytes for kernel sources, at the level that QEL_LEVEL names: table lookup, and pixels
// taken apart into one vector per channel. The lowest level has none and keeps to plain loops.
// Everything has internal linkage.

#ifndef QEL_LEVEL_sse2
#define QEL_HAS_COLOUR_VECTORS 1
#include <immintrin.h>

#include "simd/fetch.h"

namespace qel::QEL_LEVEL {
namespace {

// Instructions that exist in both widths, under one name. "Lane" is a group of sixteen bytes.

#ifdef QEL_LEVEL_avx2
using Vector = __m256i;
inline Vector Load(const uint8_t* from) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from));
}
inline void Store(uint8_t* to, Vector v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), v); }
inline Vector FillLanes(const uint8_t* lane) {
  return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(lane)));
}
inline Vector FillBytes(int byte) { return _mm256_set1_epi8(static_cast<char>(byte)); }
inline Vector FillWords(int word) { return _mm256_set1_epi16(static_cast<short>(word)); }
inline Vector FillDwords(uint32_t dword) { return _mm256_set1_epi32(static_cast<int>(dword)); }
inline Vector ShuffleLanes(Vector v, Vector index) { return _mm256_shuffle_epi8(v, index); }
inline Vector AddUnsigned(Vector a, Vector b) { return _mm256_adds_epu8(a, b); }
inline Vector SubtractUnsigned(Vector a, Vector b) { return _mm256_subs_epu8(a, b); }
inline Vector Max(Vector a, Vector b) { return _mm256_max_epu8(a, b); }
inline Vector Min(Vector a, Vector b) { return _mm256_min_epu8(a, b); }
inline Vector Average(Vector a, Vector b) { return _mm256_avg_epu8(a, b); }
inline Vector PairLow(Vector a, Vector b) { return _mm256_unpacklo_epi8(a, b); }
inline Vector PairHigh(Vector a, Vector b) { return _mm256_unpackhi_epi8(a, b); }
inline Vector PairWordsLow(Vector a, Vector b) { return _mm256_unpacklo_epi16(a, b); }
inline Vector PairWordsHigh(Vector a, Vector b) { return _mm256_unpackhi_epi16(a, b); }
/// Sums of two products in words, of unsigned bytes with signed ones.
inline Vector SumPairs(Vector a, Vector b) { return _mm256_maddubs_epi16(a, b); }
inline Vector AddWords(Vector a, Vector b) { return _mm256_add_epi16(a, b); }
inline Vector SumWordPairs(Vector a, Vector b) { return _mm256_madd_epi16(a, b); }
inline Vector AddDwords(Vector a, Vector b) { return _mm256_add_epi32(a, b); }
template <int kBits>
inline Vector ShiftDwords(Vector v) {
  return _mm256_srli_epi32(v, kBits);
}
inline Vector PackDwords(Vector low, Vector high) { return _mm256_packs_epi32(low, high); }
inline Vector HighProducts(Vector a, Vector b) { return _mm256_mulhi_epu16(a, b); }
/// Bit `kBit` of every byte, for `Choose`, which takes `set` where it is set.
template <int kBit>
Vector IndexBit(Vector v) {
  return _mm256_slli_epi16(v, 7 - kBit);
}
inline Vector Choose(Vector bit, Vector clear, Vector set) {
  return _mm256_blendv_epi8(clear, set, bit);
}
template <int kBits>
Vector ShiftWords(Vector v) {
  return _mm256_srli_epi16(v, kBits);
}
inline Vector PackWords(Vector low, Vector high) { return _mm256_packus_epi16(low, high); }
/// All bits of the words that are above their limit.
inline Vector WordsAbove(Vector v, Vector limit) { return _mm256_cmpgt_epi16(v, limit); }
inline Vector PackMasks(Vector low, Vector high) { return _mm256_packs_epi16(low, high); }
#else
using Vector = __m512i;
inline Vector Load(const uint8_t* from) { return _mm512_loadu_si512(from); }
inline void Store(uint8_t* to, Vector v) { _mm512_storeu_si512(to, v); }
inline Vector FillLanes(const uint8_t* lane) {
  return _mm512_broadcast_i32x4(_mm_loadu_si128(reinterpret_cast<const __m128i*>(lane)));
}
inline Vector FillBytes(int byte) { return _mm512_set1_epi8(static_cast<char>(byte)); }
inline Vector FillWords(int word) { return _mm512_set1_epi16(static_cast<short>(word)); }
inline Vector FillDwords(uint32_t dword) { return _mm512_set1_epi32(static_cast<int>(dword)); }
inline Vector ShuffleLanes(Vector v, Vector index) { return _mm512_shuffle_epi8(v, index); }
inline Vector AddUnsigned(Vector a, Vector b) { return _mm512_adds_epu8(a, b); }
inline Vector SubtractUnsigned(Vector a, Vector b) { return _mm512_subs_epu8(a, b); }
inline Vector Max(Vector a, Vector b) { return _mm512_max_epu8(a, b); }
inline Vector Min(Vector a, Vector b) { return _mm512_min_epu8(a, b); }
inline Vector Average(Vector a, Vector b) { return _mm512_avg_epu8(a, b); }
inline Vector PairLow(Vector a, Vector b) { return _mm512_unpacklo_epi8(a, b); }
inline Vector PairHigh(Vector a, Vector b) { return _mm512_unpackhi_epi8(a, b); }
inline Vector PairWordsLow(Vector a, Vector b) { return _mm512_unpacklo_epi16(a, b); }
inline Vector PairWordsHigh(Vector a, Vector b) { return _mm512_unpackhi_epi16(a, b); }
inline Vector SumPairs(Vector a, Vector b) { return _mm512_maddubs_epi16(a, b); }
inline Vector AddWords(Vector a, Vector b) { return _mm512_add_epi16(a, b); }
inline Vector SumWordPairs(Vector a, Vector b) { return _mm512_madd_epi16(a, b); }
inline Vector AddDwords(Vector a, Vector b) { return _mm512_add_epi32(a, b); }
template <int kBits>
inline Vector ShiftDwords(Vector v) {
  return _mm512_srli_epi32(v, kBits);
}
inline Vector PackDwords(Vector low, Vector high) { return _mm512_packs_epi32(low, high); }
inline Vector HighProducts(Vector a, Vector b) { return _mm512_mulhi_epu16(a, b); }
template <int kBit>
__mmask64 IndexBit(Vector v) {
  return _mm512_movepi8_mask(_mm512_slli_epi16(v, 7 - kBit));
}
inline Vector Choose(__mmask64 bit, Vector clear, Vector set) {
  return _mm512_mask_blend_epi8(bit, clear, set);
}
template <int kBits>
Vector ShiftWords(Vector v) {
  return _mm512_srli_epi16(v, kBits);
}
inline Vector PackWords(Vector low, Vector high) { return _mm512_packus_epi16(low, high); }
inline Vector WordsAbove(Vector v, Vector limit) {
  return _mm512_movm_epi16(_mm512_cmpgt_epi16_mask(v, limit));
}
inline Vector PackMasks(Vector low, Vector high) { return _mm512_packs_epi16(low, high); }
#endif

/// Bytes of a vector, which is also the number of pixels taken apart at a time.
constexpr size_t kVectorBytes = sizeof(Vector);

/// Bytes of one lane or of one vector that tell a shuffle what to move where.
template <size_t kSize>
struct Pattern {
  alignas(64) uint8_t bytes[kSize];
};

#ifdef QEL_LEVEL_avx512vbmi

/// A table of 256 bytes, looked up for a whole vector at a time.
class TableLookup {
 public:
  explicit TableLookup(const uint8_t* table)
      : parts_{Load(table), Load(table + 64), Load(table + 128), Load(table + 192)} {}

  Vector operator()(Vector index) const {
    const Vector low = _mm512_permutex2var_epi8(parts_[0], index, parts_[1]);
    const Vector high = _mm512_permutex2var_epi8(parts_[2], index, parts_[3]);
    return _mm512_mask_blend_epi8(_mm512_movepi8_mask(index), low, high);
  }

 private:
  Vector parts_[4];
};

// Byte permutes reach two whole vectors. Positions are counted over the pixels of one block:
// position 128 and above lie in the second pair of vectors.

template <size_t kBytes, size_t kChannel>
constexpr Pattern<64> kTakeApart = [] {
  Pattern<64> pattern{};
  for (size_t i = 0; i < 64; ++i) pattern.bytes[i] = (i * kBytes + kChannel) & 127;
  return pattern;
}();
template <size_t kBytes, size_t kChannel>
constexpr __mmask64 kFromSecondPair = [] {
  __mmask64 mask = 0;
  for (size_t i = 0; i < 64; ++i) mask |= __mmask64{i * kBytes + kChannel >= 128} << i;
  return mask;
}();
template <size_t kBytes, size_t kChannel>
Vector TakeApart(const Vector* v) {
  const Vector index = Load(kTakeApart<kBytes, kChannel>.bytes);
  const Vector first = _mm512_permutex2var_epi8(v[0], index, v[1]);
  const Vector second = kBytes == 3 ? _mm512_permutexvar_epi8(index, v[2])
                                    : _mm512_permutex2var_epi8(v[2], index, v[kBytes - 1]);
  return _mm512_mask_blend_epi8((kFromSecondPair<kBytes, kChannel>), first, second);
}

/// Vector `kPart` of a block: blue and green, or red and alpha, of these pixels.
template <size_t kBytes, size_t kPart>
constexpr Pattern<64> kPutTogether = [] {
  Pattern<64> pattern{};
  for (size_t i = 0; i < 64; ++i) {
    const size_t position = 64 * kPart + i;
    pattern.bytes[i] = position / kBytes | (position % kBytes % 2 == 1 ? 64 : 0);
  }
  return pattern;
}();
template <size_t kBytes, size_t kPart>
constexpr __mmask64 kIsRedOrAlpha = [] {
  __mmask64 mask = 0;
  for (size_t i = 0; i < 64; ++i) mask |= __mmask64{(64 * kPart + i) % kBytes >= 2} << i;
  return mask;
}();
template <size_t kBytes, size_t kPart>
void PutTogether(uint8_t* to, const Vector* channels) {
  const Vector index = Load(kPutTogether<kBytes, kPart>.bytes);
  const Vector first = _mm512_permutex2var_epi8(channels[0], index, channels[1]);
  const Vector second = kBytes == 3
                            ? _mm512_permutexvar_epi8(index, channels[2])
                            : _mm512_permutex2var_epi8(channels[2], index, channels[kBytes - 1]);
  Store(to + 64 * kPart, _mm512_mask_blend_epi8((kIsRedOrAlpha<kBytes, kPart>), first, second));
}

/// Takes 64 pixels apart into blue, green, red and, of 4-byte pixels, alpha.
template <size_t kBytes>
void LoadPixels(const uint8_t* from, Vector* channels) {
  Vector v[kBytes];
  for (size_t k = 0; k < kBytes; ++k) v[k] = Load(from + 64 * k);
  channels[0] = TakeApart<kBytes, 0>(v);
  channels[1] = TakeApart<kBytes, 1>(v);
  channels[2] = TakeApart<kBytes, 2>(v);
  if constexpr (kBytes == 4) channels[3] = TakeApart<kBytes, 3>(v);
}
/// The way back.
template <size_t kBytes>
void StorePixels(uint8_t* to, const Vector* channels) {
  PutTogether<kBytes, 0>(to, channels);
  PutTogether<kBytes, 1>(to, channels);
  PutTogether<kBytes, 2>(to, channels);
  if constexpr (kBytes == 4) PutTogether<kBytes, 3>(to, channels);
}
/// Part `kPart` of a block of pixels.
template <size_t kBytes, size_t kPart>
Vector LoadPart(const uint8_t* from) {
  return Load(from + 64 * kPart);
}
template <size_t kBytes, size_t kPart>
void StorePart(uint8_t* to, Vector v) {
  Store(to + 64 * kPart, v);
}
/// The bytes of `v`, each repeated over its pixel, as part `kPart` of a block.
template <size_t kBytes, size_t kPart>
constexpr Pattern<64> kRepeat = [] {
  Pattern<64> pattern{};
  for (size_t i = 0; i < 64; ++i) pattern.bytes[i] = (64 * kPart + i) / kBytes;
  return pattern;
}();
template <size_t kBytes, size_t kPart>
Vector Repeat(Vector v) {
  return _mm512_permutexvar_epi8(Load(kRepeat<kBytes, kPart>.bytes), v);
}

#else

/// A table of 256 bytes, looked up for a whole vector at a time: sixteen shuffles by the low halves
/// of the indices, of whose results the bits of the high halves choose one.
class TableLookup {
 public:
  explicit TableLookup(const uint8_t* table) {
    for (size_t k = 0; k < 16; ++k) parts_[k] = FillLanes(table + 16 * k);
  }

  Vector operator()(Vector index) const {
    const Vector low = index & FillBytes(0x0F);
    const auto bit4 = IndexBit<4>(index);
    const auto bit5 = IndexBit<5>(index);
    const auto bit6 = IndexBit<6>(index);
    const auto entry = [&](size_t k) { return ShuffleLanes(parts_[k], low); };
    const auto pair = [&](size_t k) { return Choose(bit4, entry(k), entry(k + 1)); };
    const auto four = [&](size_t k) { return Choose(bit5, pair(k), pair(k + 2)); };
    const auto eight = [&](size_t k) { return Choose(bit6, four(k), four(k + 4)); };
    return Choose(IndexBit<7>(index), eight(0), eight(8));
  }

 private:
  Vector parts_[16];
};

// Shuffles stay within a lane. A lane of pixels is sixteen of them: as many lanes of memory as a
// pixel has bytes, so vector k of a block holds lane k of each group of sixteen pixels.

#ifdef QEL_LEVEL_avx2
template <size_t kBytes>
Vector LoadLanes(const uint8_t* from) {
  const auto* const lanes = reinterpret_cast<const __m128i*>(from);
  return _mm256_set_m128i(_mm_loadu_si128(lanes + kBytes), _mm_loadu_si128(lanes));
}
template <size_t kBytes>
void StoreLanes(uint8_t* to, Vector v) {
  auto* const lanes = reinterpret_cast<__m128i*>(to);
  _mm_storeu_si128(lanes, _mm256_castsi256_si128(v));
  _mm_storeu_si128(lanes + kBytes, _mm256_extracti128_si256(v, 1));
}
inline Vector PairDwordsLow(Vector a, Vector b) { return _mm256_unpacklo_epi32(a, b); }
inline Vector PairDwordsHigh(Vector a, Vector b) { return _mm256_unpackhi_epi32(a, b); }
inline Vector PairQwordsLow(Vector a, Vector b) { return _mm256_unpacklo_epi64(a, b); }
inline Vector PairQwordsHigh(Vector a, Vector b) { return _mm256_unpackhi_epi64(a, b); }
#else
template <size_t kBytes>
Vector LoadLanes(const uint8_t* from) {
  const auto* const lanes = reinterpret_cast<const __m128i*>(from);
  Vector v = _mm512_castsi128_si512(_mm_loadu_si128(lanes));
  v = _mm512_inserti32x4(v, _mm_loadu_si128(lanes + kBytes), 1);
  v = _mm512_inserti32x4(v, _mm_loadu_si128(lanes + 2 * kBytes), 2);
  return _mm512_inserti32x4(v, _mm_loadu_si128(lanes + 3 * kBytes), 3);
}
template <size_t kBytes>
void StoreLanes(uint8_t* to, Vector v) {
  auto* const lanes = reinterpret_cast<__m128i*>(to);
  _mm_storeu_si128(lanes, _mm512_castsi512_si128(v));
  _mm_storeu_si128(lanes + kBytes, _mm512_extracti32x4_epi32(v, 1));
  _mm_storeu_si128(lanes + 2 * kBytes, _mm512_extracti32x4_epi32(v, 2));
  _mm_storeu_si128(lanes + 3 * kBytes, _mm512_extracti32x4_epi32(v, 3));
}
inline Vector PairDwordsLow(Vector a, Vector b) { return _mm512_unpacklo_epi32(a, b); }
inline Vector PairDwordsHigh(Vector a, Vector b) { return _mm512_unpackhi_epi32(a, b); }
inline Vector PairQwordsLow(Vector a, Vector b) { return _mm512_unpacklo_epi64(a, b); }
inline Vector PairQwordsHigh(Vector a, Vector b) { return _mm512_unpackhi_epi64(a, b); }
#endif

/// The bytes of `v` at the lane positions of class `kClass` modulo 3, those of `others` elsewhere.
template <size_t kClass>
Vector TakeClass(Vector others, Vector v) {
#ifdef QEL_LEVEL_avx2
  static constexpr Pattern<16> kTaken = [] {
    Pattern<16> pattern{};
    for (size_t i = kClass; i < 16; i += 3) pattern.bytes[i] = 0xFF;
    return pattern;
  }();
  return _mm256_blendv_epi8(others, v, FillLanes(kTaken.bytes));
#else
  constexpr __mmask64 kLane = 0x9249u << kClass & 0xFFFFu;
  return _mm512_mask_blend_epi8(kLane | kLane << 16 | kLane << 32 | kLane << 48, others, v);
#endif
}
/// Takes class 0 from `a`, class 1 from `b` and class 2 from `c`.
inline Vector MixClasses(Vector a, Vector b, Vector c) {
  return TakeClass<2>(TakeClass<1>(a, b), c);
}

// Three lanes of 3-byte pixels: byte i of lane k belongs to channel (k + i) mod 3, and no two bytes
// of a channel share their place in the lane. So channels are gathered by two blends and one
// shuffle, and spread in the opposite order.

template <size_t kChannel>
constexpr Pattern<16> kGather = [] {
  Pattern<16> pattern{};
  for (size_t i = 0; i < 16; ++i) pattern.bytes[i] = (3 * i + kChannel) % 16;
  return pattern;
}();
template <size_t kChannel>
constexpr Pattern<16> kSpread = [] {
  Pattern<16> pattern{};
  for (size_t i = 0; i < 16; ++i) pattern.bytes[(3 * i + kChannel) % 16] = i;
  return pattern;
}();
constexpr Pattern<16> kByChannel = {{0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15}};

/// Takes pixels apart into blue, green, red and, of 4-byte pixels, alpha.
template <size_t kBytes>
void LoadPixels(const uint8_t* from, Vector* channels) {
  Vector v[kBytes];
  for (size_t k = 0; k < kBytes; ++k) v[k] = LoadLanes<kBytes>(from + 16 * k);
  if constexpr (kBytes == 3) {
    channels[0] = ShuffleLanes(MixClasses(v[0], v[2], v[1]), FillLanes(kGather<0>.bytes));
    channels[1] = ShuffleLanes(MixClasses(v[1], v[0], v[2]), FillLanes(kGather<1>.bytes));
    channels[2] = ShuffleLanes(MixClasses(v[2], v[1], v[0]), FillLanes(kGather<2>.bytes));
  } else {
    for (Vector& part : v) part = ShuffleLanes(part, FillLanes(kByChannel.bytes));
    const Vector low01 = PairDwordsLow(v[0], v[1]);
    const Vector low23 = PairDwordsLow(v[2], v[3]);
    const Vector high01 = PairDwordsHigh(v[0], v[1]);
    const Vector high23 = PairDwordsHigh(v[2], v[3]);
    channels[0] = PairQwordsLow(low01, low23);
    channels[1] = PairQwordsHigh(low01, low23);
    channels[2] = PairQwordsLow(high01, high23);
    channels[3] = PairQwordsHigh(high01, high23);
  }
}
/// The way back.
template <size_t kBytes>
void StorePixels(uint8_t* to, const Vector* channels) {
  if constexpr (kBytes == 3) {
    const Vector b = ShuffleLanes(channels[0], FillLanes(kSpread<0>.bytes));
    const Vector g = ShuffleLanes(channels[1], FillLanes(kSpread<1>.bytes));
    const Vector r = ShuffleLanes(channels[2], FillLanes(kSpread<2>.bytes));
    StoreLanes<3>(to, MixClasses(b, g, r));
    StoreLanes<3>(to + 16, MixClasses(g, r, b));
    StoreLanes<3>(to + 32, MixClasses(r, b, g));
  } else {
    const Vector bg_low = PairLow(channels[0], channels[1]);
    const Vector bg_high = PairHigh(channels[0], channels[1]);
    const Vector ra_low = PairLow(channels[2], channels[3]);
    const Vector ra_high = PairHigh(channels[2], channels[3]);
    StoreLanes<4>(to, PairWordsLow(bg_low, ra_low));
    StoreLanes<4>(to + 16, PairWordsHigh(bg_low, ra_low));
    StoreLanes<4>(to + 32, PairWordsLow(bg_high, ra_high));
    StoreLanes<4>(to + 48, PairWordsHigh(bg_high, ra_high));
  }
}
/// Part `kPart` of a block of pixels: the lanes `kBytes` apart.
template <size_t kBytes, size_t kPart>
Vector LoadPart(const uint8_t* from) {
  return LoadLanes<kBytes>(from + 16 * kPart);
}
template <size_t kBytes, size_t kPart>
void StorePart(uint8_t* to, Vector v) {
  StoreLanes<kBytes>(to + 16 * kPart, v);
}
/// The bytes of `v`, each repeated over its pixel, as part `kPart` of a block.
template <size_t kBytes, size_t kPart>
constexpr Pattern<16> kRepeat = [] {
  Pattern<16> pattern{};
  for (size_t i = 0; i < 16; ++i) pattern.bytes[i] = (16 * kPart + i) / kBytes;
  return pattern;
}();
template <size_t kBytes, size_t kPart>
Vector Repeat(Vector v) {
  return ShuffleLanes(v, FillLanes(kRepeat<kBytes, kPart>.bytes));
}

#endif

/// Writes 3-byte pixels whose channels are all `grey`.
inline void StoreGreyPixels(uint8_t* to, Vector grey) {
  StorePart<3, 0>(to, Repeat<3, 0>(grey));
  StorePart<3, 1>(to, Repeat<3, 1>(grey));
  StorePart<3, 2>(to, Repeat<3, 2>(grey));
}

/// The sums of the three colour channels, in words of the order that `PackWords` restores.
struct ChannelSums {
  explicit ChannelSums(const Vector* channels) {
    const Vector ones = FillBytes(1);
    const Vector zero = FillBytes(0);
    low = AddWords(SumPairs(PairLow(channels[0], channels[1]), ones), PairLow(channels[2], zero));
    high =
        AddWords(SumPairs(PairHigh(channels[0], channels[1]), ones), PairHigh(channels[2], zero));
  }
  Vector low, high;
};

/// The upper half of a product with it is a third, truncated: exact for sums of three bytes.
constexpr int kThird = 21846;

/// Rows that are walked in blocks, by the bytes of one unit. Blocks may read `kAhead` bytes past
/// their units. With `kAlone` false, blocks read what they write to as well.
template <size_t kBytes, size_t kAhead = 0, bool kAlone = true>
struct From {
  static constexpr size_t kUnitBytes = kBytes;
  /// The next page is fetched: with several streams, or where more is written than read, that costs
  /// more than it gives.
  template <size_t kToBytes>
  static constexpr bool kFetched = kBytes >= kToBytes&& kAlone;
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
/// of the rows, so that nothing beyond them is touched. Blocks may read what `to` holds.
template <size_t kUnits, size_t kToBytes, typename... Sources, typename Block>
inline void WalkBlocks(size_t count, Block&& block, To<kToBytes> to, Sources... from) {
  for (; count >= kUnits; count -= kUnits) {
    if constexpr (sizeof...(Sources) == 1 && (... && Sources::template kFetched<kToBytes>)) {
      (FetchAhead<Sources::kUnitBytes * kUnits>(from.at), ...);
    }
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

#endif

#endif  // QEL_IMAGE_COLOUR_VECTORS_H_
