#ifndef QEL_TRANSFORM_ROTATE_WEIGHT_CACHE_H_
#define QEL_TRANSFORM_ROTATE_WEIGHT_CACHE_H_

#include <cstdlib>
#include <memory>

#include "image/interpolated_sampling.h"

namespace qel {

/// Remembers tap weights that need library mathematics. Except near 0, single-precision positions
/// have so few different fractions that an image repeats them many times; and since all kernels are
/// even, a fraction has the weights of its complement to 1 in the opposite order.
class WeightCache {
 public:
  WeightCache(const TapWindow& taps, KernelFunction kernel) : taps_(taps), kernel_(kernel) {}

  /// Makes room for remembering; until then every weight is computed.
  void Reserve();

  /// Writes the weights of the taps of each position, as kernels want them.
  void Weigh(float* weights, const float* positions, size_t count);

 private:
  struct Entry {
    float* weights;  ///< null where nothing is remembered; zeros when not computed yet
    bool mirrored;   ///< the weights lie there in the opposite order
  };
  struct Free {
    void operator()(float* memory) const { std::free(memory); }
  };

  /// Floats from entry to entry: twelve taps get a line of the cache to themselves.
  size_t Stride() const {
    return taps_.count == kTaps12.count ? 16 : static_cast<size_t>(taps_.count);
  }
  Entry Find(float position) const;
  void Compute(float* weights, float position) const;

  TapWindow taps_;
  KernelFunction kernel_;
  std::unique_ptr<float, Free> memory_;
};

}  // namespace qel

#endif  // QEL_TRANSFORM_ROTATE_WEIGHT_CACHE_H_
