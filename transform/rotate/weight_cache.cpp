#include "transform/rotate/weight_cache.h"

#include <algorithm>
#include <bit>

#include "simd/prefetch.h"
#include "transform/rotate/rotate_kernels.h"

namespace qel {
namespace {

/// Remembered fractions are multiples of 2^-17, as those of positions from 64 on are.
constexpr int kFractionBits = 17;
constexpr uint32_t kWholePixel = 1u << kFractionBits;
constexpr int kFirstExponent = 23 - kFractionBits;

/// Place of a fraction up to one half: 0, 1/2, 1/4, 1/8, 3/8 and so on. Those of few bits come
/// first, because large positions, which are many, have no others.
uint32_t PlaceOf(uint32_t fraction) {
  if (fraction == 0) return 0;
  if (fraction == kWholePixel / 2) return 1;
  return 1 + ((kWholePixel / 2 + fraction) >> (std::countr_zero(fraction) + 1));
}

}  // namespace

void WeightCache::Reserve() {
  // Memory of zeros costs nothing before it is used. Without it, nothing is remembered.
  memory_.reset(
      static_cast<float*>(std::calloc((kWholePixel / 4 + 1) * 2 * Stride(), sizeof(float))));
}

WeightCache::Entry WeightCache::Find(float position) const {
  const auto bits = std::bit_cast<uint32_t>(position);
  const int exponent = static_cast<int>(bits >> 23) - 127;
  if (exponent < kFirstExponent || exponent > 23 || memory_ == nullptr) return {nullptr, false};
  const uint32_t fraction = (bits << (exponent - kFirstExponent)) & (kWholePixel - 1);
  // The smaller one of the fraction and its complement, of which a branch would guess half wrong.
  constexpr auto kHalf = static_cast<int32_t>(kWholePixel / 2);
  const int32_t beyond_half = static_cast<int32_t>(fraction) - kHalf;
  const uint32_t place = PlaceOf(static_cast<uint32_t>(kHalf - std::abs(beyond_half)));
  return {memory_.get() + size_t{place} * Stride(), beyond_half > 0};
}

void WeightCache::Compute(float* weights, float position) const {
  TapWeights(taps_, kernel_, position, TapOrigin(position), weights);
}

void WeightCache::Weigh(float* weights, const float* positions, size_t count) {
  const auto taps = static_cast<size_t>(taps_.count);
  Entry kept[kSampleChunk];
  for (size_t i = 0; i < count; ++i) {
    kept[i] = Find(positions[i]);
    // Entries lie all over the memory; all of a chunk are on their way at the same time.
    if (kept[i].weights != nullptr) PrefetchLine(reinterpret_cast<const uint8_t*>(kept[i].weights));
  }
  float computed[kSampleChunk * kMaxTaps];
  WeightEntries entries;
  entries.mirrored = 0;
  for (size_t i = 0; i < count; ++i) {
    float* entry = kept[i].weights;
    if (entry == nullptr) {
      entry = computed + i * taps;
      Compute(entry, positions[i]);
    } else if (entry[0] == 0.0f) {
      Compute(entry, positions[i]);
      if (kept[i].mirrored) std::reverse(entry, entry + taps);
    }
    entries.of[i] = entry;
    entries.mirrored |= uint64_t{kept[i].mirrored} << i;
  }
  for (size_t i = count; i < kSampleChunk; ++i) entries.of[i] = entries.of[count - 1];
  const RotateKernels& kernels = ActiveRotateKernels();
  (taps == 4 ? kernels.spread4 : kernels.spread12)(weights, entries, count);
}

}  // namespace qel
