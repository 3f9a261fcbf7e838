#ifndef QEL_TESTS_SUPPORT_PAIRED_CALL_H_
#define QEL_TESTS_SUPPORT_PAIRED_CALL_H_

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "operations/method.h"
#include "reference/operations.h"
#include "tests/support/forced_plans.h"
#include "tests/support/operation_calls.h"
#include "tests/support/test_host.h"

namespace qel::test {

/// A caller's transform. It has no interfaces, spoils z and fails, all of which its callers ignore.
class PointMap final : public ITransform {
 public:
  explicit PointMap(reference::PointTransform map) : map_(std::move(map)) {}
  virtual ~PointMap() = default;
  result_t QueryInterface(const IID&, void** object) override {
    *object = nullptr;
    return kNoInterface;
  }
  uint32_t AddRef() override { return ++references; }
  uint32_t Release() override {
    const uint32_t left = --references;
    if (left == 0) delete this;
    return left;
  }
  result_t TransformPoint(double* x, double* y, double* z) override {
    EXPECT_EQ(*z, 0);
    *z = 9;
    map_(*x, *y);
    return kFail;
  }
  uint32_t references = 1;

 private:
  reference::PointTransform map_;
};

/// One call with the same arguments on both sides: of the module, and of its plain reading, whose
/// `result` counts as made when its bit count is not 0.
struct PairedCall {
  std::function<result_t(const ComponentSet&, std::span<TestImage* const> given, IQEL** result)>
      module;
  std::function<result_t(std::span<Raster> given, Raster& result)> plain;
  std::string arguments = {};                       ///< in words
  std::optional<operations::MethodCall> call = {};  ///< when it is one of the interfaces
};

/// A call of a method beside its plain reading.
PairedCall Paired(operations::MethodCall call);

/// The same; `images` says which of the given ones the method takes, as in `MethodCall`. Numbers
/// are the method's in their order, a vector of int is a kernel, one of bytes a table.
template <typename... Arguments>
PairedCall CallOn(const std::string& images, std::string_view method, Arguments... arguments) {
  operations::MethodArguments all;
  [[maybe_unused]] const auto add = [&](auto argument) {
    if constexpr (std::is_arithmetic_v<decltype(argument)>) {
      all.numbers.push_back(static_cast<double>(argument));
    } else if constexpr (std::is_same_v<decltype(argument), std::vector<int>>) {
      all.weights = std::move(argument);
    } else if constexpr (std::is_same_v<decltype(argument), std::vector<uint8_t>>) {
      all.table = std::move(argument);
    } else {
      all.map = std::move(argument);
    }
  };
  (add(std::move(arguments)), ...);
  return Paired(operations::MethodCall(method, all, images));
}
/// The images in their order: of pastes the source comes first.
template <typename... Arguments>
PairedCall Call(std::string_view method, Arguments... arguments) {
  return CallOn(method.ends_with("Paste") ? "01" : "", method, std::move(arguments)...);
}

/// A call with the images that it gets.
struct PairedCase {
  std::vector<Raster> inputs;
  PairedCall call;
};

/// What the plain reading makes of a case, beside which any number of modules are put.
class PlainOutcome {
 public:
  explicit PlainOutcome(const PairedCase& paired);

  /// Runs the case on a module. Empty when result code, images, result and references agree; else
  /// what differs.
  std::string Difference(const ComponentSet& components) const;
  /// The same by every method that can, each added to `run`. Nothing is done for images that store
  /// no pixels.
  std::string DifferenceByMethods(const ForcedPlans& plans, std::set<const MethodText*>& run) const;

 private:
  std::string Compared(const ComponentSet& components) const;

  const PairedCase& paired_;
  std::vector<Raster> images_;
  Raster result_;
  result_t code_;
  int next_random_;  ///< both sides must have drawn as many
};

}  // namespace qel::test

#endif  // QEL_TESTS_SUPPORT_PAIRED_CALL_H_
