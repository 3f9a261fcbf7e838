#include "transform/warp/circle_kernels.h"

#include <type_traits>

#include "image/numeric.h"
#include "transform/trigonometry.h"
#include "transform/word_vectors.h"

namespace qel::QEL_LEVEL {
namespace {

// Positions are computed in single precision first, with errors that are bounded below in units of
// the last place, and grow with the distance of the run's last pixel; where one is too near to a
// whole number for that, those of its vector are computed once more in double precision, and what
// is still too near is left to the mathematics library.

/// What single precision rounds a number of 1 by, at the most.
constexpr double kUnit = 0x1p-24;
/// Above this, too many vectors are computed twice: about every third one, of four coordinates.
constexpr double kMostRoughness = 1.0 / (20.0 * F32::kLanes);

/// A pixel as it lies from the centre.
template <typename V>
struct Place {
  V dx, dy;
  V d;        ///< its distance, as single precision has it
  V to_true;  ///< d divided by the true distance; of single precision, 1
};

QEL_SIMD_INLINE Place<F64> PlaceOf(Wholes dx, int32_t dy, F64 /*kind*/) {
  using Singles = Half<F32>;
  const Wholes square = dx * dx + Set<Wholes>(dy * dy);
  // The root of the nearest single-precision numbers, in single precision.
  const auto single = ConvertTo<Singles>(square);
  const F64 d = ConvertTo<F64>(Sqrt(single));
  // The square of d is off by its ten millionth part at most: one term of the root's series will
  // do, divided in single precision. At the centre nothing is off.
  const F64 inverse = ConvertTo<F64>(Set<Singles>(1) / Max(single, Set<Singles>(1)));
  const F64 error = (ToDoubles(square) - d * d) * inverse;
  return {ToDoubles(dx), Fill(dy), d, Fill(1) - Fill(0.5) * error};
}
QEL_SIMD_INLINE Place<F32> PlaceOf(I32 dx, int32_t dy, F32 /*kind*/) {
  const F32 d = Sqrt(ConvertTo<F32>(dx * dx + Set<I32>(dy * dy)));
  return {ConvertTo<F32>(dx), Set<F32>(static_cast<float>(dy)), d, Set<F32>(1)};
}

/// A position cut off toward zero.
template <typename V>
struct Cut {
  WholesOf<V> whole;
  WholesOf<V> doubt;  ///< not 0 where the exact value may have another whole part
};

/// Cuts positions that are off by less than a tolerance.
template <typename V>
struct Cutter {
  V tolerance;

  QEL_SIMD_INLINE Cut<V> operator()(V value) const {
    using Words = WordsOf<V>;
    // Values about 0 are cut to 0 on both sides.
    const Words sign = BitCast<Words>(value) & BitCast<Words>(Of<V>(-0.0));
    const V away = BitCast<V>(sign | BitCast<Words>(tolerance));
    const auto whole = ConvertTo<WholesOf<V>>(value - away);
    return {whole, whole ^ ConvertTo<WholesOf<V>>(value + away)};
  }
};

template <typename V>
struct Mapped {
  WholesOf<V> left_x, left_y, right_x, right_y;
  WholesOf<V> doubt;

