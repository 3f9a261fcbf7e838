#include "filter/median/key_count_kernels.h"

#include "filter/byte_lanes.h"
#include "image/sum_vectors.h"

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

#if defined(QEL_LEVEL_avx512) || defined(QEL_LEVEL_avx512vbmi)

/// The counts of a window, in registers.
class WindowCounts {
 public:
  void Add(const uint8_t* column) {
    for (size_t i = 0; i < kVectors; ++i) {
      const auto* const bytes = reinterpret_cast<const __m256i*>(column + 32 * i);
      words_[i] = AddWords(words_[i], Widen(_mm256_loadu_si256(bytes)));
    }
  }
  /// Lets one column enter and another one leave.
  void Replace(const uint8_t* entering, const uint8_t* leaving) {
    for (size_t i = 0; i < kVectors; i += 2) {
      const Vector change = _mm512_sub_epi8(Load(entering + 32 * i), Load(leaving + 32 * i));
      words_[i] = AddWords(words_[i], Widen(_mm512_castsi512_si256(change)));
      words_[i + 1] = AddWords(words_[i + 1], Widen(_mm512_extracti64x4_epi64(change, 1)));
    }
  }
  /// How many keys have at most as many taps up to them as `Limit` was given.
  static Vector Limit(size_t taps) { return FillWords(static_cast<int>(taps)); }
  size_t AtMost(Vector most) const {
    size_t keys = 0;
    for (size_t i = 0; i < kVectors; i += 2) {
      const uint64_t low = _mm512_cmple_epu16_mask(words_[i], most);
      const uint64_t high = _mm512_cmple_epu16_mask(words_[i + 1], most);
      keys += static_cast<size_t>(__builtin_popcountll(low | high << 32));
    }
    return keys;
  }
  void Store(uint16_t* counts) const {
    for (size_t i = 0; i < kVectors; ++i) _mm512_store_si512(counts + 32 * i, words_[i]);
  }

 private:
  static constexpr size_t kVectors = kCountBytes / 32;

  static Vector Widen(__m256i bytes) { return _mm512_cvtepi8_epi16(bytes); }
  Vector words_[kVectors] = {};
};

#else

/// The counts of a window.
class WindowCounts {
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

#endif

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

void SlideColumns(uint8_t* keys, TapPlace* places, const uint8_t* columns, size_t size,
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
    .slide = &SlideColumns,
    .find_columns = &FindColumns,
    .find_column = &FindColumn,
    .find_equal = &FindEqual,
};

}  // namespace qel::QEL_LEVEL
