#ifndef QEL_PYTHON_FILES_H_
#define QEL_PYTHON_FILES_H_

#include <pybind11/pybind11.h>

namespace qel::python {

/// Adds the functions that read and write picture files to `module`.
void AddFileFunctions(pybind11::module_& module);

}  // namespace qel::python

#endif  // QEL_PYTHON_FILES_H_
