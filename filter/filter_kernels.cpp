#include "filter/filter_kernels.h"

#include "filter/each_byte.h"
#include "simd/fetch.h"
#include "simd/window.h"

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

/// Writes a pixel with the colour of one and the fourth byte of another.
inline void JoinPixel(uint8_t* dest, const uint8_t* colour, const uint8_t* alpha) {
  uint32_t pixel;
  uint32_t fourth;
  __builtin_memcpy(&pixel, colour, sizeof(pixel));
  __builtin_memcpy(&fourth, alpha, sizeof(fourth));
  pixel = (pixel & 0x00FFFFFFu) | (fourth & 0xFF000000u);
  __builtin_memcpy(dest, &pixel, sizeof(pixel));
}

void WithAlpha(uint8_t* __restrict dest, const uint8_t* __restrict colours,
               const uint8_t* __restrict alphas, size_t pixels) {
  for (size_t i = 0; i < 4 * pixels; i += 4) JoinPixel(dest + i, colours + i, alphas + i);
}

/// Gives samples of four bytes the fourth ones of `alphas`.
void TakeAlpha(uint8_t* __restrict dest, const uint8_t* __restrict alphas, size_t step,
               size_t count) {
  for (size_t i = 0; step == 4 && i < count; i += 4) JoinPixel(dest + i, dest + i, alphas + i);
}

template <typename Extremum>
void Fold(uint8_t* into, const uint8_t* row, size_t count) {
  ForEachByte(into, count, [=](size_t i, uint8_t old) { return Extremum::Of(old, row[i]); });
}
template <typename Extremum>
void Pick(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t count) {
  ForEachByte(dest, count, [=](size_t i, uint8_t) { return Extremum::Of(a[i], b[i]); });
}
template <typename Extremum>
void Pick3(uint8_t* dest, const uint8_t* a, const uint8_t* b, const uint8_t* c, size_t count) {
  ForEachByte(dest, count,
              [=](size_t i, uint8_t) { return Extremum::Of(Extremum::Of(a[i], b[i]), c[i]); });
}
template <typename Extremum>
void Pick4(uint8_t* dest, const uint8_t* a, const uint8_t* b, const uint8_t* c, const uint8_t* d,
           size_t count) {
  ForEachByte(dest, count, [=](size_t i, uint8_t) {
    return Extremum::Of(Extremum::Of(a[i], b[i]), Extremum::Of(c[i], d[i]));
  });
}

/// dest[i] = extremum(rows[0][i], ..., rows[size - 1][i])
template <typename Extremum>
void PickRows(uint8_t* dest, const uint8_t* const* rows, size_t size, size_t count) {
  if (size == 1) {
    __builtin_memcpy(dest, rows[0], count);
    return;
  }
  size_t done = 2;
  if (size % 2 != 0) {
    Pick3<Extremum>(dest, rows[0], rows[1], rows[2], count);
    done = 3;
  } else {
    Pick<Extremum>(dest, rows[0], rows[1], count);
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
    Pick4<Extremum>(spare[turn], from, from + jump, from + 2 * jump, from + 3 * jump,
                    count + (size - width) * step);
    from = spare[turn];
  }
  const size_t jump = width * step;
  const uint8_t* const last = from + (size - width) * step;
  if (size <= 2 * width) {
    Pick<Extremum>(dest, from, last, count);
  } else if (size <= 3 * width) {
    Pick3<Extremum>(dest, from, from + jump, last, count);
  } else {
    Pick4<Extremum>(dest, from, from + jump, from + 2 * jump, last, count);
  }
}

// In registers: where bytes of two whole vectors can be looked up and memory be masked.

