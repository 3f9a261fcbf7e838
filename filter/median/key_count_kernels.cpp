#include "filter/median/key_count_kernels.h"

#include "filter/byte_lanes.h"
#include "simd/interleaved.h"

namespace qel::QEL_LEVEL {
namespace {

constexpr size_t kLanes = ColumnCounts::kLanes;
constexpr unsigned kLowBits = 4, kLow = kLanes - 1;

/// Lane k of kSteps + kLanes - t is 1 from lane t on, else 0.
constexpr uint8_t kSteps[2 * kLanes] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                        1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1};

/// Adds what counts from lane `from` on, 1 each, and takes away what counts from lane `less` on.
QEL_SIMD_INLINE void AddSteps(uint8_t* counts, size_t from, size_t less) {
  using Counts = Block<U8>;
  StoreU(LoadU<Counts>(counts) + LoadU<Counts>(kSteps + kLanes - from) -
             LoadU<Counts>(kSteps + kLanes - less),
         counts);
}

void Recount(const ColumnCounts& counts, const uint8_t* leaving, const uint8_t* entering,
             size_t columns) {
  const size_t segment = kLanes * counts.pitch;
  for (size_t x = 0; x < columns; ++x) {
    const size_t left = leaving[x], entered = entering[x];
    uint8_t* const fine = counts.fine + kLanes * x;
    AddSteps(counts.coarse + kLanes * x, entered >> kLowBits, left >> kLowBits);
    // Nothing counts from lane kLanes on.
    AddSteps(fine + (entered >> kLowBits) * segment, entered & kLow, kLanes);
    AddSteps(fine + (left >> kLowBits) * segment, kLanes, left & kLow);
  }
  if (counts.taps == nullptr) return;
  for (size_t x = 0; x < columns; ++x) {
    --counts.taps[leaving[x] * counts.pitch + x];
    ++counts.taps[entering[x] * counts.pitch + x];
  }
}

/// Cumulated counts of a window, less `kCenter`: ordered as signed numbers, which all levels
/// compare by one instruction. Lanes beyond the sixteenth do not matter.
class WindowCounts {
 public:
  /// Lanes in memory.
  static constexpr size_t kStored = kVectorBytes < 64 ? kLanes : 2 * kLanes;
  static constexpr int kCenter = 1 << 15;
  static int16_t Centered(size_t count) {
    return static_cast<int16_t>(static_cast<int>(count) - kCenter);
  }

  WindowCounts() {
    for (I16& v : v_) v = Set<I16>(Centered(0));
  }
  QEL_SIMD_INLINE void Add(const uint8_t* column) {
    for (size_t i = 0; i < kVectors; ++i) v_[i] += CountsOf(column, i);
  }
  QEL_SIMD_INLINE void Replace(const uint8_t* entering, const uint8_t* leaving) {
    for (size_t i = 0; i < kVectors; ++i) v_[i] += CountsOf(entering, i) - CountsOf(leaving, i);
  }
  /// How many lanes count at most `most`, centered, which are the first ones; not all of them.
  QEL_SIMD_INLINE size_t AtMost(int16_t most) const {
    constexpr size_t kBytes = sizeof(int16_t);
    uint64_t above = 0;
    for (size_t i = 0; i < kVectors; ++i) {
      const auto bytes = BitCast<U8>(VecFromMask(v_[i] > Set<I16>(most)));
      above |= BitsFromMask(MaskFromVec(bytes)) << i * kVectorBytes;
    }
    return static_cast<size_t>(__builtin_ctzll(above)) / kBytes;
  }
  QEL_SIMD_INLINE void Load(const int16_t* counts) {
    for (size_t i = 0; i < kVectors; ++i) v_[i] = LoadU<I16>(counts + i * I16::kLanes);
  }
  QEL_SIMD_INLINE void Store(int16_t* counts) const {
    for (size_t i = 0; i < kVectors; ++i) StoreU(v_[i], counts + i * I16::kLanes);
  }

