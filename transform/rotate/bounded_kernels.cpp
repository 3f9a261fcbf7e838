#include "transform/rotate/bounded_kernels.h"

#include <utility>

#include "transform/rotate/sample_offsets.h"
#include "transform/trigonometry.h"
#include "transform/word_vectors.h"

namespace qel::QEL_LEVEL {
namespace {

constexpr size_t kTaps = kBoundedTaps;
/// Whole numbers from the pixel before a position to its first tap.
constexpr int kTapsBefore = 5;

void Spread(float* __restrict values, const uint8_t* __restrict bytes, size_t count,
            ByteRange& range) {
  for (size_t i = 0; i < count; ++i) values[i] = bytes[i];
  uint8_t lowest = range.lowest;
  uint8_t highest = range.highest;
  for (size_t i = 0; i < count; ++i) {
    lowest = bytes[i] < lowest ? bytes[i] : lowest;
    highest = bytes[i] > highest ? bytes[i] : highest;
  }
  range = {lowest, highest};
}

/// The weights of a vector of positions; those of `mirrored` lanes lie in the opposite order.
struct NearWeights {
  F32 of[kTaps];
  Mask<F32> mirrored;

  QEL_SIMD_INLINE F32 InOrder(size_t k) const {
    return IfThenElse(mirrored, of[kTaps - 1 - k], of[k]);
  }
};

/// The two weights whose distances t from the position are n - x and -n - x. A weight is
/// 6 sin(pi t) sin(pi t / 6) / (pi t)^2, where sums of angles leave the sines of whole sixths of a
/// half turn and two products: of 6 / pi^2 sin(pi x) with the sine and the cosine of pi x / 6. What
/// both are divided by is (n^2 - x^2)^2.
template <int n>
QEL_SIMD_INLINE void WeighPair(NearWeights& weights, F32 x, F32 z, F32 by_sine, F32 by_cosine) {
  constexpr double kRoot = 0.86602540378443864676;  // of 3/4
  constexpr double kSines[] = {0, 0.5, kRoot, 1, kRoot, 0.5};
  constexpr double kCosines[] = {1, kRoot, 0.5, 0, -0.5, -kRoot};
  constexpr int kSign = n % 2 == 0 ? 1 : -1;
  const F32 squares = Set<F32>(n * n) - z;
  const F32 inverse = Set<F32>(1) / (squares * squares);
  const F32 above = Set<F32>(n) + x;
  const F32 below = Set<F32>(n) - x;
  const F32 across = Of<F32>(kSign * kSines[n]) * by_cosine;
  F32 along = Zero<F32>();
  if constexpr (n != 3) along = Of<F32>(kSign * kCosines[n]) * by_sine;
  weights.of[kTapsBefore + n] = (along - across) * (above * above * inverse);
  weights.of[kTapsBefore - n] = (along + across) * (below * below * inverse);
}

QEL_SIMD_INLINE NearWeights WeightsOf(F32 position) {
  // Polynomials through 6 / pi^2 sin(pi x) / x, sin(pi x / 6) / x and cos(pi x / 6) at Chebyshev's
  // points, off by less than 4e-11.
  constexpr double kFactor[] = {1.90985931707,   -3.14159264419,  1.55031339513,
                                -0.364301645038, 0.0498806316049, -0.00427269639646};
  constexpr double kSine[] = {0.523598775598, -0.0239245961721, 0.000327952558353,
                              -2.13664768981e-06};
  constexpr double kCosine[] = {0.999999999996, -0.137077838358, 0.00313171138867,
                                -2.85493335767e-05};
  // A fraction has the weights of its complement to 1 in the opposite order. Both are exact.
  const F32 fraction = position - ConvertTo<F32>(ConvertTo<I32>(position));
  const F32 x = Min(fraction, Set<F32>(1) - fraction);
  const F32 z = x * x;
  const F32 factor = Polynomial(kFactor, z);
  const F32 at_position = factor * Polynomial(kSine, z);
  const F32 by_sine = at_position * z;
  const F32 by_cosine = factor * x * Polynomial(kCosine, z);
  NearWeights weights;
  weights.mirrored = fraction > Set<F32>(0.5f);
  weights.of[kTapsBefore] = at_position;
  WeighPair<1>(weights, x, z, by_sine, by_cosine);
  WeighPair<2>(weights, x, z, by_sine, by_cosine);
  WeighPair<3>(weights, x, z, by_sine, by_cosine);
  WeighPair<4>(weights, x, z, by_sine, by_cosine);
  WeighPair<5>(weights, x, z, by_sine, by_cosine);
  const F32 last = Set<F32>(6) - x;
  weights.of[kTaps - 1] = (Zero<F32>() - by_sine) / (last * last);
  return weights;
}

void Weigh(float* weights, const float* positions, size_t count) {
  for (size_t i = 0; i < count; i += F32::kLanes) {
    const NearWeights near = WeightsOf(LoadU<F32>(positions + i));
    for (size_t k = 0; k < kTaps; ++k) StoreU(near.InOrder(k), weights + k * kSampleChunk + i);
  }
}

/// The sums of a vector of points.
template <int kBytes>
class PointGroup {
 public:
  PointGroup(const SampleTile& tile, const float* x, const float* y) {
    const F32 position_x = LoadU<F32>(x);
    const F32 position_y = LoadU<F32>(y);
    const I32 columns = ConvertTo<I32>(position_x) - Set<I32>(kTapsBefore + tile.column);
    const I32 rows = ConvertTo<I32>(position_y) - Set<I32>(kTapsBefore + tile.row);
    const LanesOf offsets(columns * Set<I32>(kBytes) + rows * Set<I32>(tile.stride));
    const NearWeights of_rows = WeightsOf(position_y);
    for (size_t k = 0; k < kTaps; ++k) StoreU(of_rows.of[k], row_weights_ + k * F32::kLanes);
    const uint64_t upwards = BitsFromMask(of_rows.mirrored);
    const auto stride = static_cast<ptrdiff_t>(tile.stride);
    for (size_t first = 0; first < F32::kLanes; first += kTogether) {
      Column columns_of[kTogether];
      for (size_t p = 0; p < kTogether; ++p) {
        const float* const values = tile.values + offsets.at[first + p];
        const bool is_upwards = (upwards >> (first + p) & 1) != 0;
        columns_of[p] = {is_upwards ? values + (kTaps - 1) * stride : values,
                         is_upwards ? -stride : stride};
      }
      SumDown(columns_of, first);
    }
    SumAcross(WeightsOf(position_x), std::make_index_sequence<kBytes * kTaps / 4>());
  }

