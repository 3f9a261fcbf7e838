#include "filter/filter_kernels.h"

#include "filter/morphology/extrema_rows.h"

namespace qel::QEL_LEVEL {
namespace {

void Subtract(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t step, size_t count) {
  ForEachByte(dest, count, [=](size_t i, uint8_t) { return static_cast<uint8_t>(a[i] - b[i]); });
  TakeAlpha(dest, a, step, count);
}

// Deliberate: a difference is compared with a kept raw value, n - c > t and then t = n. With bytes:
// n lies above c + t, which stops at 255.

QEL_SIMD_INLINE U8 Keep(U8 kept, U8 center, U8 neighbour) {
  return IfThenElse(neighbour <= SaturatedAdd(kept, center), kept, neighbour);
}

void Contour(uint8_t* dest, const uint8_t* const* rows, size_t count, size_t pixel_bytes) {
  const uint8_t* const above = rows[0];
  const uint8_t* const level = rows[1];
  const uint8_t* const below = rows[2];
  const size_t next = pixel_bytes;
  const size_t last = 2 * pixel_bytes;
  // Column by column; the centre itself never exceeds itself.
  const auto trace = [=](size_t k) {
    const auto load = [=](const uint8_t* row, size_t right) { return LoadU<U8>(row + k + right); };
    const U8 center = load(level, next);
    U8 kept = Keep(Zero<U8>(), center, load(above, 0));
    kept = Keep(kept, center, load(level, 0));
    kept = Keep(kept, center, load(below, 0));
    kept = Keep(kept, center, load(above, next));
    kept = Keep(kept, center, load(below, next));
    kept = Keep(kept, center, load(above, last));
    kept = Keep(kept, center, load(level, last));
    return Keep(kept, center, load(below, last));
  };
  StoreVectors(dest, count, [&](size_t k) {
    PrefetchAhead<kVectorBytes>(below + k);
    const U8 traced = ~trace(k);
    return pixel_bytes == 4 ? WithFourthBytes(traced, LoadU<U8>(level + k + next)) : traced;
  });
}

}  // namespace

extern const FilterKernels kFilterKernels;
constinit const FilterKernels kFilterKernels = {
    .minimum = KernelsOf<Minimum>(),
    .maximum = KernelsOf<Maximum>(),
    .range = &Square<Range>,
    .range_across = &Across<Range>,
    .subtract = &Subtract,
    .with_alpha = &WithAlpha,
    .contour = &Contour,
};

}  // namespace qel::QEL_LEVEL
