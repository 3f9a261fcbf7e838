#ifndef QEL_OPERATIONS_TEXT_CPP_LINE_H_
#define QEL_OPERATIONS_TEXT_CPP_LINE_H_

#include <string>

#include "operations/steps.h"

namespace qel::operations {

/// The call of the interface that does what a step does: "filter->Median(image, 5, result);". Empty
/// for operations that one method does not carry out alone.
std::string CppLine(const Step& step);

}  // namespace qel::operations

#endif  // QEL_OPERATIONS_TEXT_CPP_LINE_H_
