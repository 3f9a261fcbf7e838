#ifndef QEL_TESTS_SUPPORT_PAIRED_OPERATIONS_H_
#define QEL_TESTS_SUPPORT_PAIRED_OPERATIONS_H_

#include <functional>
#include <string>
#include <vector>

#include "tests/support/paired_call.h"

namespace qel::test {

/// An operation with drawn images and arguments, for tests that compare all of them in one way.
struct PairedOperation {
  std::string component;  ///< the folder that it stands in
  std::string name;
  std::function<PairedCase(Rng& rng)> draw;
};

/// Every operation of the five interfaces.
const std::vector<PairedOperation>& PairedOperations();

/// A kernel of any kind that convolution goes its own way for: narrow and wide weights, sparse
/// ones, products of a column and a row, equal weights.
std::vector<int> AnyKernel(Rng& rng, int size);
/// The sum of the weights, or anything else.
int AnyDivisor(Rng& rng, const std::vector<int>& kernel);

}  // namespace qel::test

#endif  // QEL_TESTS_SUPPORT_PAIRED_OPERATIONS_H_
