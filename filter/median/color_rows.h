#ifndef QEL_FILTER_MEDIAN_COLOR_ROWS_H_
#define QEL_FILTER_MEDIAN_COLOR_ROWS_H_

#include "filter/median/brightness_lanes.h"
#include "filter/median/median_kernels.h"
#include "simd/prefetch.h"
#include "simd/window.h"

// The middle of 3 x 3 colors. In each block the columns of 14 windows stand side by side, channel
// by channel, those of even number before those of odd number: so a lookup of 16 bytes reaches
// every tap of a row, and two windows side by side share what two of their columns give. Of three
// sorted columns the middle is the middle one of the largest minimum, the middle of the middles and
// the smallest maximum.

namespace qel::QEL_LEVEL {
namespace {

/// Windows of a unit, which takes a vector for each channel.
constexpr size_t kUnitWindows = kVectorBytes / 16 * kWindowsOfBlock;

// Keys stand above the number of their column in the block, 4 bits, a clear bit, and the number of
// their row from 1 on, 2 bits: equal ones keep their order, and the tap comes out with the key.
// They come as those of the lowest row.
constexpr int kRowBits = 3;
constexpr int kLowestRow = 3;

/// Of four pixels the channels, each two pixels of one parity: 02 13.
template <size_t kChannels>
constexpr auto kPairsByChannel = MakePattern<16>([](size_t i) {
  const size_t channel = i / 4, pixel = i / 2 % 2 + i % 2 * 2;
  return channel < kChannels ? kChannels * pixel + channel : 0x80;
});
/// The opposite for pixels in their order, of 4 bytes before.
template <size_t kChannels>
constexpr auto kPacked = MakePattern<16>([](size_t i) {
  return i < 4 * kChannels ? i / kChannels * 4 + i % kChannels : 0x80;
});

/// Pixels of some columns of each block: their channels, and the keys of its even and odd columns.
template <size_t kChannels>
struct Unit {
  static constexpr size_t kBytes = (kChannels + 2) * kVectorBytes;
  U8 channels[4];
  I16 keys[2];

  QEL_SIMD_INLINE static Unit FromPixels(const uint8_t* pixels) {
    U16 fours[4];
    for (size_t k = 0; k < 4; ++k) {
      const U8 v = LoadBlocks<U8>(pixels + 4 * kChannels * k, kWindowsOfBlock * kChannels);
      fours[k] = BitCast<U16>(ShuffleBlocks(v, kPairsByChannel<kChannels>));
    }
    const U32 bg[] = {BitCast<U32>(InterleaveLower(fours[0], fours[1])),
                      BitCast<U32>(InterleaveLower(fours[2], fours[3]))};
    const U32 ra[] = {BitCast<U32>(InterleaveUpper(fours[0], fours[1])),
                      BitCast<U32>(InterleaveUpper(fours[2], fours[3]))};
    Unit unit;
    unit.channels[0] = BitCast<U8>(InterleaveLower(bg[0], bg[1]));
    unit.channels[1] = BitCast<U8>(InterleaveUpper(bg[0], bg[1]));
    unit.channels[2] = BitCast<U8>(InterleaveLower(ra[0], ra[1]));
    unit.channels[3] = BitCast<U8>(InterleaveUpper(ra[0], ra[1]));
    const auto words = BrightnessTimes128(unit.channels[0], unit.channels[1], unit.channels[2]);
    unit.keys[0] = (words.lower & Set<I16>(-0x80)) | Columns<0>();
    unit.keys[1] = (words.upper & Set<I16>(-0x80)) | Columns<1>();
    return unit;
  }
  QEL_SIMD_INLINE void Store(uint8_t* to) const {
    for (size_t c = 0; c < kChannels; ++c) StoreU(channels[c], to + c * kVectorBytes);
    for (size_t i = 0; i < 2; ++i) StoreU(keys[i], to + (kChannels + i) * kVectorBytes);
  }

