#ifndef QEL_FILTER_MORPHOLOGY_EXTREMA_ROWS_H_
#define QEL_FILTER_MORPHOLOGY_EXTREMA_ROWS_H_

#include "filter/each_byte.h"
#include "filter/filter_kernels.h"
#include "simd/prefetch.h"
#include "simd/window.h"

// Rows of extrema: of two rows, across windows, of small squares. Included by one kernel source.

namespace qel::QEL_LEVEL {
namespace {

struct Minimum {
  static uint8_t Of(uint8_t a, uint8_t b) { return b < a ? b : a; }
  QEL_SIMD_INLINE static U8 Of(U8 a, U8 b) { return Min(a, b); }
};
struct Maximum {
  static uint8_t Of(uint8_t a, uint8_t b) { return a < b ? b : a; }
  QEL_SIMD_INLINE static U8 Of(U8 a, U8 b) { return Max(a, b); }
};

/// Writes a pixel with the color of one and the fourth byte of another.
inline void JoinPixel(uint8_t* dest, const uint8_t* color, const uint8_t* alpha) {
  uint32_t pixel;
  uint32_t fourth;
  __builtin_memcpy(&pixel, color, sizeof(pixel));
  __builtin_memcpy(&fourth, alpha, sizeof(fourth));
  pixel = (pixel & 0x00FFFFFFu) | (fourth & 0xFF000000u);
  __builtin_memcpy(dest, &pixel, sizeof(pixel));
}

void WithAlpha(uint8_t* __restrict dest, const uint8_t* __restrict colors,
               const uint8_t* __restrict alphas, size_t pixels) {
  for (size_t i = 0; i < 4 * pixels; i += 4) JoinPixel(dest + i, colors + i, alphas + i);
}

/// Gives pixels of four bytes the fourth ones of `alphas`.
void TakeAlpha(uint8_t* __restrict dest, const uint8_t* __restrict alphas, size_t step,
               size_t count) {
  for (size_t i = 0; step == 4 && i < count; i += 4) JoinPixel(dest + i, dest + i, alphas + i);
}

template <typename Extremum>
void Fold(uint8_t* into, const uint8_t* row, size_t count) {
  ForEachByte(into, count, [=](size_t i, uint8_t old) { return Extremum::Of(old, row[i]); });
}
template <typename Extremum>
void OfTwo(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t count) {
  ForEachByte(dest, count, [=](size_t i, uint8_t) { return Extremum::Of(a[i], b[i]); });
}
template <typename Extremum>
void OfThree(uint8_t* dest, const uint8_t* a, const uint8_t* b, const uint8_t* c, size_t count) {
  ForEachByte(dest, count,
              [=](size_t i, uint8_t) { return Extremum::Of(Extremum::Of(a[i], b[i]), c[i]); });
}
template <typename Extremum>
void OfFour(uint8_t* dest, const uint8_t* a, const uint8_t* b, const uint8_t* c, const uint8_t* d,
            size_t count) {
  ForEachByte(dest, count, [=](size_t i, uint8_t) {
    return Extremum::Of(Extremum::Of(a[i], b[i]), Extremum::Of(c[i], d[i]));
  });
}

/// Folds a row into `running`, and that with `above` into `combined`.
template <typename Extremum>
void FoldAndJoin(uint8_t* combined, uint8_t* running, const uint8_t* row, const uint8_t* above,
                 size_t count) {
  if (count < kVectorBytes) {
    Fold<Extremum>(running, row, count);
    return OfTwo<Extremum>(combined, running, above, count);
  }
  // The last vector overlaps the one before it, which extrema do not mind.
  for (size_t k = 0; k < count; k += kVectorBytes) {
    const size_t at = k + kVectorBytes <= count ? k : count - kVectorBytes;
    const U8 longer = Extremum::Of(LoadU<U8>(running + at), LoadU<U8>(row + at));
    StoreU(longer, running + at);
    StoreU(Extremum::Of(longer, LoadU<U8>(above + at)), combined + at);
  }
}

/// Outputs of `Across` whose windows are widened together.
constexpr size_t kStretch = 2048;

/// Widens windows fourfold until the last step reaches `size`.
template <typename Extremum>
void AcrossStretch(uint8_t* dest, const uint8_t* row, size_t size, size_t step, size_t count) {
  uint8_t spare[2][kStretch + kMostAcross * 4];
  const uint8_t* from = row;
  size_t width = 1;
  for (size_t turn = 0; 4 * width < size; turn ^= 1) {
    const size_t jump = width * step;
    width *= 4;
    OfFour<Extremum>(spare[turn], from, from + jump, from + 2 * jump, from + 3 * jump,
                     count + (size - width) * step);
    from = spare[turn];
  }
  const size_t jump = width * step;
  const uint8_t* const last = from + (size - width) * step;
  if (size <= 2 * width) {
    OfTwo<Extremum>(dest, from, last, count);
  } else if (size <= 3 * width) {
    OfThree<Extremum>(dest, from, from + jump, last, count);
  } else {
    OfFour<Extremum>(dest, from, from + jump, from + 2 * jump, last, count);
  }
}

// In registers: where bytes of two whole vectors can be looked up.

/// Doubles windows in registers, from the end of the row: a vector and the one right of it hold all
/// that doubling needs. `jumps` are the bytes between the windows that are joined. load(k) gives
/// the bytes of the row from `k` on, finish(windows, k) what is stored there; whole vectors are
/// read.
template <typename Extremum, size_t kSteps, typename LoadAt, typename Finish>
inline void DoubleAcross(uint8_t* dest, const size_t* jumps, size_t pixels, size_t count,
                         const LoadAt& load, const Finish& finish) {
  U8 orders[kSteps];
  U8 right[kSteps];
  for (size_t s = 0; s < kSteps; ++s) {
    orders[s] = Iota<U8>(static_cast<uint8_t>(jumps[s]));
    right[s] = Zero<U8>();
  }
  for (size_t k = (pixels - 1) / kVectorBytes * kVectorBytes;; k -= kVectorBytes) {
    U8 windows = load(k);
    for (size_t s = 0; s < kSteps; ++s) {
      const U8 shifted = TwoTablesLookupLanes(windows, right[s], orders[s]);
      right[s] = windows;
      windows = Extremum::Of(windows, shifted);
    }
    if (k < count) StoreN(finish(windows, k), dest + k, count - k);
    if (k == 0) return;
  }
}

/// Calls run(Steps<n>, jumps) with what doubling up to `size` takes; false when windows are joined
/// over more than a vector, or take less than three steps.
template <size_t kSteps>
struct Steps {};
template <typename Run>
inline bool WithSteps(size_t size, size_t step, Run&& run) {
  size_t jumps[7];
  size_t steps = 0;
  for (size_t width = 1; width < size; ++steps) {
    const size_t wider = 2 * width < size ? 2 * width : size;
    jumps[steps] = (wider - width) * step;
    if (jumps[steps] >= kVectorBytes) return false;
    width = wider;
  }
  switch (steps) {
    case 3:
      return run(Steps<3>(), jumps), true;
    case 4:
      return run(Steps<4>(), jumps), true;
    case 5:
      return run(Steps<5>(), jumps), true;
    case 6:
      return run(Steps<6>(), jumps), true;
    case 7:
      return run(Steps<7>(), jumps), true;
    default:
      return false;
  }
}

template <typename Extremum>
bool AdvanceInRegisters(uint8_t* dest, uint8_t* running, const uint8_t* row, const uint8_t* above,
                        size_t size, size_t step, size_t count) {
  if constexpr (kHasByteLookup) {
    const uint8_t* const alphas = row + (size - 1) * step;
    return WithSteps(size, step, [&]<size_t kSteps>(Steps<kSteps>, const size_t* jumps) {
      DoubleAcross<Extremum, kSteps>(
          dest, jumps, count + (size - 1) * step, count,
          [=](size_t k) {
            const U8 longer = Extremum::Of(LoadU<U8>(running + k), LoadU<U8>(row + k));
            StoreU(longer, running + k);
            return Extremum::Of(longer, LoadU<U8>(above + k));
          },
          [=](U8 windows, size_t k) {
            return step == 4 ? WithFourthBytes(windows, LoadU<U8>(alphas + k)) : windows;
          });
    });
  }
  return false;
}

template <typename Extremum>
void Across(uint8_t* dest, const uint8_t* row, size_t size, size_t step, size_t count) {
  if (size == 1) {
    __builtin_memcpy(dest, row, count);
    return;
  }
  for (size_t first = 0; first < count; first += kStretch) {
    const size_t stretch = count - first < kStretch ? count - first : kStretch;
    AcrossStretch<Extremum>(dest + first, row + first, size, step, stretch);
  }
}

template <typename Extremum>
void Advance(uint8_t* dest, uint8_t* running, const uint8_t* row, const uint8_t* above,
             uint8_t* combined, size_t size, size_t step, size_t count) {
  if (AdvanceInRegisters<Extremum>(dest, running, row, above, size, step, count)) return;
  FoldAndJoin<Extremum>(combined, running, row, above, count + (size - 1) * step);
  Across<Extremum>(dest, combined, size, step, count);
  TakeAlpha(dest, row + (size - 1) * step, step, count);
}

// Squares of a few pixels, from rows to outputs in one pass: reading and writing then keep pace
// with each other.

/// A vector of one extremum.
template <typename Extremum>
struct Reduced {
  U8 v;