/// Doubles windows in registers, from the end of the row: a vector and the one right of it hold all
/// that doubling needs. `jumps` are the bytes between the windows that are joined. load(k, mask)
/// gives the bytes of the row from `k` on, finish(windows, k, mask) what is stored there.
template <typename Extremum, size_t kSteps, typename LoadAt, typename Finish>
inline void DoubleAcross(uint8_t* dest, const size_t* jumps, size_t samples, size_t count,
                         const LoadAt& load, const Finish& finish) {
  U8 orders[kSteps];
  U8 right[kSteps];
  for (size_t s = 0; s < kSteps; ++s) {
    orders[s] = Iota<U8>(static_cast<uint8_t>(jumps[s]));
    right[s] = Zero<U8>();
  }
  for (size_t k = (samples - 1) / kVectorBytes * kVectorBytes;; k -= kVectorBytes) {
    U8 windows = load(k, FirstN<U8>(samples - k));
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
            // Beyond the samples, what runs stays as it is.
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
  const size_t samples = count + (size - 1) * step;
  Fold<Extremum>(running, row, samples);
  Pick<Extremum>(combined, running, above, samples);
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
        FetchAhead<kVectorBytes>(c + k);
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
        FetchAhead<kVectorBytes>(rows[2] + k);
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
void Square(uint8_t* dest, const uint8_t* const* rows, size_t size, size_t step, size_t count,
            uint8_t* columns) {
  if (size == 3) {
    const auto function = step == 4   ? &Square3<Extremum, 4>
                          : step == 3 ? &Square3<Extremum, 3>
                                      : &Square3<Extremum, 1>;
    return function(dest, rows, count);
  }
  PickRows<Extremum>(columns, rows, size, count + (size - 1) * step);
  Across<Extremum>(dest, columns, size, step, count);
  TakeAlpha(dest, rows[size - 1] + (size - 1) * step, step, count);
}

template <typename Extremum>
constexpr ExtremumKernels KernelsOf() {
  return {.fold = &Fold<Extremum>,
          .pick = &Pick<Extremum>,
          .across = &Across<Extremum>,
          .advance = &Advance<Extremum>,
          .square = &Square<Extremum>};
}

void Subtract(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t step, size_t count) {
  ForEachByte(dest, count, [=](size_t i, uint8_t) { return static_cast<uint8_t>(a[i] - b[i]); });
  TakeAlpha(dest, a, step, count);
}

// Deliberate: a difference is compared with a kept raw value, n - c > t and then t = n. With bytes:
// n lies above c + t, which stops at 255.

QEL_SIMD_INLINE U8 Keep(U8 kept, U8 centre, U8 neighbour) {
  return IfThenElse(neighbour <= SaturatedAdd(kept, centre), kept, neighbour);
}

void Contour(uint8_t* dest, const uint8_t* const* rows, size_t count, size_t sample_bytes) {
  const uint8_t* const above = rows[0];
  const uint8_t* const level = rows[1];
  const uint8_t* const below = rows[2];
  const size_t next = sample_bytes;
  const size_t last = 2 * sample_bytes;
  // Column by column; the centre itself never exceeds itself.
  const auto trace = [=](size_t k) {
    const auto load = [=](const uint8_t* row, size_t right) { return LoadU<U8>(row + k + right); };
    const U8 centre = load(level, next);
    U8 kept = Keep(Zero<U8>(), centre, load(above, 0));
    kept = Keep(kept, centre, load(level, 0));
    kept = Keep(kept, centre, load(below, 0));
    kept = Keep(kept, centre, load(above, next));
    kept = Keep(kept, centre, load(below, next));
    kept = Keep(kept, centre, load(above, last));
    kept = Keep(kept, centre, load(level, last));
    return Keep(kept, centre, load(below, last));
  };
  StoreVectors(dest, count, [&](size_t k) {
    FetchAhead<kVectorBytes>(below + k);
    const U8 traced = ~trace(k);
    return sample_bytes == 4 ? WithFourthBytes(traced, LoadU<U8>(level + k + next)) : traced;
  });
}

}  // namespace

extern const FilterKernels kFilterKernels;
constinit const FilterKernels kFilterKernels = {
    .minimum = KernelsOf<Minimum>(),
    .maximum = KernelsOf<Maximum>(),
    .spread = &Spread,
    .subtract = &Subtract,
    .with_alpha = &WithAlpha,
    .contour = &Contour,
};

}  // namespace qel::QEL_LEVEL
