#include "transform/rotate/tap_kernels.h"

#include <utility>

#include "image/kernel_polynomials.h"
#include "transform/rotate/sample_offsets.h"
#include "transform/trigonometry.h"

// Weighted sums of 4 x 4 or 12 x 12 taps as they are stated: one product after the other in single
// precision, rows outer, 16 or 144 products of weights and as many with values for each channel.
// Lanes are pixels side by side. For all kernels of 4 x 4 taps; for 12 x 12 where sums by bounds
// leave bytes in doubt or have been given up. Weights are piecewise polynomials (Hou and Andrews
// 1978, Keys 1981, Mitchell and Netravali 1988) or Lanczos's (Duchon 1979); others are remembered.

namespace qel::QEL_LEVEL {
namespace {

// Every position that comes here lies inside the source, so that plain conversions truncate.
static_assert(kWeightGroup % F32::kLanes == 0);

template <typename Kernel>
void Weights(float* weights, const float* positions, size_t count) {
  for (size_t i = 0; i < RoundUp(count); i += F32::kLanes) {
    const F32 position = LoadU<F32>(positions + i);
    // Exact, so that the offsets of taps round as those from whole positions do.
    const F32 fraction = position - ConvertTo<F32>(ConvertTo<I32>(position));
    float* const first = weights + WeightPlace(i, 4);
    [&]<int... tap>(std::integer_sequence<int, tap...>) {
      const auto weigh = [&]<int kTap>(std::integral_constant<int, kTap>) {
        const F32 offset = Set<F32>(kTap) - fraction;
        const F32 weight = {
            Kernel::template Weight<F32::Raw, polynomials::OfTap<kTap>>(offset.raw)};
        StoreU(weight, first + (kTap + 1) * kWeightGroup);
      };
      (weigh(std::integral_constant<int, tap - 1>()), ...);
    }
    (std::make_integer_sequence<int, 4>());
  }
}

/// Sines of single-precision angles up to a few turns, to the last bit those of the mathematics
/// library: one in eight is asked for there. Their number is a multiple of 64.
template <size_t kCount>
void Sines(float (&sines)[kCount], const float (&angles)[kCount]) {
  static_assert(kCount % 64 == 0);
  uint64_t unsure[kCount / 64] = {};
  for (size_t i = 0; i < kCount; i += F64::kLanes) {
    const F64 sine = Sine(ConvertTo<F64>(LoadU<Half<F32>>(angles + i)));
    StoreU(ConvertTo<Half<F32>>(sine), sines + i);
    unsure[i / 64] |= BitsFromMask(RoundsUnsurely(sine)) << i % 64;
  }
  for (size_t i = 0; i < kCount; i += 64) {
    for (uint64_t bits = unsure[i / 64]; bits != 0; bits &= bits - 1) {
      const size_t at = i + static_cast<size_t>(__builtin_ctzll(bits));
      sines[at] = __builtin_sinf(angles[at]);
    }
  }
}

void Lanczos6Weights(float* weights, const float* positions, size_t count) {
  constexpr int kTaps = 12;
  constexpr size_t kPlane = kTaps * F32::kLanes;
  // First of pi t, then of pi t / 6, where no distance t from the position is above 6.
  alignas(64) float angles[4 * kPlane];
  alignas(64) float sines[4 * kPlane];
  for (size_t first = 0; first < RoundUp(count); first += kGroup) {
    const auto for_taps = [&](auto&& visit) {
      for (size_t v = 0; v < 2; ++v) {
        for (int tap = 0; tap < kTaps; ++tap) {
          visit(first + v * F32::kLanes, tap, v * kPlane + static_cast<size_t>(tap) * F32::kLanes);
        }
      }
    };
    for_taps([&](size_t i, int tap, size_t at) {
      const F32 position = LoadU<F32>(positions + i);
      const F32 t = ConvertTo<F32>(ConvertTo<I32>(position) + Set<I32>(tap - 5)) - position;
      const auto times_pi = [](Half<F32> half) {
        return ConvertTo<Half<F32>>(Fill(3.14159265358979323846) * ConvertTo<F64>(half));
      };
      const F32 u = Combine(times_pi(UpperHalf(t)), times_pi(LowerHalf(t)));
      StoreU(u, angles + at);
      StoreU(u / Set<F32>(6.0f), angles + 2 * kPlane + at);
    });
    Sines(sines, angles);
    for_taps([&](size_t i, int tap, size_t at) {
      const auto sinc = [&](size_t k) { return LoadU<F32>(sines + k) / LoadU<F32>(angles + k); };
      const Mask<F32> center = LoadU<F32>(angles + at) == Zero<F32>();
      StoreU(IfThenElse(center, Set<F32>(1.0f), sinc(at) * sinc(2 * kPlane + at)),
             weights + WeightPlace(i, kTaps) + static_cast<size_t>(tap) * kWeightGroup);
    });
  }
}

uint64_t FractionPlaces(int32_t* places, const float* positions, size_t count) {
  constexpr int32_t kHalf = 1 << (kFractionBits - 1);
  uint64_t beyond_half = 0;
  for (size_t i = 0; i < RoundUp(count); i += F32::kLanes) {
    const F32 position = LoadU<F32>(positions + i);
    // Exact, like all that follows.
    const F32 part = position - ConvertTo<F32>(ConvertTo<I32>(position));
    const I32 fraction = ConvertTo<I32>(part * Set<F32>(2.0f * kHalf));
    const I32 smaller = Min(fraction, Set<I32>(2 * kHalf) - fraction);
    // (1/2 + fraction) / (2 lowest bit), where a power of two is divided by in its exponent.
    const I32 lowest_bit = smaller & (Zero<I32>() - smaller);
    const I32 inverse = Set<I32>(253 << 23) - BitCast<I32>(ConvertTo<F32>(lowest_bit));
    const F32 numerator = ConvertTo<F32>(smaller + Set<I32>(kHalf));
    const I32 place = ConvertTo<I32>(numerator * BitCast<F32>(inverse)) + Set<I32>(1);
    const I32 of_half = IfThenElse(smaller == Set<I32>(kHalf), Set<I32>(1), place);
    const I32 of_all = IfThenElse(smaller == Zero<I32>(), Zero<I32>(), of_half);
    const Mask<I32> placed =
        RebindMask<I32>((position >= Set<F32>(kFirstPlaced)) & (position < Set<F32>(0x1p23f)));
    StoreU(IfThenElse(placed, of_all, Set<I32>(-1)), places + i);
    beyond_half |= BitsFromMask(placed & (fraction > Set<I32>(kHalf))) << i;
  }
  return beyond_half;
}

/// Writes the weights of entry_of(0), entry_of(1), ... and tells whether none of them begins with
/// 0.
template <size_t kTaps, typename EntryOf>
QEL_SIMD_INLINE bool SpreadEntries(float* weights, const EntryOf& entry_of, uint64_t all_mirrored,
                                   size_t count) {
  const I32 lane_bits = LanesFrom<I32>([](size_t lane) { return 1 << lane; });
  Mask<F32> empty = Zero<F32>() != Zero<F32>();
  for (size_t i = 0; i < RoundUp(count); i += I32::kLanes) {
    I32 taps[kTaps / 4][4];
    for (size_t k = 0; k < kTaps / 4; ++k) {
      LoadWordColumns(taps[k], [&](size_t point) { return entry_of(i + point) + 4 * k; });
    }
    empty = empty | (BitCast<F32>(taps[0][0]) == Zero<F32>());
    const auto bits = static_cast<int32_t>(all_mirrored >> i & 0xFFFF);
    const Mask<I32> mirrored = (lane_bits & Set<I32>(bits)) != Zero<I32>();
    float* const first = weights + WeightPlace(i, kTaps);
    for (size_t tap = 0; tap < kTaps; ++tap) {
      const size_t other = kTaps - 1 - tap;
      const I32 weight = IfThenElse(mirrored, taps[other / 4][other % 4], taps[tap / 4][tap % 4]);
      StoreU(weight, first + tap * kWeightGroup);
    }
  }
  return AllFalse(empty);
}

template <size_t kTaps>
void SpreadWeights(float* weights, const WeightEntries& entries, size_t count) {
  SpreadEntries<kTaps>(
      weights, [&](size_t point) { return entries.of[point]; }, entries.mirrored, count);
}

template <size_t kTaps>
bool RecallWeights(float* weights, const float* memory, const int32_t* places, uint64_t mirrored,
                   size_t count) {
  return SpreadEntries<kTaps>(
      weights, [=](size_t point) { return memory + places[point] * kEntryStride<kTaps>; }, mirrored,
      count);
}

/// The sums of a vector of pixels, one vector per channel.
template <int kBytes, int kTaps>
struct PixelGroup {
  const uint8_t* bits;
  const int32_t* offsets;  ///< of the first tap of each pixel
  const float* wx;
  const float* wy;
  F32 sums[kBytes] = {};