  QEL_SIMD_INLINE static Reduced From(U8 pixels) { return {pixels}; }
  QEL_SIMD_INLINE static Reduced Of(Reduced a, Reduced b) { return {Extremum::Of(a.v, b.v)}; }
  QEL_SIMD_INLINE U8 Result() const { return v; }

  static constexpr size_t kRows = 1;
  template <size_t kBytes>
  QEL_SIMD_INLINE static Reduced Load(const uint8_t (&rows)[kRows][kBytes], size_t k) {
    return {LoadU<U8>(rows[0] + k)};
  }
  template <size_t kBytes>
  QEL_SIMD_INLINE void Store(uint8_t (&rows)[kRows][kBytes], size_t k) const {
    StoreU(v, rows[0] + k);
  }
};
/// A vector of both; the result is what lies between them.
struct Range {
  U8 lowest, highest;

  QEL_SIMD_INLINE static Range From(U8 pixels) { return {pixels, pixels}; }
  QEL_SIMD_INLINE static Range Of(Range a, Range b) {
    return {Min(a.lowest, b.lowest), Max(a.highest, b.highest)};
  }
  QEL_SIMD_INLINE U8 Result() const { return highest - lowest; }

  static constexpr size_t kRows = 2;
  template <size_t kBytes>
  QEL_SIMD_INLINE static Range Load(const uint8_t (&rows)[kRows][kBytes], size_t k) {
    return {LoadU<U8>(rows[0] + k), LoadU<U8>(rows[1] + k)};
  }
  template <size_t kBytes>
  QEL_SIMD_INLINE void Store(uint8_t (&rows)[kRows][kBytes], size_t k) const {
    StoreU(lowest, rows[0] + k);
    StoreU(highest, rows[1] + k);
  }
};
template <size_t kBytes, typename Extremum>
QEL_SIMD_INLINE Reduced<Extremum> ShiftedWindow(Reduced<Extremum> a, Reduced<Extremum> next) {
  return {ShiftedWindow<kBytes>(a.v, next.v)};
}
template <size_t kBytes>
QEL_SIMD_INLINE Range ShiftedWindow(Range a, Range next) {
  return {ShiftedWindow<kBytes>(a.lowest, next.lowest),
          ShiftedWindow<kBytes>(a.highest, next.highest)};
}

/// The rows of squares.
template <typename Result, size_t kSize>
class SquareRows {
 public:
  explicit SquareRows(const uint8_t* const* rows) { __builtin_memcpy(rows_, rows, sizeof(rows_)); }
  /// The extrema down the columns from byte `k` on.
  QEL_SIMD_INLINE Result Column(size_t k) const {
    PrefetchAhead<kVectorBytes>(rows_[kSize - 1] + k);
    Result column = Result::From(LoadU<U8>(rows_[0] + k));
    for (size_t j = 1; j < kSize; ++j) {
      column = Result::Of(column, Result::From(LoadU<U8>(rows_[j] + k)));
    }
    return column;
  }
  /// Gives pixels of four bytes the alpha of the last pixels of their squares.
  QEL_SIMD_INLINE U8 WithAlpha(U8 square, size_t k, size_t step) const {
    if (step != 4) return square;
    return WithFourthBytes(square, LoadU<U8>(rows_[kSize - 1] + k + (kSize - 1) * step));
  }

