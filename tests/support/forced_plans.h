#ifndef QEL_TESTS_SUPPORT_FORCED_PLANS_H_
#define QEL_TESTS_SUPPORT_FORCED_PLANS_H_

#include "filter/convolution/convolution_plan.h"
#include "filter/median/median_plan.h"
#include "filter/morphology/extrema_plan.h"
#include "transform/resample/resample_plan.h"
#include "transform/rotate/rotate_plan.h"
#include "transform/warp/circle_plan.h"

namespace qel::test {

/// Operations with several methods, each by the method that is asked for, at the module's level.
/// Every function returns false, and does nothing, when that method cannot. `dest` has the shape of
/// the result, and pixels to store. Modules under test export this; the shipped one does not.
struct ForcedPlans {
  bool (*convolution)(ConvolutionMethod method, const ImageView& source, const ImageView& dest,
                      const int* kernel, int size, int divisor, int offset);
  bool (*extrema)(const ExtremaPlan& plan, const ImageView& source, const ImageView& dest);
  bool (*median)(MedianMethod method, const ImageView& source, const ImageView& dest, int size);
  bool (*resample)(ResampleMethod method, const ImageView& source, const ImageView& dest,
                   int interpolation, bool nearest_only);
  /// `dest` has its background.
  bool (*rotate)(RotateMethod method, const ImageView& source, const ImageView& dest, int angle,
                 int interpolation);
  bool (*circle)(CircleMethod method, const ImageView& source, const ImageView& dest, int mode,
                 float factor);
};

inline constexpr char kForcedPlansSymbol[] = "QelForcedPlans";

}  // namespace qel::test

#endif  // QEL_TESTS_SUPPORT_FORCED_PLANS_H_
