#include "transform/resample/doubling_kernels.h"

#include <utility>

#include "simd/convert.h"
#include "simd/interleaved.h"

namespace qel::QEL_LEVEL {
namespace {

template <size_t kChannels>
void SpreadPixels(float* __restrict values, size_t stride, const uint8_t* __restrict pixels,
                  size_t count) {
  for (size_t i = 0; i < count; ++i) {
    for (size_t c = 0; c < kChannels; ++c) values[c * stride + i] = pixels[kChannels * i + c];
  }
}

void Spread(float* values, size_t stride, const uint8_t* pixels, size_t count, size_t channels) {
  if (channels == 1) return SpreadPixels<1>(values, stride, pixels, count);
  if (channels == 3) return SpreadPixels<3>(values, stride, pixels, count);
  return SpreadPixels<4>(values, stride, pixels, count);
}

/// Vectors of columns that are summed together: the additions of one fill the waits of the other.
constexpr size_t kVectors = 2;
constexpr size_t kColumnsAtOnce = kVectors * F32::kLanes;
static_assert(kDoubledUnit % kColumnsAtOnce == 0);

/// The sums of some even or odd columns of a row.
using Sums = F32[kVectors];

/// Bytes of even and odd columns by turns. Sums of taps are far from leaving the range of integers,
/// and narrowing clamps; what is not a number becomes the lowest one.
QEL_SIMD_INLINE void StoreBytes(const Sums& even, const Sums& odd, uint8_t* to) {
  const auto bytes = [](const Sums& sums) {
    const I16 words = ReorderDemote2To<I16>(ConvertTo<I32>(sums[0]), ConvertTo<I32>(sums[1]));
    return ReorderDemote2To<U8>(words, words);
  };
  StoreU(LowerThenUpperHalves(InterleaveLower(bytes(even), bytes(odd))), to);
}

/// The sums of one destination row.
template <size_t kTaps, bool kFirst, bool kLast>
struct RowOfSums {
  float* sums;
  uint8_t* bytes;
  Sums even = {};
  Sums odd = {};

  QEL_SIMD_INLINE void Load(size_t x) {
    for (size_t v = 0; v < kVectors && !kFirst; ++v) {
      even[v] = LoadU<F32>(sums + x + v * F32::kLanes);
      odd[v] = LoadU<F32>(sums + kDoubledColumns<kTaps> + x + v * F32::kLanes);
    }
  }
  QEL_SIMD_INLINE void Add(size_t v, F32 to_even, F32 to_odd, bool first) {
    // In registers at once: the compiler would put off all additions to the end.
    even[v] = KeepInRegister(first && kFirst ? to_even : even[v] + to_even);
    odd[v] = KeepInRegister(first && kFirst ? to_odd : odd[v] + to_odd);
  }
  QEL_SIMD_INLINE void Store(size_t x) const {
    if constexpr (kLast) return StoreBytes(even, odd, bytes + 2 * x);
    for (size_t v = 0; v < kVectors; ++v) {
      StoreU(even[v], sums + x + v * F32::kLanes);
      StoreU(odd[v], sums + kDoubledColumns<kTaps> + x + v * F32::kLanes);
    }
  }
};

/// What every weight k adds to: the values of all taps of a vector of columns, in copies for each
/// shift, because loads across two lines of the cache would take longer than additions.
template <size_t kTaps>
struct TapValues {
  explicit TapValues(const DoublingStep<kTaps>& step) {
    for (size_t shift = 0; shift <= kTaps; ++shift) {
      for (size_t x = 0; x < step.columns; x += F32::kLanes) {
        StoreU(LoadU<F32>(step.values + x + shift), of[shift] + x);
      }
    }
  }
  alignas(64) float of[kTaps + 1][kDoubledColumns<kTaps>];
};

/// Adds products with weight `k` to both rows that have this weight.
template <size_t kTaps, bool kFirst, bool kLast>
void AddTap(const DoublingStep<kTaps>& step, const TapValues<kTaps>& values, size_t k) {
  RowOfSums<kTaps, kFirst, kLast> even = {step.even_row[k], step.even_bytes};
  RowOfSums<kTaps, kLast, kFirst> odd = {step.odd_row[k], step.odd_bytes};
  float weights[kTaps];
  for (size_t i = 0; i < kTaps; ++i) weights[i] = step.weights[k] * step.weights[i];
  for (size_t x = 0; x < step.columns; x += kColumnsAtOnce) {
    even.Load(x);
    odd.Load(x);
    const auto add = [&]<size_t kTap>(std::integral_constant<size_t, kTap>) {
      for (size_t v = 0; v < kVectors; ++v) {
        const size_t at = x + v * F32::kLanes;
        // Odd columns begin one column later and have their weights in reverse.
        const F32 to_even = Set<F32>(weights[kTap]) * LoadU<F32>(values.of[kTap] + at);
        const F32 to_odd =
            Set<F32>(weights[kTaps - 1 - kTap]) * LoadU<F32>(values.of[kTap + 1] + at);
        even.Add(v, to_even, to_odd, kTap == 0);
        odd.Add(v, to_even, to_odd, kTap == 0);
      }
    };
    [&]<size_t... kTap>(std::index_sequence<kTap...>) {
      (add(std::integral_constant<size_t, kTap>()), ...);
    }
    (std::make_index_sequence<kTaps>());
    even.Store(x);
    odd.Store(x);
  }
}

template <size_t kTaps>
void Add(const DoublingStep<kTaps>& step) {
  const TapValues<kTaps> values(step);
  const auto is_needed = [&](size_t k) { return (step.needed >> k & 1) != 0; };
  if (is_needed(0)) AddTap<kTaps, true, false>(step, values, 0);
  for (size_t k = 1; k + 1 < kTaps; ++k) {
    if (is_needed(k)) AddTap<kTaps, false, false>(step, values, k);
  }
  if (is_needed(kTaps - 1)) AddTap<kTaps, false, true>(step, values, kTaps - 1);
}

template <size_t kChannels>
void JoinChannels(uint8_t* dest, const uint8_t* channels, size_t stride, size_t count) {
  size_t i = 0;
  for (; i + kVectorBytes <= count; i += kVectorBytes) {
    U8 of[kChannels];
    for (size_t c = 0; c < kChannels; ++c) of[c] = LoadU<U8>(channels + c * stride + i);
    StoreInterleaved<kChannels>(of, dest + kChannels * i);
  }
  for (; i < count; ++i) {
    for (size_t c = 0; c < kChannels; ++c) dest[kChannels * i + c] = channels[c * stride + i];
  }
}

void Join(uint8_t* dest, const uint8_t* channels, size_t stride, size_t count,
          size_t channel_count) {
  (channel_count == 3 ? &JoinChannels<3> : &JoinChannels<4>)(dest, channels, stride, count);
}

}  // namespace

extern const DoublingKernels kDoublingKernels;
constinit const DoublingKernels kDoublingKernels = {
    .spread = &Spread,
    .add4 = &Add<4>,
    .add12 = &Add<12>,
    .join = &Join,
};

}  // namespace qel::QEL_LEVEL
