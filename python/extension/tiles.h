#ifndef QEL_PYTHON_TILES_H_
#define QEL_PYTHON_TILES_H_

#include <pybind11/pybind11.h>

#include <optional>
#include <vector>

namespace qel::python {

/// Cuts an array, as high as the sum of `heights` and as wide as the sum of `widths`, into blocks
/// for an operation that looks `rows` up and down and `columns`, or whole rows without a number, to
/// both sides. A block is a tuple: its rows and columns, those that it is made of, where it lies
/// among these, each as a pair of slices, and whether the first pixel that it is made of must
/// become that of the array.
pybind11::list CutIntoBlocks(int rows, std::optional<int> columns, const std::vector<int>& heights,
                             const std::vector<int>& widths);

}  // namespace qel::python

#endif  // QEL_PYTHON_TILES_H_