 private:
  const uint8_t* rows_[kSize];
};

/// Across columns that are kept in the nearest cache, a stretch at a time.
template <typename Result, size_t kSize>
void SquareInStretches(uint8_t* dest, const uint8_t* const* all_rows, size_t step, size_t count) {
  const SquareRows<Result, kSize> rows(all_rows);
  uint8_t columns[Result::kRows][kStretch + 4 * (kMostSquare - 1) + kVectorBytes];
  for (size_t first = 0; first < count; first += kStretch) {
    // Less than a vector is taken together with some before it, which is computed once more.
    if (first > 0 && count - first < kVectorBytes) first = count - kVectorBytes;
    const size_t stretch = count - first < kStretch ? count - first : kStretch;
    const size_t covered = stretch + (kSize - 1) * step;
    for (size_t k = 0; k < covered; k += kVectorBytes) {
      const bool is_cut = k + kVectorBytes > covered && k > 0;
      const size_t at = is_cut ? covered - kVectorBytes : k;
      rows.Column(first + at).Store(columns, at);
    }
    StoreVectors(dest + first, stretch, [&](size_t k) {
      Result square = Result::Load(columns, k);
      for (size_t i = 1; i < kSize; ++i) {
        square = Result::Of(square, Result::Load(columns, k + i * step));
      }
      return rows.WithAlpha(square.Result(), first + k, step);
    });
  }
}

/// Across columns in registers, where these reach far enough.
template <typename Result, size_t kSize, size_t kStep>
void SquareInRegisters(uint8_t* dest, const uint8_t* const* all_rows, size_t count) {
  if constexpr ((kSize - 1) * kStep > kMostShifted) {
    SquareInStretches<Result, kSize>(dest, all_rows, kStep, count);
  } else {
    const SquareRows<Result, kSize> rows(all_rows);
    StoreWindows<kSize, kStep>(
        dest, count, [&](size_t k) { return rows.Column(k); },
        [&](size_t k, const auto& first, const auto&... others) {
          Result square = first;
          ((square = Result::Of(square, others)), ...);
          return rows.WithAlpha(square.Result(), k, kStep);
        });
  }
}

template <typename Result, size_t kSize>
void SquareByStep(uint8_t* dest, const uint8_t* const* rows, size_t step, size_t count) {
  const auto square = step == 4   ? &SquareInRegisters<Result, kSize, 4>
                      : step == 3 ? &SquareInRegisters<Result, kSize, 3>
                                  : &SquareInRegisters<Result, kSize, 1>;
  square(dest, rows, count);
}

template <typename Result>
void Square(uint8_t* dest, const uint8_t* const* rows, size_t size, size_t step, size_t count) {
  // Odd sizes are the usual ones.
  constexpr decltype(&SquareByStep<Result, 3>) kBySize[] = {
      &SquareInStretches<Result, 1>, &SquareInStretches<Result, 2>, &SquareByStep<Result, 3>,
      &SquareInStretches<Result, 4>, &SquareByStep<Result, 5>,      &SquareInStretches<Result, 6>,
      &SquareByStep<Result, 7>};
  static_assert(sizeof(kBySize) / sizeof(kBySize[0]) == kMostSquare);
  kBySize[size - 1](dest, rows, step, count);
}

template <typename Extremum>
constexpr ExtremumKernels KernelsOf() {
  return {.fold = &Fold<Extremum>,
          .of_two = &OfTwo<Extremum>,
          .advance = &Advance<Extremum>,
          .square = &Square<Reduced<Extremum>>};
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_FILTER_MORPHOLOGY_EXTREMA_ROWS_H_
