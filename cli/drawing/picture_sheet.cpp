#include "cli/drawing/picture_sheet.h"

#include "cli/batch/picture_io.h"
#include "cli/drawing/sheet.h"

namespace qel::cli {

Canvas CanvasOf(const host::HostImage& image) {
  return {image.Bits(), image.stride(), image.width(), image.height()};
}

SmartPtr<host::HostImage> MakeSheet(const std::vector<CaptionedPicture>& pictures, int columns) {
  std::vector<SheetCell> cells;
  for (const auto& [caption, image] : pictures) {
    cells.push_back({caption, image->Bits(), image->stride(), image->width(), image->height()});
  }
  const SheetSize size = MeasureSheet(cells, columns);
  SmartPtr<host::HostImage> sheet = MakeImage(size.width, size.height, 32);
  DrawSheet(CanvasOf(*sheet), cells, columns);
  return sheet;
}

}  // namespace qel::cli
