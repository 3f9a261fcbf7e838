#include "python/extension/tiles.h"

#include "operations/bands/band_plan.h"

namespace qel::python {
namespace {

namespace py = pybind11;

}  // namespace

py::list CutIntoBlocks(int rows, std::optional<int> columns, const std::vector<int>& heights,
                       const std::vector<int>& widths) {
  const auto slices = [](operations::RowRange y, operations::RowRange x) {
    return py::make_tuple(py::slice(y.begin, y.end, 1), py::slice(x.begin, x.end, 1));
  };
  const operations::Border border{rows, columns.value_or(operations::Border::kAll)};
  py::list blocks;
  for (const operations::Block& block : operations::CutIntoBlocks(border, heights, widths)) {
    const int top = block.source_rows.begin, left = block.source_columns.begin;
    blocks.append(py::make_tuple(slices(block.rows, block.columns),
                                 slices(block.source_rows, block.source_columns),
                                 slices({block.rows.begin - top, block.rows.end - top},
                                        {block.columns.begin - left, block.columns.end - left}),
                                 block.needs_corner));
  }
  return blocks;
}

}  // namespace qel::python
