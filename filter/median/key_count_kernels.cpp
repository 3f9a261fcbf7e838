#include "filter/median/key_count_kernels.h"

#include "filter/byte_lanes.h"

namespace qel::QEL_LEVEL {
namespace {

constexpr size_t kLanes = ColumnCounts::kLanes;
constexpr unsigned kLowBits = 4, kLow = kLanes - 1;

/// Lane k of kSteps + kLanes - t is 1 from lane t on, else 0.
constexpr uint16_t kSteps[2 * kLanes] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                         1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1};

/// Adds what counts from lane `from` on, 1 each, and takes away what counts from lane `less` on.
QEL_SIMD_INLINE void AddSteps(uint16_t* counts, size_t from, size_t less) {
  constexpr size_t kBytes = kVectorBytes < 32 ? 16 : 32;
  using Part = Vec<uint16_t, kBytes>;
  for (size_t i = 0; i < kLanes; i += Part::kLanes) {
    StoreU(LoadU<Part>(counts + i) + LoadU<Part>(kSteps + kLanes - from + i) -
               LoadU<Part>(kSteps + kLanes - less + i),
           counts + i);
  }
}

void Recount(const ColumnCounts& counts, const uint8_t* leaving, const uint8_t* entering,
             size_t columns) {
  for (size_t x = 0; x < columns; ++x) {
    const size_t left = leaving[x], entered = entering[x];
    uint16_t* const fine = counts.fine + kLanes * x;
    AddSteps(counts.coarse + kLanes * x, entered >> kLowBits, left >> kLowBits);
    // Nothing counts from lane kLanes on.
    AddSteps(fine + (entered >> kLowBits) * counts.pitch, entered & kLow, kLanes);
    AddSteps(fine + (left >> kLowBits) * counts.pitch, kLanes, left & kLow);
  }
}

/// Cumulated counts of a window; lanes beyond the sixteenth do not matter.
class WindowCounts {
 public:
  /// Lanes in memory.
  static constexpr size_t kStored = kVectorBytes < 64 ? kLanes : 2 * kLanes;

  QEL_SIMD_INLINE void Add(const uint16_t* column) {
    for (size_t i = 0; i < kVectors; ++i) v_[i] += LoadU<U16>(column + i * U16::kLanes);
  }
  QEL_SIMD_INLINE void Replace(const uint16_t* entering, const uint16_t* leaving) {
    for (size_t i = 0; i < kVectors; ++i) {
      v_[i] += LoadU<U16>(entering + i * U16::kLanes) - LoadU<U16>(leaving + i * U16::kLanes);
    }
  }
  /// How many lanes count at most `most`, which are the first ones.
  QEL_SIMD_INLINE size_t AtMost(size_t most) const {
    uint64_t above = uint64_t{1} << kLanes;
    for (size_t i = 0; i < kVectors; ++i) {
      above |= BitsGreater(v_[i], Set<U16>(static_cast<uint16_t>(most))) << i * U16::kLanes;
    }
    return static_cast<size_t>(__builtin_ctzll(above));
  }
  QEL_SIMD_INLINE void Load(const uint16_t* counts) {
    for (size_t i = 0; i < kVectors; ++i) v_[i] = LoadU<U16>(counts + i * U16::kLanes);
  }
  QEL_SIMD_INLINE void Store(uint16_t* counts) const {
    for (size_t i = 0; i < kVectors; ++i) StoreU(v_[i], counts + i * U16::kLanes);
  }

 private:
  static constexpr size_t kVectors = kStored / U16::kLanes;
  U16 v_[kVectors] = {};
};

/// The fine counts of the window, each segment brought up to date when it is asked for: by the
/// columns that entered and left since, or anew where those are more than the window has.
class FineCounts {
 public:
  FineCounts(const ColumnCounts& counts, size_t size) : counts_(counts), size_(size) {
    for (size_t& at : at_) at = kNever;
  }

  /// The counts of window `x`, in memory.
  QEL_SIMD_INLINE const uint16_t* At(size_t segment, size_t x, WindowCounts& window) {
    const uint16_t* const columns = counts_.fine + segment * counts_.pitch;
    size_t column = at_[segment];
    if (column == kNever || 2 * (x - column) > size_) {
      window = {};
      for (column = x; column < x + size_; ++column) window.Add(columns + kLanes * column);
    } else {
      window.Load(stored_[segment]);
      for (; column < x; ++column) {
        window.Replace(columns + kLanes * (column + size_), columns + kLanes * column);
      }
    }
    at_[segment] = x;
    window.Store(stored_[segment]);
    return stored_[segment];
  }

