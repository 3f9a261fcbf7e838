#include "cli/drawing/sheet.h"

#include <algorithm>

namespace qel::cli {
namespace {

constexpr int kMargin = 12;
constexpr int kLineHeight = 10;
constexpr size_t kMostLines = 3;
constexpr int kChequer = 8;
// Sixteen letters a line, for captions of very small pictures.
constexpr int kLeastWidth = 96;

/// Lines of at most `letters` bytes, broken at blanks or after commas where there are any. What
/// needs more than a few lines is cut short. Every letter that is not ASCII becomes one box.
std::vector<std::string> CaptionLines(const std::string& caption, size_t letters) {
  std::string text;
  for (const char c : caption) {
    if ((c & 0xC0) != 0x80) text += (c & 0x80) != 0 ? '\x7F' : c;
  }
  std::vector<std::string> lines;
  while (text.size() > letters && lines.size() + 1 < kMostLines) {
    const size_t blank = text.rfind(' ', letters);
    const size_t comma = text.find_last_of(",;", letters - 1);
    const size_t end = blank != text.npos ? blank : comma != text.npos ? comma + 1 : letters;
    lines.push_back(text.substr(0, end));
    text.erase(0, blank != text.npos ? end + 1 : end);
  }
  if (text.size() > letters) text.replace(letters - 2, text.npos, "..");
  lines.push_back(std::move(text));
  return lines;
}

std::vector<std::string> LinesOf(const SheetCell& cell, int width) {
  return CaptionLines(cell.caption,
                      static_cast<size_t>(width) / static_cast<size_t>(Canvas::TextWidth("x")));
}

/// Every column takes the width of the widest picture; captions adapt to it.
int ColumnWidth(const std::vector<SheetCell>& cells) {
  const bool captions =
      std::ranges::any_of(cells, [](const SheetCell& cell) { return !cell.caption.empty(); });
  int width = captions ? kLeastWidth : 1;
  for (const SheetCell& cell : cells) width = std::max(width, cell.width);
  return width;
}

/// A row of cells: the height of its tallest picture, and room for its longest caption.
struct SheetRow {
  int picture = 0;
  int caption = 0;
};

std::vector<SheetRow> RowsOf(const std::vector<SheetCell>& cells, size_t columns, int width) {
  std::vector<SheetRow> rows((cells.size() + columns - 1) / columns);
  for (size_t i = 0; i < cells.size(); ++i) {
    SheetRow& row = rows[i / columns];
    const auto lines = static_cast<int>(LinesOf(cells[i], width).size());
    row.picture = std::max(row.picture, cells[i].height);
    if (!cells[i].caption.empty()) row.caption = std::max(row.caption, kLineHeight * (lines + 1));
  }
  return rows;
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
  const int width = ColumnWidth(cells);
  SheetSize size{kMargin + int64_t{columns} * (width + kMargin), kMargin};
  for (const SheetRow& row : RowsOf(cells, static_cast<size_t>(columns), width)) {
    size.height += row.picture + row.caption + kMargin;
  }
  return size;
}

void DrawSheet(const Canvas& canvas, const std::vector<SheetCell>& cells, int columns) {
  const int width = ColumnWidth(cells);
  const auto per_row = static_cast<size_t>(columns);
  const std::vector<SheetRow> rows = RowsOf(cells, per_row, width);
  for (int y = 0; y < canvas.height(); ++y) {
    for (int x = 0; x < canvas.width(); ++x) canvas.Set(x, y, {1, 1, 1});
  }
  int top = kMargin;
  for (size_t i = 0; i < cells.size(); ++i) {
    const SheetRow& row = rows[i / per_row];
    const int left = kMargin + static_cast<int>(i % per_row) * (width + kMargin);
    DrawCell(canvas, cells[i], left, top);
    int line_top = top + row.picture + 6;
    for (const std::string& line : LinesOf(cells[i], width)) {
      canvas.Text(left, line_top, line, {0.1, 0.1, 0.1});
      line_top += kLineHeight;
    }
    if ((i + 1) % per_row == 0) top += row.picture + row.caption + kMargin;
  }
}

}  // namespace qel::cli
