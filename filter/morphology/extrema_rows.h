#ifndef QEL_FILTER_MORPHOLOGY_EXTREMA_ROWS_H_
#define QEL_FILTER_MORPHOLOGY_EXTREMA_ROWS_H_

#include "filter/each_byte.h"
#include "filter/filter_kernels.h"
#include "filter/prefetch_later.h"
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
/// The extrema down the columns of a group, `kVectors` vectors from byte `at` on. The core and what
/// is above it are folded from below, what is below it from above, and each window is one of either
/// (van Herk 1992, Gil and Werman 1993).
template <typename Extremum, size_t kVectors>
QEL_SIMD_INLINE void DownVectors(uint8_t* dest, size_t pitch, const GroupRows& group, size_t at) {
  U8 cores[kVectors];
  for (size_t v = 0; v < kVectors; ++v) {
    cores[v] = LoadU<U8>(group.core[0] + at + v * kVectorBytes);
  }
  for (size_t i = 1; i < group.core_count; ++i) {
    const uint8_t* const row = group.core[i] + at;
    for (size_t v = 0; v < kVectors; ++v) {
      cores[v] = Extremum::Of(cores[v], LoadU<U8>(row + v * kVectorBytes));
    }
  }
  for (size_t v = 0; v < kVectors; ++v) {
    const size_t k = at + v * kVectorBytes;
    constexpr size_t kLast = kGroupRows - 1;
    U8 upper[kGroupRows];
    upper[kLast] = cores[v];
    for (size_t i = kLast; i-- > 0;) {
      upper[i] = Extremum::Of(upper[i + 1], LoadU<U8>(group.above[i] + k));
    }
    U8 lower = LoadU<U8>(group.below[0] + k);
    StoreU(Extremum::Of(upper[0], lower), dest + k);
    for (size_t i = 1; i < kGroupRows; ++i) {
      lower = Extremum::Of(lower, LoadU<U8>(group.below[i] + k));
      StoreU(Extremum::Of(upper[i], lower), dest + i * pitch + k);
    }
    if (group.block != nullptr) StoreU(lower, group.block + k);
  }
}

template <typename Extremum>
void Down(uint8_t* dest, size_t pitch, const GroupRows& all_rows, size_t count) {
  // A copy, so that the stores cannot change it.
  const GroupRows group = all_rows;
  constexpr size_t kLine = 64;
  size_t k = 0;
  for (; k + kLine <= count; k += kLine) {
    for (const uint8_t* const row : group.ahead) PrefetchLater(row + k);
    DownVectors<Extremum, kLine / kVectorBytes>(dest, pitch, group, k);
  }
  for (; k < count; k += kVectorBytes) {
    // The last vector overlaps the one before it.
    const bool is_cut = k + kVectorBytes > count && count >= kVectorBytes;
    DownVectors<Extremum, 1>(dest, pitch, group, is_cut ? count - kVectorBytes : k);
  }
}

/// A vector of one extremum.
template <typename Extremum>
struct Reduced {
  U8 v;

  QEL_SIMD_INLINE static Reduced From(U8 pixels) { return {pixels}; }
  QEL_SIMD_INLINE static Reduced Of(Reduced a, Reduced b) { return {Extremum::Of(a.v, b.v)}; }
  QEL_SIMD_INLINE U8 Result() const { return v; }

