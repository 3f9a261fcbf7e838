#include "filter/median/key_count_kernels.h"

#include "filter/byte_lanes.h"
#include "simd/interleaved.h"

namespace qel::QEL_LEVEL {
namespace {

constexpr size_t kLanes = ColumnCounts<uint8_t>::kLanes;
constexpr unsigned kLowBits = 4;

/// What a key changes in its column: lane k of row t is 1 from lane t on, else 0.
template <typename Count>
struct Steps {
  alignas(64) Count rows[kLanes][kLanes];
};
template <typename Count>
constexpr Steps<Count> kSteps = [] {
  Steps<Count> steps = {};
  for (size_t t = 0; t < kLanes; ++t) {
    for (size_t k = t; k < kLanes; ++k) steps.rows[t][k] = 1;
  }
  return steps;
}();

/// Where a key counts.
template <typename Count>
struct KeyPlace {
  QEL_SIMD_INLINE KeyPlace(const ColumnCounts<Count>& counts, size_t x, size_t key)
      : coarse_steps(kSteps<Count>.rows[key >> kLowBits]),
        fine_steps(kSteps<Count>.rows[key % kLanes]),
        fine(counts.fine + kLanes * (x + (key >> kLowBits) * counts.pitch)) {}
  const Count* coarse_steps;
  const Count* fine_steps;
  Count* fine;
};

/// Adds `more` to the counts, and takes `less` from them, unless these are null.
template <typename Count>
QEL_SIMD_INLINE void Update(Count* counts, const Count* more, const Count* less) {
  using Part = Block<Vec<Count, kVectorBytes>>;
  for (size_t i = 0; i < kLanes; i += Part::kLanes) {
    Part part = LoadU<Part>(counts + i);
    if (more != nullptr) part += LoadU<Part>(more + i);
    if (less != nullptr) part -= LoadU<Part>(less + i);
    StoreU(part, counts + i);
  }
}

template <typename Count>
void Recount(const ColumnCounts<Count>& all_counts, const uint8_t* leaving, const uint8_t* entering,
             size_t columns) {
  // A copy, so that the stores cannot change it.
  const ColumnCounts<Count> counts = all_counts;
  constexpr const Count* kNone = nullptr;
  for (size_t x = 0; x < columns && leaving == nullptr; ++x) {
    const KeyPlace<Count> entered(counts, x, entering[x]);
    Update(counts.coarse + kLanes * x, entered.coarse_steps, kNone);
    Update(entered.fine, entered.fine_steps, kNone);
  }
  for (size_t x = 0; x < columns && leaving != nullptr; ++x) {
    const KeyPlace<Count> entered(counts, x, entering[x]), left(counts, x, leaving[x]);
    Update(counts.coarse + kLanes * x, entered.coarse_steps, left.coarse_steps);
    Update(entered.fine, entered.fine_steps, kNone);
    Update(left.fine, kNone, left.fine_steps);
  }
  for (size_t x = 0; x < columns && counts.taps != nullptr; ++x) {
    ++counts.taps[entering[x] * counts.pitch + x];
    if (leaving != nullptr) --counts.taps[leaving[x] * counts.pitch + x];
  }
}

/// Counts of windows have twice the bits of those of columns.
template <typename Count>
using WindowCount = std::conditional_t<sizeof(Count) == 1, int16_t, int32_t>;

/// Cumulated counts of a window, less `kCenter`: ordered as signed numbers, which all levels
/// compare by one instruction.
template <typename Count>
class WindowCounts {
 public:
  using Lane = WindowCount<Count>;
  static Lane Centered(size_t count) {
    constexpr int64_t kCenter = int64_t{1} << (8 * sizeof(Lane) - 1);
    return static_cast<Lane>(static_cast<int64_t>(count) - kCenter);
  }

