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
constexpr ExtremumKernels KernelsOf() {
  return {.fold = &Fold<Extremum>, .pick = &Pick<Extremum>, .pick3 = &Pick3<Extremum>};
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
