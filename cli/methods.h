#ifndef QEL_CLI_METHODS_H_
#define QEL_CLI_METHODS_H_

#include "cli/operation.h"

namespace qel::cli {

/// The sixteen interpolation methods by name, in the order of their numbers.
std::span<const Choice> InterpolationMethods();

}  // namespace qel::cli

#endif  // QEL_CLI_METHODS_H_
