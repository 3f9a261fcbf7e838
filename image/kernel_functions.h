#ifndef QEL_IMAGE_KERNEL_FUNCTIONS_H_
#define QEL_IMAGE_KERNEL_FUNCTIONS_H_

namespace qel {

/// How an interpolation method forms a color.
enum class Sampling {
  kNearest,   ///< the nearest pixel
  kBilinear,  ///< the pixel at the truncated position
  kKernel4,   ///< weighted sum of 4 by 4 pixels
  kKernel12,  ///< weighted sum of 12 by 12 pixels
};

/// Weight of a pixel at signed distance `t` from the sampled position, along one axis.
using KernelFunction = float (*)(float t);

/// One of the interpolation methods 0 to 15.
struct InterpolationMethod {
  Sampling sampling;
  KernelFunction kernel;  ///< null where nothing is weighted
};

/// The method of this number; numbers outside 0 to 15 act as 1. Weights are used as they come out
/// of the kernel: they are not scaled to a sum of 1.
const InterpolationMethod& MethodOf(int number);

}  // namespace qel

#endif  // QEL_IMAGE_KERNEL_FUNCTIONS_H_
