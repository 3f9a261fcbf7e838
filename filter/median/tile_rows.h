#ifndef QEL_FILTER_MEDIAN_TILE_ROWS_H_
#define QEL_FILTER_MEDIAN_TILE_ROWS_H_

#include <utility>

#include "filter/median/merge_network.h"
#include "filter/median/network_rows.h"
#include "filter/median/tile_kernels.h"
#include "simd/convert.h"
#include "simd/interleaved.h"
#include "simd/prefetch.h"

// The middle keys of windows that share most of their keys, after Adams (2021), "Fast median
// filters using separable sorting networks". The windows of a tile have a core of keys in common,
// which is sorted once. Then the tile is halved, across and down by turns: the keys that all
// windows of a half share besides are merged into its core, until a half is one window. What
// reaches beyond a core waits as sorted columns at its sides and sorted rows above and below it,
// which grow with it. Keys of a core that have too many others on one side to be in the middle of
// any window are left out. Lanes are tiles side by side: rows are spread into runs, by their column
// modulo the tile's width.

namespace qel::QEL_LEVEL {
namespace {

template <size_t kA, size_t kB, size_t kFirst, size_t kLast>
constexpr MergeNetwork<kA, kB, kFirst, kLast> kMergeNetwork;

/// So many values are merged as one expression: more take longer to compile and hardly less to run.
constexpr size_t kMostUnrolled = 64;

// Registers without their type, and no function for each index: there are thousands of steps, and
// all that is left out here is what takes long to compile.

template <const auto& kNetwork, size_t kIndex, typename Raw>
QEL_SIMD_INLINE void Exchange(Raw* values) {
  constexpr Comparator kComparator = kNetwork[kIndex];
  const Raw low = values[kComparator.low], high = values[kComparator.high];
  if constexpr (kComparator.needs_low) values[kComparator.low] = low < high ? low : high;
  if constexpr (kComparator.needs_high) values[kComparator.high] = low > high ? low : high;
}

/// The values number `kFirst` to `kLast` of two sorted runs together, every `kStride`-th value from
/// `a` and `b` on.
template <size_t kStride, size_t kA, size_t kB, size_t kFirst, size_t kLast, typename V>
[[gnu::noinline]] void MergeEvery(const V* __restrict a, const V* __restrict b,
                                  V* __restrict merged) {
  if constexpr (kA + kB <= kMostUnrolled) {
    constexpr auto& kNetwork = kMergeNetwork<kA, kB, kFirst, kLast>;
    typename V::Raw values[kA + kB];
    [&]<size_t... i>(std::index_sequence<i...>) { ((values[i] = a[kStride * i].raw), ...); }
    (std::make_index_sequence<kA>());
    [&]<size_t... i>(std::index_sequence<i...>) { ((values[kA + i] = b[kStride * i].raw), ...); }
    (std::make_index_sequence<kB>());
    [&]<size_t... i>(std::index_sequence<i...>) { (Exchange<kNetwork, i>(values), ...); }
    (std::make_index_sequence<kNetwork.size()>());
    [&]<size_t... i>(std::index_sequence<i...>) {
      ((merged[i].raw = values[kNetwork.PlaceOf(kFirst + i)]), ...);
    }
    (std::make_index_sequence<kLast - kFirst + 1>());
  } else {
    // The last step of the network: even ones of both runs are merged, and odd ones, mostly by the
    // same function. Then odd i and even i + 1 give numbers 2 i + 1 and 2 i + 2.
    constexpr size_t kEvens = (kA + 1) / 2 + (kB + 1) / 2, kOdds = kA / 2 + kB / 2;
    constexpr size_t kPairs = kOdds < kEvens - 1 ? kOdds : kEvens - 1;
    constexpr size_t kBegin = kFirst == 0 ? 0 : (kFirst - 1) / 2, kEnd = (kLast + 1) / 2;
    constexpr size_t kLastEven = kEnd < kEvens ? kEnd : kEvens - 1;
    constexpr size_t kLastOdd = kEnd < kOdds ? kEnd : kOdds - 1;
    V evens[kLastEven - kBegin + 1], odds[kLastOdd - kBegin + 1];
    MergeEvery<2 * kStride, (kA + 1) / 2, (kB + 1) / 2, kBegin, kLastEven>(a, b, evens);
    MergeEvery<2 * kStride, kA / 2, kB / 2, kBegin, kLastOdd>(a + kStride, b + kStride, odds);
    const auto even = [&](size_t i) { return evens[i - kBegin]; };
    const auto odd = [&](size_t i) { return odds[i - kBegin]; };
    size_t number = kFirst;
    if constexpr (kFirst == 0) {
      *merged++ = even(number++);
    } else if constexpr (kFirst % 2 == 0) {
      *merged++ = Max(odd(kBegin), even(kBegin + 1));
      ++number;
    }
    for (; number < kLast; number += 2) {
      const V lower = odd(number / 2), upper = even(number / 2 + 1);
      *merged++ = Min(lower, upper);
      *merged++ = Max(lower, upper);
    }
    if constexpr (kLast % 2 == 0) {
      return;
    } else if constexpr (kLast / 2 < kPairs) {
      *merged = Min(odd(kLast / 2), even(kLast / 2 + 1));
    } else if constexpr (kOdds < kEvens) {
      *merged = even(kEvens - 1);
    } else {
      *merged = odd(kOdds - 1);
    }
  }
}
template <size_t kA, size_t kB, size_t kFirst, size_t kLast, typename V>
QEL_SIMD_INLINE void MergeRuns(const V* a, const V* b, V* merged) {
  MergeEvery<1, kA, kB, kFirst, kLast>(a, b, merged);
}

/// Value number `kRank` of two sorted runs together: as many smaller ones as it takes come from
/// either, and their largest is smallest for the right choice.
template <size_t kA, size_t kB, size_t kRank, typename V>
QEL_SIMD_INLINE V NumberOfRuns(const V* a, const V* b) {
  constexpr size_t kFewest = kRank + 1 > kB ? kRank + 1 - kB : 0;
  constexpr size_t kMost = kRank + 1 < kA ? kRank + 1 : kA;
  const auto largest = [=](auto from_a) {
    constexpr size_t kFromB = kRank + 1 - from_a;
    if constexpr (from_a == 0) {
      return b[kFromB - 1];
    } else if constexpr (kFromB == 0) {
      return a[from_a - 1];
    } else {
      return Max(a[from_a - 1], b[kFromB - 1]);
    }
  };
  V number = largest(std::integral_constant<size_t, kFewest>());
  Unroll<kMost - kFewest>([&](auto i) {
    number = Min(number, largest(std::integral_constant<size_t, kFewest + 1 + i>()));
  });
  return number;
}

// Keys alone are bytes. Where the tap is wanted, 16 bits hold a key times `kPlaces` and the tap's
// place; what counts is that places of a window differ by less, and rise in the order of visiting.

constexpr size_t kPlaces = 240;
static_assert(kPlaces >= kMostTiled * kMostTiled);
/// From the lowest signed number on: all levels compare these.
constexpr int16_t kLeastPlaced = INT16_MIN;

QEL_SIMD_INLINE U8 AddPlace(U8 keys, size_t) { return keys; }
QEL_SIMD_INLINE I16 AddPlace(I16 placed, size_t place) {
  return placed + Set<I16>(static_cast<int16_t>(place));
}
/// The places alone, less `first`, which is not above any.
QEL_SIMD_INLINE I16 PlaceOf(I16 placed, size_t first) {
  const U16 v = BitCast<U16>(placed) - Set<U16>(static_cast<uint16_t>(kLeastPlaced + first));
  // A division by `kPlaces`, exact for 16 bits.
  constexpr uint32_t kReciprocal = (uint32_t{1} << 23) / kPlaces + 1;
  static_assert((kReciprocal * kPlaces - (1u << 23)) * 0xFFFFu < 1u << 23);
  const U16 key = ShiftRight<7>(MulHigh(v, Set<U16>(kReciprocal)));
  return BitCast<I16>(v - key * Set<U16>(kPlaces));
}

/// Tiles of windows of `kSize` x `kSize`. `V` are keys, or keys with places.
template <typename V, size_t kSize, size_t kTileHeight>
class TileMedian {
 public:
  using Results = V[kTileHeight][kTileWidth];

