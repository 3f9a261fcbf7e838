#ifndef QEL_CLI_STEPS_H_
#define QEL_CLI_STEPS_H_

#include <string>
#include <vector>

#include "cli/arguments.h"

namespace qel::cli {

/// One step of a chain: an operation and its checked arguments.
struct Step {
  const Operation* operation;
  Arguments arguments;
  std::string text;  ///< as it was typed, without quotes

  Given AsGiven() const { return {operation->name, arguments}; }
};

/// The operation called `name`. Throws `Failure(kUsage)` with the nearest name.
const Operation& RequireOperation(const std::string& name);

/// Reads the steps from the words of a command line. A word is either a whole step in quotes
/// ("light brightness=30"), the name of an operation, or an argument name=value of the step before.
/// Inside a quoted step, values with blanks stand in single or double quotes.
/// Throws `Failure(kUsage)` that names the step.
std::vector<Step> ParseSteps(const std::vector<std::string>& words);

/// The paths of second pictures in the arguments of the steps, each once.
std::vector<std::string> PicturePaths(const std::vector<Step>& steps);

}  // namespace qel::cli

#endif  // QEL_CLI_STEPS_H_
