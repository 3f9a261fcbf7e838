#ifndef QEL_TRANSFORM_WORD_VECTORS_H_
#define QEL_TRANSFORM_WORD_VECTORS_H_

#include <type_traits>

#include "simd/interleaved.h"
#include "simd/prefetch.h"

// Pixels and their taps as 32-bit lanes. Every lane rounds as a single number would. Everything has
// internal linkage.

namespace qel::QEL_LEVEL {
namespace {

/// Loads `count` bytes into the beginning of a vector.
QEL_SIMD_INLINE U8 LoadFirst(const uint8_t* bytes, int64_t count) {
  return count > 0 ? MaskedLoad<U8>(FirstN<U8>(static_cast<size_t>(count)), bytes) : Zero<U8>();
}

/// Words of `kBytes` bytes (1 or 4) at scattered offsets. Loads of their own start earlier than
/// those of a gather instruction, and blocks of four join sooner than a chain of sixteen.
template <int kBytes>
QEL_SIMD_INLINE U32 GatherWords(const uint8_t* source, const int32_t* offsets) {
  Block<U32> blocks[kVectorBytes / 16];
  for (size_t b = 0; b < kVectorBytes / 16; ++b) {
    const auto at = [=](size_t i) { return source + offsets[4 * b + i]; };
    if constexpr (kBytes == 1) {
      Block<U8> bytes = Zero<Block<U8>>();
      bytes.raw[0] = *at(0);
      bytes.raw[4] = *at(1);
      bytes.raw[8] = *at(2);
      bytes.raw[12] = *at(3);
      blocks[b] = BitCast<Block<U32>>(bytes);
    } else {
      blocks[b] = LanesFrom<Block<U32>>([=](size_t i) {
        uint32_t word;
        __builtin_memcpy(&word, at(i), sizeof(word));
        return word;
      });
    }
  }
  return GatherBlocks<U32>([&](size_t b) { return reinterpret_cast<const uint8_t*>(blocks + b); });
}

/// Stores pixel_at(0), pixel_at(1), ... as pixels of `kBytes` bytes, one by one, but without a
/// branch for each: neither loads nor stores wait for each other. With `kMore` another pixel comes
/// behind them, whose first byte may be overwritten.
template <int kBytes, bool kMore = false, typename PixelAt>
QEL_SIMD_INLINE void CopyScatteredPixels(uint8_t* dest, size_t count, const PixelAt& pixel_at) {
  const auto store = [&](size_t i, size_t bytes) {
    const uint32_t pixel = pixel_at(i);
    __builtin_memcpy(dest + kBytes * i, &pixel, bytes);
  };
  // Four bytes are stored for three: the next pixel overwrites the last one.
  constexpr size_t kStored = kBytes == 3 ? 4 : kBytes;
  size_t i = 0;
  for (; i + 8 < count + kMore; i += 8) {
    store(i, kStored);
    store(i + 1, kStored);
    store(i + 2, kStored);
    store(i + 3, kStored);
    store(i + 4, kStored);
    store(i + 5, kStored);
    store(i + 6, kStored);
    store(i + 7, kStored);
  }
  for (; i + 1 < count; ++i) store(i, kStored);
  if (i < count) store(i, kBytes);
}

/// Pixels of a line that are looked for, fetched and copied by turns: few enough for the processor
/// to do that with several groups at once.
constexpr size_t kLineGroup = 64;
/// Lines of the cache hold more pixels than these, but lines across rows leave them soon.
constexpr int kFetchShift = 2;
constexpr size_t kPixelsPerFetch = 1 << kFetchShift;

/// Has the memory bring every `kPixelsPerFetch`th of up to `kLineGroup` pixels: offsets_of(numbers)
/// is where those of these numbers are, of which the first is `first`.
template <typename OffsetsOf>
QEL_SIMD_INLINE void PrefetchGroup(const uint8_t* source, int32_t first, size_t count,
                                   const OffsetsOf& offsets_of) {
  int32_t offsets[kLineGroup / kPixelsPerFetch];
  for (size_t i = 0; i * kPixelsPerFetch < count; i += I32::kLanes) {
    const I32 numbers = ShiftLeft<kFetchShift>(Iota<I32>(static_cast<int32_t>(i)));
    StoreU(offsets_of(numbers + Set<I32>(first)), offsets + i);
  }
  for (size_t i = 0; i * kPixelsPerFetch < count; ++i) PrefetchLine(source + offsets[i]);
}

/// Copies pixels `first` and on of a line: offsets_of(numbers) is where those of these numbers are,
/// fetched_of(numbers) where those of a later line are, which the memory brings meanwhile if they
/// have more than a byte. Pixels of 3 bytes are read together with the byte behind them.
template <int kBytes, typename OffsetsOf, typename FetchedOf, typename Changed>
QEL_SIMD_INLINE void CopyLinePixels(uint8_t* dest, const uint8_t* source, int32_t first,
                                    size_t count, const OffsetsOf& offsets_of,
                                    const FetchedOf& fetched_of, const Changed& changed) {
  int32_t offsets[kLineGroup];
  const auto copy = [&]<bool kMore>(std::bool_constant<kMore>, size_t some) {
    for (size_t i = 0; i < some; i += I32::kLanes) {
      StoreU(offsets_of(Iota<I32>(first + static_cast<int32_t>(i))), offsets + i);
    }
    if constexpr (kBytes > 1) PrefetchGroup(source, first, some, fetched_of);
    CopyScatteredPixels<kBytes, kMore>(dest, some, [&](size_t i) {
      uint32_t pixel = source[offsets[i]];
      if constexpr (kBytes > 1) __builtin_memcpy(&pixel, source + offsets[i], 4);
      return changed(pixel);
    });
  };
  for (; count > kLineGroup; count -= kLineGroup, dest += kBytes * kLineGroup) {
    copy(std::true_type(), kLineGroup);
    first += static_cast<int32_t>(kLineGroup);
  }
  if (count > 0) copy(std::false_type(), count);
}

/// Stores the first `count` words one by one as pixels of `kBytes` bytes.
template <int kBytes>
QEL_SIMD_INLINE void StoreWordsSingly(U32 words, uint8_t* pixels, size_t count) {
  const LanesOf lanes(words);
  const size_t last = (count < U32::kLanes ? count : U32::kLanes) - 1;
  // Four bytes are stored for three: the next pixel overwrites the last one.
  constexpr size_t kStored = kBytes == 3 ? 4 : kBytes;
  for (size_t i = 0; i < last; ++i) __builtin_memcpy(pixels + i * kBytes, lanes.at + i, kStored);
  __builtin_memcpy(pixels + last * kBytes, lanes.at + last, kBytes);
}

/// Stores words as pixels of `kBytes` bytes; `count` of them are to be stored from here on, so that
/// bytes behind those of a vector may be overwritten up to there. Where memory is masked, whole
/// vectors take plain stores: masked ones take several times as long.
template <int kBytes>
QEL_SIMD_INLINE void StoreWords(U32 words, uint8_t* pixels, size_t count = U32::kLanes) {
  const bool all = count >= U32::kLanes;
  if constexpr (kBytes == 4) {
    if (all) return StoreU(words, pixels);
    if constexpr (!kHasByteLookup) return StoreWordsSingly<4>(words, pixels, count);
    BlendedStore(words, FirstN<U32>(count), pixels);
  } else if constexpr (!kHasByteLookup) {
    // Each block is stored as a whole.
    if (!kHasTableLookupBytes || U32::kLanes - 4 + (15 + kBytes) / kBytes > count) {
      return StoreWordsSingly<kBytes>(words, pixels, count);
    }
    static constexpr auto kCloseUp = MakePattern<16>(
        [](size_t i) { return i < 4 * kBytes ? i / kBytes * 4 + i % kBytes : 0x80; });
    StoreBlocks(ShuffleBlocks(BitCast<U8>(words), kCloseUp), pixels, 4 * kBytes);
  } else {
    if constexpr (kBytes == 1) {
      if (all) return StoreU(ConvertTo<Vec<uint8_t, U32::kLanes>>(words), pixels);
    }
    static constexpr auto kOrder =
        MakePattern<64>([](size_t i) { return i / kBytes * 4 + i % kBytes; });
    const U8 bytes = TableLookupLanes(BitCast<U8>(words), LoadU<U8>(kOrder.bytes));
    if (!all) return BlendedStore(bytes, FirstN<U8>(kBytes * count), pixels);
    StoreU(LowerHalf(bytes), pixels);
    StoreU(ExtractBlock<2>(bytes), pixels + 32);
  }
}

/// Sums of weighted channels as bytes: clamped, then truncated. What is not a number gives 0.
QEL_SIMD_INLINE I32 BytesOf(F32 sums) {
  return ConvertTo<I32>(Max(Min(Set<F32>(255.0f), sums), Zero<F32>()));
}
/// The bytes of up to three channels, the first one lowest.
template <size_t kChannels>
QEL_SIMD_INLINE I32 PackColors(const F32 (&sums)[kChannels]) {
  if constexpr (kChannels > 1 && kHasTableLookupBytes && !kHasByteLookup) {
    // Sums of taps are far from leaving the range of integers, and narrowing clamps; what is not a
    // number becomes the lowest one.
    const auto integers = [&](size_t c) { return ConvertTo<I32>(sums[c]); };
    const I16 first_two = ReorderDemote2To<I16>(integers(0), integers(1));
    const I16 third = ReorderDemote2To<I16>(integers(2), Zero<I32>());
    return BitCast<I32>(ShuffleBlocks(ReorderDemote2To<U8>(first_two, third), kByChannelOf4));
  }
  I32 packed = BytesOf(sums[0]);
  if constexpr (kChannels > 1) packed |= ShiftLeft<8>(BytesOf(sums[1]));
  if constexpr (kChannels > 2) packed |= ShiftLeft<16>(BytesOf(sums[2]));
  return packed;
}

/// words[k] = word k of sixteen bytes from as many addresses as a vector has words.
template <typename AddressOf>
QEL_SIMD_INLINE void LoadWordColumns(I32 (&words)[4], const AddressOf& address_of) {
  constexpr size_t kBlocks = kVectorBytes / 16;
  // Block b of vector r comes from address 4 b + r.
  I32 rows[4];
  for (size_t r = 0; r < 4; ++r) {
    rows[r] = GatherBlocks<I32>(
        [&](size_t b) { return reinterpret_cast<const uint8_t*>(address_of(4 * b + r)); });
  }
  static_assert(4 * kBlocks == I32::kLanes);
  const auto pairs = [](I32 v) { return BitCast<U64>(v); };
  const U64 lower01 = pairs(InterleaveLower(rows[0], rows[1]));
  const U64 lower23 = pairs(InterleaveLower(rows[2], rows[3]));
  const U64 upper01 = pairs(InterleaveUpper(rows[0], rows[1]));
  const U64 upper23 = pairs(InterleaveUpper(rows[2], rows[3]));
  words[0] = BitCast<I32>(InterleaveLower(lower01, lower23));
  words[1] = BitCast<I32>(InterleaveUpper(lower01, lower23));
  words[2] = BitCast<I32>(InterleaveLower(upper01, upper23));
  words[3] = BitCast<I32>(InterleaveUpper(upper01, upper23));
}

/// Byte `kByte` of every word as a number. The ways there keep different parts of the processor
/// busy.
template <int kByte>
QEL_SIMD_INLINE F32 ByteOfWords(I32 words) {
  if constexpr (kByte == 0) {
    words &= Set<I32>(0xFF);
  } else if constexpr (kByte == 3) {
    words = BitCast<I32>(ShiftRight<24>(BitCast<U32>(words)));
  } else if constexpr (kHasTableLookupBytes) {
    static constexpr auto kOrder =
        MakePattern<16>([](size_t i) { return i % 4 == 0 ? i + kByte : 128; });
    words = BitCast<I32>(ShuffleBlocks(BitCast<U8>(words), kOrder));
  } else {
    words = ShiftRight<8 * kByte>(words) & Set<I32>(0xFF);
  }
  return ConvertTo<F32>(words);
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_TRANSFORM_WORD_VECTORS_H_