  /// `pitch` counts bytes.
  TileMedian(const uint8_t* const* rows, size_t pitch, uint8_t* sorted)
      : rows_(rows), pitch_(pitch), sorted_(sorted) {}

  /// Sorts what the cores have of each column, for all columns under `count` tiles.
  void SortColumns(size_t count) const {
    const size_t columns = count + (kSize + kTileWidth - 2) / kTileWidth;
    for (size_t phase = 0; phase < kTileWidth; ++phase) {
      for (size_t k = 0; k < columns * kKeyBytes; k += kVectorBytes) {
        V keys[kCoreRows];
        Unroll<kCoreRows>([&](auto j) {
          const size_t y = kTileHeight - 1 + j;
          keys[j] = AddPlace(LoadU<V>(rows_[y] + phase * pitch_ + k), kSize * phase + y);
        });
        Select<0, kCoreRows - 1>(keys);
        Unroll<kCoreRows>(
            [&](auto j) { StoreU(keys[j], sorted_ + (phase * kCoreRows + j) * pitch_ + k); });
      }
    }
  }

  /// The middle keys of the windows of the tiles from `tile` on.
  void Find(size_t tile, Results& results) const {
    V columns[2 * (kTileWidth - 1) + kCoreColumns][kCoreRows];
    for (size_t x = 0; x < kSize + kTileWidth - 1; ++x) {
      const size_t phase = x % kTileWidth;
      const uint8_t* const from =
          sorted_ + phase * kCoreRows * pitch_ + (x / kTileWidth + tile) * kKeyBytes;
      Unroll<kCoreRows>([&](auto j) {
        columns[x][j] = AddPlace(LoadU<V>(from + j * pitch_), kSize * (x - phase));
      });
    }
    V rows[2][kTileHeight - 1][kCoreColumns];
    Part<kTileWidth, kTileHeight> whole;
    for (size_t d = 0; d + 1 < kTileHeight; ++d) {
      for (size_t side = 0; side < 2; ++side) {
        SortRow(side == 0 ? kTileHeight - 2 - d : kSize + d, tile, rows[side][d]);
        whole.lines[1][side][d] = rows[side][d];
      }
    }
    for (size_t d = 0; d + 1 < kTileWidth; ++d) {
      whole.lines[0][0][d] = columns[kTileWidth - 2 - d];
      whole.lines[0][1][d] = columns[kSize + d];
    }
    V core[Candidates(kCoreColumns * kCoreRows).Count()];
    MergeColumns<kCoreRows, kCoreColumns>(columns + kTileWidth - 1, core);
    whole.core = core;
    Halve(whole, tile, results);
  }

