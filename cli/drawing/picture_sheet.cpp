#include "cli/drawing/picture_sheet.h"

#include "cli/drawing/sheet.h"
#include "cli/session/picture_io.h"

namespace qel::cli {

Canvas CanvasOf(const host::HostImage& image) {
  return {image.Bits(), image.stride(), image.width(), image.height()};
}

namespace {

std::vector<SheetCell> CellsOf(const std::vector<CaptionedPicture>& pictures) {
  std::vector<SheetCell> cells;
  for (const auto& [caption, image] : pictures) {
    cells.push_back({caption, image->Bits(), image->stride(), image->width(), image->height()});
  }
  return cells;
}

}  // namespace

SheetSize SizeOfSheet(const std::vector<CaptionedPicture>& pictures, int columns) {
  return MeasureSheet(CellsOf(pictures), columns);
}

SmartPtr<host::HostImage> MakeSheet(const std::vector<CaptionedPicture>& pictures, int columns) {
  const std::vector<SheetCell> cells = CellsOf(pictures);
  const SheetSize size = MeasureSheet(cells, columns);
  SmartPtr<host::HostImage> sheet =
      MakeImage(static_cast<int>(size.width), static_cast<int>(size.height), 32);
  DrawSheet(CanvasOf(*sheet), cells, columns);
  return sheet;
}

}  // namespace qel::cli
