#ifndef QEL_PICTURES_EXIF_H_
#define QEL_PICTURES_EXIF_H_

#include <vector>

#include "pictures/byte_reader.h"
#include "pictures/picture_file.h"

namespace qel::pictures {

/// What matters here of an EXIF block.
struct Exif {
  int orientation = 1;  ///< 1 to 8
  double dpi_x = 0;     ///< 0 when unknown
  double dpi_y = 0;
};

/// Reads a block with or without its "Exif" prefix. Damaged blocks count as absent.
Exif ParseExif(Bytes block);

/// A block, without prefix, that states a resolution.
std::vector<uint8_t> MakeExif(double dpi_x, double dpi_y);

}  // namespace qel::pictures

#endif  // QEL_PICTURES_EXIF_H_
