#ifndef QEL_REFERENCE_TRANSFORM_H_
#define QEL_REFERENCE_TRANSFORM_H_

#include <functional>

#include "reference/raster.h"

namespace qel::test::oracle {

// Plain readings of the geometric operations: one pixel at a time, in the order of the definition.
// Arguments are not checked for null; tests of null arguments stand on their own.

// Sampling at fractional positions of a raw buffer.
float BesselOrder1(float x);
float KernelWeight(int method, float t);
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

}  // namespace qel::test::oracle

#endif  // QEL_REFERENCE_TRANSFORM_H_