  WindowCounts() {
    for (V& v : v_) v = Set<V>(Centered(0));
  }
  QEL_SIMD_INLINE void Add(const Count* column) {
    for (size_t i = 0; i < kVectors; ++i) v_[i] += CountsOf(column, i);
  }
  QEL_SIMD_INLINE void Replace(const Count* entering, const Count* leaving) {
    for (size_t i = 0; i < kVectors; ++i) v_[i] += CountsOf(entering, i) - CountsOf(leaving, i);
  }
  /// How many lanes count at most `most`, centered, which are the first ones; not all of them.
  QEL_SIMD_INLINE size_t AtMost(Lane most) const {
    uint64_t above = 0;
    for (size_t i = 0; i < kVectors; ++i) {
      const auto bytes = BitCast<U8>(VecFromMask(v_[i] > Set<V>(most)));
      above |= BitsFromMask(MaskFromVec(bytes)) << i * kVectorBytes;
    }
    return static_cast<size_t>(__builtin_ctzll(above)) / sizeof(Lane);
  }
  QEL_SIMD_INLINE void Load(const Lane* counts) {
    for (size_t i = 0; i < kVectors; ++i) v_[i] = LoadU<V>(counts + i * V::kLanes);
  }
  QEL_SIMD_INLINE void Store(Lane* counts) const {
    for (size_t i = 0; i < kVectors; ++i) StoreU(v_[i], counts + i * V::kLanes);
  }

 private:
  using V = Vec<Lane, kVectorBytes>;
  static constexpr size_t kVectors = kLanes / V::kLanes;
  /// Vector `i` of a column's counts.
  QEL_SIMD_INLINE static V CountsOf(const Count* column, size_t i) {
    if constexpr (sizeof(Count) > 1) {
      return ConvertTo<V>(LoadU<Half<U16>>(column + i * V::kLanes));
    } else if constexpr (kHasTableLookupBytes) {
      constexpr static auto kWidened =
          MakePattern<U8::kBytes>([](size_t k) { return k % 2 == 0 ? k / 2 % 16 : 0x80; });
      return BitCast<V>(TableLookupBytesOr0(LoadDup128<U8>(column), LoadU<U8>(kWidened.bytes)));
    } else {
      const U8 counts = LoadDup128<U8>(column);
      return BitCast<V>(i == 0 ? InterleaveLower(counts, Zero<U8>())
                               : InterleaveUpper(counts, Zero<U8>()));
    }
  }

  V v_[kVectors];
};

/// The fine counts of the window, each segment brought up to date when it is asked for: by the
/// columns that entered and left since, or anew where those are more than the window has.
template <typename Count>
class FineCounts {
 public:
  using Window = WindowCounts<Count>;
  FineCounts(const ColumnCounts<Count>& counts, size_t size) : counts_(counts), size_(size) {
    for (size_t& at : at_) at = kNever;
  }

