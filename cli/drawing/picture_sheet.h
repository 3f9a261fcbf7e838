#ifndef QEL_CLI_DRAWING_PICTURE_SHEET_H_
#define QEL_CLI_DRAWING_PICTURE_SHEET_H_

#include <string>
#include <vector>

#include "cli/drawing/sheet.h"
#include "host/host_image.h"

namespace qel::cli {

/// Draws on the pixels of a 32-bit image.
Canvas CanvasOf(const host::HostImage& image);

/// A picture of a sheet with what stands below it.
struct CaptionedPicture {
  std::string caption;
  SmartPtr<host::HostImage> image;  ///< 32 bits
};

/// Size of the sheet that `MakeSheet` would make.
SheetSize SizeOfSheet(const std::vector<CaptionedPicture>& pictures, int columns);

/// The pictures in rows of `columns` on one new picture. Throws `Failure(kModuleFault)`.
SmartPtr<host::HostImage> MakeSheet(const std::vector<CaptionedPicture>& pictures, int columns);

}  // namespace qel::cli

#endif  // QEL_CLI_DRAWING_PICTURE_SHEET_H_