 private:
  static constexpr size_t kVectors = kStored / I16::kLanes;
  /// Vector `i` of a column's counts.
  QEL_SIMD_INLINE static I16 CountsOf(const uint8_t* column, size_t i) {
    const U8 counts = LoadDup128<U8>(column);
    if constexpr (kHasTableLookupBytes) {
      constexpr static auto kWidened =
          MakePattern<U8::kBytes>([](size_t k) { return k % 2 == 0 ? k / 2 % 16 : 0x80; });
      return BitCast<I16>(TableLookupBytesOr0(counts, LoadU<U8>(kWidened.bytes)));
    } else {
      return BitCast<I16>(i == 0 ? InterleaveLower(counts, Zero<U8>())
                                 : InterleaveUpper(counts, Zero<U8>()));
    }
  }

  I16 v_[kVectors];
};

/// The fine counts of the window, each segment brought up to date when it is asked for: by the
/// columns that entered and left since, or anew where those are more than the window has.
class FineCounts {
 public:
  FineCounts(const ColumnCounts& counts, size_t size) : counts_(counts), size_(size) {
    for (size_t& at : at_) at = kNever;
  }

  /// The counts of segment `segment` in column `x` and those after it.
  const uint8_t* Columns(size_t segment, size_t x) const {
    return counts_.fine + kLanes * (segment * counts_.pitch + x);
  }
  /// The counts of window `x`.
  QEL_SIMD_INLINE WindowCounts At(size_t segment, size_t x) const {
    WindowCounts window;
    size_t column = at_[segment];
    if (column == kNever || 2 * (x - column) > size_) {
      for (column = x; column < x + size_; ++column) window.Add(Columns(segment, column));
    } else {
      window.Load(stored_[segment]);
      for (; column < x; ++column) {
        window.Replace(Columns(segment, column + size_), Columns(segment, column));
      }
    }
    return window;
  }
  /// Keeps them for windows further on.
  QEL_SIMD_INLINE void Keep(size_t segment, size_t x, const WindowCounts& window) {
    at_[segment] = x;
    window.Store(stored_[segment]);
  }

