#include "transform/rotate/weight_cache.h"

#include <algorithm>
#include <bit>

#include "simd/prefetch.h"

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

void WeightCache::Compute(Missing& missing) const {
  // Few are quicker one by one than a whole group.
  constexpr size_t kWorthAGroup = 8;
  const auto taps = static_cast<size_t>(taps_.count);
  const bool together = weigh_ != nullptr && missing.count >= kWorthAGroup;
  float weights[kSampleChunk * kMaxTaps];
  if (together) {
    std::fill(missing.positions + missing.count, std::end(missing.positions), missing.positions[0]);
    weigh_(weights, missing.positions, missing.count);
  }
  for (size_t i = 0; i < missing.count; ++i) {
    float* const entry = missing.entries[i].weights;
    const float position = missing.positions[i];
    if (together) {
      const float* const first = weights + WeightPlace(i, taps);
      for (size_t tap = 0; tap < taps; ++tap) entry[tap] = first[tap * kWeightGroup];
    } else {
      TapWeights(taps_, kernel_, position, TapOrigin(position), entry);
    }
    if (missing.entries[i].mirrored) std::reverse(entry, entry + taps);
  }
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
  Missing missing;
  WeightEntries entries;
  entries.mirrored = 0;
  for (size_t i = 0; i < count; ++i) {
    Entry& entry = kept[i];
    const bool remembers = entry.weights != nullptr;
    if (!remembers) entry.weights = computed + i * taps;
    if (!remembers || entry.weights[0] == 0.0f) {
      missing.positions[missing.count] = positions[i];
      missing.entries[missing.count++] = entry;
    }
    entries.of[i] = entry.weights;
    entries.mirrored |= uint64_t{entry.mirrored} << i;
  }
  if (missing.count > 0) Compute(missing);
  for (size_t i = count; i < kSampleChunk; ++i) entries.of[i] = entries.of[count - 1];
  const RotateKernels& kernels = ActiveRotateKernels();
  (taps == 4 ? kernels.spread4 : kernels.spread12)(weights, entries, count);
}

}  // namespace qel