 private:
  static constexpr size_t kCoreColumns = kSize - kTileWidth + 1;
  static constexpr size_t kCoreRows = kSize - kTileHeight + 1;
  static constexpr size_t kKeys = kSize * kSize;
  static constexpr size_t kKeyBytes = sizeof(typename V::Lane);

  /// Which of some keys of a window, in their order, may be in its middle.
  struct Ranks {
    size_t first;
    size_t last;
    constexpr size_t Count() const { return last - first + 1; }
  };
  static constexpr Ranks Candidates(size_t known) {
    constexpr size_t kMiddle = kKeys / 2;
    return {known + kMiddle > kKeys ? known + kMiddle - kKeys : 0,
            known - 1 < kMiddle ? known - 1 : kMiddle};
  }

  /// Some windows of each tile.
  template <size_t kWide, size_t kHigh>
  struct Part {
    size_t at[2] = {};  ///< column and row of the first window in its tile
    const V* core;      ///< the candidates of what they share, in their order
    /// Columns left and right of the core, and rows above and below it, the nearest first; each
    /// sorted, as long as the core.
    const V* lines[2][2][kTileWidth];
  };

  V Key(size_t x, size_t y, size_t tile) const {
    const uint8_t* const run = rows_[y] + x % kTileWidth * pitch_;
    return AddPlace(LoadU<V>(run + (x / kTileWidth + tile) * kKeyBytes), kSize * x + y);
  }
  [[gnu::noinline]] void SortRow(size_t y, size_t tile, V (&keys)[kCoreColumns]) const {
    Unroll<kCoreColumns>([&](auto i) { keys[i] = Key(kTileWidth - 1 + i, y, tile); });
    Select<0, kCoreColumns - 1>(keys);
  }