  /// Adds four taps of a row, whose bytes start with `words`.
  template <int... kAt>
  QEL_SIMD_INLINE void AddTaps(const I32* words, const float* column_weights, F32 row_weight,
                               std::integer_sequence<int, kAt...>) {
    F32 weight;
    const auto add = [&](int at, F32 channel) {
      if (at % kBytes == 0) {
        weight = LoadU<F32>(column_weights + at / kBytes * kWeightGroup) * row_weight;
      }
      sums[at % kBytes] += weight * channel;
    };
    (add(kAt, ByteOfWords<kAt % 4>(words[kAt / 4])), ...);
  }

  /// Adds row `row` of the taps, which lies `distance` bytes behind the first one.
  QEL_SIMD_INLINE void AddRow(size_t row, int64_t distance) {
    const F32 row_weight = LoadU<F32>(wy + row * kWeightGroup);
    const auto load = [&](I32(&words)[4], int64_t at) {
      LoadWordColumns(words, [&](size_t k) { return bits + offsets[k] + distance + at; });
    };
    constexpr auto kFourTaps = std::make_integer_sequence<int, 4 * kBytes>();
    I32 words[4];
    if constexpr (kBytes == 1 && kTaps == 4) {
      words[0] = BitCast<I32>(GatherWords<4>(bits + distance, offsets));
    } else {
      load(words, 0);
    }
    for (int tap = 0; tap < kTaps; tap += 4) {
      if (kBytes > 1 && tap > 0) load(words, tap * kBytes);
      AddTaps(kBytes > 1 ? words : words + tap / 4, wx + tap * kWeightGroup, row_weight, kFourTaps);
    }
  }

