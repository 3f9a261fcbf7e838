#include "filter/median/median_kernels.h"

#include <utility>

#include "filter/byte_lanes.h"
#include "filter/median/selection_network.h"
#include "simd/interleaved.h"
#include "simd/row_walk.h"
#include "simd/window.h"

namespace qel::QEL_LEVEL {
namespace {

constexpr int kBlueWeight = 117, kGreenWeight = 601, kRedWeight = 306, kWeightBits = 10;

/// The keys of half of the pixels of each block, in the order that ReorderDemote2To undoes.
QEL_SIMD_INLINE I16 KeysOf(U8 wide_blue, U8 wide_green, U8 wide_red) {
  const I16 blue = BitCast<I16>(wide_blue), green = BitCast<I16>(wide_green);
  const I16 red = BitCast<I16>(wide_red), zero = Zero<I16>();
  const I16 blue_green = BitCast<I16>(Set<I32>(kGreenWeight << 16 | kBlueWeight));
  const I16 red_only = BitCast<I16>(Set<I32>(kRedWeight));
  const auto keys = [&](I16 pairs, I16 reds) {
    return ShiftRight<kWeightBits>(WidenMulPairwiseAdd(pairs, blue_green) +
                                   WidenMulPairwiseAdd(reds, red_only));
  };
  return ReorderDemote2To<I16>(keys(InterleaveLower(blue, green), InterleaveLower(red, zero)),
                               keys(InterleaveUpper(blue, green), InterleaveUpper(red, zero)));
}

template <size_t kBytes>
void Keys(uint8_t* keys, const uint8_t* pixels, size_t count) {
  if constexpr (!kHasTableLookupBytes) {
    for (size_t i = 0; i < count; ++i) {
      const uint8_t* const pixel = pixels + kBytes * i;
      const int sum = kBlueWeight * pixel[0] + kGreenWeight * pixel[1] + kRedWeight * pixel[2];
      keys[i] = static_cast<uint8_t>(sum >> kWeightBits);
    }
    return;
  }
  const U8 zero = Zero<U8>();
  const auto block = [&](uint8_t* to, const uint8_t* from) {
    U8 channels[kBytes];
    LoadInterleaved<kBytes>(from, channels);
    const I16 lower = KeysOf(InterleaveLower(channels[0], zero), InterleaveLower(channels[1], zero),
                             InterleaveLower(channels[2], zero));
    const I16 upper = KeysOf(InterleaveUpper(channels[0], zero), InterleaveUpper(channels[1], zero),
                             InterleaveUpper(channels[2], zero));
    StoreU(ReorderDemote2To<U8>(lower, upper), to);
  };
  WalkBlocks<kVectorBytes>(count, block, To<1>{keys}, From<kBytes>{pixels});
}

template <size_t kTaps, size_t kFirst, size_t kLast>
constexpr SelectionNetwork<kTaps, kFirst, kLast> kNetwork;

/// Calls body(i) for constants i.
template <size_t kCount, typename Body>
inline void Unroll(const Body& body) {
  [&]<size_t... kIndices>(std::index_sequence<kIndices...>) {
    (body(std::integral_constant<size_t, kIndices>()), ...);
  }
  (std::make_index_sequence<kCount>());
}

/// Brings values number `kFirst` to `kLast` in their order to their places.
template <size_t kFirst, size_t kLast, typename Lane, size_t kTaps>
inline void Select(Lane (&values)[kTaps]) {
  constexpr auto& kComparators = kNetwork<kTaps, kFirst, kLast>;
  Unroll<kComparators.size()>([&](auto index) {
    constexpr auto kComparator = kComparators[index];
    const Lane a = values[kComparator.low];
    const Lane b = values[kComparator.high];
    if constexpr (kComparator.needs_low) values[kComparator.low] = Min(a, b);
    if constexpr (kComparator.needs_high) values[kComparator.high] = Max(a, b);
  });
}

/// The middle one of values whose columns are sorted, values[row][column]. Once its rows are sorted
/// as well, the value of row r and column c has (r + 1) (c + 1) - 1 others that are not above it,
/// and as many not below on the opposite side. Values with more than half of them on one side
/// cannot be in the middle; as many are left out below as above.
template <typename Lane, size_t kSize>
inline Lane MiddleOfSorted(Lane (&values)[kSize][kSize]) {
  constexpr size_t kHalf = kSize * kSize / 2 + 1;
  constexpr auto kMayBe = [](size_t row, size_t column) {
    return (row + 1) * (column + 1) <= kHalf && (kSize - row) * (kSize - column) <= kHalf;
  };
  constexpr auto kCountBefore = [kMayBe](size_t end) {
    size_t count = 0;
    for (size_t i = 0; i < end; ++i) count += kMayBe(i / kSize, i % kSize) ? 1 : 0;
    return count;
  };
  constexpr size_t kCandidates = kCountBefore(kSize * kSize);
  Lane candidates[kCandidates];
  Unroll<kSize>([&](auto row) {
    constexpr size_t kRow = row;
    constexpr size_t kFirst = [kMayBe] {
      size_t column = 0;
      while (!kMayBe(kRow, column)) ++column;
      return column;
    }();
    constexpr size_t kBefore = kCountBefore(kRow * kSize);
    constexpr size_t kCount = kCountBefore((kRow + 1) * kSize) - kBefore;
    Select<kFirst, kFirst + kCount - 1>(values[kRow]);
    Unroll<kCount>([&](auto i) { candidates[kBefore + i] = values[kRow][kFirst + i]; });
  });
  Select<kCandidates / 2, kCandidates / 2>(candidates);
  return candidates[kCandidates / 2];
}

// Keys alone are bytes. Keys above the places of their taps are 16 bits: equal keys keep their
// order, and the place comes out with the key.

/// Sorted columns of keys.
template <size_t kSize>
struct KeyColumn {
  U8 at[kSize];
};
template <size_t kBytes, size_t kSize>
QEL_SIMD_INLINE KeyColumn<kSize> ShiftedWindow(const KeyColumn<kSize>& v,
                                               const KeyColumn<kSize>& next) {
  KeyColumn<kSize> shifted;
  Unroll<kSize>([&](auto j) { shifted.at[j] = ShiftedWindow<kBytes>(v.at[j], next.at[j]); });
  return shifted;
}
template <size_t kSize>
struct PlacedColumn {
  U16 lower[kSize];
  U16 upper[kSize];
};
template <size_t kBytes, size_t kSize>
QEL_SIMD_INLINE PlacedColumn<kSize> ShiftedWindow(const PlacedColumn<kSize>& v,
                                                  const PlacedColumn<kSize>& next) {
  PlacedColumn<kSize> shifted;
  Unroll<kSize>([&](auto j) {
    const auto both = ShiftedWindow<kBytes>(Halves<U16>{v.lower[j], v.upper[j]},
                                            Halves<U16>{next.lower[j], next.upper[j]});
    shifted.lower[j] = both.lower;
    shifted.upper[j] = both.upper;
  });
  return shifted;
}

template <size_t kSize>
void MiddleKeys(uint8_t* keys, const uint8_t* const* rows, size_t count) {
  StoreWindows<kSize, 1>(
      keys, count,
      [=](size_t k) {
        KeyColumn<kSize> column;
        Unroll<kSize>([&](auto j) { column.at[j] = LoadU<U8>(rows[j] + k); });
        Select<0, kSize - 1>(column.at);
        return column;
      },
      [](size_t, const auto&... columns) {
        const KeyColumn<kSize>* const all[] = {&columns...};
        U8 values[kSize][kSize];
        Unroll<kSize>(
            [&](auto i) { Unroll<kSize>([&](auto j) { values[j][i] = all[i]->at[j]; }); });
        return MiddleOfSorted(values);
      });
}

/// The places of the middle taps of windows of these columns.
template <size_t kSize>
inline U8 MiddlePlaces(const PlacedColumn<kSize>* const (&columns)[kSize]) {
  const auto middle = [&](auto half) {
    U16 values[kSize][kSize];
    Unroll<kSize>([&](auto i) {
      // Later columns are visited later.
      const U16 places = Set<U16>(static_cast<uint16_t>(kSize * i));
      Unroll<kSize>([&](auto j) { values[j][i] = (columns[i]->*half)[j] + places; });
    });
    return BitCast<I16>(MiddleOfSorted(values) & Set<U16>(0xFF));
  };
  return ReorderDemote2To<U8>(middle(&PlacedColumn<kSize>::lower),
                              middle(&PlacedColumn<kSize>::upper));
}
/// The same with one frame on the stack for all that call it: that of 7 x 7 taps takes 16 KiB.
template <size_t kSize>
[[gnu::noinline]] U8 MiddlePlacesApart(const PlacedColumn<kSize>* const (&columns)[kSize]) {
  return MiddlePlaces(columns);
}

template <size_t kSize>
void MiddleTaps(uint8_t* taps, const uint8_t* const* rows, size_t count) {
  StoreWindows<kSize, 1>(
      taps, count,
      [=](size_t k) {
        PlacedColumn<kSize> column;
        Unroll<kSize>([&](auto j) {
          const U8 keys = KeepInRegister(LoadU<U8>(rows[j] + k));
          const U8 place = Set<U8>(static_cast<uint8_t>(j));
          column.lower[j] = BitCast<U16>(InterleaveLower(place, keys));
          column.upper[j] = BitCast<U16>(InterleaveUpper(place, keys));
        });
        Select<0, kSize - 1>(column.lower);
        Select<0, kSize - 1>(column.upper);
        return column;
      },
      [](size_t, const auto&... columns) {
        const PlacedColumn<kSize>* const all[] = {&columns...};
        if constexpr (kSize < 7) {
          return MiddlePlaces(all);
        } else {
          return MiddlePlacesApart(all);
        }
      });
}

/// Counts columns in and out for one limit.
void CountColumns(uint8_t* counts, const uint8_t* entering, const uint8_t* leaving, size_t limit,
                  size_t samples) {
  const Bytes limits = Bytes::Set(limit);
  for (size_t k = 0; k < samples; k += Bytes::kLanes) {
    Bytes count = Bytes::Load(counts + k);
    count.CountBelow(Bytes::Load(entering + k), limits);
    count.UncountBelow(Bytes::Load(leaving + k), limits);
    count.Store(counts + k);
  }
}

/// The sum of `size` counts side by side, from those of every three.
inline Bytes WindowCount(const uint8_t* counts, const uint8_t* triples, size_t size) {
  Bytes sum = Bytes::Load(triples);
  size_t i = 3;
  for (; i + 3 <= size; i += 3) sum.Add(Bytes::Load(triples + i));
  for (; i < size; ++i) sum.Add(Bytes::Load(counts + i));
  return sum;
}

/// Counts are larger for larger limits, so the last limit that at most the wanted number of taps
/// lie below gives the high bits.
void Rank(const RankRows& ranks, const uint8_t* entering, const uint8_t* leaving, size_t size,
          size_t count) {
  const Bytes middle = Bytes::Set(size * size / 2);
  const size_t samples = count + size - 1;
  __builtin_memset(ranks.wanted, 0, count);
  __builtin_memset(ranks.below, 0, count);
  for (size_t i = 0; i < ranks.Limits(); ++i) {
    uint8_t* const counts = ranks.columns + i * ranks.pitch;
    const size_t limit = (i + 1) << (8 - ranks.bits);
    CountColumns(counts, entering, leaving, limit, samples);
    for (size_t k = 0; k < samples; k += Bytes::kLanes) {
      Bytes sum = Bytes::Load(counts + k);
      sum.Add(Bytes::Load(counts + k + 1));
      sum.Add(Bytes::Load(counts + k + 2));
      sum.Store(ranks.triples + k);
    }
    for (size_t k = 0; k < count; k += Bytes::kLanes) {
      const Bytes below = WindowCount(counts + k, ranks.triples + k, size);
      Bytes wanted = Bytes::Load(ranks.wanted + k);
      Bytes kept = Bytes::Load(ranks.below + k);
      wanted.TakeWhereAtMost(Bytes::Set(limit), below, middle);
      kept.TakeWhereAtMost(below, below, middle);
      wanted.Store(ranks.wanted + k);
      kept.Store(ranks.below + k);
    }
  }
}

/// The wanted keys, their lower bits one by one: a bit is set where at most the wanted number of
/// taps lie below the key with that bit. `below` becomes the number of taps below the wanted key.
template <typename Lanes>
inline Lanes WantedKeys(const uint8_t* const* rows, const RankRows& ranks, size_t size,
                        size_t first, Lanes& below) {
  const Lanes middle = Lanes::Set(size * size / 2);
  const bool ranked = ranks.bits != 0;
  Lanes wanted = ranked ? Lanes::Load(ranks.wanted + first) : Lanes::Set(0);
  below = ranked ? Lanes::Load(ranks.below + first) : Lanes::Set(0);
  for (unsigned bit = 0x80u >> ranks.bits; bit != 0; bit >>= 1) {
    Lanes limit = wanted;
    limit.AddBit(static_cast<uint8_t>(bit));
    Lanes count = Lanes::Set(0);
    for (size_t j = 0; j < size; ++j) {
      const uint8_t* const row = rows[j] + first;
      for (size_t i = 0; i < size; ++i) count.CountBelow(Lanes::Load(row + i), limit);
    }
    wanted.TakeWhereAtMost(limit, count, middle);
    below.TakeWhereAtMost(count, count, middle);
  }
  return wanted;
}

/// The wanted taps of the windows from `first` on.
template <typename Lanes>
inline Lanes WantedTaps(const uint8_t* const* rows, const RankRows& ranks, size_t size,
                        size_t first) {
  Lanes below;
  const Lanes wanted = WantedKeys<Lanes>(rows, ranks, size, first, below);
  // The number of the tap among those that have the wanted key.
  Lanes rest = Lanes::Set(size * size / 2);
  rest.Subtract(below);
  Lanes found = Lanes::Set(0);
  for (size_t i = 0; i < size; ++i) {
    for (size_t j = 0; j < size; ++j) {
      rest.CountDown(Lanes::Load(rows[j] + first + i), wanted, Lanes::Set(i * size + j), found);
    }
  }
  return found;
}

/// Stores select(first, lanes) for `count` windows, two vectors at a time as long as there are.
template <typename Select>
inline void StoreSelected(uint8_t* dest, size_t count, const Select& select) {
  size_t k = 0;
  for (; k + TwiceBytes::kLanes <= count; k += TwiceBytes::kLanes) {
    select(k, TwiceBytes()).Store(dest + k);
  }
  for (; k < count; k += Bytes::kLanes) {
    alignas(64) uint8_t rest[Bytes::kLanes];
    select(k, Bytes()).Store(rest);
    __builtin_memcpy(dest + k, rest, count - k < Bytes::kLanes ? count - k : Bytes::kLanes);
  }
}

void SortKeys(uint8_t* keys, const uint8_t* const* rows, size_t size, size_t count) {
  const auto middle = size == 3 ? &MiddleKeys<3> : size == 5 ? &MiddleKeys<5> : &MiddleKeys<7>;
  middle(keys, rows, count);
}

void SortTaps(uint8_t* taps, const uint8_t* const* rows, size_t size, size_t count) {
  const auto middle = size == 3 ? &MiddleTaps<3> : size == 5 ? &MiddleTaps<5> : &MiddleTaps<7>;
  middle(taps, rows, count);
}

void SelectKeys(uint8_t* keys, const uint8_t* const* rows, const RankRows& ranks, size_t size,
                size_t count) {
  StoreSelected(keys, count, [&]<typename Lanes>(size_t first, Lanes below) {
    return WantedKeys<Lanes>(rows, ranks, size, first, below);
  });
}

void SelectTaps(uint8_t* taps, const uint8_t* const* rows, const RankRows& ranks, size_t size,
                size_t count) {
  StoreSelected(taps, count, [&]<typename Lanes>(size_t first, Lanes) {
    return WantedTaps<Lanes>(rows, ranks, size, first);
  });
}

/// One pixel after the other.
template <size_t kBytes>
void CopyTaps(uint8_t* dest, const uint8_t* const* rows, const uint8_t* taps, size_t size,
              size_t count) {
  const uint8_t* at[kMostSelected * kMostSelected];
  for (size_t i = 0; i < size; ++i) {
    for (size_t j = 0; j < size; ++j) at[i * size + j] = rows[j] + i * kBytes;
  }
  const size_t last = count - 1;
  // Whole words are quicker than three bytes; the last pixel must not touch what follows.
  for (size_t x = 0; x < last; ++x) {
    __builtin_memcpy(dest + x * kBytes, at[taps[x]] + x * kBytes, 4);
  }
  __builtin_memcpy(dest + last * kBytes, at[taps[last]] + last * kBytes, kBytes);
}

/// Largest size whose taps fit the tables of `PickTaps`.
constexpr size_t kMostPicked = 8;

/// As many pixels as fit a vector at a time. One or two vectors of each row hold all taps of a row;
/// a lookup brings each byte the one at its tap, which counts where the tap lies in that row.
template <size_t kBytes, size_t kSize>
void PickTaps(uint8_t* dest, const uint8_t* const* rows, const uint8_t* taps, size_t any_size,
              size_t count) {
  // The taps of 3-byte pixels and size 3 lie in a single vector when there are two pixels less.
  constexpr bool kSingle = kBytes == 3 && kSize == 3;
  constexpr size_t kPixels = kVectorBytes / kBytes - (kSingle ? kSize - 1 : 0);
  const size_t size = kSize != 0 ? kSize : any_size;
  alignas(64) uint8_t pixels[kVectorBytes], columns[kVectorBytes], tap_rows[kVectorBytes];
  for (size_t i = 0; i < kVectorBytes; ++i) {
    pixels[i] = static_cast<uint8_t>(i / kBytes);
    columns[i] = static_cast<uint8_t>(i / size * kBytes);
    tap_rows[i] = static_cast<uint8_t>(i % size);
  }
  const U8 place = Iota<U8>(0);
  const U8 pixel = LoadU<U8>(pixels);
  const U8 column = LoadU<U8>(columns);
  const U8 tap_row = LoadU<U8>(tap_rows);
  for (size_t k = 0; k < count; k += kPixels) {
    const U8 tap = TableLookupLanes(LoadU<U8>(taps + k), pixel);
    const U8 from = place + TableLookupLanes(column, tap);
    const U8 row = TableLookupLanes(tap_row, tap);
    U8 out = Zero<U8>();
    for (size_t j = 0; j < size; ++j) {
      const U8 samples = LoadU<U8>(rows[j] + k * kBytes);
      const Mask<U8> counts = row == Set<U8>(static_cast<uint8_t>(j));
      if constexpr (kSingle) {
        out = IfThenElse(counts, TableLookupLanes(samples, from), out);
      } else {
        const U8 next = LoadU<U8>(rows[j] + k * kBytes + kVectorBytes);
        out = IfThenElse(counts, TwoTablesLookupLanes(samples, next, from), out);
      }
    }
    const size_t left = (count - k) * kBytes;
    if (left >= kVectorBytes) {
      // What belongs to the next pixels is stored once more with these.
      StoreU(out, dest + k * kBytes);
    } else {
      BlendedStore(out, FirstN<U8>(left), dest + k * kBytes);
    }
  }
}

template <size_t kBytes>
void CopyTapsAtOnce(uint8_t* dest, const uint8_t* const* rows, const uint8_t* taps, size_t size,
                    size_t count) {
  if constexpr (kHasByteLookup) {
    if (size == 3) return PickTaps<kBytes, 3>(dest, rows, taps, size, count);
    if (size <= kMostPicked) return PickTaps<kBytes, 0>(dest, rows, taps, size, count);
  }
  CopyTaps<kBytes>(dest, rows, taps, size, count);
}

}  // namespace

extern const MedianKernels kMedianKernels;
constinit const MedianKernels kMedianKernels = {
    .keys3 = &Keys<3>,
    .keys4 = &Keys<4>,
    .rank = &Rank,
    .sort_keys = &SortKeys,
    .sort_taps = &SortTaps,
    .select_keys = &SelectKeys,
    .select_taps = &SelectTaps,
    .copy_taps3 = &CopyTapsAtOnce<3>,
    .copy_taps4 = &CopyTapsAtOnce<4>,
};

}  // namespace qel::QEL_LEVEL
