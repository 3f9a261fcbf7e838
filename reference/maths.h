#ifndef QEL_REFERENCE_MATHS_H_
#define QEL_REFERENCE_MATHS_H_

#include "reference/raster.h"

/// Planes of which an image taking part has no pixels are left out. `dest` may be one of the
/// images that are read.
namespace qel::test::oracle {

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

}  // namespace qel::test::oracle

#endif  // QEL_REFERENCE_MATHS_H_
