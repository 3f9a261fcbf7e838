#include "transform/warp/point_kernels.h"

#include "image/numeric.h"
#include "simd/convert.h"

namespace qel::QEL_LEVEL {
namespace {

struct Pixels {
  I32 x, y;
};

void PlacePoints(double* x, double* y, size_t count, double first_x, double at_y) {
  F64 columns = Set<F64>(first_x) + Iota<F64>(0);
  for (size_t i = 0; i < count; i += F64::kLanes) {
    StoreU(columns, x + i);
    StoreU(Set<F64>(at_y), y + i);
    columns = columns + Set<F64>(static_cast<double>(F64::kLanes));
  }
}

/// Coordinates after their moves, half as many in each vector as there are cells.
struct Moved {
  F64 x0, x1, y0, y1;
};
/// None of them is -0: only what is negative has the sign.
QEL_SIMD_INLINE Moved MovedPoints(const PointRule& rule, const double* x, const double* y) {
  const F64 half = Set<F64>(rule.half);
  const auto load = [](const double* from) { return LoadU<F64>(from); };
  constexpr size_t kLanes = F64::kLanes;
  if (!rule.shifts) {
    return {load(x) + half, load(x + kLanes) + half, load(y) + half, load(y + kLanes) + half};
  }
  const F64 shift_x = Set<F64>(rule.shift_x), shift_y = Set<F64>(rule.shift_y);
  return {shift_x + load(x) + half, shift_x + load(x + kLanes) + half, shift_y + load(y) + half,
          shift_y + load(y + kLanes) + half};
}
QEL_SIMD_INLINE U64 Either(F64 a, F64 b) { return BitCast<U64>(a) | BitCast<U64>(b); }
QEL_SIMD_INLINE I32 Truncated(F64 lower, F64 upper) {
  return Combine(ConvertTo<Half<I32>>(upper), ConvertTo<Half<I32>>(lower));
}

QEL_SIMD_INLINE Pixels CellsOf(const PointRule& rule, const double* x, const double* y) {
  const Moved at = MovedPoints(rule, x, y);
  const I32 upper_words =
      Shuffled<I32>(BitCast<I32>(Either(at.x0, at.y0)), BitCast<I32>(Either(at.x1, at.y1)),
                    [](size_t i) { return 2 * i + 1; });
  return {Truncated(at.x0, at.x1), Truncated(at.y0, at.y1) | (upper_words & Set<I32>(INT32_MIN))};
}

void Cells(int32_t* sx, int32_t* sy, const double* x, const double* y, size_t count,
           const PointRule& rule) {
  const PointRule r = rule;
  for (size_t i = 0; i < count; i += I32::kLanes) {
    const Pixels at = CellsOf(r, x + i, y + i);
    StoreU(at.x, sx + i);
    StoreU(at.y, sy + i);
  }
}

QEL_SIMD_INLINE I32 OffsetsOfCells(Pixels at, const OffsetRule& rule, int32_t pixel_bytes) {
  const I32 offsets = at.y * Set<I32>(rule.stride) + at.x * Set<I32>(pixel_bytes);
  if (pixel_bytes != 3) return offsets;
  return offsets - (VecFromMask(at.x == Set<I32>(rule.narrow_column)) & Set<I32>(kNarrow));
}

/// A group of which some cells may be outside.
[[gnu::noinline]] void MixedGroup(int32_t* offsets, int32_t* sx, int32_t* sy, const double* x,
                                  const double* y, const PointRule& points,
                                  const OffsetRule& rule) {
  for (size_t i = 0; i < kPointGroup; i += I32::kLanes) {
    const Pixels at = CellsOf(points, x + i, y + i);
    StoreU(at.x, sx + i);
    StoreU(at.y, sy + i);
    const auto is_in = [](I32 cell, int32_t first, int32_t count) {
      return BitCast<U32>(cell - Set<I32>(first)) < Set<U32>(static_cast<uint32_t>(count));
    };
    const Mask<U32> inside =
        is_in(at.x, rule.left, rule.columns) & is_in(at.y, rule.top, rule.rows);
    const U32 offset = BitCast<U32>(OffsetsOfCells(at, rule, rule.pixel_bytes));
    StoreU(IfThenElse(inside, offset, Set<U32>(static_cast<uint32_t>(kOutsideOffset))),
           offsets + i);
  }
}

template <int kBytes>
uint32_t CellOffsetsOf(int32_t* offsets, int32_t* sx, int32_t* sy, const double* x, const double* y,
                       size_t count, const PointRule& points, const OffsetRule& rule) {
  const PointRule p = points;
  const OffsetRule r = rule;
  // Cells before the first one inside become the largest numbers.
  const int32_t before_left = WrapAdd(r.left, INT32_MIN), before_top = WrapAdd(r.top, INT32_MIN);
  uint32_t inside_groups = 0;
  for (size_t first = 0; first < count; first += kPointGroup) {
    U64 signs = Zero<U64>();
    I32 last_column = Set<I32>(INT32_MIN), last_row = Set<I32>(INT32_MIN);
    for (size_t i = first; i < first + kPointGroup; i += I32::kLanes) {
      const Moved moved = MovedPoints(p, x + i, y + i);
      signs |= Either(moved.x0, moved.y0) | Either(moved.x1, moved.y1);
      const Pixels at = {Truncated(moved.x0, moved.x1), Truncated(moved.y0, moved.y1)};
      last_column = Max(last_column, at.x - Set<I32>(before_left));
      last_row = Max(last_row, at.y - Set<I32>(before_top));
      StoreU(at.x, sx + i);
      StoreU(at.y, sy + i);
      StoreU(OffsetsOfCells(at, r, kBytes), offsets + i);
    }
    const Mask<I32> outside = (last_column >= Set<I32>(WrapAdd(r.columns, INT32_MIN))) |
                              (last_row >= Set<I32>(WrapAdd(r.rows, INT32_MIN)));
    const I32 negative = BitCast<I32>(signs & Set<U64>(uint64_t{1} << 63));
    if (AllFalse((VecFromMask(outside) | negative) != Zero<I32>())) [[likely]] {
      inside_groups |= 1u << first / kPointGroup;
    } else {
      MixedGroup(offsets + first, sx + first, sy + first, x + first, y + first, p, r);
    }
  }
  return inside_groups;
}

uint32_t CellOffsets(int32_t* offsets, int32_t* sx, int32_t* sy, const double* x, const double* y,
                     size_t count, const PointRule& points, const OffsetRule& rule) {
  const auto of = rule.pixel_bytes == 1   ? &CellOffsetsOf<1>
                  : rule.pixel_bytes == 3 ? &CellOffsetsOf<3>
                                          : &CellOffsetsOf<4>;
  return of(offsets, sx, sy, x, y, count, points, rule);
}

uint32_t JoinBelow(int32_t* below, const int32_t* offsets, const int32_t* sx, size_t count,
                   int32_t stride) {
  uint32_t groups = 0;
  for (size_t first = 0; first < count; first += kPointGroup) {
    I32 highest = Zero<I32>();
    for (size_t i = first; i < first + kPointGroup; i += I32::kLanes) {
      const I32 step = LoadU<I32>(sx + i) - LoadU<I32>(sx + i - 1);
      const I32 is_next = VecFromMask(step == Set<I32>(1));
      StoreU(LoadU<I32>(offsets + i) + (is_next & Set<I32>(stride)), below + i);
      highest = Max(highest, step);
    }
    const bool has_gaps = !AllFalse(highest > Set<I32>(1));
    groups |= static_cast<uint32_t>(!has_gaps) << first / kPointGroup;
  }
  return groups;
}

}  // namespace

extern const PointKernels kPointKernels;
constinit const PointKernels kPointKernels = {
    .place_points = &PlacePoints,
    .cells = &Cells,
    .cell_offsets = &CellOffsets,
    .join_below = &JoinBelow,
};

}  // namespace qel::QEL_LEVEL
