#ifndef QEL_TESTS_SUPPORT_FORCED_PLANS_H_
#define QEL_TESTS_SUPPORT_FORCED_PLANS_H_

#include <string_view>

#include "filter/convolution/convolution_plan.h"
#include "filter/median/median_plan.h"
#include "filter/morphology/extrema_plan.h"
#include "operations/method.h"
#include "transform/resample/resample_plan.h"
#include "transform/rotate/rotate_plan.h"
#include "transform/warp/circle_plan.h"

namespace qel::test {

/// Operations with several methods, each by the method that is asked for, at the module's level.
/// Modules under test export this; the shipped one does not.
struct ForcedPlans {
  /// Carries a call out by one of them. False, and nothing done, when that method cannot. `dest`
  /// has the shape of the result, and pixels to store.
  bool (*run)(std::string_view operation, size_t method,
              const operations::MethodArguments& arguments, const ImageView& source,
              const ImageView& dest);
  /// What `LeastStreamedBytes` gives, for small results to go past the caches as well.
  int64_t* least_streamed_bytes;
};

inline constexpr char kForcedPlansSymbol[] = "QelForcedPlans";

}  // namespace qel::test

#endif  // QEL_TESTS_SUPPORT_FORCED_PLANS_H_
