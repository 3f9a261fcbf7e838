#ifndef QEL_PYTHON_ERRORS_H_
#define QEL_PYTHON_ERRORS_H_

#include <pybind11/pybind11.h>

#include <string>
#include <string_view>

namespace qel::python {

/// Takes over the exception classes that the package defines in Python: `ArgumentError`,
/// `ImageMemoryError`, `FileError`, `CopyWarning` and `NoteWarning` of `module`.
void UseErrorsOf(const pybind11::module_& module);

/// Runs `body` and turns every C++ exception into an exception of the package, with the name of the
/// operation unless the exception knows a better one. Throws `pybind11::error_already_set`.
void TranslateErrors(std::string_view operation);

/// Ends a call with an error about one of its arguments: "median: size `message`".
[[noreturn]] void RefuseArgument(std::string_view operation, std::string_view argument,
                                 const std::string& message);

/// An object as Python writes it, for messages.
std::string ReprOf(pybind11::handle object);

/// Warns that pixels of `operation` are copied, and why: silent unless the user turned
/// `CopyWarning` on. Throws when warnings are errors.
void WarnOfCopy(std::string_view operation, const std::string& what);

/// The same with a note of an operation and `NoteWarning`.
void WarnOfNote(const std::string& note);

}  // namespace qel::python

#endif  // QEL_PYTHON_ERRORS_H_