  /// Merges keys that are sorted, and of which only candidates are left, with more of them.
  template <size_t kKnown, size_t kMore>
  static void MergeCandidates(const V* known, const V* more, V* merged) {
    constexpr Ranks kOld = Candidates(kKnown), kAdded = Candidates(kMore),
                    kNew = Candidates(kKnown + kMore);
    constexpr size_t kLeftOut = kOld.first + kAdded.first;
    MergeRuns<kOld.Count(), kAdded.Count(), kNew.first - kLeftOut, kNew.last - kLeftOut>(
        known, more, merged);
  }
  template <size_t kLength, size_t kCount>
  [[gnu::noinline]] static void MergeColumns(const V (*columns)[kLength], V* merged) {
    if constexpr (kCount == 1) {
      Unroll<kLength>([&](auto i) { merged[i] = columns[0][i]; });
    } else if constexpr (kCount == 2) {
      MergeCandidates<kLength, kLength>(columns[0], columns[1], merged);
    } else {
      constexpr size_t kLeft = kCount / 2, kRight = kCount - kLeft;
      V left[Candidates(kLeft * kLength).Count()];
      V right[Candidates(kRight * kLength).Count()];
      MergeColumns<kLength, kLeft>(columns, left);
      MergeColumns<kLength, kRight>(columns + kLeft, right);
      MergeCandidates<kLeft * kLength, kRight * kLength>(left, right, merged);
    }
  }

  template <size_t kWide, size_t kHigh>
  [[gnu::noinline]] void Halve(const Part<kWide, kHigh>& part, size_t tile,
                               Results& results) const {
    // Across, axis 0, or down.
    constexpr size_t kAxis = kWide >= kHigh ? 0 : 1, kOther = 1 - kAxis;
    constexpr size_t kHalf = (kAxis == 0 ? kWide : kHigh) / 2;
    constexpr size_t kTheirs = kAxis == 0 ? kHigh : kWide;
    constexpr size_t kColumns = kSize - kWide + 1, kRows = kSize - kHigh + 1;
    constexpr size_t kKnown = kColumns * kRows;
    // Of the lines that enter the cores, and of those that grow.
    constexpr size_t kLength = kAxis == 0 ? kRows : kColumns;
    constexpr size_t kShort = kAxis == 0 ? kColumns : kRows;
    for (size_t side = 0; side < 2; ++side) {
      Part<kAxis == 0 ? kHalf : kWide, kAxis == 0 ? kHigh : kHalf> half;
      half.at[kOther] = part.at[kOther];
      half.at[kAxis] = part.at[kAxis] + side * kHalf;
      static_assert(kHalf <= 2);
      V pair[kHalf * kLength];
      const V* entering = part.lines[kAxis][side][0];
      if constexpr (kHalf == 2) {
        MergeRuns<kLength, kLength, 0, 2 * kLength - 1>(entering, part.lines[kAxis][side][1], pair);
        entering = pair;
      }
      if constexpr (kHalf == 1 && kTheirs == 1) {
        constexpr Ranks kOld = Candidates(kKnown);
        results[half.at[1]][half.at[0]] =
            NumberOfRuns<kOld.Count(), kLength, kKeys / 2 - kOld.first>(part.core, entering);
      } else {
        V core[Candidates(kKnown + kHalf * kLength).Count()];
        MergeCandidates<kKnown, kHalf * kLength>(part.core, entering, core);
        half.core = core;
        for (size_t d = 0; d + 1 < kHalf; ++d) {
          for (size_t s = 0; s < 2; ++s) {
            half.lines[kAxis][s][d] = part.lines[kAxis][s][s == side ? kHalf + d : d];
          }
        }
        V longer[2][kTheirs][kShort + kHalf];
        for (size_t s = 0; s < 2; ++s) {
          for (size_t d = 0; d + 1 < kTheirs; ++d) {
            size_t from[2];
            from[kAxis] = part.at[kAxis] + (side == 0 ? kHalf - 1 : kSize);
            from[kOther] = part.at[kOther] + (s == 0 ? kTheirs - 2 - d : kSize + d);
            V keys[kHalf];
            keys[0] = Key(from[0], from[1], tile);
            if constexpr (kHalf == 2) {
              const V second = Key(from[0] + kOther, from[1] + kAxis, tile);
              keys[1] = Max(keys[0], second);
              keys[0] = Min(keys[0], second);
            }
            MergeRuns<kShort, kHalf, 0, kShort + kHalf - 1>(part.lines[kOther][s][d], keys,
                                                            longer[s][d]);
            half.lines[kOther][s][d] = longer[s][d];
          }
        }
        Halve(half, tile, results);
      }
    }
  }

