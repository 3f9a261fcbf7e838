#include "transform/rotate/weight_cache.h"

#include <algorithm>

namespace qel {

void WeightCache::Reserve() {
  // Memory of zeros costs nothing before it is used. Without it, nothing is remembered.
  memory_.reset(static_cast<float*>(
      std::calloc((1 + kFractionPlaces) * static_cast<size_t>(Stride()), sizeof(float))));
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
  const TapKernels& kernels = ActiveTapKernels();
  int32_t places[kSampleChunk];
  WeightEntries entries;
  entries.mirrored = 0;
  if (memory_ == nullptr) {
    std::fill_n(places, count, -1);
  } else {
    entries.mirrored = kernels.fraction_places(places, positions, count);
    const auto recall = taps == 4 ? kernels.recall4 : kernels.recall12;
    if (recall(weights, Entries(), places, entries.mirrored, count)) return;
  }
  float computed[kSampleChunk * kMaxTaps];
  Missing missing;
  for (size_t i = 0; i < count; ++i) {
    const bool remembers = places[i] >= 0;
    float* const entry = remembers ? Entries() + places[i] * Stride() : computed + i * taps;
    entries.of[i] = entry;
    if (remembers && entry[0] != 0.0f) continue;
    missing.positions[missing.count] = positions[i];
    missing.entries[missing.count++] = {entry, (entries.mirrored >> i & 1) != 0};
  }
  if (missing.count > 0) Compute(missing);
  for (size_t i = count; i < kSampleChunk; ++i) entries.of[i] = entries.of[count - 1];
  (taps == 4 ? kernels.spread4 : kernels.spread12)(weights, entries, count);
}

}  // namespace qel
