// The extension `qel._qel`: what the package's Python is made from and calls.

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "operations/arguments.h"
#include "operations/table.h"
#include "operations/text/python_line.h"
#include "python/extension/call.h"
#include "python/extension/errors.h"
#include "python/extension/files.h"
#include "python/extension/runtime.h"
#include "python/extension/tiles.h"

namespace qel::python {
namespace {

namespace py = pybind11;
using namespace py::literals;
using operations::Operation;
using operations::Parameter;

py::dict Describe(const Parameter& parameter) {
  py::list choices;
  for (const operations::Choice& choice : parameter.choices) {
    choices.append(py::make_tuple(std::string(choice.label), choice.value));
  }
  return py::dict(
      "name"_a = std::string(parameter.name), "python"_a = operations::PythonName(parameter.name),
      "kind"_a = std::string(operations::KindName(parameter.kind)),
      "help"_a = std::string(parameter.help), "values"_a = operations::DescribeValues(parameter),
      "standard"_a = std::string(parameter.standard), "required"_a = parameter.required(),
      "choices"_a = choices);
}

/// The table, for the writer of the package's functions.
py::list Table() {
  py::list rows;
  for (const Operation& operation : operations::OperationTable()) {
    py::list parameters;
    for (const Parameter& parameter : operation.parameters) parameters.append(Describe(parameter));
    const operations::Step step =
        operations::ParseSteps({std::string(operation.PictureStep())}).front();
    const bool keeps_shape =
        operation.result_shape == nullptr && operation.shape_with_second == nullptr;
    py::list channels;
    for (const int bits : {8, 24, 32}) {
      if (operation.WorksOn(bits)) channels.append(bits / 8);
    }
    rows.append(py::dict(
        "name"_a = std::string(operation.name), "python"_a = operations::PythonName(operation.name),
        "component"_a = std::string(operation.component),
        "summary"_a = std::string(operation.summary), "note"_a = operation.Caveats(),
        "in_place"_a = operation.in_place, "keeps_shape"_a = keeps_shape, "channels"_a = channels,
        "order"_a = std::string(operations::NameOf(operation.channel_order)),
        "step"_a = std::string(operation.PictureStep()), "example"_a = operations::PythonLine(step),
        "parameters"_a = parameters));
  }
  return rows;
}

constexpr Py_ssize_t kLeadingArguments = 5;

/// (row, image, out, order, map, *values) of `call` and `border`.
FunctionCall ReadCall(PyObject* const* arguments, Py_ssize_t count) {
  const auto& table = operations::OperationTable();
  const size_t row = count < kLeadingArguments ? table.size() : PyLong_AsSize_t(arguments[0]);
  if (row >= table.size() ||
      count != kLeadingArguments + static_cast<Py_ssize_t>(table[row].parameters.size())) {
    PyErr_Clear();
    throw py::type_error("the functions of this package do not fit its extension");
  }
  return {table[row],   arguments[1],
          arguments[2], arguments[3],
          arguments[4], {arguments + kLeadingArguments, table[row].parameters.size()}};
}

/// A function for the interpreter, which knows nothing of C++ exceptions.
template <auto kRun>
PyObject* Function(PyObject* /*self*/, PyObject* const* arguments, Py_ssize_t count) {
  try {
    return kRun(ReadCall(arguments, count)).release().ptr();
  } catch (py::error_already_set& error) {
    error.restore();
  } catch (const py::builtin_exception& error) {
    error.set_error();
  } catch (const std::exception& error) {
    PyErr_SetString(PyExc_RuntimeError, error.what());
  }
  return nullptr;
}

/// Without the general machinery, which costs more than small operations do.
template <auto kRun>
void AddFunction(py::module_& module, const char* name) {
  static PyMethodDef method = {
      name, reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(&Function<kRun>)),
      METH_FASTCALL, nullptr};
  module.attr(name) = py::reinterpret_steal<py::object>(
      PyCFunction_NewEx(&method, nullptr, py::str("qel._qel").release().ptr()));
}

}  // namespace
}  // namespace qel::python

PYBIND11_MODULE(_qel, module) {
  using namespace qel::python;
  module.doc() = "What the package qel is made from; use the package.";
  module.def("load", &Runtime::Load);
  module.def("use_errors_of", &UseErrorsOf);
  module.def("table", &Table);
  AddFunction<&RunFunction>(module, "call");
  AddFunction<&BorderOf>(module, "border");
  module.def("blocks", &CutIntoBlocks);
  AddFileFunctions(module);
}