 private:
  static constexpr size_t kNever = ~size_t{0};
  const ColumnCounts& counts_;
  const size_t size_;
  size_t at_[kLanes];
  alignas(64) uint16_t stored_[kLanes][WindowCounts::kStored];
};

/// The wanted key is as large as there are keys up to which lie at most the wanted number of taps:
/// so are its high bits among the coarse counts and its low bits among the fine ones.
template <bool kWantsPlaces>
void MiddleKeysOf(uint8_t* keys, TapPlace* places, const ColumnCounts& counts, size_t size,
                  size_t count) {
  const size_t middle = size * size / 2;
  WindowCounts coarse;
  for (size_t i = 0; i < size; ++i) coarse.Add(counts.coarse + kLanes * i);
  FineCounts fine(counts, size);
  // Both begin with a 0: what lies below the first lane.
  alignas(64) uint16_t below[1 + WindowCounts::kStored] = {};
  for (size_t x = 0; x < count; ++x) {
    coarse.Store(below + 1);
    const size_t high = coarse.AtMost(middle);
    const size_t rest = middle - below[high];
    WindowCounts window;
    const uint16_t* const lanes = fine.At(high, x, window);
    const size_t low = window.AtMost(rest);
    keys[x] = static_cast<uint8_t>(high << kLowBits | low);
    if constexpr (kWantsPlaces) {
      const size_t before = low > 0 ? lanes[low - 1] : 0;
      places[x] = {static_cast<uint16_t>(rest - before),
                   static_cast<uint16_t>(lanes[low] - before)};
    }
    if (x + 1 < count) {
      coarse.Replace(counts.coarse + kLanes * (x + size), counts.coarse + kLanes * x);
    }
  }
}

void MiddleKeys(uint8_t* keys, TapPlace* places, const ColumnCounts& counts, size_t size,
                size_t count) {
  const auto function = places != nullptr ? &MiddleKeysOf<true> : &MiddleKeysOf<false>;
  function(keys, places, counts, size, count);
}

/// Goes through the columns of a window from the nearer end.
inline void FindColumnOf(uint8_t& found, uint8_t& number, const uint16_t* columns, size_t low,
                         const TapPlace& place, size_t size) {
  const auto taps_of = [&](size_t column) {
    const uint16_t* const counts = columns + column * kLanes + low;
    return static_cast<uint32_t>(counts[0] - (low > 0 ? counts[-1] : 0));
  };
  if (2u * place.number < place.taps) {
    size_t column = 0;
    uint32_t rest = place.number;
    for (uint32_t taps = taps_of(0); rest >= taps; taps = taps_of(++column)) rest -= taps;
    found = static_cast<uint8_t>(column);
    number = static_cast<uint8_t>(rest);
    return;
  }
  size_t column = size - 1;
  uint32_t after = place.taps - 1u - place.number;
  uint32_t taps = taps_of(column);
  for (; after >= taps; taps = taps_of(--column)) after -= taps;
  found = static_cast<uint8_t>(column);
  number = static_cast<uint8_t>(taps - 1 - after);
}

void FindColumns(uint8_t* found, uint8_t* numbers, const uint8_t* keys, const TapPlace* places,
                 const ColumnCounts& counts, size_t size, size_t count) {
  for (size_t x = 0; x < count; ++x) {
    const uint16_t* const columns = counts.fine + (keys[x] >> kLowBits) * counts.pitch + kLanes * x;
    FindColumnOf(found[x], numbers[x], columns, keys[x] & kLow, places[x], size);
  }
}

size_t FindColumn(const uint8_t* keys, size_t pitch, size_t columns, size_t length, uint8_t key,
                  int64_t extra, int64_t* rest) {
  for (size_t column = 0; column < columns; ++column) {
    const int64_t taps =
        static_cast<int64_t>(CountEqual(keys + column * pitch, length, key)) + extra;
    if (*rest < taps) return column;
    *rest -= taps;
  }
  return columns;
}

}  // namespace

extern const KeyCountKernels kKeyCountKernels;
constinit const KeyCountKernels kKeyCountKernels = {
    .recount = &Recount,
    .middle_keys = &MiddleKeys,
    .find_columns = &FindColumns,
    .find_column = &FindColumn,
    .find_equal = &FindEqual,
};

}  // namespace qel::QEL_LEVEL