  QEL_SIMD_INLINE void Store(uint32_t* colors) const { StoreU(ColorsOf(sums), colors); }
};

template <int kBytes, int kTaps>
void Blend(uint32_t* colors, const SampleSource& source, const SamplePoints& points,
           const SampleWeights& weights, size_t count) {
  int32_t offsets[kSampleChunk];
  const size_t rounded = RoundUp(count);
  PixelOffsets<kBytes>(offsets, source, points, rounded, 0.0f, kTaps / 2 - 1);
  const auto group_at = [&](size_t i) {
    const size_t place = WeightPlace(i, kTaps);
    return PixelGroup<kBytes, kTaps>{source.bits, offsets + i, weights.x + place,
                                     weights.y + place};
  };
  for (size_t i = 0; i < rounded; i += kGroup) {
    auto first = group_at(i);
    auto second = group_at(i + F32::kLanes);
    for (int row = 0; row < kTaps; ++row) {
      const int64_t distance = int64_t{row} * source.stride;
      first.AddRow(static_cast<size_t>(row), distance);
      second.AddRow(static_cast<size_t>(row), distance);
    }
    first.Store(colors + i);
    second.Store(colors + i + F32::kLanes);
  }
}

}  // namespace

extern const TapKernels kTapKernels;
constinit const TapKernels kTapKernels = {
    .weights = {nullptr, nullptr, &Weights<polynomials::CubicBSpline>, &Weights<polynomials::Keys>,
                &Weights<polynomials::CatmullRomOfDistance>, &Lanczos6Weights,
                &Weights<polynomials::Box>, &Weights<polynomials::Hermite>,
                &Weights<polynomials::DampedHermite>, nullptr, nullptr, nullptr, nullptr,
                &Weights<polynomials::QuadraticBSpline>, &Weights<polynomials::MitchellNetravali>,
                &Weights<polynomials::CatmullRomOfOffset>},
    .fraction_places = &FractionPlaces,
    .spread4 = &SpreadWeights<4>,
    .spread12 = &SpreadWeights<12>,
    .recall4 = &RecallWeights<4>,
    .recall12 = &RecallWeights<12>,
    .blend4 = {&Blend<1, 4>, &Blend<3, 4>, &Blend<4, 4>},
    .blend12 = {&Blend<1, 12>, &Blend<3, 12>, &Blend<4, 12>},
};

}  // namespace qel::QEL_LEVEL
