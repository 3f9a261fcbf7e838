#ifndef QEL_CLI_DRAWING_SHEET_H_
#define QEL_CLI_DRAWING_SHEET_H_

#include <functional>
#include <string>
#include <vector>

#include "cli/drawing/canvas.h"

namespace qel::cli {

/// One picture of a sheet: 32-bit pixels and what stands below them.
struct SheetCell {
  std::string caption;
  const uint8_t* bits;
  int64_t stride;
  int width;
  int height;
};

/// Pixels of a sheet, more than there may be.
struct SheetSize {
  int64_t width;
  int64_t height;
};
/// The size of a sheet with the cells in rows of `columns`, at least 1.
SheetSize MeasureSheet(const std::vector<SheetCell>& cells, int columns);

/// Draws the cells with their captions, without room for them when all are empty; transparency
/// shows as a chequered ground. `canvas` has the size that `MeasureSheet` gives.
void DrawSheet(const Canvas& canvas, const std::vector<SheetCell>& cells, int columns);

}  // namespace qel::cli

#endif  // QEL_CLI_DRAWING_SHEET_H_
