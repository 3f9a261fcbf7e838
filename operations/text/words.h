#ifndef QEL_OPERATIONS_TEXT_WORDS_H_
#define QEL_OPERATIONS_TEXT_WORDS_H_

#include <string>
#include <string_view>

namespace qel::operations {

/// The kebab-case name that an interface's own name stands for: "GrayScale" is gray-scale. Names
/// without capitals come back as they are.
std::string FromInterfaceName(std::string_view name);

/// A name or value with "colour", "centre" and "grey" where it has "color", "center" and "gray".
std::string BritishSpelling(std::string_view word);

/// What to write in place of a word that other tools have for a step, as "resize width=1600"; empty
/// for words that are not known.
std::string_view StepFor(std::string_view word);

/// What to write in place of an argument that an operation does not have and people expect of it,
/// as "resize width=50%" for the width of scale; empty for all others.
std::string_view MeantStep(std::string_view operation, std::string_view argument);

}  // namespace qel::operations

#endif  // QEL_OPERATIONS_TEXT_WORDS_H_