 private:
  static constexpr size_t kNever = ~size_t{0};
  const ColumnCounts& counts_;
  const size_t size_;
  size_t at_[kLanes];
  alignas(64) int16_t stored_[kLanes][WindowCounts::kStored];
};

/// The wanted key is as large as there are keys up to which lie at most the wanted number of taps:
/// so are its high bits among the coarse counts and its low bits among the fine ones. All high bits
/// come first: windows side by side mostly ask for the same segment, whose counts then stay in
/// registers.
template <bool kWantsNumbers>
void MiddleKeysOf(uint8_t* keys, uint16_t* numbers, const ColumnCounts& counts, size_t size,
                  size_t count) {
  uint8_t segments[kMostCountedWindows];
  int16_t rests[kMostCountedWindows];  // centered
  // Begin with a 0: what lies below the first lane.
  alignas(64) int16_t below[1 + WindowCounts::kStored] = {WindowCounts::Centered(0)};
  const int16_t middle = WindowCounts::Centered(size * size / 2);
  WindowCounts coarse;
  for (size_t i = 0; i < size; ++i) coarse.Add(counts.coarse + kLanes * i);
  for (size_t x = 0;; ++x) {
    coarse.Store(below + 1);
    const size_t high = coarse.AtMost(middle);
    segments[x] = static_cast<uint8_t>(high);
    rests[x] = WindowCounts::Centered(static_cast<uint16_t>(middle - below[high]));
    if (x + 1 == count) break;
    coarse.Replace(counts.coarse + kLanes * (x + size), counts.coarse + kLanes * x);
  }
  FineCounts fine(counts, size);
  for (size_t x = 0; x < count;) {
    const size_t high = segments[x];
    WindowCounts window = fine.At(high, x);
    for (;;) {
      const size_t low = window.AtMost(rests[x]);
      keys[x] = static_cast<uint8_t>(high << kLowBits | low);
      if constexpr (kWantsNumbers) {
        window.Store(below + 1);
        numbers[x] = static_cast<uint16_t>(rests[x] - below[low]);
      }
      if (++x == count || segments[x] != high) break;
      window.Replace(fine.Columns(high, x - 1 + size), fine.Columns(high, x - 1));
    }
    fine.Keep(high, x - 1, window);
  }
}

void MiddleKeys(uint8_t* keys, uint16_t* numbers, const ColumnCounts& counts, size_t size,
                size_t count) {
  const auto function = numbers != nullptr ? &MiddleKeysOf<true> : &MiddleKeysOf<false>;
  function(keys, numbers, counts, size, count);
}

/// The column that holds tap number `number` of those that `taps` counts; that becomes its number
/// there. Comparisons are summed and looked up with, not branched on: processors guess wrong which
/// of 32 columns it is, and that takes longer than all the rest.
inline size_t FindColumnOf(const uint8_t* taps, size_t& number) {
  constexpr size_t kEight = sizeof(uint64_t), kColumns = 4 * kEight;
  size_t before[kColumns / kEight + 1] = {};  // taps in front of every eight columns
  size_t column = 0;
  for (;; column += kColumns) {
    alignas(64) uint64_t sums[kColumns < kVectorBytes ? kVectorBytes / 8 : kColumns / 8];
    for (size_t i = 0; i < kColumns; i += kVectorBytes) {
      StoreU(SumsOf8(LoadU<U8>(taps + column + i)), sums + i / 8);
    }
    for (size_t i = 0; i < kColumns / kEight; ++i) before[i + 1] = before[i] + sums[i];
    if (number < before[4]) break;
    number -= before[4];
  }
  const size_t eight =
      size_t{number >= before[1]} + size_t{number >= before[2]} + size_t{number >= before[3]};
  number -= before[eight];
  column += kEight * eight;
  // Sums of pairs in 16 bits each, and of all pairs up to each.
  constexpr uint64_t kOnes = 0x0001'0001'0001'0001;
  uint64_t counts;
  __builtin_memcpy(&counts, taps + column, sizeof(counts));
  const uint64_t firsts = counts & 0xFF * kOnes;
  const uint64_t pairs = (firsts + (counts >> 8 & 0xFF * kOnes)) * kOnes;
  // The highest bit is set where that is above `number`.
  const uint64_t above = (pairs + (0x7FFF - number) * kOnes) & 0x8000 * kOnes;
  const auto shift = static_cast<unsigned>(__builtin_ctzll(above)) & 0x30;
  number -= static_cast<uint16_t>(pairs << 16 >> shift);
  const size_t first = firsts >> shift & 0xFF;
  const auto second = size_t{number >= first};
  number -= first & -second;
  return column + shift / 8 + second;
}

void FindTaps(uint8_t* columns, uint8_t* rows, const uint8_t* keys, const uint16_t* numbers,
              const ColumnCounts& counts, const TapColumns& taps, size_t count) {
  // One after the other: a wrong guess about rows must not wait for a column.
  size_t rests[kMostCountedWindows];
  for (size_t x = 0; x < count; ++x) {
    rests[x] = numbers[x];
    const uint8_t* const of_key = counts.taps + keys[x] * counts.pitch;
    columns[x] = static_cast<uint8_t>(FindColumnOf(of_key + x, rests[x]));
  }
  for (size_t x = 0; x < count; ++x) {
    // Above the first row, the number wraps around: no key has it.
    const size_t above = keys[x] == taps.outside_key ? taps.above : 0;
    rows[x] = static_cast<uint8_t>(FindEqual(taps.keys + (x + columns[x]) * taps.pitch, taps.length,
                                             keys[x], rests[x] - above));
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
    .find_taps = &FindTaps,
    .find_column = &FindColumn,
    .find_equal = &FindEqual,
};

}  // namespace qel::QEL_LEVEL
