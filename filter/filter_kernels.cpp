#include "filter/filter_kernels.h"

#include "filter/each_byte.h"
#include "image/slide.h"

namespace qel::QEL_LEVEL {
namespace {

struct Minimum {
  static uint8_t Of(uint8_t a, uint8_t b) { return b < a ? b : a; }
#ifdef QEL_HAS_COLOUR_VECTORS
  static Vector Of(Vector a, Vector b) { return Min(a, b); }
#endif
};
struct Maximum {
  static uint8_t Of(uint8_t a, uint8_t b) { return a < b ? b : a; }
#ifdef QEL_HAS_COLOUR_VECTORS
  static Vector Of(Vector a, Vector b) { return Max(a, b); }
#endif
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

#ifdef QEL_LEVEL_avx512vbmi

constexpr size_t kVector = 64;

inline __mmask64 First(size_t count) {
  return count >= kVector ? ~__mmask64{0} : (__mmask64{1} << count) - 1;
}

/// Doubles windows in registers, from the end of the row: a vector and the one right of it hold all
/// that doubling needs. `jumps` are the bytes between the windows that are joined. load(k, mask)
/// gives the bytes of the row from `k` on, finish(windows, k, mask) what is stored there.
template <typename Extremum, size_t kSteps, typename LoadAt, typename Finish>
inline void DoubleAcross(uint8_t* dest, const size_t* jumps, size_t samples, size_t count,
                         const LoadAt& load, const Finish& finish) {
  alignas(kVector) uint8_t places[kVector];
  for (size_t i = 0; i < kVector; ++i) places[i] = static_cast<uint8_t>(i);
  const __m512i in_place = _mm512_load_si512(places);
  __m512i orders[kSteps];
  __m512i right[kSteps];
  for (size_t s = 0; s < kSteps; ++s) {
    orders[s] = _mm512_add_epi8(in_place, _mm512_set1_epi8(static_cast<char>(jumps[s])));
    right[s] = _mm512_setzero_si512();
  }
  for (size_t k = (samples - 1) / kVector * kVector;; k -= kVector) {
    __m512i windows = load(k, First(samples - k));
    for (size_t s = 0; s < kSteps; ++s) {
      const __m512i shifted = _mm512_permutex2var_epi8(windows, orders[s], right[s]);
      right[s] = windows;
      windows = Extremum::Of(windows, shifted);
    }
    if (k + kVector <= count) {
      _mm512_storeu_si512(dest + k, finish(windows, k, ~__mmask64{0}));
    } else if (k < count) {
      const __mmask64 mask = First(count - k);
      _mm512_mask_storeu_epi8(dest + k, mask, finish(windows, k, mask));
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
    if (jumps[steps] >= kVector) return false;
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
  return WithSteps(size, step, [&]<size_t kSteps>(Steps<kSteps>, const size_t* jumps) {
    DoubleAcross<Extremum, kSteps>(
        dest, jumps, count + (size - 1) * step, count,
        [=](size_t k, __mmask64 mask) { return _mm512_maskz_loadu_epi8(mask, row + k); },
        [](__m512i windows, size_t, __mmask64) { return windows; });
  });
}

template <typename Extremum>
bool AdvanceInRegisters(uint8_t* dest, uint8_t* running, const uint8_t* row, const uint8_t* above,
                        size_t size, size_t step, size_t count) {
  const uint8_t* const last = row + (size - 1) * step;
  const __mmask64 alpha = step == 4 ? 0x8888'8888'8888'8888 : 0;
  return WithSteps(size, step, [&]<size_t kSteps>(Steps<kSteps>, const size_t* jumps) {
    DoubleAcross<Extremum, kSteps>(
        dest, jumps, count + (size - 1) * step, count,
        [=](size_t k, __mmask64 mask) {
          // Beyond the samples, what runs stays as it is.
          const __m512i before = _mm512_loadu_si512(running + k);
          const __m512i longer =
              Extremum::Of(before, _mm512_mask_loadu_epi8(before, mask, row + k));
          _mm512_storeu_si512(running + k, longer);
          return Extremum::Of(longer, _mm512_loadu_si512(above + k));
        },
        [=](__m512i windows, size_t k, __mmask64 mask) {
          return _mm512_mask_loadu_epi8(windows, alpha & mask, last + k);
        });
  });
}

#else

template <typename Extremum>
bool AcrossInRegisters(uint8_t*, const uint8_t*, size_t, size_t, size_t) {
  return false;
}
template <typename Extremum>
bool AdvanceInRegisters(uint8_t*, uint8_t*, const uint8_t*, const uint8_t*, size_t, size_t,
                        size_t) {
  return false;
}

#endif

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

/// What joins the fourth bytes of 4-byte samples to a 3 x 3 window's others.
template <size_t kStep>
uint8_t WithLastAlpha(uint8_t byte, const uint8_t* below, size_t i) {
  return kStep == 4 && i % 4 == 3 ? below[i + 2 * kStep] : byte;
}

/// Nine bytes at once: without rows in between, reading and writing keep pace with each other.
template <typename Extremum, size_t kStep>
void Square3(uint8_t* dest, const uint8_t* const* rows, size_t count) {
  const uint8_t* const a = rows[0];
  const uint8_t* const b = rows[1];
  const uint8_t* const c = rows[2];
#ifdef QEL_HAS_COLOUR_VECTORS
  Slide<3, kStep>(
      dest, count,
      [=](size_t k) {
        FetchAhead<kVectorBytes>(c + k);
        return Extremum::Of(Extremum::Of(Load(a + k), Load(b + k)), Load(c + k));
      },
      [=](size_t k, Vector left, Vector middle, Vector right) {
        const Vector square = Extremum::Of(Extremum::Of(left, middle), right);
        return kStep == 4 ? JoinAlpha(square, Load(c + k + 2 * kStep)) : square;
      });
#else
  ForEachByte(dest, count, [=](size_t i, uint8_t) {
    const auto column = [=](size_t k) { return Extremum::Of(Extremum::Of(a[k], b[k]), c[k]); };
    return WithLastAlpha<kStep>(
        Extremum::Of(Extremum::Of(column(i), column(i + kStep)), column(i + 2 * kStep)), c, i);
  });
#endif
}

#ifdef QEL_HAS_COLOUR_VECTORS

struct Extremes {
  Vector lowest;
  Vector highest;
};
template <size_t kBytes>
Extremes Shifted(const Extremes& v, const Extremes& next) {
  return {Shifted<kBytes>(v.lowest, next.lowest), Shifted<kBytes>(v.highest, next.highest)};
}

#endif

/// The larger extremum of nine bytes without the smaller one.
template <size_t kStep>
void Spread3(uint8_t* dest, const uint8_t* const* rows, size_t count) {
#ifdef QEL_HAS_COLOUR_VECTORS
  Slide<3, kStep>(
      dest, count,
      [=](size_t k) {
        FetchAhead<kVectorBytes>(rows[2] + k);
        const Vector a = Load(rows[0] + k);
        const Vector b = Load(rows[1] + k);
        const Vector c = Load(rows[2] + k);
        return Extremes{Min(Min(a, b), c), Max(Max(a, b), c)};
      },
      [=](size_t k, const Extremes& left, const Extremes& middle, const Extremes& right) {
        const Vector spread =
            SubtractUnsigned(Max(Max(left.highest, middle.highest), right.highest),
                             Min(Min(left.lowest, middle.lowest), right.lowest));
        return kStep == 4 ? JoinAlpha(spread, Load(rows[2] + k + 2 * kStep)) : spread;
      });
#else
  const uint8_t* const a = rows[0];
  const uint8_t* const b = rows[1];
  const uint8_t* const c = rows[2];
  ForEachByte(dest, count, [=](size_t i, uint8_t) {
    const auto extremum = [=](auto of) {
      const auto column = [=](size_t k) { return of(of(a[k], b[k]), c[k]); };
      return of(of(column(i), column(i + kStep)), column(i + 2 * kStep));
    };
    const uint8_t highest = extremum([](uint8_t x, uint8_t y) { return Maximum::Of(x, y); });
    const uint8_t lowest = extremum([](uint8_t x, uint8_t y) { return Minimum::Of(x, y); });
    return WithLastAlpha<kStep>(static_cast<uint8_t>(highest - lowest), c, i);
  });
#endif
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

#ifdef QEL_HAS_COLOUR_VECTORS

inline Vector Keep(Vector kept, Vector centre, Vector neighbour) {
  const Vector limit = AddUnsigned(kept, centre);
#ifdef QEL_LEVEL_avx2
  const Vector not_above = _mm256_cmpeq_epi8(SubtractUnsigned(neighbour, limit), FillBytes(0));
  return _mm256_blendv_epi8(neighbour, kept, not_above);
#else
  return _mm512_mask_mov_epi8(kept, _mm512_cmpgt_epu8_mask(neighbour, limit), neighbour);
#endif
}

#else

inline uint8_t Keep(uint8_t kept, uint8_t centre, uint8_t neighbour) {
  const uint8_t room = static_cast<uint8_t>(~kept);
  const auto limit = static_cast<uint8_t>(kept + (centre < room ? centre : room));
  return neighbour > limit ? neighbour : kept;
}

#endif

void Contour(uint8_t* dest, const uint8_t* const* rows, size_t count, size_t sample_bytes) {
  const uint8_t* const above = rows[0];
  const uint8_t* const level = rows[1];
  const uint8_t* const below = rows[2];
  const size_t next = sample_bytes;
  const size_t last = 2 * sample_bytes;
  // Column by column; the centre itself never exceeds itself.
  const auto trace = [=](size_t k, auto kept, auto load) {
    const auto centre = load(level + k + next);
    kept = Keep(kept, centre, load(above + k));
    kept = Keep(kept, centre, load(level + k));
    kept = Keep(kept, centre, load(below + k));
    kept = Keep(kept, centre, load(above + k + next));
    kept = Keep(kept, centre, load(below + k + next));
    kept = Keep(kept, centre, load(above + k + last));
    kept = Keep(kept, centre, load(level + k + last));
    return Keep(kept, centre, load(below + k + last));
  };
#ifdef QEL_HAS_COLOUR_VECTORS
  StoreVectors(dest, count, [&](size_t k) {
    FetchAhead<kVectorBytes>(below + k);
    const Vector traced = ~trace(k, FillBytes(0), [](const uint8_t* at) { return Load(at); });
    return sample_bytes == 4 ? JoinAlpha(traced, Load(level + k + next)) : traced;
  });
#else
  ForEachByte(dest, count, [=](size_t k, uint8_t) {
    const uint8_t kept = trace(k, uint8_t{0}, [](const uint8_t* at) { return *at; });
    return static_cast<uint8_t>(~kept);
  });
  TakeAlpha(dest, level + next, sample_bytes, count);
#endif
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
