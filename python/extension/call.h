#ifndef QEL_PYTHON_CALL_H_
#define QEL_PYTHON_CALL_H_

#include <pybind11/pybind11.h>

#include <span>

#include "operations/operation.h"

namespace qel::python {

/// The arguments of a function of the package.
struct FunctionCall {
  const operations::Operation& operation;
  pybind11::handle image;
  pybind11::handle out;               ///< None: a new array
  pybind11::handle order;             ///< "rgb" or "bgr"
  pybind11::handle map;               ///< the caller's coordinate transform, or None
  std::span<PyObject* const> values;  ///< of the parameters, in their order; None: left out
};

/// Runs one operation on arrays and returns the array with the result. Nothing is written before
/// all arguments are checked. Throws what `TranslateErrors` knows.
pybind11::object RunFunction(const FunctionCall& call);

/// The rows and columns of neighbours that a pixel depends on, None for all, as a pair; the same
/// arguments as of a call.
pybind11::tuple BorderOf(const FunctionCall& call);

}  // namespace qel::python

#endif  // QEL_PYTHON_CALL_H_
