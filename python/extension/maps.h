#ifndef QEL_PYTHON_MAPS_H_
#define QEL_PYTHON_MAPS_H_

#include <pybind11/pybind11.h>

#include <string_view>

#include "qel/smart_ptr.h"
#include "qel/transform.h"

namespace qel::python {

/// A coordinate transform made of what a caller gave: a function of x and y that returns both, or
/// an array of shape (h, w, 2) with the x and y of every pixel.
struct CallerMap {
  SmartPtr<ITransform> transform;
  bool calls_python = false;  ///< the interpreter must stay locked
  int width = 0;              ///< of an array, else 0
  int height = 0;

  /// Throws what a function raised. Call it after the operation.
  void Check() const;
};

/// Throws `operations::StepError` for anything else.
CallerMap MakeCallerMap(pybind11::handle object, std::string_view operation);

}  // namespace qel::python

#endif  // QEL_PYTHON_MAPS_H_
