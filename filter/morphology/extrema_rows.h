#ifndef QEL_FILTER_MORPHOLOGY_EXTREMA_ROWS_H_
#define QEL_FILTER_MORPHOLOGY_EXTREMA_ROWS_H_

#include "filter/each_byte.h"
#include "filter/filter_kernels.h"
#include "simd/prefetch.h"
#include "simd/window.h"

// Rows of extrema: of two rows, across windows, of 3 x 3 in registers. Included by one kernel
// source.

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

/// dest[i] = extremum(rows[0][i], ..., rows[size - 1][i])
template <typename Extremum>
void OfRows(uint8_t* dest, const uint8_t* const* rows, size_t size, size_t count) {
  if (size == 1) {
    __builtin_memcpy(dest, rows[0], count);
    return;
  }
  size_t done = 2;
  if (size % 2 != 0) {
    OfThree<Extremum>(dest, rows[0], rows[1], rows[2], count);
    done = 3;
  } else {
    OfTwo<Extremum>(dest, rows[0], rows[1], count);
  }
  for (; done < size; done += 2) {
    const uint8_t* const a = rows[done];
    const uint8_t* const b = rows[done + 1];
    ForEachByte(dest, count,
                [=](size_t i, uint8_t old) { return Extremum::Of(old, Extremum::Of(a[i], b[i])); });
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

// In registers: where bytes of two whole vectors can be looked up and memory be masked.

/// Doubles windows in registers, from the end of the row: a vector and the one right of it hold all
/// that doubling needs. `jumps` are the bytes between the windows that are joined. load(k, mask)
/// gives the bytes of the row from `k` on, finish(windows, k, mask) what is stored there.
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
    U8 windows = load(k, FirstN<U8>(pixels - k));
    for (size_t s = 0; s < kSteps; ++s) {
      const U8 shifted = TwoTablesLookupLanes(windows, right[s], orders[s]);
      right[s] = windows;
      windows = Extremum::Of(windows, shifted);
    }
    if (k + kVectorBytes <= count) {
      StoreU(finish(windows, k, FirstN<U8>(kVectorBytes)), dest + k);
    } else if (k < count) {
      const Mask<U8> mask = FirstN<U8>(count - k);
      BlendedStore(finish(windows, k, mask), mask, dest + k);
    }
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
bool AcrossInRegisters(uint8_t* dest, const uint8_t* row, size_t size, size_t step, size_t count) {
  if constexpr (kHasByteLookup) {
    return WithSteps(size, step, [&]<size_t kSteps>(Steps<kSteps>, const size_t* jumps) {
      DoubleAcross<Extremum, kSteps>(
          dest, jumps, count + (size - 1) * step, count,
          [=](size_t k, Mask<U8> mask) { return MaskedLoad<U8>(mask, row + k); },
          [](U8 windows, size_t, Mask<U8>) { return windows; });
    });
  }
  return false;
}

template <typename Extremum>
bool AdvanceInRegisters(uint8_t* dest, uint8_t* running, const uint8_t* row, const uint8_t* above,
                        size_t size, size_t step, size_t count) {
  if constexpr (kHasByteLookup) {
    const uint8_t* const last = row + (size - 1) * step;
    const Mask<U8> fourth = MaskFromBits<U8, 0x8888'8888'8888'8888u>();
    const Mask<U8> alpha = step == 4 ? fourth : FirstN<U8>(0);
    return WithSteps(size, step, [&]<size_t kSteps>(Steps<kSteps>, const size_t* jumps) {
      DoubleAcross<Extremum, kSteps>(
          dest, jumps, count + (size - 1) * step, count,
          [=](size_t k, Mask<U8> mask) {
            // Beyond the pixels, what runs stays as it is.
            const U8 before = LoadU<U8>(running + k);
            const U8 longer = Extremum::Of(before, MaskedLoadOr(before, mask, row + k));
            StoreU(longer, running + k);
            return Extremum::Of(longer, LoadU<U8>(above + k));
          },
          [=](U8 windows, size_t k, Mask<U8> mask) {
            return MaskedLoadOr(windows, alpha & mask, last + k);
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
  if (size > 4 && AcrossInRegisters<Extremum>(dest, row, size, step, count)) return;
  for (size_t first = 0; first < count; first += kStretch) {
    const size_t stretch = count - first < kStretch ? count - first : kStretch;
    AcrossStretch<Extremum>(dest + first, row + first, size, step, stretch);
  }
}

template <typename Extremum>
void Advance(uint8_t* dest, uint8_t* running, const uint8_t* row, const uint8_t* above,
             uint8_t* combined, size_t size, size_t step, size_t count) {
  if (AdvanceInRegisters<Extremum>(dest, running, row, above, size, step, count)) return;
  const size_t pixels = count + (size - 1) * step;
  Fold<Extremum>(running, row, pixels);
  OfTwo<Extremum>(combined, running, above, pixels);
  Across<Extremum>(dest, combined, size, step, count);
  TakeAlpha(dest, row + (size - 1) * step, step, count);
}

/// Nine bytes at once: without rows in between, reading and writing keep pace with each other.
template <typename Extremum, size_t kStep>
void Square3(uint8_t* dest, const uint8_t* const* rows, size_t count) {
  const uint8_t* const a = rows[0];
  const uint8_t* const b = rows[1];
  const uint8_t* const c = rows[2];
  StoreWindows<3, kStep>(
      dest, count,
      [=](size_t k) {
        PrefetchAhead<kVectorBytes>(c + k);
        return Extremum::Of(Extremum::Of(LoadU<U8>(a + k), LoadU<U8>(b + k)), LoadU<U8>(c + k));
      },
      [=](size_t k, U8 left, U8 middle, U8 right) {
        const U8 square = Extremum::Of(Extremum::Of(left, middle), right);
        return kStep == 4 ? WithFourthBytes(square, LoadU<U8>(c + k + 2 * kStep)) : square;
      });
}

struct Extremes {
  U8 lowest;
  U8 highest;
};
template <size_t kBytes>
QEL_SIMD_INLINE Extremes ShiftedWindow(const Extremes& v, const Extremes& next) {
  return {ShiftedWindow<kBytes>(v.lowest, next.lowest),
          ShiftedWindow<kBytes>(v.highest, next.highest)};
}

/// The larger extremum of nine bytes without the smaller one.
template <size_t kStep>
void Spread3(uint8_t* dest, const uint8_t* const* rows, size_t count) {
  StoreWindows<3, kStep>(
      dest, count,
      [=](size_t k) {
        PrefetchAhead<kVectorBytes>(rows[2] + k);
        const U8 a = LoadU<U8>(rows[0] + k);
        const U8 b = LoadU<U8>(rows[1] + k);
        const U8 c = LoadU<U8>(rows[2] + k);
        return Extremes{Min(Min(a, b), c), Max(Max(a, b), c)};
      },
      [=](size_t k, const Extremes& left, const Extremes& middle, const Extremes& right) {
        const U8 spread = SaturatedSub(Max(Max(left.highest, middle.highest), right.highest),
                                       Min(Min(left.lowest, middle.lowest), right.lowest));
        return kStep == 4 ? WithFourthBytes(spread, LoadU<U8>(rows[2] + k + 2 * kStep)) : spread;
      });
}

void Spread(uint8_t* dest, const uint8_t* const* rows, size_t step, size_t count) {
  const auto function = step == 4 ? &Spread3<4> : step == 3 ? &Spread3<3> : &Spread3<1>;
  function(dest, rows, count);
}

template <typename Extremum>
void Window(uint8_t* dest, const uint8_t* const* rows, size_t size, size_t step, size_t count,
            uint8_t* columns) {
  if (size == 3) {
    const auto function = step == 4   ? &Square3<Extremum, 4>
                          : step == 3 ? &Square3<Extremum, 3>
                                      : &Square3<Extremum, 1>;
    return function(dest, rows, count);
  }
  OfRows<Extremum>(columns, rows, size, count + (size - 1) * step);
  Across<Extremum>(dest, columns, size, step, count);
  TakeAlpha(dest, rows[size - 1] + (size - 1) * step, step, count);
}

template <typename Extremum>
constexpr ExtremumKernels KernelsOf() {
  return {.fold = &Fold<Extremum>,
          .of_two = &OfTwo<Extremum>,
          .across = &Across<Extremum>,
          .advance = &Advance<Extremum>,
          .window = &Window<Extremum>};
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_FILTER_MORPHOLOGY_EXTREMA_ROWS_H_
