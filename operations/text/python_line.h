#ifndef QEL_OPERATIONS_TEXT_PYTHON_LINE_H_
#define QEL_OPERATIONS_TEXT_PYTHON_LINE_H_

#include <string>

#include "operations/steps.h"

namespace qel::operations {

/// The name of an operation or of a parameter in the Python package: "gaussian_blur"; what is
/// called "with" in a step, a word of the language, is "other".
std::string PythonName(std::string_view name);

/// The call of the Python package that does what a step does: "qel.median(image, size=5)". Second
/// pictures are variables named like their files; arguments at their default are left out.
std::string PythonLine(const Step& step);

/// The same for a chain, a line for each step, which gives a new `image`; before them those that
/// read the second pictures.
std::vector<std::string> PythonLines(const std::vector<Step>& steps);

}  // namespace qel::operations

#endif  // QEL_OPERATIONS_TEXT_PYTHON_LINE_H_
