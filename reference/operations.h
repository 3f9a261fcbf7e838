#ifndef QEL_REFERENCE_OPERATIONS_H_
#define QEL_REFERENCE_OPERATIONS_H_

#include <cstdint>
#include <functional>

#include "reference/raster.h"

/// Plain readings of all operations: one pixel at a time, in the order of the definition. Arguments
/// are not checked for null; tests of null arguments stand on their own.
namespace qel::reference {

// Colors.

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

// Filters.

result_t Filter(const Raster& source, const int* kernel, int size, int divisor, int offset,
                Raster& result);
result_t Kernel(const Raster& source, const int16_t* kernel, int size, int divisor, int offset,
                Raster& result);
result_t Emboss(const Raster& source, Raster& result);
result_t Blur(const Raster& source, Raster& result);
result_t Soften(const Raster& source, Raster& result);
result_t Sharpen(const Raster& source, Raster& result);
result_t GaussianBlur(const Raster& source, int level, Raster& result);

result_t Erode(const Raster& source, int size, Raster& result);
result_t Dilate(const Raster& source, int size, Raster& result);
result_t Edge(const Raster& source, int size, Raster& result);
result_t Contour(const Raster& source, Raster& result);
result_t Median(const Raster& source, int size, Raster& result);

/// The random filters draw from `rand`.
result_t Noise(const Raster& source, int amount, Raster& result);
result_t Jitter(const Raster& source, int amount, Raster& result);

// Sampling at fractional positions of a raw buffer.
float BesselOrder1(float x);
uint32_t Interpolated(const uint8_t* bits, float x, float y, int width, int height, int stride,
                      int method, int bpp);

// Orientation and depth.
result_t Flip(const Raster& source, Raster& result);
result_t Mirror(const Raster& source, Raster& result);
result_t FlipBits(Raster& image);
result_t FlipImageAndBits(Raster& image);
result_t Rotate4(const Raster& source, Raster& dest, int angle);
result_t IncreaseBpp(const Raster& source, Raster& result, int bit_count, uint32_t model);

// Resampling and rotation.
result_t Resample(const Raster& source, Raster& result, int new_width, int new_height, int method,
                  int nearest_only);
result_t Rotate(const Raster& source, Raster& result, int angle, int method, int force_alpha,
                int keep_size);
result_t RotatePaste(const Raster& source, Raster& target, double angle, int method, int key);

// Warps.
result_t Skew(const Raster& source, Raster& result, float x_gain, float y_gain, int x_pivot,
              int y_pivot, int unused, int force_alpha);
struct Corners {
  double x1, y1, x2, y2, x3, y3, x4, y4;
};
result_t Quad(const Raster& source, Raster& result, const Corners& corners, uint32_t new_width,
              uint32_t new_height, int16_t blend);
using PointTransform = std::function<void(double& x, double& y)>;
result_t Transform(const PointTransform& transform, const Raster& source, Raster& result,
                   int x_offset, int y_offset, uint32_t new_width, uint32_t new_height);
result_t TransformPaste(const PointTransform& transform, const Raster& source, Raster& target,
                        int x_offset, int y_offset, int16_t fill_voids);
result_t FillVoids(Raster& image);
result_t CircleTransform(Raster& image, int mode, int with_alpha, float factor);

// Mathematics. Planes of which an image taking part has no pixels are left out. `dest` may be one
// of the images that are read.

result_t CreateDestImage(const Raster& model, int bit_count, int color_model, Raster& result);
/// Only the identity of `mask` matters.
result_t Copy(Raster& dest, const Raster& source, const Raster* mask, int x, int y);

result_t Add(Raster& dest, const Raster& a, const Raster& b, float divisor);
result_t Subtract(Raster& dest, const Raster& a, const Raster& b, int flags);
result_t AddScale(Raster& dest, const Raster& a, const Raster& b, const Raster* mask,
                  float factor_a, float factor_b, float offset);

result_t Scale(Raster& dest, const Raster& source, const Raster* mask, float factor, float offset);
result_t Scale8(Raster& dest, const Raster& source, int offset, double factor);
result_t Equal(Raster& image, const Raster* mask, int value);

}  // namespace qel::reference

#endif  // QEL_REFERENCE_OPERATIONS_H_
