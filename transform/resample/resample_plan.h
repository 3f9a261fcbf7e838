#ifndef QEL_TRANSFORM_RESAMPLE_RESAMPLE_PLAN_H_
#define QEL_TRANSFORM_RESAMPLE_RESAMPLE_PLAN_H_

#include <optional>

#include "image/image_view.h"
#include "image/interpolated_sampling.h"
#include "image/plan.h"

namespace qel {

/// How an image is resampled, in the order of preference.
enum class ResampleMethod {
  kNearest,
  kHalve,
  kSmallBoxes,
  kLargeBoxes,
  kGather,
  kDoubling,
  kTaps,
  kOneByOne
};

inline constexpr MethodText kResampleMethods[] = {
    {"nearest",
     "one pixel each, copied: method 0 enlarging, or asked for; by blocks of bytes that are looked "
     "up where the processor can, and repeated rows are copied"},
    {"halve", "means of 2 x 2 pixels side by side, in registers: one pass"},
    {"small-boxes",
     "means of up to 128 pixels with sums of 16 bits: the rows of a box added, then windows that "
     "grow by doubling, log2(columns) additions a pixel, and a reciprocal"},
    {"large-boxes", "means of any size: every pixel of the source is added once"},
    {"gather", "one tap a pixel, none of them outside: as nearest"},
    {"doubling",
     "twice the size with an even kernel of 4 x 4 or 12 x 12 taps, whose weights are then the same "
     "for all pixels: sums along rows, then down columns, 6 or 18 products a channel, with a "
     "proven bound of their distance from the stated sum; where a byte is in doubt, 16 or 144 "
     "products in the stated order"},
    {"taps",
     "4 x 4 or 12 x 12 weighted pixels in tiles: weights once for each column and row, the taps of "
     "a source row spread out once for all rows that they reach, then 16 or 144 products a "
     "channel, summed in one stated order"},
    {"one-by-one", "any depth and position, every sample for itself"},
};

/// Source pixels per destination pixel, in single precision.
struct Scale {
  float x;
  float y;
};

/// What resampling takes, made from the shapes of images alone.
struct ResamplePlan {
  ResampleMethod method;
  Scale scale;
  int interpolation;        ///< 0 to 15; others act as 1
  int pixel_bytes;          ///< that are moved or averaged together
  bool keep_alpha;          ///< the fourth byte of the destination's pixels stays
  float weights[kMaxTaps];  ///< doubling: of the taps of even columns and rows
};

/// The plan with the first method that can. `dest` has the depth of `source` and pixels to store.
ResamplePlan PlanResample(const ImageView& source, const ImageView& dest, int interpolation,
                          bool nearest_only);

/// The same with `method`; nothing when that does not give the right pixels.
std::optional<ResamplePlan> PlanResampleBy(ResampleMethod method, const ImageView& source,
                                           const ImageView& dest, int interpolation,
                                           bool nearest_only);

/// Writes `source` resampled to `dest`. Goes one by one where memory is refused.
void RunResample(const ResamplePlan& plan, const ImageView& source, const ImageView& dest);

}  // namespace qel

#endif  // QEL_TRANSFORM_RESAMPLE_RESAMPLE_PLAN_H_
