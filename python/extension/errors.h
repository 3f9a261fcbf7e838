#ifndef QEL_PYTHON_ERRORS_H_
#define QEL_PYTHON_ERRORS_H_

#include <pybind11/pybind11.h>

#include <string>
#include <string_view>

namespace qel::python {

/// Takes over the exception classes that the package defines in Python: `ArgumentError`,
/// `ImageMemoryError`, `FileError`, `CopyWarning` and `NoteWarning` of `module`.
void UseErrorsOf(const pybind11::module_& module);

/// Inside a handler: turns the exception that is handled into one of the package, with the name of
/// the operation unless it knows a better one, and throws it as `pybind11::error_already_set`.
void TranslateErrors(std::string_view operation);

/// Ends a call with an error about one of its arguments: "median: size `message`".
[[noreturn]] void RefuseArgument(std::string_view operation, std::string_view argument,
                                 const std::string& message);

/// An object as Python writes it, for messages: of long ones the beginning.
std::string ReprOf(pybind11::handle object);

/// The text of a `str`. Throws `operations::StepError` for what is none, or has halves of
/// characters, with `wanted`, what the argument takes.
std::string TextOf(pybind11::handle object, std::string_view operation, std::string_view argument,
                   std::string_view wanted);

/// Warns that pixels of `operation` are copied, and why: silent unless the user turned
/// `CopyWarning` on. Throws when warnings are errors.
void WarnOfCopy(std::string_view operation, const std::string& what);

/// The same with a note of an operation and `NoteWarning`.
void WarnOfNote(const std::string& note);

}  // namespace qel::python

#endif  // QEL_PYTHON_ERRORS_H_