  static constexpr size_t kRows = 1;
  QEL_SIMD_INLINE static Reduced Load(const uint8_t* const (&rows)[2], size_t k) {
    return {LoadU<U8>(rows[0] + k)};
  }
  QEL_SIMD_INLINE void Store(uint8_t* const (&rows)[2], size_t k) const { StoreU(v, rows[0] + k); }
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
  QEL_SIMD_INLINE static Range Load(const uint8_t* const (&rows)[2], size_t k) {
    return {.lowest = LoadU<U8>(rows[1] + k), .highest = LoadU<U8>(rows[0] + k)};
  }
  QEL_SIMD_INLINE void Store(uint8_t* const (&rows)[2], size_t k) const {
    StoreU(highest, rows[0] + k);
    StoreU(lowest, rows[1] + k);
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

/// Calls widen(from, to) with the rows of `from`, one after the other, and where their widened
/// windows go.
template <typename Widen>
QEL_SIMD_INLINE void ForEachWidened(const AcrossRows& rows, const uint8_t* const (&from)[2],
                                    const Widen& widen) {
  for (size_t r = 0; r < rows.rows; ++r) {
    const size_t row = r * rows.pitch;
    const uint8_t* const here[] = {from[0] + row, from[1] + row};
    uint8_t* const to[] = {rows.spare[0] + row, rows.spare[1] + row};
    widen(here, to);
  }
}

/// Widens windows of `width` pixels to `kTimes` as many, at all rows. Full vectors are written,
/// maybe in the place of what they are made from, of which only later ones are read.
template <typename Result, size_t kTimes>
void Widen(const AcrossRows& rows, const uint8_t* const (&from)[2], size_t width) {
  const size_t jump = width * rows.step;
  const size_t count = rows.count + (rows.size - kTimes * width) * rows.step;
  ForEachWidened(rows, from, [=](auto& here, auto& to) {
    for (size_t k = 0; k < count; k += kVectorBytes) {
      Result wide = Result::Of(Result::Load(here, k), Result::Load(here, k + jump));
      if constexpr (kTimes == 4) {
        wide = Result::Of(
            wide, Result::Of(Result::Load(here, k + 2 * jump), Result::Load(here, k + 3 * jump)));
      }
      wide.Store(to, k);
    }
  });
}

/// Widens single pixels to windows of 8, or 16, at all rows: what has four is doubled in registers.
template <typename Result, size_t kStep, size_t kWidth>
void WidenPixels(const AcrossRows& rows) {
  const size_t count = rows.count + (rows.size - kWidth) * kStep;
  ForEachWidened(rows, rows.columns, [=](auto& here, auto& to) {
    const auto four = [&](size_t k) {
      return Result::Of(
          Result::Of(Result::Load(here, k), Result::Load(here, k + kStep)),
          Result::Of(Result::Load(here, k + 2 * kStep), Result::Load(here, k + 3 * kStep)));
    };
    Result fours = four(0);
    // The next eight from byte `k` on.
    const auto eight = [&](size_t k) {
      const Result next = four(k + kVectorBytes);
      const Result eights = Result::Of(fours, ShiftedWindow<4 * kStep>(fours, next));
      fours = next;
      return eights;
    };
    if constexpr (kWidth == 8) {
      for (size_t k = 0; k < count; k += kVectorBytes) eight(k).Store(to, k);
    } else {
      Result eights = eight(0);
      for (size_t k = 0; k < count; k += kVectorBytes) {
        const Result next = eight(k + kVectorBytes);
        Result::Of(eights, ShiftedWindow<8 * kStep>(eights, next)).Store(to, k);
        eights = next;
      }
    }
  });
}

/// Widens single pixels as far as is possible at once; gives the pixels of windows.
template <typename Result, size_t kStep>
size_t WidenFirst(const AcrossRows& rows) {
  if constexpr (8 * kStep <= kMostShifted) {
    if (rows.size > 16) return WidenPixels<Result, kStep, 16>(rows), 16;
  }
  if (rows.size > 8) return WidenPixels<Result, kStep, 8>(rows), 8;
  return Widen<Result, 4>(rows, rows.columns, 1), 4;
}

/// Stores bytes(k) from byte `first` to byte `end`.
template <typename Bytes>
QEL_SIMD_INLINE void StoreAhead(uint8_t* dest, const uint8_t* ahead, size_t first, size_t end,
                                const Bytes& bytes) {
  if (first >= end) return;
  if (end - first < kVectorBytes) return StoreN(bytes(first), dest + first, end - first);
  size_t k = first;
  for (; k + kVectorBytes <= end; k += kVectorBytes) {
    PrefetchLater(ahead + k);
    StoreU(bytes(k), dest + k);
  }
  if (k < end) StoreU(bytes(end - kVectorBytes), dest + end - kVectorBytes);
}

template <typename Result>
void Across(const AcrossRows& rows) {
  size_t width = rows.step == 4   ? WidenFirst<Result, 4>(rows)
                 : rows.step == 3 ? WidenFirst<Result, 3>(rows)
                                  : WidenFirst<Result, 1>(rows);
  const uint8_t* const from[] = {rows.spare[0], rows.spare[1]};
  while (2 * width < rows.size) {
    if (4 * width < rows.size) {
      Widen<Result, 4>(rows, from, width);
      width *= 4;
    } else {
      Widen<Result, 2>(rows, from, width);
      width *= 2;
    }
  }
  const size_t jump = (rows.size - width) * rows.step;
  for (size_t r = 0; r < rows.rows; ++r) {
    const uint8_t* const here[] = {from[0] + r * rows.pitch, from[1] + r * rows.pitch};
    const auto window = [=](size_t k) {
      return Result::Of(Result::Load(here, k), Result::Load(here, k + jump)).Result();
    };
    const uint8_t* const alphas = rows.alphas[r];
    StoreAhead(rows.dest[r], rows.ahead[r], 0, rows.alpha_bytes,
               [=](size_t k) { return WithFourthBytes(window(k), LoadU<U8>(alphas + k)); });
    StoreAhead(rows.dest[r], rows.ahead[r], rows.alpha_bytes, rows.count, window);
  }
}

// Squares of a few pixels, from rows to outputs in one pass: reading and writing then keep pace
// with each other.

constexpr size_t kStretch = 2048;

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
  uint8_t stretches[Result::kRows][kStretch + 4 * (kMostSquare - 1) + kVectorBytes];
  uint8_t* const columns[] = {stretches[0], stretches[Result::kRows - 1]};
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
          .down = &Down<Extremum>,
          .across = &Across<Reduced<Extremum>>,
          .square = &Square<Reduced<Extremum>>};
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_FILTER_MORPHOLOGY_EXTREMA_ROWS_H_
