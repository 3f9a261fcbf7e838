#include "filter/convolution/convolution_kernels.h"

#include "filter/convolution/box_rows.h"
#include "filter/convolution/direct_rows.h"
#include "filter/convolution/separable_rows.h"
#include "filter/convolution/short_rows.h"

namespace qel::QEL_LEVEL {

extern const ConvolutionKernels kConvolutionKernels;
constinit const ConvolutionKernels kConvolutionKernels = {
    .direct32 = &Direct32,
    .direct16 = &Direct16,
    .sparse = &Sparse,
    .square3 = &Square3,
    .across16 = &Across16,
    .down16 = &Down16,
    .separable32 = &Separable32,
    .box16 = {.running_sums = &UpdateShortSums, .across = &BoxAcross<uint16_t, ReciprocalDivision>},
    .box32 = {.running_sums = &UpdateRunningSums<uint32_t>,
              .across = &BoxAcross<uint32_t, Division>},
    .accumulate = &Accumulate,
    .finish = &Finish32,
};

}  // namespace qel::QEL_LEVEL
