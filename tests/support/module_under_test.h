#ifndef QEL_TESTS_SUPPORT_MODULE_UNDER_TEST_H_
#define QEL_TESTS_SUPPORT_MODULE_UNDER_TEST_H_

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <set>
#include <span>
#include <string>

#include "simd/cpu_level.h"
#include "tests/support/forced_plans.h"
#include "tests/support/operation_calls.h"
#include "tests/support/test_host.h"

namespace qel::test {

/// The module as a host loads it, built for one processor level, with one object of each component.
struct ModuleUnderTest : ComponentSet {
  CreateFunctionFunction create_function = nullptr;
  InitializeModuleFunction initialize = nullptr;
  const ForcedPlans* plans = nullptr;

  /// Loads the build for `level` in `folder`, hands the test host's collection over and has it look
  /// up what it keeps. The library stays loaded.
  static std::unique_ptr<ModuleUnderTest> Load(const std::string& folder, CpuLevel level);
  /// The build for `level` of this project, loaded once per process.
  static ModuleUnderTest& ForLevel(CpuLevel level);
};

/// Name of a level, as in the file names of the test modules.
std::string LevelName(CpuLevel level);

/// Base of tests that run operations through the module's binary interface, at every level that
/// this processor has. Instantiate with QEL_INSTANTIATE_LEVELS.
class OperationTest : public testing::TestWithParam<CpuLevel> {
 protected:
  void SetUp() override;

  /// One call on the module: the images in order, and where a result goes.
  using ModuleCall = std::function<result_t(std::span<TestImage* const> images, IQEL** result)>;
  /// The same by an oracle. `result` counts as made when its bit count is not 0.
  using OracleCall = std::function<result_t(std::span<Raster> images, Raster& result)>;

  /// Runs both on copies of `inputs` and expects the same result code, the same bytes in every
  /// image and in the result, guards and padding included, and every reference given back.
  void ExpectSame(const std::vector<Raster>& inputs, const ModuleCall& call,
                  const OracleCall& oracle);

  /// Has a method carry out an operation on views of a source and of a result like it; false, and
  /// nothing done, when the method cannot.
  using MethodCall =
      std::function<bool(size_t method, const ImageView& source, const ImageView& dest)>;
  /// Runs all of `methods` that can and expects `expected` from each, a new image. Nothing to do
  /// for images that store no pixels.
  void ExpectSameByMethods(const Raster& source, const Raster& expected,
                           std::span<const MethodText> methods, const MethodCall& call);

  ModuleUnderTest* module_ = nullptr;
  /// The methods that were run so far.
  std::set<std::string> methods_run_;
};

/// Calls slot `slot` of an object's table: operations that only the class has, and order tests.
template <typename... Arguments>
result_t CallSlot(void* object, size_t slot, Arguments... arguments) {
  using Function = result_t (*)(void*, Arguments...);
  return (*static_cast<Function**>(object))[slot](object, arguments...);
}

inline std::string LevelParamName(const testing::TestParamInfo<CpuLevel>& level) {
  return LevelName(level.param);
}

#define QEL_INSTANTIATE_LEVELS(suite)                                                              \
  INSTANTIATE_TEST_SUITE_P(                                                                        \
      Levels, suite,                                                                               \
      testing::Values(CpuLevel::kSse2, CpuLevel::kAvx2, CpuLevel::kAvx512, CpuLevel::kAvx512Vbmi), \
      LevelParamName)

}  // namespace qel::test

#endif  // QEL_TESTS_SUPPORT_MODULE_UNDER_TEST_H_
