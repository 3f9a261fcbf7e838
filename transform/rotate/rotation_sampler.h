#ifndef QEL_TRANSFORM_ROTATE_ROTATION_SAMPLER_H_
#define QEL_TRANSFORM_ROTATE_ROTATION_SAMPLER_H_

#include <utility>

#include "image/interpolated_sampling.h"
#include "transform/rotate/rotate_kernels.h"
#include "transform/rotate/rotate_plan.h"
#include "transform/rotate/rotated_frame.h"
#include "transform/rotate/source_tile.h"
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
  int j;
  RotatedFrame::Row way;
  PixelRun inside;  ///< what kernels sample of it
};

inline constexpr int kMostCopiedRows = 8;
/// A row of a frame whose inside is copied.
struct CopiedRow {
  uint8_t* pixels;  ///< the first one of the row
  SampleRow row;
};

/// Pixels of a frame that wait until there are enough of them.
struct PointQueue {
  struct Place {
    int j;
    int i;
  };
  size_t count = 0;
  Place places[kSampleGroup];
  SamplePoints points;
};

/// Samples a source at the pixels of a rotated frame. Runs of pixels all of whose taps lie inside
/// go through kernels, and so do, in groups, those near the border when they are sums of taps; all
/// others go through `GetPixelColorInterpolated`.
class RotationSampler {
 public:
  /// `uses_alpha` where the alpha of colors matters.
  RotationSampler(const RotatePlan& plan, const ImageView& source, const RotatedFrame& frame,
                  bool uses_alpha);

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

  /// The colors of up to `chunk` pixels from `first` on, all of which are sampled by kernels or all
  /// not.
  /// `colors` has room for `kSampleChunk`. Bit i of the result is set where color i is in doubt:
  /// `BlendPoints` makes the right one.
  uint64_t Sample(uint32_t* colors, const SampleRow& row, int first, int count);
  /// The most pixels that one call of `Sample` may ask for.
  int chunk() const {
    return plan_.method == RotateMethod::kOneByOne ? 1 : static_cast<int>(kSampleChunk);
  }

  /// Columns of a frame that are best sampled row by row before the next ones.
  int band() const { return plan_.method == RotateMethod::kBounded ? chunk() : kBandColumns; }

  /// True where `BlendPoints` makes the samples that kernels do not.
  bool BlendsBorder() const {
    return plan_.method != RotateMethod::kGather && plan_.method != RotateMethod::kOneByOne;
  }
  /// Whether kernels may read all taps of a position from the source.
  bool HasTapsInside(float x, float y) const;
  /// The colors of samples as stated, of which either all are inside or none. `colors` has room for
  /// `kSampleGroup`; what lies behind the points of the queue changes.
  void BlendPoints(uint32_t* colors, PointQueue& queue, bool is_inside);

 private:
  /// What the taps of a chunk of points weigh.
  struct Weights {
    alignas(64) float x[kSampleChunk * kMaxTaps];
    alignas(64) float y[kSampleChunk * kMaxTaps];
  };

  /// Each row meets other pages of the source, and the processor remembers only so many.
  static constexpr int kBandColumns = 2304;

  /// Goes on as stated where bounds settle too little: fractions of pixels that are hardly turned
  /// are all about 0.
  void LeaveBounds();
  /// Columns of the source whose pixels may be taps of what kernels sample.
  int ReadableColumns() const;
  PixelRun InsideRun(const RotatedFrame::Row& way, const PixelRun& run);
  /// Where tiles have all taps, also those outside.
  PixelRun BoundedRun(const RotatedFrame::Row& way, const PixelRun& run);
  void Prefetch(int j, const PixelRun& run) const;
  /// Copies squares of a run of `kSquareSide` rows; returns what is done.
  PixelRun CopySquares(const CopiedRow* rows, const PixelRun& run) const;
  void CopyRun(const CopiedRow& row, const PixelRun& run) const;
  void SampleSingly(uint32_t* colors, const SampleRow& row, int first, int count) const;
  void GatherInside(uint32_t* colors, const SamplePoints& points, size_t count) const;
  void Weigh(Weights& weights, const SamplePoints& points, size_t count);
  void BlendInside(uint32_t* colors, const SamplePoints& points, size_t count);
  void BlendCopies(uint32_t* colors, const SamplePoints& points, size_t count);
  /// The taps of positions from x.first to x.second and from y.first to y.second.
  PixelBox BoxOfTaps(std::pair<float, float> x, std::pair<float, float> y) const;
  /// Makes values of the taps of the band that column `first` lies in.
  void CoverBand(const SampleRow& row, int first);
  uint64_t BlendBounded(uint32_t* colors, const SampleRow& row, int first,
                        const SamplePoints& points, size_t count);
  void CopyTaps(uint32_t* copy, const SamplePoints& points, size_t count) const;

  const ImageView source_;
  const RotatedFrame frame_;
  RotatePlan plan_;
  const InterpolationMethod how_;
  const TapWindow taps_;
  WeightCache cache_;
  const int copied_rows_;
  SourceTile tile_;
  int64_t bounded_ = 0;  ///< pixels that were bounded
  int64_t doubted_ = 0;  ///< those in doubt among them
  bool bounds_border_;   ///< tiles have what pixels near the border are sums of
  RunGuess inside_guess_;
};

}  // namespace qel

#endif  // QEL_TRANSFORM_ROTATE_ROTATION_SAMPLER_H_
