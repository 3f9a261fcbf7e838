#ifndef QEL_TRANSFORM_ROTATE_ROTATION_SAMPLER_H_
#define QEL_TRANSFORM_ROTATE_ROTATION_SAMPLER_H_

#include "image/interpolated_sampling.h"
#include "transform/rotate/rotate_kernels.h"
#include "transform/rotate/rotate_plan.h"
#include "transform/rotate/rotated_frame.h"
#include "transform/rotate/weight_cache.h"
#include "transform/warp/affine_kernels.h"

namespace qel {

/// The ends of the runs whose columns, and among these whose rows, lie between bounds.
struct RunGuess {
  EdgeGuess of_x[2];
  EdgeGuess of_y[2];
};

/// The pixels of `run` for which both positions lie between the bounds that `too_low` and
/// `too_high` tell, which take a position and the source's size along its axis.
template <typename TooLow, typename TooHigh>
PixelRun RunWithinSource(const PixelRun& run, const RotatedFrame::Row& row, int width, int height,
                         RunGuess& guess, TooLow too_low, TooHigh too_high) {
  const PixelRun columns = RunWithin(
      run, row.cosine >= 0.0f, guess.of_x, [&](int i) { return row.SourceX(i); },
      [&](float v) { return too_low(v, width); }, [&](float v) { return too_high(v, width); });
  return RunWithin(
      columns, row.sine <= 0.0f, guess.of_y, [&](int i) { return row.SourceY(i); },
      [&](float v) { return too_low(v, height); }, [&](float v) { return too_high(v, height); });
}

/// One row of a rotated frame.
struct SampleRow {
  RotatedFrame::Row way;
  PixelRun inside;  ///< what kernels sample of it
};

inline constexpr int kMostCopiedRows = 8;
/// A row of a frame whose inside is copied.
struct CopiedRow {
  uint8_t* pixels;  ///< the first one of the row
  SampleRow row;
};

/// Positions of samples some of whose taps are outside, which wait until there are enough of them.
struct BorderPoints {
  size_t count = 0;
  SamplePoints points;

  bool Full() const { return count == kSampleGroup; }
};

/// Samples a source at the pixels of a rotated frame. Runs of pixels all of whose taps lie inside
/// go through kernels, and so do, in groups, those near the border when they are sums of taps; all
/// others go through `GetPixelColorInterpolated`.
class RotationSampler {
 public:
  RotationSampler(const RotatePlan& plan, const ImageView& source, const RotatedFrame& frame);

  /// Output row `j`, of which `run` is going to be sampled. Rows in their order are quickest.
  SampleRow RowAt(int j, const PixelRun& run);

  /// True where samples inside are pixels of the source, for `Copy`: without a change but for
  /// alpha, which those of 4 bytes have in full by method 1.
  bool Copies() const { return plan_.method == RotateMethod::kGather; }
  /// The rows that are best copied together, at most `kMostCopiedRows`.
  int copied_rows() const { return copied_rows_; }
  /// Writes what is inside in rows, with the bytes per pixel of the source. More than one must be
  /// as far apart as the first two.
  void Copy(const CopiedRow* rows, int count) const;

  /// The colors of up to `chunk` pixels from `first` on, all of which are inside or all not.
  /// `colors` has room for `kSampleChunk`.
  void Sample(uint32_t* colors, const SampleRow& row, int first, int count);
  /// The most pixels that one call of `Sample` may ask for.
  int chunk() const {
    return plan_.method == RotateMethod::kOneByOne ? 1 : static_cast<int>(kSampleChunk);
  }

  /// True where `BlendBorder` makes the samples that are not inside.
  bool BlendsBorder() const {
    return plan_.method != RotateMethod::kGather && plan_.method != RotateMethod::kOneByOne;
  }
  /// The colors of samples at positions of a frame, from copies of their taps; takes the points
  /// away. `colors` has room for `kSampleGroup`.
  void BlendBorder(uint32_t* colors, BorderPoints& border);

 private:
  /// What the taps of a chunk of points weigh.
  struct Weights {
    alignas(64) float x[kSampleChunk * kMaxTaps];
    alignas(64) float y[kSampleChunk * kMaxTaps];
  };

  PixelRun InsideRun(const RotatedFrame::Row& way, const PixelRun& run);
  void Prefetch(int j, const PixelRun& run) const;
  /// Copies squares of a run of `kSquareSide` rows; returns what is done.
  PixelRun CopySquares(const CopiedRow* rows, const PixelRun& run) const;
  void CopyRun(const CopiedRow& row, const PixelRun& run) const;
  void SampleSingly(uint32_t* colors, const SampleRow& row, int first, int count) const;
  void GatherInside(uint32_t* colors, const SamplePoints& points, size_t count) const;
  void Weigh(Weights& weights, const SamplePoints& points, size_t count);
  void BlendInside(uint32_t* colors, const SamplePoints& points, size_t count);
  void CopyTaps(uint32_t* copy, const SamplePoints& points, size_t count) const;

  const ImageView source_;
  const RotatedFrame frame_;
  const RotatePlan plan_;
  const InterpolationMethod how_;
  const TapWindow taps_;
  WeightCache cache_;
  const int copied_rows_;
  RunGuess inside_guess_;
};

}  // namespace qel

#endif  // QEL_TRANSFORM_ROTATE_ROTATION_SAMPLER_H_
