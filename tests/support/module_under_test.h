#ifndef QEL_TESTS_SUPPORT_MODULE_UNDER_TEST_H_
#define QEL_TESTS_SUPPORT_MODULE_UNDER_TEST_H_

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "simd/cpu_level.h"
#include "tests/support/painted_stack.h"
#include "tests/support/paired_call.h"

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

  CpuLevel level;
};

/// Name of a level, as in the file names of the test modules.
std::string LevelName(CpuLevel level);

/// An image of one row that holds these bytes, with others behind them; by default of the usual
/// colour model.
Raster RowOf(int bit_count, const std::vector<uint8_t>& bytes, std::optional<uint32_t> model = {});
std::vector<uint8_t> FirstRow(const Raster& image);

/// Base of tests that run operations through the module's binary interface, at every level that
/// this processor has. Instantiate with QEL_INSTANTIATE_LEVELS.
class OperationTest : public testing::TestWithParam<CpuLevel> {
 protected:
  void SetUp() override;

  /// What a call that must succeed makes of an image: its result, or the image itself.
  Raster ResultOf(const Raster& source, const PairedCall& call) const;

  ModuleUnderTest* module_ = nullptr;
};

/// Base of tests that put the module at every level that this processor has beside the plain
/// readings of its operations.
class ReadingTest : public testing::Test {
 protected:
  void SetUp() override;

  /// Runs both sides of a call on copies of `inputs` and expects the same result code, the same
  /// bytes in every image and in the result, guards and padding included, every reference given
  /// back, and at most 64 KiB of stack. Of operations with several methods, all that can are run.
  void ExpectSame(const std::vector<Raster>& inputs, const PairedCall& call);
  /// The same of drawn calls of every operation of a component, `draws` of each.
  void ExpectSameDraws(const std::string& component, int draws);

  /// Expects that all of these methods were run by now.
  void ExpectRun(std::span<const MethodText> methods) const {
    for (const MethodText& method : methods) EXPECT_TRUE(run_.contains(&method)) << method.name;
  }

 private:
  /// What differs at some level; empty when nothing does.
  std::string Difference(const PairedCase& paired);

  PaintedStack stack_;
  std::vector<ModuleUnderTest*> modules_;
  std::set<const MethodText*> run_;
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
