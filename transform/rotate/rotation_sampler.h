#ifndef QEL_TRANSFORM_ROTATE_ROTATION_SAMPLER_H_
#define QEL_TRANSFORM_ROTATE_ROTATION_SAMPLER_H_

#include <cstdlib>
#include <memory>

#include "image/interpolated_sampling.h"
#include "transform/rotate/rotate_kernels.h"
#include "transform/rotate/rotate_plan.h"
#include "transform/rotate/rotated_frame.h"

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

/// One row of a rotated frame.
struct SampleRow {
  RotatedFrame::Row way;
  PixelRun inside;  ///< what kernels sample of it
};

/// Samples a source at the pixels of a rotated frame. Runs of pixels all of whose taps lie inside
/// go through kernels, the others through `GetPixelColorInterpolated`.
class RotationSampler {
 public:
  RotationSampler(const RotatePlan& plan, const ImageView& source, const RotatedFrame& frame);

  /// Output row `j`, of which `run` is going to be sampled.
  SampleRow RowAt(int j, const PixelRun& run) const;

  /// The colours of up to `chunk` pixels from `first` on. `colors` has room for `kSampleChunk`
  /// more than those.
  void Sample(uint32_t* colors, const SampleRow& row, int first, int count);
  /// The most pixels that one call of `Sample` may ask for.
  int chunk() const {
    return plan_.method == RotateMethod::kOneByOne ? 1 : static_cast<int>(kSampleChunk);
  }

 private:
  PixelRun InsideRun(const RotatedFrame::Row& way, const PixelRun& run) const;
  void Prefetch(int j, const PixelRun& run) const;
  void SampleSingly(uint32_t* colors, const SampleRow& row, int first, int count) const;
  void SampleInside(uint32_t* colors, const SampleRow& row, int first, size_t count);
  void PickInside(uint32_t* colors, const SamplePoints& points, size_t count) const;
  void BlendInside(uint32_t* colors, const SamplePoints& points, size_t count);

  const ImageView source_;
  const RotatedFrame frame_;
  const RotatePlan plan_;
  const InterpolationMethod how_;
  const TapWindow taps_;
  WeightCache cache_;
};

/// The pixels of `run` for which both positions lie between the bounds that `too_low` and
/// `too_high` tell, which take a position and the source's size along its axis.
template <typename TooLow, typename TooHigh>
PixelRun RunWithinSource(const PixelRun& run, const RotatedFrame::Row& row, int width, int height,
                         TooLow too_low, TooHigh too_high) {
  const PixelRun columns = RunWithin(
      run, row.cosine >= 0.0f, [&](int i) { return row.SourceX(i); },
      [&](float v) { return too_low(v, width); }, [&](float v) { return too_high(v, width); });
  return RunWithin(
      columns, row.sine <= 0.0f, [&](int i) { return row.SourceY(i); },
      [&](float v) { return too_low(v, height); }, [&](float v) { return too_high(v, height); });
}

}  // namespace qel

#endif  // QEL_TRANSFORM_ROTATE_ROTATION_SAMPLER_H_
