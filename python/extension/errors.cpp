#include "python/extension/errors.h"

#include <new>

#include "operations/errors.h"
#include "pictures/picture_error.h"

namespace qel::python {
namespace {

namespace py = pybind11;

/// References for the life of the process: exceptions may be raised until the very end of it.
struct Classes {
  PyObject* argument_error = nullptr;
  PyObject* memory_error = nullptr;
  PyObject* file_error = nullptr;
  PyObject* copy_warning = nullptr;
  PyObject* note_warning = nullptr;
};
Classes& KnownClasses() {
  static Classes classes;
  return classes;
}

/// A message, in which bytes of file names that are not UTF-8 stand as Python has them in names.
py::object MessageFrom(std::string_view text) {
  return py::reinterpret_steal<py::object>(
      PyUnicode_DecodeFSDefaultAndSize(text.data(), static_cast<Py_ssize_t>(text.size())));
}

[[noreturn]] void Raise(PyObject* type, const std::string& message, std::string_view operation,
                        std::string_view argument, py::object code) {
  const py::object error = py::reinterpret_borrow<py::object>(type)(MessageFrom(message));
  const auto text = [](std::string_view name) -> py::object {
    if (name.empty()) return py::none();
    return py::str(name.data(), name.size());
  };
  error.attr("operation") = text(operation);
  error.attr("argument") = text(argument);
  error.attr("code") = std::move(code);
  PyErr_SetObject(type, error.ptr());
  throw py::error_already_set();
}

void Warn(PyObject* category, const std::string& message) {
  const py::object text = MessageFrom(message);
  if (PyErr_WarnFormat(category, 2, "%U", text.ptr()) < 0) throw py::error_already_set();
}

}  // namespace

void UseErrorsOf(const py::module_& module) {
  const auto take = [&](const char* name) {
    return module.attr(name).cast<py::object>().release().ptr();
  };
  KnownClasses() = {take("ArgumentError"), take("ImageMemoryError"), take("FileError"),
                    take("CopyWarning"), take("NoteWarning")};
}

void TranslateErrors(std::string_view operation) {
  const Classes& known = KnownClasses();
  try {
    throw;
  } catch (const py::error_already_set&) {
    throw;
  } catch (const operations::StepError& error) {
    Raise(known.argument_error, error.what(),
          error.operation().empty() ? operation : error.operation(), error.argument(), py::none());
  } catch (const operations::CallError& error) {
    Raise(known.argument_error, error.what(), error.operation(), {},
          py::int_(static_cast<uint32_t>(error.code())));
  } catch (const pictures::PictureError& error) {
    Raise(known.file_error, error.what(), operation, {}, py::none());
  } catch (const std::bad_alloc&) {
    Raise(known.memory_error, std::string(operation) + ": there is not enough memory", operation,
          {}, py::none());
  } catch (const std::exception& error) {
    PyErr_SetObject(PyExc_RuntimeError, MessageFrom(error.what()).ptr());
    throw py::error_already_set();
  }
}

void RefuseArgument(std::string_view operation, std::string_view argument,
                    const std::string& message) {
  throw operations::StepError(std::string(operation) + ": " + std::string(argument) + " " + message,
                              operation, argument);
}

std::string ReprOf(py::handle object) {
  constexpr Py_ssize_t kLongest = 80;
  const auto text = py::reinterpret_steal<py::object>(PyObject_ASCII(object.ptr()));
  if (!text) {
    PyErr_Clear();  // numbers of thousands of digits, and classes that cannot be written
    return "an object of " + std::string(Py_TYPE(object.ptr())->tp_name);
  }
  const std::string repr = text.cast<std::string>();
  return repr.size() <= kLongest ? repr : repr.substr(0, kLongest - 3) + "...";
}

std::string TextOf(py::handle object, std::string_view operation, std::string_view argument,
                   std::string_view wanted) {
  Py_ssize_t size = 0;
  const char* const text =
      PyUnicode_Check(object.ptr()) ? PyUnicode_AsUTF8AndSize(object.ptr(), &size) : nullptr;
  if (text != nullptr) return {text, static_cast<size_t>(size)};
  PyErr_Clear();
  RefuseArgument(operation, argument, "takes " + std::string(wanted) + ", not " + ReprOf(object));
}

void WarnOfCopy(std::string_view operation, const std::string& what) {
  Warn(KnownClasses().copy_warning, std::string(operation) + ": " + what);
}

void WarnOfNote(const std::string& note) { Warn(KnownClasses().note_warning, note); }

}  // namespace qel::python
