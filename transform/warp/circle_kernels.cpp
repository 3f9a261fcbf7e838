#include "transform/warp/circle_kernels.h"

#include "image/numeric.h"
#include "transform/trigonometry.h"

namespace qel::QEL_LEVEL {
namespace {

struct Distance {
  F64 d;        ///< from the centre, as single precision has it
  F64 to_true;  ///< d divided by the true distance
};

inline Distance DistanceOf(Wholes dx, Wholes dy_square) {
  using Singles = Half<F32>;
  const Wholes square = dx * dx + dy_square;
  // The root of the nearest single-precision numbers, in single precision.
  const auto single = ConvertTo<Singles>(square);
  const F64 d = ConvertTo<F64>(Sqrt(single));
  // The square of d is off by its ten millionth part at most: one term of the root's series will
  // do, divided in single precision. At the centre nothing is off.
  const F64 inverse = ConvertTo<F64>(Set<Singles>(1) / Max(single, Set<Singles>(1)));
  const F64 error = (ToDoubles(square) - d * d) * inverse;
  return {d, Fill(1) - Fill(0.5) * error};
}

/// A position cut off toward zero.
struct Cut {
  Wholes whole;
  Wholes doubt;  ///< not 0 where the exact value may have another whole part
};

inline Cut CutOff(F64 value) {
  // Values about 0 are cut to 0 on both sides.
  const U64 sign = BitCast<U64>(value) & Set<U64>(uint64_t{1} << 63);
  const F64 away = BitCast<F64>(sign | BitCast<U64>(Fill(kCircleTolerance)));
  const Wholes whole = ToWholes(value - away);
  return {whole, whole ^ ToWholes(value + away)};
}

struct Mapped {
  Wholes left_x, left_y, right_x, right_y;
  Wholes doubt;
};

/// Calls `map(dx, distance)` for the pixels of the run and stores the samples it returns.
template <typename Map>
bool ForEachPixel(const CircleRun& run, CircleSamples& samples, Map&& map) {
  const size_t count = run.count;
  const int32_t first_dx = run.first_dx;
  const Wholes dy_square = Set<Wholes>(run.dy * run.dy);
  bool any_too_close = false;
  // The last vector may go beyond the run: samples have room for it.
  for (size_t i = 0; i < count; i += F64::kLanes) {
    const Wholes dx = Iota<Wholes>(first_dx + static_cast<int32_t>(i));
    Mapped mapped = map(ToDoubles(dx), DistanceOf(dx, dy_square));
    const auto is_too_close = Combine(mapped.doubt, mapped.doubt) != Zero<I32>();
    if (!AllFalse(is_too_close)) [[unlikely]] {
      any_too_close = true;
      const Mask<Wholes> doubted = mapped.doubt != Zero<Wholes>();
      mapped.left_x = IfThenElse(doubted, Set<Wholes>(kTooClose), mapped.left_x);
      mapped.right_x = IfThenElse(doubted, Set<Wholes>(kTooClose), mapped.right_x);
    }
    StoreU(mapped.left_x, samples.left_x + i);
    StoreU(mapped.left_y, samples.left_y + i);
    StoreU(mapped.right_x, samples.right_x + i);
    StoreU(mapped.right_y, samples.right_y + i);
  }
  return any_too_close;
}

/// Moves every pixel along its radius: the new radius is `scale(d)` times d.
template <typename Scale>
bool MapRadius(const CircleRun& run, CircleSamples& samples, Scale&& scale) {
  const F64 dy = Fill(run.dy);
  return ForEachPixel(run, samples, [&](F64 dx, const Distance& distance) {
    const F64 factor = scale(distance.d) * distance.to_true;
    const Cut x = CutOff(factor * dx);
    const Cut y = CutOff(factor * dy);
    return Mapped{x.whole, y.whole, Zero<Wholes>() - x.whole, y.whole, x.doubt | y.doubt};
  });
}

bool Bulge(const CircleRun& run, CircleSamples& samples) {
  const F64 inverse_limit = Fill(1.0 / run.limit);
  return MapRadius(run, samples, [=](F64 d) { return d * inverse_limit; });
}

bool Pinch(const CircleRun& run, CircleSamples& samples) {
  using Singles = Half<F32>;
  const F64 inverse_limit = Fill(1.0 / run.limit);
  return MapRadius(run, samples, [=](F64 d) {
    // The inverse root in single precision, and one step of Newton's method.
    const F64 part = IfThenElse(d < Fill(1), Fill(1), d) * inverse_limit;
    const F64 root = ConvertTo<F64>(Set<Singles>(1) / Sqrt(ConvertTo<Singles>(part)));
    return root * (Fill(1.5) - Fill(0.5) * part * root * root);
  });
}

bool Swirl(const CircleRun& run, CircleSamples& samples) {
  const F64 dy = Fill(run.dy);
  const F64 turn = Fill(run.turn);
  return ForEachPixel(run, samples, [&](F64 dx, const Distance& distance) {
    F64 sine;
    F64 cosine;
    SineCosine(distance.d * turn, sine, cosine);
    sine = sine * distance.to_true;
    cosine = cosine * distance.to_true;
    const F64 dx_sine = dx * sine;
    const F64 dy_sine = dy * sine;
    const Cut left_x = CutOff(dx * cosine - dy_sine);
    const Cut left_y = CutOff(MulAdd(dy, cosine, dx_sine));
    const Cut right_x = CutOff(Fill(0) - MulAdd(dx, cosine, dy_sine));
    const Cut right_y = CutOff(dy * cosine - dx_sine);
    return Mapped{left_x.whole, left_y.whole, right_x.whole, right_y.whole,
                  left_x.doubt | left_y.doubt | right_x.doubt | right_y.doubt};
  });
}

bool Unwrap(const CircleRun& run, CircleSamples& samples) {
  constexpr double kHalfTurn = 3.1415926535897932;
  const F64 dy = Fill(run.dy);
  const F64 scale_x = Fill(run.scale_x);
  const F64 scale_y = Fill(run.scale_y);
  const F64 limit = Fill(run.limit);
  const bool any_too_close = ForEachPixel(run, samples, [&](F64 dx, const Distance& distance) {
    const F64 angle = Angle(dx, dy);
    const Cut left = CutOff(scale_x * angle);
    const Cut right = CutOff(scale_x * (Fill(kHalfTurn) - angle));
    // The rows are the exact quotients.
    const Wholes row = ToWholes(scale_y * distance.d / limit);
    return Mapped{left.whole, row, right.whole, row, left.doubt | right.doubt};
  });
  if (run.dy != 0 || run.first_dx != 0) return any_too_close;
  // The centre has no direction.
  samples.left_x[0] = samples.right_x[0] = kTooClose;
  return true;
}

void Place(int32_t* __restrict to, const int32_t* __restrict from, size_t count, int32_t centre,
           int32_t sign) {
  // The opposite of v is ~v + 1; a multiplication would take longer.
  const int32_t flip = sign < 0 ? -1 : 0;
  const int32_t start = WrapSubtract(centre, flip);
  for (size_t i = 0; i < count; ++i) to[i] = WrapAdd(start, from[i] ^ flip);
}
void PlaceReversed(int32_t* __restrict to, const int32_t* __restrict from, size_t count,
                   int32_t centre, int32_t sign) {
  const int32_t flip = sign < 0 ? -1 : 0;
  const int32_t start = WrapSubtract(centre, flip);
  for (size_t i = 0; i < count; ++i) to[i] = WrapAdd(start, from[count - 1 - i] ^ flip);
}

}  // namespace

extern const CircleKernels kCircleKernels;
constinit const CircleKernels kCircleKernels = {
    .bulge = &Bulge,
    .pinch = &Pinch,
    .swirl = &Swirl,
    .unwrap = &Unwrap,
    .place = &Place,
    .place_reversed = &PlaceReversed,
};

}  // namespace qel::QEL_LEVEL
