#ifndef QEL_TRANSFORM_RESAMPLE_RESAMPLE_H_
#define QEL_TRANSFORM_RESAMPLE_RESAMPLE_H_

#include "image/image_view.h"
#include "image/interpolated_sampling.h"

namespace qel {

/// Source pixels per destination pixel, in single precision.
struct Scale {
  float x;
  float y;
};

/// The ways to resample; each stands in the file that is named here.
enum class ResampleMethod {
  kNone,        ///< nothing is written
  kNearest,     ///< nearest.cpp: offsets by truncation, O(1) per pixel
  kHalve,       ///< box.cpp: means of 2 x 2 pixels side by side, in registers
  kSmallBoxes,  ///< box.cpp: means of up to 128 pixels, in 16 bits
  kLargeBoxes,  ///< box.cpp: means of any size, modulo 2^32
  kPick,        ///< nearest.cpp: one tap per pixel, none outside
  kTaps,        ///< taps.cpp: weighted sums of 4 x 4 or 12 x 12 taps by tiles
  kOneByOne,    ///< resample.cpp: every pixel by `GetPixelColorInterpolated`
};
/// Its name in texts, such as "small boxes".
const char* NameOf(ResampleMethod method);

/// How an image is resampled, chosen from geometry and depth alone.
struct ResamplePlan {
  ResampleMethod method;
  Scale scale;
  int interpolation;  ///< the caller's method, 0 to 15
  int pixel_bytes;    ///< that move or are averaged together
  bool keep_alpha;    ///< the fourth byte of the destination's pixels stays
};

/// The quickest way that is right for images of these shapes; `dest` has the depth of `source`.
ResamplePlan PlanResampling(const ImageView& source, const ImageView& dest, const Scale& scale,
                            int interpolation, bool nearest_only);

/// Carries a plan out. Falls back to single pixels where memory is refused.
void Run(const ResamplePlan& plan, const ImageView& source, const ImageView& dest);

/// The positions in the source of the columns or rows of a destination: pixel centres are aligned.
class SamplePositions {
 public:
  SamplePositions(int64_t count, float scale) : count_(count), scale_(scale) {}

  int64_t size() const { return count_; }
  float scale() const { return scale_; }
  float operator[](int64_t i) const { return (static_cast<float>(i) + 0.5f) * scale_ - 0.5f; }
  template <typename Predicate>
  bool AllOf(Predicate&& predicate) const {
    for (int64_t i = 0; i < count_; ++i) {
      if (!predicate((*this)[i])) return false;
    }
    return true;
  }

 private:
  int64_t count_;
  float scale_;
};

// The ways; `Run` chooses. Offsets in rows come from single-precision products.

void CopyNearest(const ResamplePlan& plan, const ImageView& source, const ImageView& dest);
void PickPixels(const ResamplePlan& plan, const ImageView& source, const ImageView& dest);
void HalveByBoxes(const ResamplePlan& plan, const ImageView& source, const ImageView& dest);
void AverageSmallBoxes(const ResamplePlan& plan, const ImageView& source, const ImageView& dest);
void AverageLargeBoxes(const ResamplePlan& plan, const ImageView& source, const ImageView& dest);
/// False when there is no memory; nothing is written then.
bool SumTapsByTiles(const ResamplePlan& plan, const ImageView& source, const ImageView& dest);

}  // namespace qel

#endif  // QEL_TRANSFORM_RESAMPLE_RESAMPLE_H_
