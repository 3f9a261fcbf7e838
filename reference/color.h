#ifndef QEL_REFERENCE_COLOR_H_
#define QEL_REFERENCE_COLOR_H_

#include <cstdint>

#include "reference/raster.h"

namespace qel::test::oracle {

result_t Lut(Raster& image, const uint8_t* table);
result_t Light(Raster& image, int brightness, int contrast);
result_t Gamma(Raster& image, float gamma);
result_t Negative(Raster& image);
result_t ShiftRGB(Raster& image, int red, int green, int blue);
result_t GrayScale(Raster& image);
result_t Threshold(Raster& image, int level);

result_t SetImageAlpha(Raster& image, int alpha, int unused);
result_t SetImageTransparentPixel(Raster& image, uint32_t key);
result_t SetImageAlphaTransparency(Raster& image, int alpha, uint32_t key);

result_t Colorize(Raster& image, uint8_t hue, uint8_t saturation, float blend);

}  // namespace qel::test::oracle

#endif  // QEL_REFERENCE_COLOR_H_
