#ifndef QEL_SIMD_INTERLEAVED_H_
#define QEL_SIMD_INTERLEAVED_H_

#include "simd/simd.h"

// Elements of 3 or 4 bytes, taken apart into one vector per channel and put together again.

namespace qel::QEL_LEVEL {
namespace {

/// `kSize` bytes, i -> make(i), as a constant.
template <size_t kSize>
struct Pattern {
  alignas(64) uint8_t bytes[kSize];
};
template <size_t kSize, typename Make>
constexpr Pattern<kSize> MakePattern(const Make& make) {
  Pattern<kSize> pattern{};
  for (size_t i = 0; i < kSize; ++i) pattern.bytes[i] = static_cast<uint8_t>(make(i));
  return pattern;
}

// Where bytes of two whole vectors can be looked up, a channel takes two lookups of three vectors,
// or three of four.

template <size_t kChannels, size_t kChannel>
QEL_SIMD_INLINE U8 DeinterleavedChannel(const U8* v) {
  constexpr auto kPlace = [](size_t i) { return kChannels * i + kChannel; };
  const U8 first = Shuffled<U8>(v[0], v[1], [=](size_t i) { return kPlace(i) & 127; });
  if constexpr (kChannels == 3) {
    return Shuffled<U8>(first, v[2],
                        [=](size_t i) { return kPlace(i) < 128 ? i : kPlace(i) - 64; });
  } else {
    const U8 second = Shuffled<U8>(v[2], v[3], [=](size_t i) { return kPlace(i) & 127; });
    return Shuffled<U8>(first, second, [=](size_t i) { return kPlace(i) < 128 ? i : i + 64; });
  }
}
/// Vector `kPart` of a group of elements.
template <size_t kChannels, size_t kPart>
QEL_SIMD_INLINE void StoreInterleavedPart(const U8* channels, uint8_t* to) {
  constexpr auto kElement = [](size_t i) { return (64 * kPart + i) / kChannels; };
  constexpr auto kChannel = [](size_t i) { return (64 * kPart + i) % kChannels; };
  const U8 first = Shuffled<U8>(channels[0], channels[1],
                                [=](size_t i) { return kElement(i) + kChannel(i) % 2 * 64; });
  if constexpr (kChannels == 3) {
    StoreU(Shuffled<U8>(first, channels[2],
                        [=](size_t i) { return kChannel(i) < 2 ? i : 64 + kElement(i); }),
           to + 64 * kPart);
  } else {
    const U8 second = Shuffled<U8>(channels[2], channels[3],
                                   [=](size_t i) { return kElement(i) + kChannel(i) % 2 * 64; });
    StoreU(Shuffled<U8>(first, second, [=](size_t i) { return kChannel(i) < 2 ? i : 64 + i; }),
           to + 64 * kPart);
  }
}

// Elsewhere bytes stay within their block. Sixteen elements are as many blocks of memory as an
// element has bytes, so vector k of a group holds block k of each sixteen.

// Three blocks of 3-byte elements: byte i of block k belongs to channel (k + i) mod 3, and no two
// bytes of a channel share their place in the block. So channels are gathered by two blends and one
// shuffle, and spread in the opposite order.

/// The bytes of `v` at places of class `kClass` modulo 3 in their block, those of `others`
/// elsewhere.
template <size_t kClass>
QEL_SIMD_INLINE U8 TakeClass(U8 others, U8 v) {
  return Shuffled<U8>(others, v,
                      [](size_t i) { return i % 16 % 3 == kClass ? i + U8::kLanes : i; });
}
/// Takes class 0 from `a`, class 1 from `b` and class 2 from `c`.
QEL_SIMD_INLINE U8 MixClasses(U8 a, U8 b, U8 c) { return TakeClass<2>(TakeClass<1>(a, b), c); }

template <size_t kChannel>
constexpr auto kGather = MakePattern<16>([](size_t i) { return (3 * i + kChannel) % 16; });
template <size_t kChannel>
constexpr auto kSpread = MakePattern<16>([](size_t i) { return (i + 16 - kChannel) * 11 % 16; });
constexpr auto kByChannelOf4 = MakePattern<16>([](size_t i) { return i % 4 * 4 + i / 4; });

template <size_t kSize>
QEL_SIMD_INLINE U8 ShuffleBlocks(U8 v, const Pattern<kSize>& places) {
  return TableLookupBytesOr0(v, LoadDup128<U8>(places.bytes));
}

// Where blocks are not shuffled, 3 or 4 of them are one sequence. Interleaved with its second half,
// it has byte p at 2 p, modulo one less than its length, and after four times at 16 p: byte
// n i + c at i + 16 c, channel by channel.

template <size_t kCount>
QEL_SIMD_INLINE void InterleaveHalves(U8* v) {
  if constexpr (kCount == 3) {
    const U64 first = BitCast<U64>(v[0]), second = BitCast<U64>(v[1]), third = BitCast<U64>(v[2]);
    v[0] = InterleaveLower(v[0], BitCast<U8>(InterleaveUpper(second, second)));
    v[1] = InterleaveUpper(BitCast<U8>(first), BitCast<U8>(InterleaveLower(third, third)));
    v[2] = InterleaveLower(BitCast<U8>(second), BitCast<U8>(InterleaveUpper(third, third)));
  } else {
    const U8 first = v[0], second = v[1];
    v[0] = InterleaveLower(first, v[2]);
    v[1] = InterleaveUpper(first, v[2]);
    v[2] = InterleaveLower(second, v[3]);
    v[3] = InterleaveUpper(second, v[3]);
  }
}
/// The way back of three blocks: the bytes at even places, then those at odd ones.
QEL_SIMD_INLINE void EvenThenOdd(U8 (&v)[3]) {
  I16 even[3], odd[3];
  for (size_t k = 0; k < 3; ++k) {
    even[k] = BitCast<I16>(v[k]) & Set<I16>(0xFF);
    odd[k] = BitCast<I16>(ShiftRight<8>(BitCast<U16>(v[k])));
  }
  v[0] = ReorderDemote2To<U8>(even[0], even[1]);
  v[1] = ReorderDemote2To<U8>(even[2], odd[0]);
  v[2] = ReorderDemote2To<U8>(odd[1], odd[2]);
}

/// Takes `kVectorBytes` elements of `kChannels` bytes apart.
template <size_t kChannels>
QEL_SIMD_INLINE void LoadInterleaved(const uint8_t* from, U8* channels) {
  static_assert(kChannels == 3 || kChannels == 4);
  if constexpr (kHasByteLookup) {
    U8 v[kChannels];
    for (size_t k = 0; k < kChannels; ++k) v[k] = LoadU<U8>(from + 64 * k);
    channels[0] = DeinterleavedChannel<kChannels, 0>(v);
    channels[1] = DeinterleavedChannel<kChannels, 1>(v);
    channels[2] = DeinterleavedChannel<kChannels, 2>(v);
    if constexpr (kChannels == 4) channels[3] = DeinterleavedChannel<kChannels, 3>(v);
  } else if constexpr (kHasTableLookupBytes) {
    U8 v[kChannels];
    for (size_t k = 0; k < kChannels; ++k) v[k] = LoadBlocks<U8>(from + 16 * k, 16 * kChannels);
    if constexpr (kChannels == 3) {
      channels[0] = ShuffleBlocks(MixClasses(v[0], v[2], v[1]), kGather<0>);
      channels[1] = ShuffleBlocks(MixClasses(v[1], v[0], v[2]), kGather<1>);
      channels[2] = ShuffleBlocks(MixClasses(v[2], v[1], v[0]), kGather<2>);
    } else {
      U32 by_channel[4];
      for (size_t k = 0; k < 4; ++k)
        by_channel[k] = BitCast<U32>(ShuffleBlocks(v[k], kByChannelOf4));
      const U64 low01 = BitCast<U64>(InterleaveLower(by_channel[0], by_channel[1]));
      const U64 low23 = BitCast<U64>(InterleaveLower(by_channel[2], by_channel[3]));
      const U64 high01 = BitCast<U64>(InterleaveUpper(by_channel[0], by_channel[1]));
      const U64 high23 = BitCast<U64>(InterleaveUpper(by_channel[2], by_channel[3]));
      channels[0] = BitCast<U8>(InterleaveLower(low01, low23));
      channels[1] = BitCast<U8>(InterleaveUpper(low01, low23));
      channels[2] = BitCast<U8>(InterleaveLower(high01, high23));
      channels[3] = BitCast<U8>(InterleaveUpper(high01, high23));
    }
  } else {
    for (size_t k = 0; k < kChannels; ++k) channels[k] = LoadU<U8>(from + 16 * k);
    for (int round = 0; round < 4; ++round) InterleaveHalves<kChannels>(channels);
  }
}

/// The way back.
template <size_t kChannels>
QEL_SIMD_INLINE void StoreInterleaved(const U8* channels, uint8_t* to) {
  static_assert(kChannels == 3 || kChannels == 4);
  if constexpr (kHasByteLookup) {
    StoreInterleavedPart<kChannels, 0>(channels, to);
    StoreInterleavedPart<kChannels, 1>(channels, to);
    StoreInterleavedPart<kChannels, 2>(channels, to);
    if constexpr (kChannels == 4) StoreInterleavedPart<kChannels, 3>(channels, to);
  } else if constexpr (kChannels == 4) {
    const U16 lower01 = BitCast<U16>(InterleaveLower(channels[0], channels[1]));
    const U16 upper01 = BitCast<U16>(InterleaveUpper(channels[0], channels[1]));
    const U16 lower23 = BitCast<U16>(InterleaveLower(channels[2], channels[3]));
    const U16 upper23 = BitCast<U16>(InterleaveUpper(channels[2], channels[3]));
    StoreBlocks(InterleaveLower(lower01, lower23), to, 64);
    StoreBlocks(InterleaveUpper(lower01, lower23), to + 16, 64);
    StoreBlocks(InterleaveLower(upper01, upper23), to + 32, 64);
    StoreBlocks(InterleaveUpper(upper01, upper23), to + 48, 64);
  } else if constexpr (kHasTableLookupBytes) {
    const U8 a = ShuffleBlocks(channels[0], kSpread<0>);
    const U8 b = ShuffleBlocks(channels[1], kSpread<1>);
    const U8 c = ShuffleBlocks(channels[2], kSpread<2>);
    StoreBlocks(MixClasses(a, b, c), to, 48);
    StoreBlocks(MixClasses(b, c, a), to + 16, 48);
    StoreBlocks(MixClasses(c, a, b), to + 32, 48);
  } else {
    U8 bytes[3] = {channels[0], channels[1], channels[2]};
    for (int round = 0; round < 4; ++round) EvenThenOdd(bytes);
    for (size_t k = 0; k < 3; ++k) StoreU(bytes[k], to + 16 * k);
  }
}

template <size_t kTimes, size_t kPart>
constexpr auto kRepeat = MakePattern<kVectorBytes>([](size_t i) {
  constexpr size_t kLookedUp = kHasByteLookup ? 64 : 16;
  return (kPart * kVectorBytes + i) % (kLookedUp * kTimes) / kTimes;
});
/// Vector `kPart` of the bytes of `v`, each repeated `kTimes` times: 1, 3 or 4.
template <size_t kTimes, size_t kPart>
QEL_SIMD_INLINE U8 Repeated(U8 v) {
  if constexpr (kTimes == 1) {
    return v;
  } else if constexpr (kHasByteLookup) {
    return TableLookupLanes(v, LoadU<U8>(kRepeat<kTimes, kPart>.bytes));
  } else if constexpr (kHasTableLookupBytes) {
    // Every block makes `kTimes` of them.
    const U32 words = BitCast<U32>(v);
    const U32 blocks = Shuffled<U32>(words, words, [](size_t i) {
      return (kPart * kVectorBytes / 16 + i / 4) / kTimes * 4 + i % 4;
    });
    return TableLookupBytesOr0(BitCast<U8>(blocks), LoadU<U8>(kRepeat<kTimes, kPart>.bytes));
  } else if constexpr (kTimes == 4) {
    const U16 pairs = BitCast<U16>(kPart < 2 ? InterleaveLower(v, v) : InterleaveUpper(v, v));
    return BitCast<U8>(kPart % 2 == 0 ? InterleaveLower(pairs, pairs)
                                      : InterleaveUpper(pairs, pairs));
  } else {
    U8 bytes[3] = {v, v, v};
    for (int round = 0; round < 4; ++round) EvenThenOdd(bytes);
    return bytes[kPart];
  }
}
/// Stores elements of 3 bytes that are all the same.
QEL_SIMD_INLINE void StoreRepeated3(U8 v, uint8_t* to) {
  StoreU(Repeated<3, 0>(v), to);
  StoreU(Repeated<3, 1>(v), to + kVectorBytes);
  StoreU(Repeated<3, 2>(v), to + 2 * kVectorBytes);
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_SIMD_INTERLEAVED_H_
