#include "cli/sheet.h"

#include <algorithm>

namespace qel::cli {
namespace {

constexpr int kMargin = 12;
constexpr int kCaptionHeight = 20;
constexpr int kChequer = 8;

/// Every cell takes the room of the largest.
SheetSize CellSize(const std::vector<SheetCell>& cells) {
  SheetSize size{0, 0};
  for (const SheetCell& cell : cells) {
    size.width = std::max({size.width, cell.width, Canvas::TextWidth(cell.caption)});
    size.height = std::max(size.height, cell.height);
  }
  return size;
}

void DrawCell(const Canvas& canvas, const SheetCell& cell, int left, int top) {
  for (int y = 0; y < cell.height; ++y) {
    for (int x = 0; x < cell.width; ++x) {
      const double ground = (x / kChequer + y / kChequer) % 2 == 0 ? 0.80 : 0.92;
      const uint8_t* const pixel = cell.bits + y * cell.stride + int64_t{4} * x;
      canvas.Set(left + x, top + y, {ground, ground, ground});
      canvas.Over(left + x, top + y,
                  {pixel[2] / 255.0, pixel[1] / 255.0, pixel[0] / 255.0, pixel[3] / 255.0});
    }
  }
}

}  // namespace

SheetSize MeasureSheet(const std::vector<SheetCell>& cells, int columns) {
  const SheetSize cell = CellSize(cells);
  const int rows = (static_cast<int>(cells.size()) + columns - 1) / columns;
  return {kMargin + columns * (cell.width + kMargin),
          kMargin + rows * (cell.height + kCaptionHeight + kMargin)};
}

void DrawSheet(const Canvas& canvas, const std::vector<SheetCell>& cells, int columns) {
  const SheetSize size = CellSize(cells);
  for (int y = 0; y < canvas.height(); ++y) {
    for (int x = 0; x < canvas.width(); ++x) canvas.Set(x, y, {1, 1, 1});
  }
  for (size_t i = 0; i < cells.size(); ++i) {
    const int column = static_cast<int>(i) % columns;
    const int row = static_cast<int>(i) / columns;
    const int left = kMargin + column * (size.width + kMargin);
    const int top = kMargin + row * (size.height + kCaptionHeight + kMargin);
    DrawCell(canvas, cells[i], left, top);
    canvas.Text(left, top + size.height + 6, cells[i].caption, {0.1, 0.1, 0.1});
  }
}

}  // namespace qel::cli
