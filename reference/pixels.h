#ifndef QEL_REFERENCE_PIXELS_H_
#define QEL_REFERENCE_PIXELS_H_

#include <cstdint>

#include "reference/raster.h"

/// Slow readings of what the operations do, one pixel at a time. They share no code with the
/// module. In-place operations change `image`; others create `result` or write `dest`.
namespace qel::reference {

/// Colours are packed: blue in the low byte, then green, red and alpha.
uint32_t Pack(int blue, int green, int red, int alpha);
/// Byte `index` of a packed colour: 0 blue, 1 green, 2 red, 3 alpha.
int Channel(uint32_t color, int index);

/// Truncates toward zero; the lowest integer for NaN and for what does not fit.
int TruncateToInt(double value);
int ClampToByte(int64_t value);
/// Sum and product modulo 2^32.
int WrappedSum(int a, int b);
int WrappedProduct(int a, int b);

/// A 32-bit word at any address.
int32_t LoadWord(const uint8_t* at);
void StoreWord(uint8_t* at, int32_t word);

/// Index of the nearest entry of the grey ramp, the lowest among equals.
int NearestIndex(uint32_t color);

uint32_t GetPixelColor(const uint8_t* bits, int x, int y, int width, int height, int stride,
                       int bit_count);

/// The same of an image.
uint32_t PixelOf(const Raster& image, int64_t x, int64_t y);
void SetPixelOf(Raster& image, int x, int y, uint32_t color);
/// Calls `visit(x, y)` for every pixel, row by row.
template <typename Visit>
void ForEachPixel(const Raster& image, Visit visit) {
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) visit(x, y);
  }
}
/// `Create` in the shape of another image.
bool CreateLike(const Raster& source, Raster& result);

}  // namespace qel::reference

#endif  // QEL_REFERENCE_PIXELS_H_
