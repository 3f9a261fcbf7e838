#include "filter/median/key_count_kernels.h"

#include "filter/byte_lanes.h"

namespace qel::QEL_LEVEL {
namespace {

void Recount(uint8_t* counts, const uint8_t* leaving, const uint8_t* entering, size_t columns) {
  alignas(64) uint8_t all_keys[kCountBytes];
  for (size_t k = 0; k < kCountBytes; ++k) all_keys[k] = static_cast<uint8_t>(k);
  for (size_t x = 0; x < columns; ++x, counts += kCountBytes) {
    const Bytes left = Bytes::Set(leaving[x]);
    const Bytes entered = Bytes::Set(entering[x]);
    for (size_t k = 0; k < kCountBytes; k += Bytes::kLanes) {
      // A key counts from itself on, that is, wherever not below.
      const Bytes keys = Bytes::Load(all_keys + k);
      Bytes count = Bytes::Load(counts + k);
      count.CountBelow(keys, left);
      count.UncountBelow(keys, entered);
      count.Store(counts + k);
    }
  }
}

/// The counts of a window, in registers.
class CountsInRegisters {
 public:
  void Add(const uint8_t* column) {
    for (size_t i = 0; i < kVectors; ++i) {
      counts_[i] += Widen(LoadU<Half<I8>>(column + i * kVectorBytes / 2));
    }
  }
  /// Lets one column enter and another one leave.
  void Replace(const uint8_t* entering, const uint8_t* leaving) {
    for (size_t i = 0; i < kVectors; i += 2) {
      const size_t at = i * kVectorBytes / 2;
      const I8 change = LoadU<I8>(entering + at) - LoadU<I8>(leaving + at);
      counts_[i] += Widen(LowerHalf(change));
      counts_[i + 1] += Widen(UpperHalf(change));
    }
  }
  /// How many keys have at most as many taps up to them as `Limit` was given.
  static U16 Limit(size_t taps) { return Set<U16>(static_cast<uint16_t>(taps)); }
  size_t AtMost(U16 most) const {
    size_t keys = 0;
    for (size_t i = 0; i < kVectors; i += 2) {
      const uint64_t low = BitsFromMask(counts_[i] <= most);
      const uint64_t high = BitsFromMask(counts_[i + 1] <= most);
      keys += static_cast<size_t>(__builtin_popcountll(low | high << U16::kLanes));
    }
    return keys;
  }
  void Store(uint16_t* counts) const {
    for (size_t i = 0; i < kVectors; ++i) StoreU(counts_[i], counts + i * U16::kLanes);
  }

 private:
  static constexpr size_t kVectors = kCountBytes / U16::kLanes;

  QEL_SIMD_INLINE static U16 Widen(Half<I8> bytes) { return BitCast<U16>(ConvertTo<I16>(bytes)); }
  U16 counts_[kVectors] = {};
};

/// The same in memory, where there are too few registers.
class CountsInMemory {
 public:
  void Add(const uint8_t* column) {
    for (size_t k = 0; k < kCountBytes; ++k) {
      words_[k] = static_cast<uint16_t>(words_[k] + column[k]);
    }
  }
  /// Lets one column enter and another one leave.
  void Replace(const uint8_t* entering, const uint8_t* leaving) {
    for (size_t k = 0; k < kCountBytes; ++k) {
      words_[k] = static_cast<uint16_t>(words_[k] + static_cast<int8_t>(entering[k] - leaving[k]));
    }
  }
  /// How many keys have at most as many taps up to them as `Limit` was given.
  static uint16_t Limit(size_t taps) { return static_cast<uint16_t>(taps); }
  size_t AtMost(uint16_t most) const {
    uint16_t keys = 0;
    for (size_t k = 0; k < kCountBytes; ++k) {
      keys = static_cast<uint16_t>(keys + (words_[k] <= most ? 1 : 0));
    }
    return keys;
  }
  void Store(uint16_t* counts) const { __builtin_memcpy(counts, words_, sizeof(words_)); }

 private:
  uint16_t words_[kCountBytes] = {};
};

using WindowCounts = std::conditional_t<kVectorBytes >= 64, CountsInRegisters, CountsInMemory>;

/// The wanted key is as large as there are keys up to which lie at most the wanted number of taps.
template <bool kWantsPlaces>
void SlideWindows(uint8_t* keys, TapPlace* places, const uint8_t* columns, size_t size,
                  size_t count) {
  WindowCounts window;
  for (size_t i = 0; i < size; ++i) window.Add(columns + i * kCountBytes);
  const size_t middle = size * size / 2;
  const auto limit = WindowCounts::Limit(middle);
  alignas(64) uint16_t counts[kCountBytes];
  for (size_t x = 0; x < count; ++x, columns += kCountBytes) {
    const size_t key = window.AtMost(limit);
    keys[x] = static_cast<uint8_t>(key);
    if constexpr (kWantsPlaces) {
      window.Store(counts);
      const uint32_t below = key > 0 ? counts[key - 1] : 0;
      places[x] = {static_cast<uint16_t>(middle - below),
                   static_cast<uint16_t>(counts[key] - below)};
    }
    if (x + 1 < count) window.Replace(columns + size * kCountBytes, columns);
  }
}

void MiddleKeysOf(uint8_t* keys, TapPlace* places, const uint8_t* columns, size_t size,
                  size_t count) {
  const auto function = places != nullptr ? &SlideWindows<true> : &SlideWindows<false>;
  function(keys, places, columns, size, count);
}

/// Goes through the columns of a window from the nearer end.
inline void FindColumnOf(uint8_t& found, uint8_t& number, const uint8_t* columns, size_t key,
                         const TapPlace& place, size_t size) {
  const auto taps_of = [&](size_t column) {
    const uint8_t* const counts = columns + column * kCountBytes + key;
    return static_cast<uint32_t>(counts[0] - (key > 0 ? counts[-1] : 0));
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
                 const uint8_t* columns, size_t size, size_t count) {
  for (size_t x = 0; x < count; ++x, columns += kCountBytes) {
    FindColumnOf(found[x], numbers[x], columns, keys[x], places[x], size);
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
    .middle_keys = &MiddleKeysOf,
    .find_columns = &FindColumns,
    .find_column = &FindColumn,
    .find_equal = &FindEqual,
};

}  // namespace qel::QEL_LEVEL
