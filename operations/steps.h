#ifndef QEL_OPERATIONS_STEPS_H_
#define QEL_OPERATIONS_STEPS_H_

#include <functional>
#include <string>
#include <vector>

#include "operations/arguments.h"

namespace qel::operations {

/// One step of a chain: an operation and its checked arguments.
struct Step {
  const Operation* operation;
  Arguments arguments;
  std::string text;  ///< as it was typed, without quotes

  Given AsGiven() const { return {operation->name, arguments}; }
};

/// The content of a text file that an argument names.
using ReadText = std::function<std::string(const std::string& path)>;

/// Reads the steps from the words of a command line. A word is either a whole step in quotes
/// ("light brightness=30"), the name of an operation, or an argument name=value of the step before;
/// a number right after the operation's name stands for its `Positional` parameter.
/// Inside a quoted step, values with blanks stand in single or double quotes. `read` gets the paths
/// of text files and may throw; without it they are refused.
/// Throws `StepError` that names the step.
std::vector<Step> ParseSteps(const std::vector<std::string>& words, const ReadText& read = {});

/// What is to be told about steps on a picture of this shape before they run, each under the name
/// of its step.
std::vector<std::string> SurprisesOf(const std::vector<Step>& steps, Shape shape);

/// The names of second pictures in the arguments of the steps, each once.
std::vector<std::string> PictureNames(const std::vector<Step>& steps);

}  // namespace qel::operations

#endif  // QEL_OPERATIONS_STEPS_H_