 private:
  /// The numbers of the even or odd columns, and of the row.
  template <int16_t kOdd>
  QEL_SIMD_INLINE static I16 Columns() {
    return LanesFrom<I16>([](size_t i) { return (2 * (i % 8) + kOdd) << kRowBits | kLowestRow; });
  }
};

/// The middle one of three.
QEL_SIMD_INLINE I16 Middle(I16 a, I16 b, I16 c) { return Max(Min(a, b), Min(Max(a, b), c)); }

/// Sorted columns of keys of one parity.
struct SortedColumns {
  I16 low, middle, high;
};
QEL_SIMD_INLINE SortedColumns SortColumns(I16 a, I16 b, I16 c) {
  a -= Set<I16>(2);
  b -= Set<I16>(1);
  const I16 smaller = Min(a, b), larger = Max(a, b);
  const I16 rest = Max(smaller, c);
  return {Min(smaller, c), Min(larger, rest), Max(larger, rest)};
}

/// The middle taps of three rows, the low seven bits of their keys. keys(j, i) are those of row
/// `j`, of even columns, 0, or odd ones.
template <typename Keys>
QEL_SIMD_INLINE U8 MiddleTapsOf(const Keys& keys) {
  const auto sort = [&](size_t i) { return SortColumns(keys(0, i), keys(1, i), keys(2, i)); };
  // Columns 0 and 1, and those two further on.
  const SortedColumns a = sort(0), b = sort(1);
  const auto next = [](I16 v) { return CombineShiftRightBytes<2>(v, v); };
  const I16 low_c = next(a.low), middle_c = next(a.middle), high_c = next(a.high);
  const I16 shared_low = Max(b.low, low_c), shared_high = Min(b.high, high_c);
  const I16 smaller = Min(b.middle, middle_c), larger = Max(b.middle, middle_c);
  const auto middle = [&](I16 low, I16 mid, I16 high) {
    return BitCast<U16>(
        Middle(Max(shared_low, low), Max(smaller, Min(larger, mid)), Min(shared_high, high)));
  };
  const U16 even = middle(a.low, a.middle, a.high);
  const U16 odd = middle(next(b.low), next(b.middle), next(b.high));
  return BitCast<U8>((even & Set<U16>(0xFF)) | ShiftLeft<8>(odd));
}

/// Stores the colors at `taps`, 14 pixels for each block, and two more. channel(j, c) is channel
/// `c` of row `j`.
template <size_t kChannels, typename Channel>
QEL_SIMD_INLINE void StoreColors(uint8_t* dest, U8 taps, const Channel& channel) {
  // Where the column stands in its block.
  constexpr static auto kPlaces = MakePattern<16>([](size_t i) { return i % 2 * 8 + i / 2; });
  const U8 column = TableLookupBytesOr0(LoadDup128<U8>(kPlaces.bytes),
                                        BitCast<U8>(ShiftRight<kRowBits>(BitCast<U16>(taps))));
  // The highest bit of the row's number times 1, 2 and 3 is clear for rows 1, 2 and 3, the others
  // being cut off: where it is set, a lookup gives 0.
  const U8 row = BitCast<U8>(ShiftLeft<6>(BitCast<U16>(taps))) & Set<U8>(0xC0);
  const U8 places[] = {column + row, column + row + row, column + row + row + row};
  U8 channels[4];
  for (size_t c = 0; c < 4; ++c) {
    if (c >= kChannels) {
      channels[c] = channels[0];
      continue;
    }
    const auto tap = [&](size_t j) { return TableLookupBytesOr0(channel(j, c), places[j]); };
    channels[c] = tap(0) | tap(1) | tap(2);
  }
  const auto lower = [](auto a, auto b) { return InterleaveLower(a, b); };
  const auto upper = [](auto a, auto b) { return InterleaveUpper(a, b); };
  const auto words = [&](auto interleave, size_t c) {
    return BitCast<U16>(interleave(channels[c], channels[c + 1]));
  };
  const U16 bg[] = {words(lower, 0), words(upper, 0)}, ra[] = {words(lower, 2), words(upper, 2)};
  U8 fours[] = {BitCast<U8>(lower(bg[0], ra[0])), BitCast<U8>(upper(bg[0], ra[0])),
                BitCast<U8>(lower(bg[1], ra[1])), BitCast<U8>(upper(bg[1], ra[1]))};
  if constexpr (kChannels < 4) {
    for (U8& v : fours) v = ShuffleBlocks(v, kPacked<kChannels>);
  }
  // What a block stores beyond its windows is stored over by the next one.
  const auto store = [&](auto block) {
    uint8_t* const to = dest + block * kWindowsOfBlock * kChannels;
    for (size_t k = 0; k < 4; ++k) {
      StoreU(ExtractBlock<block>(fours[k]), to + 4 * kChannels * k);
    }
  };
  [&]<size_t... kBlocks>(std::index_sequence<kBlocks...>) {
    (store(std::integral_constant<size_t, kBlocks>()), ...);
  }
  (std::make_index_sequence<kVectorBytes / 16>());
}

/// Window that the unit from window `first` on begins with: the last one overlaps the one before
/// it.
QEL_SIMD_INLINE size_t FirstOfUnit(size_t first, size_t count) {
  if (first + kUnitWindows <= count) return first;
  return count < kUnitWindows ? 0 : count - kUnitWindows;
}

template <size_t kChannels>
void SpreadPixels(uint8_t* units, const uint8_t* pixels, size_t count) {
  for (size_t k = 0; k < count; k += kUnitWindows, units += Unit<kChannels>::kBytes) {
    Unit<kChannels>::FromPixels(pixels + FirstOfUnit(k, count) * kChannels).Store(units);
  }
}

template <size_t kChannels>
void MiddleColors(uint8_t* dest, uint8_t* upper, const uint8_t* middle, const uint8_t* pixels,
                  const uint8_t* const (&ahead)[2], size_t count) {
  // Two pixels and what fills a vector are stored past a unit.
  alignas(64) uint8_t last[(kUnitWindows + 4) * kChannels];
  for (size_t k = 0; k < count; k += kUnitWindows) {
    const size_t first = FirstOfUnit(k, count);
    for (const uint8_t* const row : ahead) {
      for (size_t i = 0; i < kUnitWindows * kChannels; i += 64) {
        PrefetchLine(row + first * kChannels + i);
      }
    }
    const auto lower = Unit<kChannels>::FromPixels(pixels + first * kChannels);
    const U8 taps = MiddleTapsOf([&](size_t j, size_t i) {
      const size_t at = (kChannels + i) * kVectorBytes;
      return j == 2 ? lower.keys[i] : LoadU<I16>((j == 0 ? upper : middle) + at);
    });
    const bool ends_row = first + kUnitWindows + 4 > count;
    StoreColors<kChannels>(
        ends_row ? last : dest + first * kChannels, taps, [&](size_t j, size_t c) {
          const size_t at = c * kVectorBytes;
          return j == 2 ? lower.channels[c] : LoadU<U8>((j == 0 ? upper : middle) + at);
        });
    lower.Store(upper);
    upper += Unit<kChannels>::kBytes;
    middle += Unit<kChannels>::kBytes;
    if (!ends_row) continue;
    uint8_t* const to = dest + first * kChannels;
    if (count < kUnitWindows) {
      __builtin_memcpy(to, last, count * kChannels);
    } else {
      __builtin_memcpy(to, last, kUnitWindows * kChannels);
    }
  }
}

/// Only where bytes can be looked up.
template <size_t kChannels>
constexpr ColorKernels ColorKernelsOf() {
  if constexpr (kHasTableLookupBytes) {
    return {&SpreadPixels<kChannels>, &MiddleColors<kChannels>};
  } else {
    return {};
  }
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_FILTER_MEDIAN_COLOR_ROWS_H_
