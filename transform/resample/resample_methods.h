#ifndef QEL_TRANSFORM_RESAMPLE_RESAMPLE_METHODS_H_
#define QEL_TRANSFORM_RESAMPLE_RESAMPLE_METHODS_H_

#include "image/interpolated_sampling.h"
#include "transform/resample/resample_plan.h"

namespace qel {

/// The positions in the source of the columns or rows of a destination: pixel centres are aligned.
class SamplePositions {
 public:
  SamplePositions(int64_t count, float scale) : count_(count), scale_(scale) {}

  int64_t size() const { return count_; }
  float scale() const { return scale_; }
  float operator[](int64_t i) const { return (static_cast<float>(i) + 0.5f) * scale_ - 0.5f; }
  /// Whether `is_within` holds for all of them, if it holds for a range of positions: they never
  /// fall, because each step of their computation rounds monotonically.
  template <typename Predicate>
  bool AllWithin(Predicate&& is_within) const {
    return count_ == 0 || (is_within((*this)[0]) && is_within((*this)[count_ - 1]));
  }

 private:
  int64_t count_;
  float scale_;
};

// The methods; each carries out plans that were made for it.

void CopyNearest(const ResamplePlan& plan, const ImageView& source, const ImageView& dest);
void GatherPixels(const ResamplePlan& plan, const ImageView& source, const ImageView& dest);
void HalveByBoxes(const ResamplePlan& plan, const ImageView& source, const ImageView& dest);
void AverageSmallBoxes(const ResamplePlan& plan, const ImageView& source, const ImageView& dest);
void AverageLargeBoxes(const ResamplePlan& plan, const ImageView& source, const ImageView& dest);
void DoubleByTaps(const ResamplePlan& plan, const ImageView& source, const ImageView& dest);
/// False when there is no memory; nothing is written then.
bool SumTapsByTiles(const ResamplePlan& plan, const ImageView& source, const ImageView& dest);

}  // namespace qel

#endif  // QEL_TRANSFORM_RESAMPLE_RESAMPLE_METHODS_H_