  /// The points whose bytes are not those of both ends of the bound, as a mask.
  Mask<I32> Doubts(F32 bound) const {
    I32 differing = Zero<I32>();
    for (const F32 sum : sums_) differing |= BytesOf(sum + bound) ^ BytesOf(sum - bound);
    return differing != Zero<I32>();
  }

  I32 Colors(F32 bound) const {
    F32 sums[kBytes];
    for (int c = 0; c < kBytes; ++c) sums[c] = sums_[c] + bound;
    return ColorsOf<kBytes>(sums);
  }

 private:
  static constexpr size_t kVectors = (kBytes * kTaps + F32::kLanes - 1) / F32::kLanes;
  static constexpr size_t kDown = kVectors * F32::kLanes;
  static_assert(kDown - kBytes * kTaps <= kTileMargin);

  /// Points whose columns are summed together: the additions of one fill the waits of the others.
  static constexpr size_t kTogether = kVectors > 3 ? 1 : kVectors > 2 ? 2 : 4;

  /// The taps of a point, from the row on whose weight comes first.
  struct Column {
    const float* values;
    ptrdiff_t stride;
  };

  /// The sums of all columns of the points from `first` on.
  QEL_SIMD_INLINE void SumDown(Column (&columns)[kTogether], size_t first) {
    F32 sums[kTogether][kVectors] = {};
    for (size_t row = 0; row < kTaps; ++row) {
      for (size_t p = 0; p < kTogether; ++p) {
        const F32 weight = Set<F32>(row_weights_[row * F32::kLanes + first + p]);
        for (size_t v = 0; v < kVectors; ++v) {
          const F32 values = LoadU<F32>(columns[p].values + v * F32::kLanes);
          sums[p][v] = KeepInRegister(MulAdd(weight, values, sums[p][v]));
        }
        columns[p].values += columns[p].stride;
      }
    }
    for (size_t p = 0; p < kTogether; ++p) {
      for (size_t v = 0; v < kVectors; ++v) {
        StoreU(sums[p][v], down_ + (first + p) * kDown + v * F32::kLanes);
      }
    }
  }

  template <size_t... four>
  QEL_SIMD_INLINE void SumAcross(const NearWeights& weights, std::index_sequence<four...>) {
    for (F32& sum : sums_) sum = Zero<F32>();
    const auto add = [&]<size_t kFour>(std::integral_constant<size_t, kFour>) {
      I32 columns[4];
      LoadWordColumns(columns, [&](size_t i) { return down_ + i * kDown + 4 * kFour; });
      for (size_t k = 0; k < 4; ++k) {
        const size_t at = 4 * kFour + k;
        sums_[at % kBytes] =
            MulAdd(weights.InOrder(at / kBytes), BitCast<F32>(columns[k]), sums_[at % kBytes]);
      }
    };
    (add(std::integral_constant<size_t, four>()), ...);
  }

  alignas(64) float row_weights_[kTaps * F32::kLanes];
  alignas(64) float down_[F32::kLanes * kDown];
  F32 sums_[kBytes];
};

template <int kBytes>
uint64_t Blend(uint32_t* colors, const SampleTile& tile, const SamplePoints& points, size_t count) {
  const F32 bound = Set<F32>(tile.bound);
  uint64_t doubts = 0;
  for (size_t i = 0; i < count; i += F32::kLanes) {
    const PointGroup<kBytes> group(tile, points.x + i, points.y + i);
    StoreU(group.Colors(bound), colors + i);
    doubts |= BitsFromMask(group.Doubts(bound)) << i;
  }
  return count < kSampleChunk ? doubts & ((uint64_t{1} << count) - 1) : doubts;
}

}  // namespace

extern const BoundedKernels kBoundedKernels;
constinit const BoundedKernels kBoundedKernels = {
    .spread = &Spread, .weigh = &Weigh, .blend = {&Blend<1>, &Blend<3>, &Blend<4>}};

}  // namespace qel::QEL_LEVEL
