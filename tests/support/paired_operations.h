#ifndef QEL_TESTS_SUPPORT_PAIRED_OPERATIONS_H_
#define QEL_TESTS_SUPPORT_PAIRED_OPERATIONS_H_

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "tests/support/operation_calls.h"
#include "tests/support/test_host.h"

namespace qel::test {

/// One call with drawn images and arguments, for the module and for its plain reading.
struct PairedCase {
  std::vector<Raster> inputs;
  std::function<result_t(const ComponentSet&, std::span<TestImage* const> images, IQEL** result)>
      module;
  std::function<result_t(std::span<Raster> images, Raster& result)> oracle;
};

/// Every operation of the five interfaces, for tests that compare them all in one way.
struct PairedOperation {
  std::string name;
  std::function<PairedCase(Rng& rng)> draw;
};
const std::vector<PairedOperation>& PairedOperations();

/// Runs both sides of a case. Empty when result code, images, result and references agree; else
/// what differs.
std::string CompareCase(const PairedCase& paired, const ComponentSet& components);

}  // namespace qel::test

#endif  // QEL_TESTS_SUPPORT_PAIRED_OPERATIONS_H_
