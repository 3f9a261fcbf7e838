#include "transform/warp/circle_kernels.h"

#include "image/numeric.h"
#include "transform/trigonometry.h"

namespace qel::QEL_LEVEL {
namespace {

using Truths = Mask<F64>;

struct Distance {
  Truths in_reach;
  F64 d;        ///< from the centre, as single precision has it
  F64 to_true;  ///< d divided by the true distance
};

inline Distance DistanceOf(Wholes dx, int32_t dy, int32_t limit) {
  const Wholes square = dx * dx + Set<Wholes>(dy * dy);
  const F64 exact = ToDoubles(square);
  // The root of the nearest single-precision numbers, in single precision.
  const F64 d = ConvertTo<F64>(Sqrt(ConvertTo<Half<F32>>(square)));
  // The square of d is off by its ten millionth part at most: one term of the root's series will
  // do. At the centre nothing is off.
  const F64 error = (exact - d * d) / IfThenElse(exact < Fill(1), Fill(1), exact);
  return {d < Fill(limit), d, Fill(1) - Fill(0.5) * error};
}

/// A position cut off toward zero.
struct Cut {
  Wholes whole;
  Truths too_close;  ///< the exact value may have another whole part
};

inline Cut CutOff(F64 value) {
  const Wholes whole = ToWholes(value);
  const F64 rest = Abs(value - ToDoubles(whole));
  // Values about 0 are cut to 0 on both sides.
  const Truths above = (rest < Fill(kCircleTolerance)) & (Fill(0.5) < Abs(value));
  return {whole, above | (Fill(1 - kCircleTolerance) < rest)};
}

/// Calls `map(dx, distance)` for the pixels of the run and stores the samples it returns.
template <typename Map>
bool ForEachPixel(const CircleRun& run, CircleSamples& samples, Map&& map) {
  bool any_too_close = false;
  // The last vector may go beyond the run: samples have room for it.
  for (size_t i = 0; i < run.count; i += F64::kLanes) {
    const Wholes dx = Iota<Wholes>(run.first_dx + static_cast<int32_t>(i));
    const Distance distance = DistanceOf(dx, run.dy, run.limit);
    const auto mapped = map(ToDoubles(dx), distance);
    const auto position = [&](Wholes whole) {
      const Wholes known = IfThenElse(ForWholes(mapped.too_close), Set<Wholes>(kTooClose), whole);
      return IfThenElse(ForWholes(distance.in_reach), known, Set<Wholes>(kOutOfReach));
    };
    StoreU(position(mapped.left_x), samples.left_x + i);
    StoreU(mapped.left_y, samples.left_y + i);
    StoreU(position(mapped.right_x), samples.right_x + i);
    StoreU(mapped.right_y, samples.right_y + i);
    any_too_close |= !AllFalse(mapped.too_close & distance.in_reach);
  }
  return any_too_close;
}
struct Mapped {
  Wholes left_x, left_y, right_x, right_y;
  Truths too_close;
};

/// Moves every pixel along its radius: the new radius is `scale(d)` times d.
template <typename Scale>
bool MapRadius(const CircleRun& run, CircleSamples& samples, Scale&& scale) {
  const F64 dy = Fill(run.dy);
  return ForEachPixel(run, samples, [&](F64 dx, const Distance& distance) {
    const F64 factor = scale(distance.d) * distance.to_true;
    const Cut x = CutOff(factor * dx);
    const Cut y = CutOff(factor * dy);
    return Mapped{x.whole, y.whole, Zero<Wholes>() - x.whole, y.whole, x.too_close | y.too_close};
  });
}

bool Bulge(const CircleRun& run, CircleSamples& samples) {
  const F64 inverse_limit = Fill(1.0 / run.limit);
  return MapRadius(run, samples, [=](F64 d) { return d * inverse_limit; });
}

bool Pinch(const CircleRun& run, CircleSamples& samples) {
  const F64 limit = Fill(run.limit);
  return MapRadius(run, samples,
                   [=](F64 d) { return Sqrt(limit / IfThenElse(d < Fill(1), Fill(1), d)); });
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
                  left_x.too_close | left_y.too_close | right_x.too_close | right_y.too_close};
  });
}

bool Unwrap(const CircleRun& run, CircleSamples& samples) {
  constexpr double kHalfTurn = 3.1415926535897932;
  const F64 dy = Fill(run.dy);
  const F64 scale_x = Fill(run.scale_x);
  const F64 scale_y = Fill(run.scale_y);
  const F64 limit = Fill(run.limit);
  return ForEachPixel(run, samples, [&](F64 dx, const Distance& distance) {
    const F64 angle = Angle(dx, dy);
    const Cut left = CutOff(scale_x * angle);
    const Cut right = CutOff(scale_x * (Fill(kHalfTurn) - angle));
    // The rows are the exact quotients. The centre has no direction.
    const Wholes row = ToWholes(scale_y * distance.d / limit);
    const Truths centre = distance.d < Fill(0.5);
    return Mapped{left.whole, row, right.whole, row, centre | left.too_close | right.too_close};
  });
}

void Place(int32_t* __restrict to, const int32_t* __restrict from, size_t count, int32_t centre,
           int32_t sign) {
  for (size_t i = 0; i < count; ++i) to[i] = WrapAdd(centre, WrapMultiply(sign, from[i]));
}
void PlaceReversed(int32_t* __restrict to, const int32_t* __restrict from, size_t count,
                   int32_t centre, int32_t sign) {
  for (size_t i = 0; i < count; ++i) {
    to[i] = WrapAdd(centre, WrapMultiply(sign, from[count - 1 - i]));
  }
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
