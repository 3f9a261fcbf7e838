#include "cli/sheet.h"

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

std::vector<std::string> LinesOf(const SheetCell& cell, const SheetSize& size) {
  return CaptionLines(
      cell.caption, static_cast<size_t>(size.width) / static_cast<size_t>(Canvas::TextWidth("x")));
}

/// Every cell takes the room of the largest picture; captions adapt to it.
SheetSize CellSize(const std::vector<SheetCell>& cells) {
  SheetSize size{kLeastWidth, 0};
  for (const SheetCell& cell : cells) {
    size.width = std::max(size.width, cell.width);
    size.height = std::max(size.height, cell.height);
  }
  return size;
}

/// Room for the caption with the most lines.
int CaptionHeight(const std::vector<SheetCell>& cells, const SheetSize& size) {
  size_t most = 1;
  for (const SheetCell& cell : cells) most = std::max(most, LinesOf(cell, size).size());
  return kLineHeight * (static_cast<int>(most) + 1);
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
          kMargin + rows * (cell.height + CaptionHeight(cells, cell) + kMargin)};
}

void DrawSheet(const Canvas& canvas, const std::vector<SheetCell>& cells, int columns) {
  const SheetSize size = CellSize(cells);
  const int step = size.height + CaptionHeight(cells, size) + kMargin;
  for (int y = 0; y < canvas.height(); ++y) {
    for (int x = 0; x < canvas.width(); ++x) canvas.Set(x, y, {1, 1, 1});
  }
  for (size_t i = 0; i < cells.size(); ++i) {
    const int column = static_cast<int>(i) % columns;
    const int row = static_cast<int>(i) / columns;
    const int left = kMargin + column * (size.width + kMargin);
    const int top = kMargin + row * step;
    DrawCell(canvas, cells[i], left, top);
    int line_top = top + size.height + 6;
    for (const std::string& line : LinesOf(cells[i], size)) {
      canvas.Text(left, line_top, line, {0.1, 0.1, 0.1});
      line_top += kLineHeight;
    }
  }
}

}  // namespace qel::cli
