#ifndef QEL_IMAGE_PIXEL_ACCESS_H_
#define QEL_IMAGE_PIXEL_ACCESS_H_

#include "image/image_view.h"

namespace qel {

// Reading and writing single pixels of a raw buffer. `bits` is row 0, row y starts at y * stride,
// colors are packed (blue in the low byte). Nothing here fails or keeps state; any thread may call
// it on memory that no other thread is writing.

/// The color of pixel (x, y). 32 bits bring their alpha, all other depths reserved byte 0.
/// An empty geometry gives 0, a null buffer black with the outside marker, and a position outside
/// the color of pixel (0, 0) with the outside marker as its reserved byte.
uint32_t GetPixelColor(const uint8_t* bits, int x, int y, int width, int height, int stride,
                       int bpp);

/// Stores `color` at pixel (x, y); palette depths store the nearest gray's low bits. Positions
/// outside are ignored, except that one column and one row past the end are written.
void SetPixelColor(uint8_t* bits, int x, int y, int width, int height, int stride, uint32_t color,
                   int bpp);

/// The color of pixel (x, y) as a blend of two by two pixels with both fractions at zero: the
/// pixel itself, but with alpha 255 at 24 bits and more away from the last column and row.
uint32_t GetBilinearColor(const uint8_t* bits, int x, int y, int width, int height, int stride,
                          int bpp);

/// What stands in for every pixel outside `view`: pixel (0, 0) with the outside marker.
inline uint32_t OutsideColor(const ImageView& view) {
  return GetPixelColor(view.bits, -1, -1, view.width, view.height, view.stride, view.bit_count);
}

}  // namespace qel

#endif  // QEL_IMAGE_PIXEL_ACCESS_H_
