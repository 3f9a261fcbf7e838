#include "filter/median/median_kernels.h"

#include <utility>

#include "filter/byte_lanes.h"
#include "filter/median/selection_network.h"
#include "image/slide.h"

namespace qel::QEL_LEVEL {
namespace {

constexpr int kBlueWeight = 117, kGreenWeight = 601, kRedWeight = 306, kWeightBits = 10;

#ifdef QEL_HAS_COLOUR_VECTORS

/// The keys of half a vector of pixels, in words of the order that packing restores.
inline Vector KeyWords(Vector blue, Vector green, Vector red) {
  const Vector zero = FillBytes(0);
  const Vector blue_green = FillDwords(kGreenWeight << 16 | kBlueWeight);
  const Vector red_only = FillDwords(kRedWeight);
  const auto keys = [&](Vector pairs, Vector reds) {
    return ShiftDwords<kWeightBits>(
        AddDwords(SumWordPairs(pairs, blue_green), SumWordPairs(reds, red_only)));
  };
  return PackDwords(keys(PairWordsLow(blue, green), PairWordsLow(red, zero)),
                    keys(PairWordsHigh(blue, green), PairWordsHigh(red, zero)));
}

template <size_t kBytes>
void Keys(uint8_t* keys, const uint8_t* pixels, size_t count) {
  const Vector zero = FillBytes(0);
  const auto block = [&](uint8_t* to, const uint8_t* from) {
    Vector channels[kBytes];
    LoadPixels<kBytes>(from, channels);
    const Vector low = KeyWords(PairLow(channels[0], zero), PairLow(channels[1], zero),
                                PairLow(channels[2], zero));
    const Vector high = KeyWords(PairHigh(channels[0], zero), PairHigh(channels[1], zero),
                                 PairHigh(channels[2], zero));
    Store(to, PackWords(low, high));
  };
  WalkBlocks<kVectorBytes>(count, block, To<1>{keys}, From<kBytes>{pixels});
}

#else

template <size_t kBytes>
void Keys(uint8_t* keys, const uint8_t* pixels, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    const uint8_t* const pixel = pixels + kBytes * i;
    const int sum = kBlueWeight * pixel[0] + kGreenWeight * pixel[1] + kRedWeight * pixel[2];
    keys[i] = static_cast<uint8_t>(sum >> kWeightBits);
  }
}

#endif

template <size_t kTaps, size_t kFirst, size_t kLast>
constexpr SelectionNetwork<kTaps, kFirst, kLast> kNetwork;

template <typename Lane>
Lane Lower(Lane a, Lane b) {
  return b < a ? b : a;
}
template <typename Lane>
Lane Higher(Lane a, Lane b) {
  return b < a ? a : b;
}

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
    if constexpr (kComparator.needs_low) values[kComparator.low] = Lower(a, b);
    if constexpr (kComparator.needs_high) values[kComparator.high] = Higher(a, b);
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

#ifdef QEL_HAS_COLOUR_VECTORS

/// Keys alone, in bytes.
struct Plain {
  Vector keys;
};
inline Plain Lower(Plain a, Plain b) { return {Min(a.keys, b.keys)}; }
inline Plain Higher(Plain a, Plain b) { return {Max(a.keys, b.keys)}; }

/// Keys above the places of their taps, in words: equal keys keep their order, and the place comes
/// out with the key.
struct Placed {
  Vector keys;
};
inline Placed Lower(Placed a, Placed b) { return {MinUnsignedWords(a.keys, b.keys)}; }
inline Placed Higher(Placed a, Placed b) { return {MaxUnsignedWords(a.keys, b.keys)}; }

/// Sorted columns of keys.
template <size_t kSize>
struct PlainColumn {
  Plain at[kSize];
};
template <size_t kBytes, size_t kSize>
PlainColumn<kSize> Shifted(const PlainColumn<kSize>& v, const PlainColumn<kSize>& next) {
  PlainColumn<kSize> shifted;
  Unroll<kSize>([&](auto j) { shifted.at[j] = {Shifted<kBytes>(v.at[j].keys, next.at[j].keys)}; });
  return shifted;
}
template <size_t kSize>
struct PlacedColumn {
  Placed low[kSize];
  Placed high[kSize];
};
template <size_t kBytes, size_t kSize>
PlacedColumn<kSize> Shifted(const PlacedColumn<kSize>& v, const PlacedColumn<kSize>& next) {
  PlacedColumn<kSize> shifted;
  Unroll<kSize>([&](auto j) {
    const Words words = Shifted<kBytes>(Words{v.low[j].keys, v.high[j].keys},
                                        Words{next.low[j].keys, next.high[j].keys});
    shifted.low[j] = {words.low};
    shifted.high[j] = {words.high};
  });
  return shifted;
}

template <size_t kSize>
void MiddleKeys(uint8_t* keys, const uint8_t* const* rows, size_t count) {
  Slide<kSize, 1>(
      keys, count,
      [=](size_t k) {
        PlainColumn<kSize> column;
        Unroll<kSize>([&](auto j) { column.at[j] = {Load(rows[j] + k)}; });
        Select<0, kSize - 1>(column.at);
        return column;
      },
      [](size_t, const auto&... columns) {
        const PlainColumn<kSize>* const all[] = {&columns...};
        Plain values[kSize][kSize];
        Unroll<kSize>(
            [&](auto i) { Unroll<kSize>([&](auto j) { values[j][i] = all[i]->at[j]; }); });
        return MiddleOfSorted(values).keys;
      });
}

/// The places of the middle taps of windows of these columns.
template <size_t kSize>
inline Vector MiddlePlaces(const PlacedColumn<kSize>* const (&columns)[kSize]) {
  const auto middle = [&](auto half) {
    Placed values[kSize][kSize];
    Unroll<kSize>([&](auto i) {
      // Later columns are visited later.
      const Vector places = FillWords(static_cast<int>(kSize * i));
      Unroll<kSize>(
          [&](auto j) { values[j][i] = {AddWords((columns[i]->*half)[j].keys, places)}; });
    });
    return MiddleOfSorted(values).keys & FillWords(0xFF);
  };
  return PackWords(middle(&PlacedColumn<kSize>::low), middle(&PlacedColumn<kSize>::high));
}
/// The same with one frame on the stack for all that call it: that of 7 x 7 taps takes 16 KiB.
template <size_t kSize>
[[gnu::noinline]] Vector MiddlePlacesApart(const PlacedColumn<kSize>* const (&columns)[kSize]) {
  return MiddlePlaces(columns);
}

template <size_t kSize>
void MiddleTaps(uint8_t* taps, const uint8_t* const* rows, size_t count) {
  Slide<kSize, 1>(
      taps, count,
      [=](size_t k) {
        PlacedColumn<kSize> column;
        Unroll<kSize>([&](auto j) {
          const Vector keys = Once(Load(rows[j] + k));
          const Vector place = FillBytes(static_cast<int>(j));
          column.low[j] = {PairLow(place, keys)};
          column.high[j] = {PairHigh(place, keys)};
        });
        Select<0, kSize - 1>(column.low);
        Select<0, kSize - 1>(column.high);
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

#else

/// The middle values of `count` windows. Lanes of 16 bits hold a key above its tap's place, so that
/// equal keys keep their order and the place comes out; those of 8 bits hold keys alone.
template <size_t kSize, typename Lane>
void Middle(uint8_t* __restrict out, const uint8_t* const* rows, size_t count) {
  const uint8_t* from[kSize];
  for (size_t j = 0; j < kSize; ++j) from[j] = rows[j];
  for (size_t k = 0; k < count; ++k) {
    Lane values[kSize][kSize];
    Unroll<kSize>([&](auto i) {
      Lane column[kSize];
      Unroll<kSize>([&](auto j) {
        const uint8_t key = from[j][k + i];
        column[j] = static_cast<Lane>(sizeof(Lane) == 1 ? key : key << 8 | (i * kSize + j));
      });
      Select<0, kSize - 1>(column);
      Unroll<kSize>([&](auto j) { values[j][i] = column[j]; });
    });
    out[k] = static_cast<uint8_t>(MiddleOfSorted(values));
  }
}

template <size_t kSize>
void MiddleKeys(uint8_t* keys, const uint8_t* const* rows, size_t count) {
  Middle<kSize, uint8_t>(keys, rows, count);
}
template <size_t kSize>
void MiddleTaps(uint8_t* taps, const uint8_t* const* rows, size_t count) {
  Middle<kSize, uint16_t>(taps, rows, count);
}

#endif

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

void SelectKey(uint8_t* keys, const uint8_t* const* rows, const RankRows& ranks, size_t size,
               size_t count) {
  if (IsSorted(size)) {
    const auto middle = size == 3 ? &MiddleKeys<3> : size == 5 ? &MiddleKeys<5> : &MiddleKeys<7>;
    return middle(keys, rows, count);
  }
  StoreSelected(keys, count, [&]<typename Lanes>(size_t first, Lanes below) {
    return WantedKeys<Lanes>(rows, ranks, size, first, below);
  });
}

void SelectTap(uint8_t* taps, const uint8_t* const* rows, const RankRows& ranks, size_t size,
               size_t count) {
  if (IsSorted(size)) {
    const auto middle = size == 3 ? &MiddleTaps<3> : size == 5 ? &MiddleTaps<5> : &MiddleTaps<7>;
    return middle(taps, rows, count);
  }
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

#ifdef QEL_LEVEL_avx512vbmi

/// Largest size whose taps fit the tables of `PickTaps`.
constexpr size_t kMostPicked = 8;

/// As many pixels as fit a vector at a time. One or two vectors of each row hold all taps of a row;
/// a permutation brings each byte the one at its tap, which counts where the tap lies in that row.
template <size_t kBytes, size_t kSize>
void PickTaps(uint8_t* dest, const uint8_t* const* rows, const uint8_t* taps, size_t any_size,
              size_t count) {
  constexpr size_t kVector = 64;
  // The taps of 3-byte pixels and size 3 lie in a single vector when there are two pixels less.
  constexpr bool kSingle = kBytes == 3 && kSize == 3;
  constexpr size_t kPixels = kVector / kBytes - (kSingle ? kSize - 1 : 0);
  const size_t size = kSize != 0 ? kSize : any_size;
  alignas(kVector) uint8_t places[kVector], pixels[kVector], columns[kVector], tap_rows[kVector];
  for (size_t i = 0; i < kVector; ++i) {
    places[i] = static_cast<uint8_t>(i);
    pixels[i] = static_cast<uint8_t>(i / kBytes);
    columns[i] = static_cast<uint8_t>(i / size * kBytes);
    tap_rows[i] = static_cast<uint8_t>(i % size);
  }
  const __m512i place = _mm512_load_si512(places);
  const __m512i pixel = _mm512_load_si512(pixels);
  const __m512i column = _mm512_load_si512(columns);
  const __m512i tap_row = _mm512_load_si512(tap_rows);
  for (size_t k = 0; k < count; k += kPixels) {
    const __m512i tap = _mm512_permutexvar_epi8(pixel, _mm512_loadu_si512(taps + k));
    const __m512i from = _mm512_add_epi8(place, _mm512_permutexvar_epi8(tap, column));
    const __m512i row = _mm512_permutexvar_epi8(tap, tap_row);
    __m512i out = _mm512_setzero_si512();
    for (size_t j = 0; j < size; ++j) {
      const __m512i samples = _mm512_loadu_si512(rows[j] + k * kBytes);
      const __mmask64 counts = _mm512_cmpeq_epi8_mask(row, _mm512_set1_epi8(static_cast<char>(j)));
      if constexpr (kSingle) {
        out = _mm512_mask_permutexvar_epi8(out, counts, from, samples);
      } else {
        const __m512i next = _mm512_loadu_si512(rows[j] + k * kBytes + kVector);
        const __m512i here = _mm512_permutex2var_epi8(samples, from, next);
        out = _mm512_mask_mov_epi8(out, counts, here);
      }
    }
    const size_t left = (count - k) * kBytes;
    if (left >= kVector) {
      // What belongs to the next pixels is stored once more with these.
      _mm512_storeu_si512(dest + k * kBytes, out);
    } else {
      _mm512_mask_storeu_epi8(dest + k * kBytes, ~__mmask64{0} >> (kVector - left), out);
    }
  }
}

template <size_t kBytes>
void CopyTapsAtOnce(uint8_t* dest, const uint8_t* const* rows, const uint8_t* taps, size_t size,
                    size_t count) {
  const auto copy = size == 3             ? &PickTaps<kBytes, 3>
                    : size <= kMostPicked ? &PickTaps<kBytes, 0>
                                          : &CopyTaps<kBytes>;
  copy(dest, rows, taps, size, count);
}

constexpr auto CopyTaps3 = &CopyTapsAtOnce<3>;
constexpr auto CopyTaps4 = &CopyTapsAtOnce<4>;

#else

constexpr auto CopyTaps3 = &CopyTaps<3>;
constexpr auto CopyTaps4 = &CopyTaps<4>;

#endif

}  // namespace

extern const MedianKernels kMedianKernels;
constinit const MedianKernels kMedianKernels = {
    .keys3 = &Keys<3>,
    .keys4 = &Keys<4>,
    .rank = &Rank,
    .select_key = &SelectKey,
    .select_tap = &SelectTap,
    .copy_taps3 = CopyTaps3,
    .copy_taps4 = CopyTaps4,
};

}  // namespace qel::QEL_LEVEL
