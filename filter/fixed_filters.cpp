#include <algorithm>
#include <iterator>

#include "filter/convolution/fixed_kernels.h"
#include "filter/filter_transform.h"

namespace qel {
namespace {

/// Hands a copy of a kernel to `Filter`, through the object's table.
result_t FilterBy(const FixedKernel& kernel, CQELFilterTransform& filter, IQEL* image,
                  IQEL** result) {
  int weights[kMostFixedWeights];
  std::copy(std::begin(kernel.weights), std::end(kernel.weights), weights);
  return filter.Filter(image, weights, kernel.size, kernel.divisor, kernel.offset, result);
}

}  // namespace

result_t CQELFilterTransform::Emboss(IQEL* image, IQEL** result) {
  return FilterBy(kEmboss, *this, image, result);
}

result_t CQELFilterTransform::Blur(IQEL* image, IQEL** result) {
  return FilterBy(kBlur, *this, image, result);
}

result_t CQELFilterTransform::Soften(IQEL* image, IQEL** result) {
  return FilterBy(kSoften, *this, image, result);
}

result_t CQELFilterTransform::Sharpen(IQEL* image, IQEL** result) {
  return FilterBy(kSharpen, *this, image, result);
}

result_t CQELFilterTransform::GaussianBlur(IQEL* image, int level, IQEL** result) {
  if (level < 0 || level >= static_cast<int>(std::size(kGaussianBlur))) return kFail;
  return FilterBy(kGaussianBlur[level], *this, image, result);
}

}  // namespace qel
