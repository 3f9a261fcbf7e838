#ifndef QEL_REFERENCE_FILTER_H_
#define QEL_REFERENCE_FILTER_H_

#include <cstdint>

#include "reference/raster.h"

namespace qel::test::oracle {

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

}  // namespace qel::test::oracle

#endif  // QEL_REFERENCE_FILTER_H_
