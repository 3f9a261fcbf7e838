#ifndef QEL_TRANSFORM_RESAMPLE_DOUBLING_ROWS_H_
#define QEL_TRANSFORM_RESAMPLE_DOUBLING_ROWS_H_

#include "image/image_view.h"
#include "transform/resample/resample_plan.h"

namespace qel {

/// Rows of pictures that are doubled channel by channel: source rows as values, and destination
/// rows from bytes.
class DoublingRows {
 public:
  DoublingRows(const ImageView& source, const ImageView& dest, const ResamplePlan& plan);

  size_t channels() const { return channels_; }

  /// Makes values of the columns from `from` to before `past` of source row `row`, which may all be
  /// outside; value i of channel c goes to values[c * stride + i]. Up to `stride`, the outside
  /// color follows.
  void Spread(float* values, size_t stride, int64_t row, int64_t from, int64_t past) const;

  /// Stores `pixels` pixels from column `first` of destination row `y` on; byte i of channel c is
  /// bytes[c * stride + i].
  void Store(int64_t y, int64_t first, const uint8_t* bytes, size_t stride, size_t pixels) const;

 private:
  const ImageView source_;
  const ImageView dest_;
  const size_t channels_;
  uint8_t outside_[4];
};

}  // namespace qel

#endif  // QEL_TRANSFORM_RESAMPLE_DOUBLING_ROWS_H_