  const uint8_t* const* const rows_;
  const size_t pitch_;
  uint8_t* const sorted_;
};

/// Spreads keys; store(k, run, keys) takes those of run `run` from `k` on.
template <typename Store>
inline void Spread(const uint8_t* keys, size_t count, const Store& store) {
  for (size_t k = 0; k < count; k += kVectorBytes) {
    U8 runs[kTileWidth];
    LoadInterleaved<kTileWidth>(keys + k * kTileWidth, runs);
    for (size_t i = 0; i < kTileWidth; ++i) store(k, i, runs[i]);
  }
}
void SpreadKeys(uint8_t* runs, size_t pitch, const uint8_t* keys, size_t count) {
  Spread(keys, count, [=](size_t k, size_t run, U8 v) { StoreU(v, runs + run * pitch + k); });
}
void SpreadPlaced(uint8_t* runs, size_t pitch, const uint8_t* keys, size_t count) {
  const auto placed = [](Half<U8> v) {
    return BitCast<I16>(ConvertTo<U16>(v) * Set<U16>(kPlaces)) + Set<I16>(kLeastPlaced);
  };
  Spread(keys, count, [=](size_t k, size_t run, U8 v) {
    uint8_t* const to = runs + run * pitch + 2 * k;
    StoreU(placed(LowerHalf(v)), to);
    StoreU(placed(UpperHalf(v)), to + kVectorBytes);
  });
}

/// Calls find(tile, results) for the bytes of a vector of tiles each, and stores these. The memory
/// brings as much of the rows ahead each time: whole rows at once would have to be waited for.
template <size_t kTileHeight, typename Find>
inline void StoreTiles(uint8_t* const* dest, const RowsAhead& ahead, size_t count,
                       const Find& find) {
  constexpr size_t kWindows = kTileWidth * kVectorBytes;
  for (size_t x = 0; x < count; x += kWindows) {
    const size_t windows = count - x < kWindows ? count - x : kWindows;
    for (size_t i = 0; i < ahead.count; ++i) {
      PrefetchRun(ahead.rows[i] + x * ahead.step, static_cast<int64_t>(windows * ahead.step));
    }
    U8 results[kTileHeight][kTileWidth];
    find(x / kTileWidth, results);
    for (size_t y = 0; y < kTileHeight; ++y) {
      if (count - x >= kWindows) {
        StoreInterleaved<kTileWidth>(results[y], dest[y] + x);
      } else {
        alignas(64) uint8_t rest[kWindows];
        StoreInterleaved<kTileWidth>(results[y], rest);
        __builtin_memcpy(dest[y] + x, rest, count - x);
      }
    }
  }
}

template <size_t kSize>
void MiddleKeysOfTiles(uint8_t* const* dest, const uint8_t* const* rows, size_t pitch,
                       uint8_t* sorted, const RowsAhead& ahead, size_t count) {
  if constexpr (IsTiled(kSize)) {
    constexpr size_t kTileHeight = TileHeight(kSize);
    const TileMedian<U8, kSize, kTileHeight> median(rows, pitch, sorted);
    median.SortColumns((count + kTileWidth - 1) / kTileWidth);
    StoreTiles<kTileHeight>(dest, ahead, count,
                            [&](size_t tile, auto& results) { median.Find(tile, results); });
  }
}

template <size_t kSize>
void MiddleTapsOfTiles(uint8_t* const* dest, const uint8_t* const* rows, size_t pitch,
                       uint8_t* sorted, const RowsAhead& ahead, size_t count) {
  if constexpr (IsTiled(kSize)) {
    constexpr size_t kTileHeight = TileHeight(kSize);
    const TileMedian<I16, kSize, kTileHeight> median(rows, pitch, sorted);
    median.SortColumns((count + kTileWidth - 1) / kTileWidth);
    StoreTiles<kTileHeight>(dest, ahead, count, [&](size_t tile, auto& results) {
      I16 halves[2][kTileHeight][kTileWidth] = {};
      median.Find(tile, halves[0]);
      if ((tile + I16::kLanes) * kTileWidth < count) median.Find(tile + I16::kLanes, halves[1]);
      for (size_t y = 0; y < kTileHeight; ++y) {
        for (size_t x = 0; x < kTileWidth; ++x) {
          const size_t first = kSize * x + y;
          results[y][x] = LowerThenUpperHalves(ReorderDemote2To<U8>(
              PlaceOf(halves[0][y][x], first), PlaceOf(halves[1][y][x], first)));
        }
      }
    });
  }
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_FILTER_MEDIAN_TILE_ROWS_H_
