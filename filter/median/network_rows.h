#ifndef QEL_FILTER_MEDIAN_NETWORK_ROWS_H_
#define QEL_FILTER_MEDIAN_NETWORK_ROWS_H_

#include <utility>

#include "filter/median/median_kernels.h"
#include "filter/median/selection_network.h"
#include "simd/window.h"

// The middle of squares of keys by comparators (Batcher 1968), as small as 3 x 3: each column is
// sorted once for all windows that it lies in, then the rows of the window, then what may still be
// the middle.

namespace qel::QEL_LEVEL {
namespace {

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
  // Copies, so that the stores cannot change them.
  const uint8_t* here[kSize];
  __builtin_memcpy(here, rows, sizeof(here));
  StoreWindows<kSize, 1>(
      keys, count,
      [&](size_t k) {
        PrefetchAhead<kVectorBytes>(here[kSize - 1] + k);
        KeyColumn<kSize> column;
        Unroll<kSize>([&](auto j) { column.at[j] = LoadU<U8>(here[j] + k); });
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
        return MiddlePlaces(all);
      });
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_FILTER_MEDIAN_NETWORK_ROWS_H_
