#ifndef QEL_OPERATIONS_TEXT_NUMBERS_H_
#define QEL_OPERATIONS_TEXT_NUMBERS_H_

#include <string>
#include <string_view>

namespace qel::operations {

/// Reads a whole text as a real number with a decimal point, whatever the locale. False, and
/// `value` as it was, for anything else.
bool ParseReal(std::string_view text, double& value);

/// A number in as few digits as read back to it.
std::string FormatReal(double value);

}  // namespace qel::operations

#endif  // QEL_OPERATIONS_TEXT_NUMBERS_H_
