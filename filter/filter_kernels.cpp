#include "filter/filter_kernels.h"

namespace qel::QEL_LEVEL {
namespace {

struct Minimum {
  static uint8_t Of(uint8_t a, uint8_t b) { return b < a ? b : a; }
};
struct Maximum {
  static uint8_t Of(uint8_t a, uint8_t b) { return a < b ? b : a; }
};

template <typename Extremum>
void Fold(uint8_t* __restrict into, const uint8_t* __restrict row, size_t count) {
  for (size_t i = 0; i < count; ++i) into[i] = Extremum::Of(into[i], row[i]);
}
template <typename Extremum>
void Pick(uint8_t* __restrict dest, const uint8_t* a, const uint8_t* b, size_t count) {
  for (size_t i = 0; i < count; ++i) dest[i] = Extremum::Of(a[i], b[i]);
}
template <typename Extremum>
void Pick3(uint8_t* __restrict dest, const uint8_t* a, const uint8_t* b, const uint8_t* c,
           size_t count) {
  for (size_t i = 0; i < count; ++i) dest[i] = Extremum::Of(Extremum::Of(a[i], b[i]), c[i]);
}
template <typename Extremum>
void Pick4(uint8_t* __restrict dest, const uint8_t* a, const uint8_t* b, const uint8_t* c,
           const uint8_t* d, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    dest[i] = Extremum::Of(Extremum::Of(a[i], b[i]), Extremum::Of(c[i], d[i]));
  }
}

template <typename Extremum>
void PickRows(uint8_t* __restrict dest, const uint8_t* const* rows, size_t size, size_t count) {
  size_t done = 2;
  if (size % 2 != 0) {
    Pick3<Extremum>(dest, rows[0], rows[1], rows[2], count);
    done = 3;
  } else {
    Pick<Extremum>(dest, rows[0], rows[1], count);
  }
  for (; done < size; done += 2) {
    const uint8_t* __restrict const a = rows[done];
    const uint8_t* __restrict const b = rows[done + 1];
    for (size_t i = 0; i < count; ++i) dest[i] = Extremum::Of(dest[i], Extremum::Of(a[i], b[i]));
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
constexpr ExtremumKernels KernelsOf() {
  return {.fold = &Fold<Extremum>,
          .pick = &Pick<Extremum>,
          .pick_rows = &PickRows<Extremum>,
          .across = &Across<Extremum>};
}

void Subtract(uint8_t* __restrict dest, const uint8_t* __restrict row, size_t count) {
  for (size_t i = 0; i < count; ++i) dest[i] = static_cast<uint8_t>(dest[i] - row[i]);
}

void MergeAlpha(uint8_t* __restrict dest, const uint8_t* __restrict source, size_t pixels) {
  for (size_t i = 0; i < pixels; ++i) {
    uint32_t colour;
    uint32_t alpha;
    __builtin_memcpy(&colour, dest + 4 * i, sizeof(colour));
    __builtin_memcpy(&alpha, source + 4 * i, sizeof(alpha));
    colour = (colour & 0x00FFFFFFu) | (alpha & 0xFF000000u);
    __builtin_memcpy(dest + 4 * i, &colour, sizeof(colour));
  }
}

/// Deliberate: a difference is compared with a kept raw value, n - c > t and then t = n. With
/// bytes: n lies above c + t, which stops at 255.
inline uint8_t Keep(uint8_t kept, uint8_t centre, uint8_t neighbour) {
  const uint8_t room = static_cast<uint8_t>(~kept);
  const auto limit = static_cast<uint8_t>(kept + (centre < room ? centre : room));
  return neighbour > limit ? neighbour : kept;
}

void Contour(uint8_t* __restrict dest, const uint8_t* const* rows, size_t count,
             size_t sample_bytes) {
  const uint8_t* const above = rows[0];
  const uint8_t* const level = rows[1];
  const uint8_t* const below = rows[2];
  const size_t next = sample_bytes;
  const size_t last = 2 * sample_bytes;
  for (size_t k = 0; k < count; ++k) {
    const uint8_t centre = level[k + next];
    uint8_t kept = 0;
    // Column by column; the centre itself never exceeds itself.
    kept = Keep(kept, centre, above[k]);
    kept = Keep(kept, centre, level[k]);
    kept = Keep(kept, centre, below[k]);
    kept = Keep(kept, centre, above[k + next]);
    kept = Keep(kept, centre, below[k + next]);
    kept = Keep(kept, centre, above[k + last]);
    kept = Keep(kept, centre, level[k + last]);
    kept = Keep(kept, centre, below[k + last]);
    dest[k] = static_cast<uint8_t>(~kept);
  }
}

}  // namespace

extern const FilterKernels kFilterKernels;
constinit const FilterKernels kFilterKernels = {
    .minimum = KernelsOf<Minimum>(),
    .maximum = KernelsOf<Maximum>(),
    .subtract = &Subtract,
    .merge_alpha = &MergeAlpha,
    .contour = &Contour,
};

}  // namespace qel::QEL_LEVEL
