#include "filter/convolution/convolution_job.h"
#include "filter/filter_image.h"
#include "filter/filter_transform.h"
#include "image/numeric.h"

namespace qel {

void RunConvolution(const ConvolutionPlan& plan, const ImageView& source, const ImageView& dest) {
  const SourceRows rows(source);
  DestRows out(dest, source, Reach(static_cast<int>(plan.weights.stride())).after);
  ScratchBlock<kConvolutionScratchBytes> scratch;
  const ConvolutionJob job{plan, plan.weights, rows, out, scratch};
  switch (plan.method) {
    case ConvolutionMethod::kSquare3:
      return ConvolveSquare3(job);
    case ConvolutionMethod::kBox:
      return ConvolveBox(job);
    case ConvolutionMethod::kSeparable16:
      return ConvolveSeparable16(job);
    case ConvolutionMethod::kSparse:
      return ConvolveSparse(job);
    case ConvolutionMethod::kSeparable32:
      return ConvolveSeparable32(job);
    case ConvolutionMethod::kRowPairs:
      return ConvolveRowPairs(job);
    case ConvolutionMethod::kDirect:
      return ConvolveDirect(job);
    case ConvolutionMethod::kLarge:
      return ConvolveLarge(job);
  }
}

result_t CQELFilterTransform::Filter(IQEL* image, int* kernel, int size, int divisor, int offset,
                                     IQEL** result) {
  if (kernel == nullptr && size > 0) return kFail;
  const uint32_t level = ClampToByte(offset);
  return FilterWindows(image, size, PackColor(level, level, level, 0), result,
                       [=](const ImageView& source, const ImageView& dest) {
                         RunConvolution(
                             PlanConvolution(kernel, size, divisor, offset, source.bit_count),
                             source, dest);
                         return true;
                       });
}

}  // namespace qel
