#include "tests/support/module_under_test.h"
#include "tests/support/paired_operations.h"

namespace qel::test {
namespace {

class OneResult : public OperationTest {};
QEL_INSTANTIATE_LEVELS(OneResult);

TEST_P(OneResult, EveryOperationAgreesWithItsPlainReading) {
  constexpr int kCases = 150;
  for (const PairedOperation& operation : PairedOperations()) {
    for (int i = 0; i < kCases; ++i) {
      Rng rng(static_cast<uint64_t>(i) + 1000);
      const std::string difference = CompareCase(operation.draw(rng), *module_);
      EXPECT_EQ(difference, "") << operation.name << ", seed " << i + 1000;
      if (!difference.empty()) break;
    }
  }
}

}  // namespace
}  // namespace qel::test