  /// The counts of segment `segment` in column `x` and those after it.
  const Count* Columns(size_t segment, size_t x) const {
    return counts_.fine + kLanes * (segment * counts_.pitch + x);
  }
  /// The counts of window `x`.
  QEL_SIMD_INLINE Window At(size_t segment, size_t x) const {
    Window window;
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
  QEL_SIMD_INLINE void Keep(size_t segment, size_t x, const Window& window) {
    at_[segment] = x;
    window.Store(stored_[segment]);
  }

 private:
  static constexpr size_t kNever = ~size_t{0};
  const ColumnCounts<Count> counts_;
  const size_t size_;
  size_t at_[kLanes];
  alignas(64) WindowCount<Count> stored_[kLanes][kLanes];
};

/// The wanted key is as large as there are keys up to which lie at most the wanted number of taps:
/// so are its high bits among the coarse counts and its low bits among the fine ones. All high bits
/// come first: windows side by side mostly ask for the same segment, whose counts then stay in
/// registers.
template <bool kWantsNumbers, typename Count>
void MiddleKeysOf(uint8_t* keys, uint32_t* numbers, const ColumnCounts<Count>& counts, size_t size,
                  size_t count) {
  using Window = WindowCounts<Count>;
  using Lane = WindowCount<Count>;
  using Number = std::make_unsigned_t<Lane>;
  uint8_t segments[kMostCountedWindows];
  Lane rests[kMostCountedWindows];  // centered
  // Begin with a 0: what lies below the first lane.
  alignas(64) Lane below[1 + kLanes] = {Window::Centered(0)};
  const Lane middle = Window::Centered(size * size / 2);
  const auto difference = [](Lane a, Lane b) {
    return static_cast<Number>(static_cast<Number>(a) - static_cast<Number>(b));
  };
  Window coarse;
  for (size_t i = 0; i < size; ++i) coarse.Add(counts.coarse + kLanes * i);
  for (size_t x = 0;; ++x) {
    coarse.Store(below + 1);
    const size_t high = coarse.AtMost(middle);
    segments[x] = static_cast<uint8_t>(high);
    rests[x] = Window::Centered(difference(middle, below[high]));
    if (x + 1 == count) break;
    coarse.Replace(counts.coarse + kLanes * (x + size), counts.coarse + kLanes * x);
  }
  FineCounts<Count> fine(counts, size);
  for (size_t x = 0; x < count;) {
    const size_t high = segments[x];
    Window window = fine.At(high, x);
    const Count* leaving = fine.Columns(high, x);
    const Count* entering = leaving + kLanes * size;
    for (;;) {
      const size_t low = window.AtMost(rests[x]);
      keys[x] = static_cast<uint8_t>(high << kLowBits | low);
      if constexpr (kWantsNumbers) {
        window.Store(below + 1);
        numbers[x] = difference(rests[x], below[low]);
      }
      if (++x == count || segments[x] != high) break;
      window.Replace(entering, leaving);
      entering += kLanes;
      leaving += kLanes;
    }
    fine.Keep(high, x - 1, window);
  }
}

template <typename Count>
void MiddleKeys(uint8_t* keys, uint32_t* numbers, const ColumnCounts<Count>& counts, size_t size,
                size_t count) {
  const auto function =
      numbers != nullptr ? &MiddleKeysOf<true, Count> : &MiddleKeysOf<false, Count>;
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

/// The same where there are hundreds of columns, most of which are passed 32 at a time.
inline size_t FindColumnOf(const uint16_t* taps, size_t& number) {
  constexpr size_t kColumns = 32;
  size_t column = 0;
  for (;; column += kColumns) {
    uint32_t sum = 0;
    for (size_t i = 0; i < kColumns; ++i) sum += taps[column + i];
    if (number < sum) break;
    number -= sum;
  }
  for (; number >= taps[column]; ++column) number -= taps[column];
  return column;
}

template <typename Count>
void FindTaps(uint16_t* columns, uint16_t* rows, const uint8_t* keys, const uint32_t* numbers,
              const ColumnCounts<Count>& counts, const TapColumns& taps, size_t count) {
  // One after the other: a wrong guess about rows must not wait for a column.
  size_t rests[kMostCountedWindows];
  for (size_t x = 0; x < count; ++x) {
    rests[x] = numbers[x];
    const Count* const of_key = counts.taps + keys[x] * counts.pitch;
    columns[x] = static_cast<uint16_t>(FindColumnOf(of_key + x, rests[x]));
  }
  for (size_t x = 0; x < count; ++x) {
    // Above the first row, the number wraps around: no key has it.
    const size_t above = keys[x] == taps.outside_key ? taps.above : 0;
    rows[x] = static_cast<uint16_t>(FindEqual(taps.keys + (x + columns[x]) * taps.pitch,
                                              taps.length, keys[x], rests[x] - above));
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

template <typename Count>
constexpr ColumnCountKernels<Count> KernelsOf() {
  ColumnCountKernels<Count> kernels = {
      .recount = &Recount<Count>, .middle_keys = nullptr, .find_taps = &FindTaps<Count>};
  if constexpr (kLanes * sizeof(WindowCount<Count>) >= kVectorBytes) {
    kernels.middle_keys = &MiddleKeys<Count>;
  }
  return kernels;
}

}  // namespace

extern const KeyCountKernels kKeyCountKernels;
constinit const KeyCountKernels kKeyCountKernels = {
    .bytes = KernelsOf<uint8_t>(),
    .words = KernelsOf<uint16_t>(),
    .find_column = &FindColumn,
    .find_equal = &FindEqual,
};

}  // namespace qel::QEL_LEVEL
