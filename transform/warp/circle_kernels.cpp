#include "transform/warp/circle_kernels.h"

#include "image/numeric.h"
#include "transform/double_vectors.h"

namespace qel::QEL_LEVEL {
namespace {

struct Distance {
  Mask in_reach;
  Doubles d;        ///< from the centre, as single precision has it
  Doubles to_true;  ///< d divided by the true distance
};

inline Distance DistanceOf(Ints dx, int32_t dy, int32_t limit) {
  const Ints square = Add(Multiply(dx, dx), FillInts(dy * dy));
  const Doubles exact = ToDoubles(square);
  const Doubles d = SingleRoot(square);
  // The square of d is off by its ten millionth part at most: one term of the root's series will
  // do. At the centre nothing is off.
  const Doubles error = (exact - d * d) / Choose(Less(exact, Fill(1)), Fill(1), exact);
  return {Less(d, Fill(limit)), d, Fill(1) - Fill(0.5) * error};
}

/// A position cut off toward zero.
struct Cut {
  Ints whole;
  Mask too_close;  ///< the exact value may have another whole part
};

inline Cut CutOff(Doubles value) {
  const Ints whole = ToInts(value);
  const Doubles rest = Magnitude(value - ToDoubles(whole));
  // Values about 0 are cut to 0 on both sides.
  const Mask above = And(Less(rest, Fill(kCircleTolerance)), Less(Fill(0.5), Magnitude(value)));
  return {whole, Or(above, Less(Fill(1 - kCircleTolerance), rest))};
}

/// Calls `map(dx, distance)` for the pixels of the run and stores the samples it returns.
template <typename Map>
bool ForEachPixel(const CircleRun& run, CircleSamples& samples, Map&& map) {
  bool any_too_close = false;
  // The last vector may go beyond the run: samples have room for it.
  for (size_t i = 0; i < run.count; i += kDoubleLanes) {
    const Ints dx = Add(LaneNumbers(), FillInts(run.first_dx + static_cast<int32_t>(i)));
    const Distance distance = DistanceOf(dx, run.dy, run.limit);
    const auto mapped = map(ToDoubles(dx), distance);
    const auto position = [&](Ints whole) {
      const Ints known = ChooseInts(mapped.too_close, FillInts(kTooClose), whole);
      return ChooseInts(distance.in_reach, known, FillInts(kOutOfReach));
    };
    Store(samples.left_x + i, position(mapped.left_x));
    Store(samples.left_y + i, mapped.left_y);
    Store(samples.right_x + i, position(mapped.right_x));
    Store(samples.right_y + i, mapped.right_y);
    any_too_close |= Any(And(mapped.too_close, distance.in_reach));
  }
  return any_too_close;
}
struct Mapped {
  Ints left_x, left_y, right_x, right_y;
  Mask too_close;
};

/// Moves every pixel along its radius: the new radius is `scale(d)` times d.
template <typename Scale>
bool MapRadius(const CircleRun& run, CircleSamples& samples, Scale&& scale) {
  const Doubles dy = Fill(run.dy);
  return ForEachPixel(run, samples, [&](Doubles dx, const Distance& distance) {
    const Doubles factor = scale(distance.d) * distance.to_true;
    const Cut x = CutOff(factor * dx);
    const Cut y = CutOff(factor * dy);
    return Mapped{x.whole, y.whole, Negate(x.whole), y.whole, Or(x.too_close, y.too_close)};
  });
}

bool Bulge(const CircleRun& run, CircleSamples& samples) {
  const Doubles inverse_limit = Fill(1.0 / run.limit);
  return MapRadius(run, samples, [=](Doubles d) { return d * inverse_limit; });
}

bool Pinch(const CircleRun& run, CircleSamples& samples) {
  const Doubles limit = Fill(run.limit);
  return MapRadius(run, samples,
                   [=](Doubles d) { return Root(limit / Choose(Less(d, Fill(1)), Fill(1), d)); });
}

/// c[0] + c[1] z + c[2] z z + ...
template <size_t kTerms>
Doubles Polynomial(const double (&c)[kTerms], Doubles z) {
  Doubles sum = Fill(c[kTerms - 1]);
  for (size_t i = kTerms - 1; i-- > 0;) sum = MultiplyAdd(sum, z, Fill(c[i]));
  return sum;
}

/// Sine and cosine of angles up to `kLargestTurn`, with errors below 1e-13.
inline void SineCosine(Doubles angle, Doubles& sine, Doubles& cosine) {
  // A whole number of quarter turns comes off first, in two parts: the upper one is short enough
  // for exact products.
  constexpr double kQuarterTurnsPerRadian = 0.63661977236758134308;
  constexpr double kQuarterTurn = 0x1.921fb544p+0;
  constexpr double kQuarterTurnRest = 0x1.0b4611a626331p-34;
  // Terms up to the 15th power: what follows is below 1e-15.
  constexpr double kSine[] = {1,
                              -1 / 6.0,
                              1 / 120.0,
                              -1 / 5040.0,
                              1 / 362880.0,
                              -1 / 39916800.0,
                              1 / 6227020800.0,
                              -1 / 1307674368000.0};
  constexpr double kCosine[] = {1,
                                -1 / 2.0,
                                1 / 24.0,
                                -1 / 720.0,
                                1 / 40320.0,
                                -1 / 3628800.0,
                                1 / 479001600.0,
                                -1 / 87178291200.0,
                                1 / 20922789888000.0};
  const Doubles turns = angle * Fill(kQuarterTurnsPerRadian);
  const Ints quarters = ToInts(turns + Choose(Less(turns, Fill(0)), Fill(-0.5), Fill(0.5)));
  const Doubles whole = ToDoubles(quarters);
  const Doubles rest = (angle - whole * Fill(kQuarterTurn)) - whole * Fill(kQuarterTurnRest);
  const Doubles z = rest * rest;
  const Doubles s = rest * Polynomial(kSine, z);
  const Doubles c = Polynomial(kCosine, z);
  const Mask odd = HasBit(quarters, 1);
  const Doubles sine_sign = Choose(HasBit(quarters, 2), Fill(-1), Fill(1));
  const Doubles cosine_sign = Choose(HasBit(Add(quarters, FillInts(1)), 2), Fill(-1), Fill(1));
  sine = Choose(odd, c, s) * sine_sign;
  cosine = Choose(odd, s, c) * cosine_sign;
}

bool Swirl(const CircleRun& run, CircleSamples& samples) {
  const Doubles dy = Fill(run.dy);
  const Doubles turn = Fill(run.turn);
  return ForEachPixel(run, samples, [&](Doubles dx, const Distance& distance) {
    Doubles sine;
    Doubles cosine;
    SineCosine(distance.d * turn, sine, cosine);
    sine = sine * distance.to_true;
    cosine = cosine * distance.to_true;
    const Doubles dx_sine = dx * sine;
    const Doubles dy_sine = dy * sine;
    const Cut left_x = CutOff(dx * cosine - dy_sine);
    const Cut left_y = CutOff(MultiplyAdd(dy, cosine, dx_sine));
    const Cut right_x = CutOff(Fill(0) - MultiplyAdd(dx, cosine, dy_sine));
    const Cut right_y = CutOff(dy * cosine - dx_sine);
    return Mapped{
        left_x.whole, left_y.whole, right_x.whole, right_y.whole,
        Or(Or(left_x.too_close, left_y.too_close), Or(right_x.too_close, right_y.too_close))};
  });
}

/// The angle of (x, y) in the first quadrant, with an error below 1e-13.
inline Doubles Angle(Doubles x, Doubles y) {
  constexpr double kQuarterTurn = 1.5707963267948966;
  constexpr double kEighthTurn = 0.78539816339744831;
  constexpr double kTangentOfSixteenthTurn = 0.41421356237309505;
  // Terms up to the 29th power: what follows is below 1e-13.
  constexpr double kSeries[] = {1,         -1 / 3.0,  1 / 5.0,   -1 / 7.0,  1 / 9.0,
                                -1 / 11.0, 1 / 13.0,  -1 / 15.0, 1 / 17.0,  -1 / 19.0,
                                1 / 21.0,  -1 / 23.0, 1 / 25.0,  -1 / 27.0, 1 / 29.0};
  const Mask steep = Less(x, y);
  const Doubles far = Choose(steep, y, x);
  const Doubles near = Choose(steep, x, y);
  // Measured from the axis, or from the diagonal when that is nearer.
  const Mask diagonal = Less(far * Fill(kTangentOfSixteenthTurn), near);
  const Doubles above = Choose(diagonal, near - far, near);
  const Doubles along = Choose(diagonal, near + far, far);
  const Doubles t = above / Choose(Less(along, Fill(1)), Fill(1), along);
  const Doubles angle =
      t * Polynomial(kSeries, t * t) + Choose(diagonal, Fill(kEighthTurn), Fill(0));
  return Choose(steep, Fill(kQuarterTurn) - angle, angle);
}

bool Unwrap(const CircleRun& run, CircleSamples& samples) {
  constexpr double kHalfTurn = 3.1415926535897932;
  const Doubles dy = Fill(run.dy);
  const Doubles scale_x = Fill(run.scale_x);
  const Doubles scale_y = Fill(run.scale_y);
  const Doubles limit = Fill(run.limit);
  return ForEachPixel(run, samples, [&](Doubles dx, const Distance& distance) {
    const Doubles angle = Angle(dx, dy);
    const Cut left = CutOff(scale_x * angle);
    const Cut right = CutOff(scale_x * (Fill(kHalfTurn) - angle));
    // The rows are the exact quotients. The centre has no direction.
    const Ints row = ToInts(scale_y * distance.d / limit);
    const Mask centre = Less(distance.d, Fill(0.5));
    return Mapped{left.whole, row, right.whole, row,
                  Or(centre, Or(left.too_close, right.too_close))};
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
