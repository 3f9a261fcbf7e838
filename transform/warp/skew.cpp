#include <algorithm>

#include "component/result_image.h"
#include "image/numeric.h"
#include "transform/image_transform.h"
#include "transform/warp/nearest_copy.h"

namespace qel {

result_t CQELImageTransform::Skew(IQEL* source, IQEL** result, float x_gain, float y_gain,
                                  int x_pivot, int y_pivot, int /*reserved*/, int force_alpha) {
  if (source == nullptr) return kFail;
  if (result == nullptr) return kNullOutput;
  const bool opaque = force_alpha != 0;
  const ImageView view = ReadView(*source);
  ResultImage output = ResultImage::FromCollection();
  if (!output) return kFail;
  ImageShape shape = view;
  if (opaque) {
    shape.bit_count = 32;
    shape.model = kModelArgb;
  }
  output.Create(shape);
  const ImageView dest = output.View();
  // A pivot at column or row 0 cannot be asked for: 0 is the centre.
  const int pivot_x = x_pivot == 0 ? view.width / 2 : x_pivot;
  const int pivot_y = y_pivot == 0 ? view.height / 2 : y_pivot;
  ColorCopy copy(view, dest, opaque);
  const WarpKernels& kernels = ActiveWarpKernels();
  for (int y = 0; dest.HasPixels() && y < dest.height; ++y) {
    ShearRow row = {.first_x = 0,
                    .pivot_x = pivot_x,
                    .y = static_cast<float>(y),
                    .shift_x = static_cast<float>(WrapSubtract(y, pivot_y)) * x_gain,
                    .gain_y = y_gain};
    int32_t sx[kWarpTile];
    int32_t sy[kWarpTile];
    for (int64_t x = 0; x < dest.width; x += kWarpTile) {
      const auto count = static_cast<size_t>(std::min<int64_t>(kWarpTile, dest.width - x));
      row.first_x = static_cast<int>(x);
      kernels.shear(sx, sy, count, row);
      copy(y, row.first_x, sx, sy, count);
    }
  }
  copy.Finish();
  output.Store(result);
  return kOk;
}

}  // namespace qel
