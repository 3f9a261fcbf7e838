#ifndef QEL_TRANSFORM_ROTATE_WEIGHT_CACHE_H_
#define QEL_TRANSFORM_ROTATE_WEIGHT_CACHE_H_

#include <cstdlib>
#include <memory>

#include "image/interpolated_sampling.h"
#include "transform/rotate/tap_kernels.h"

namespace qel {

/// Remembers tap weights that need library mathematics. Except near 0, single-precision positions
/// have so few different fractions that an image repeats them many times; and since all kernels are
/// even, a fraction has the weights of its complement to 1 in the opposite order.
class WeightCache {
 public:
  /// `weigh` computes the same weights as `kernel`, many at a time, if it is not null.
  WeightCache(const TapWindow& taps, KernelFunction kernel, WeighTaps weigh)
      : taps_(taps), kernel_(kernel), weigh_(weigh) {}

  /// Makes room for remembering; until then every weight is computed.
  void Reserve();

  /// Writes the weights of the taps of each position, as kernels want them.
  void Weigh(float* weights, const float* positions, size_t count);

 private:
  struct Entry {
    float* weights;
    bool mirrored;  ///< the weights lie there in the opposite order
  };
  struct Free {
    void operator()(float* memory) const { std::free(memory); }
  };

  ptrdiff_t Stride() const {
    return taps_.count == kTaps12.count ? kEntryStride<12> : kEntryStride<4>;
  }
  /// The entry at place 0. The one before it, of positions without a place, stays empty.
  float* Entries() const { return memory_.get() + Stride(); }
  /// The positions of a chunk whose weights are not remembered yet, and where these belong.
  struct Missing {
    size_t count = 0;
    float positions[kSampleChunk];
    Entry entries[kSampleChunk];
  };
  void Compute(Missing& missing) const;

  TapWindow taps_;
  KernelFunction kernel_;
  WeighTaps weigh_;
  std::unique_ptr<float, Free> memory_;
};

}  // namespace qel

#endif  // QEL_TRANSFORM_ROTATE_WEIGHT_CACHE_H_