  QEL_SIMD_INLINE void Store(CircleSamples& samples, size_t i) const {
    StoreU(left_x, samples.left_x + i);
    StoreU(left_y, samples.left_y + i);
    StoreU(right_x, samples.right_x + i);
    StoreU(right_y, samples.right_y + i);
  }
};

/// Calls `map(place, cutter)` for the pixels of the run and stores the samples it returns.
/// `roughness` is by what single precision may be off there.
template <typename Map>
bool ForEachPixel(const CircleRun& run, CircleSamples& samples, double roughness, const Map& map) {
  const size_t count = run.count;
  const int32_t first_dx = run.first_dx;
  const int32_t dy = run.dy;
  const bool begins_rough = roughness <= kMostRoughness;
  const Cutter<F32> rough = {Of<F32>(roughness)};
  const Cutter<F64> fine = {Fill(kCircleTolerance)};
  bool any_too_close = false;
  // The last vector may go beyond the run: samples have room for it.
  for (size_t begin = 0; begin < count; begin += F32::kLanes) {
    if (begins_rough) {
      const I32 dx = Iota<I32>(first_dx + static_cast<int32_t>(begin));
      const Mapped<F32> mapped = map(PlaceOf(dx, dy, F32()), rough);
      mapped.Store(samples, begin);
      if (AllFalse(mapped.doubt != Zero<I32>())) [[likely]]
        continue;
    }
    for (size_t i = begin; i < begin + F32::kLanes; i += F64::kLanes) {
      const Wholes dx = Iota<Wholes>(first_dx + static_cast<int32_t>(i));
      Mapped<F64> mapped = map(PlaceOf(dx, dy, F64()), fine);
      const auto is_too_close = Combine(mapped.doubt, mapped.doubt) != Zero<I32>();
      if (!AllFalse(is_too_close)) [[unlikely]] {
        any_too_close = true;
        const Mask<Wholes> doubted = mapped.doubt != Zero<Wholes>();
        mapped.left_x = IfThenElse(doubted, Set<Wholes>(kTooClose), mapped.left_x);
        mapped.right_x = IfThenElse(doubted, Set<Wholes>(kTooClose), mapped.right_x);
      }
      mapped.Store(samples, i);
    }
  }
  return any_too_close;
}

/// Moves every pixel along its radius: the new radius is `scale(d)` times d, and `most_radius` at
/// the most.
template <typename Scale>
bool MapRadius(const CircleRun& run, CircleSamples& samples, double most_radius,
               const Scale& scale) {
  // Up to 7 roundings: of d, in the scale, in the products and where they are cut.
  const double roughness = 10 * kUnit * most_radius;
  return ForEachPixel(run, samples, roughness,
                      [&]<typename V>(const Place<V>& at, const Cutter<V>& cut) {
                        const V factor = scale(at.d) * at.to_true;
                        const Cut<V> x = cut(factor * at.dx);
                        const Cut<V> y = cut(factor * at.dy);
                        return Mapped<V>{x.whole, y.whole, Zero<WholesOf<V>>() - x.whole, y.whole,
                                         x.doubt | y.doubt};
                      });
}

bool Bulge(const CircleRun& run, CircleSamples& samples) {
  const double inverse_limit = 1.0 / run.limit;
  return MapRadius(run, samples, run.farthest * run.farthest * inverse_limit,
                   [=]<typename V>(V d) { return d * Of<V>(inverse_limit); });
}

QEL_SIMD_INLINE F32 InverseRoot(F32 v) { return Set<F32>(1) / Sqrt(v); }
QEL_SIMD_INLINE F64 InverseRoot(F64 v) {
  // In single precision, and one step of Newton's method.
  using Singles = Half<F32>;
  const F64 root = ConvertTo<F64>(Set<Singles>(1) / Sqrt(ConvertTo<Singles>(v)));
  return root * (Fill(1.5) - Fill(0.5) * v * root * root);
}

bool Pinch(const CircleRun& run, CircleSamples& samples) {
  const double inverse_limit = 1.0 / run.limit;
  // The geometric mean of the limit and the distance is not above the arithmetic one.
  return MapRadius(run, samples, 0.5 * (run.limit + run.farthest), [=]<typename V>(V d) {
    return InverseRoot(IfThenElse(d < Of<V>(1), Of<V>(1), d) * Of<V>(inverse_limit));
  });
}

bool Swirl(const CircleRun& run, CircleSamples& samples) {
  const double turn = run.turn;
  // Twice that of the turn itself, in two coordinates, and 12 of what follows.
  const double most_turn = run.farthest * (turn < 0 ? -turn : turn);
  const double roughness = (16 + 4 * most_turn) * kUnit * run.farthest;
  return ForEachPixel(
      run, samples, roughness, [=]<typename V>(const Place<V>& at, const Cutter<V>& cut) {
        V sine;
        V cosine;
        SineCosine(at.d * Of<V>(turn), sine, cosine);
        sine = sine * at.to_true;
        cosine = cosine * at.to_true;
        const V dx_sine = at.dx * sine;
        const V dy_sine = at.dy * sine;
        const Cut<V> left_x = cut(at.dx * cosine - dy_sine);
        const Cut<V> left_y = cut(MulAdd(at.dy, cosine, dx_sine));
        const Cut<V> right_x = cut(Zero<V>() - MulAdd(at.dx, cosine, dy_sine));
        const Cut<V> right_y = cut(at.dy * cosine - dx_sine);
        return Mapped<V>{left_x.whole, left_y.whole, right_x.whole, right_y.whole,
                         left_x.doubt | left_y.doubt | right_x.doubt | right_y.doubt};
      });
}

bool Unwrap(const CircleRun& run, CircleSamples& samples) {
  constexpr double kHalfTurn = 3.1415926535897932;
  const double scale_x = run.scale_x;
  const double scale_y = run.scale_y;
  const double limit = run.limit;
  // Of angles up to a half turn, 23 units; of rows, 3 of their number.
  const double roughness = 32 * scale_x * kUnit;
  const double row_roughness = 8 * scale_y * kUnit * run.farthest / limit;
  const bool any_too_close = ForEachPixel(
      run, samples, roughness, [=]<typename V>(const Place<V>& at, const Cutter<V>& cut) {
        const V angle = Angle(at.dx, at.dy);
        const Cut<V> left = cut(Of<V>(scale_x) * angle);
        const Cut<V> right = cut(Of<V>(scale_x) * (Of<V>(kHalfTurn) - angle));
        Cut<V> row;
        if constexpr (std::is_same_v<V, F64>) {
          // The exact quotients.
          row = {ToWholes(Fill(scale_y) * at.d / Fill(limit)), Zero<Wholes>()};
        } else {
          row = Cutter<V>{Of<V>(row_roughness)}(at.d * Of<V>(scale_y / limit));
        }
        return Mapped<V>{left.whole, row.whole, right.whole, row.whole,
                         left.doubt | right.doubt | row.doubt};
      });
  if (run.dy != 0 || run.first_dx != 0) return any_too_close;
  // The centre has no direction.
  samples.left_x[0] = samples.right_x[0] = kTooClose;
  return true;
}

void PlaceSamples(int32_t* __restrict to, const int32_t* __restrict from, size_t count,
                  int32_t center, int32_t sign) {
  // The opposite of v is ~v + 1; a multiplication would take longer.
  const int32_t flip = sign < 0 ? -1 : 0;
  const int32_t start = WrapSubtract(center, flip);
  for (size_t i = 0; i < count; ++i) to[i] = WrapAdd(start, from[i] ^ flip);
}
void PlaceReversed(int32_t* __restrict to, const int32_t* __restrict from, size_t count,
                   int32_t center, int32_t sign) {
  const int32_t flip = sign < 0 ? -1 : 0;
  const int32_t start = WrapSubtract(center, flip);
  for (size_t i = 0; i < count; ++i) to[i] = WrapAdd(start, from[count - 1 - i] ^ flip);
}

void Offsets(CircleOffsets& offsets, const CircleSamples& samples, size_t count, int32_t stride,
             int32_t pixel_bytes) {
  int32_t least_x = samples.left_x[0];
  int32_t least_y = samples.left_y[0];
  int32_t most_x = least_x;
  int32_t most_y = least_y;
  const auto put = [&](int32_t(*__restrict to)[kInsideRun], const int32_t* __restrict x,
                       const int32_t* __restrict y) {
    for (size_t i = 0; i < count; ++i) {
      const int32_t offset = WrapAdd(WrapMultiply(y[i], stride), WrapMultiply(x[i], pixel_bytes));
      to[0][i] = offset;
      to[1][i] = WrapSubtract(0, offset);
      least_x = x[i] < least_x ? x[i] : least_x;
      least_y = y[i] < least_y ? y[i] : least_y;
      most_x = x[i] > most_x ? x[i] : most_x;
      most_y = y[i] > most_y ? y[i] : most_y;
    }
  };
  put(offsets.left, samples.left_x, samples.left_y);
  put(offsets.right, samples.right_x, samples.right_y);
  offsets.least_x = least_x;
  offsets.least_y = least_y;
  offsets.most_x = most_x;
  offsets.most_y = most_y;
}

template <int kBytes, bool kReversed>
void CopyPixelsOfQuarter(uint8_t* dest, size_t count, const uint8_t* center, const int32_t* offsets,
                         const int32_t* later, size_t later_count) {
  for (size_t first = 0; first < count; first += kLineGroup, dest += kBytes * kLineGroup) {
    for (size_t i = first; i < first + kLineGroup && i < later_count; i += kPixelsPerFetch) {
      PrefetchLine(center + later[i]);
    }
    const int32_t* const from = kReversed ? offsets + (count - 1 - first) : offsets + first;
    const auto pixel_at = [=](size_t i) {
      const auto at = static_cast<ptrdiff_t>(i);
      uint32_t pixel;
      __builtin_memcpy(&pixel, center + from[kReversed ? -at : at], 4);
      return pixel;
    };
    if (count - first > kLineGroup) {
      CopyScatteredPixels<kBytes, true>(dest, kLineGroup, pixel_at);
    } else {
      CopyScatteredPixels<kBytes>(dest, count - first, pixel_at);
    }
  }
}

}  // namespace

extern const CircleKernels kCircleKernels;
constinit const CircleKernels kCircleKernels = {
    .bulge = &Bulge,
    .pinch = &Pinch,
    .swirl = &Swirl,
    .unwrap = &Unwrap,
    .place = &PlaceSamples,
    .place_reversed = &PlaceReversed,
    .offsets = &Offsets,
    .copy3 = &CopyPixelsOfQuarter<3, false>,
    .copy3_reversed = &CopyPixelsOfQuarter<3, true>,
    .copy4 = &CopyPixelsOfQuarter<4, false>,
    .copy4_reversed = &CopyPixelsOfQuarter<4, true>,
};

}  // namespace qel::QEL_LEVEL
