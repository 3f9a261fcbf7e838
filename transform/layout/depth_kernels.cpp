#include "transform/layout/depth_kernels.h"

#include "image/widen_rows.h"
#include "simd/table_lookup.h"

namespace qel::QEL_LEVEL {
namespace {

template <size_t kBytes>
void Expand(uint8_t* __restrict dest, const uint8_t* __restrict source, size_t count,
            const PaletteTables& palette) {
  if constexpr (!kHasTableLookupBytes) {
    for (size_t i = 0; i < count; ++i) {
      for (size_t c = 0; c < 3; ++c) dest[kBytes * i + c] = palette.channels[c][source[i]];
    }
    return;
  }
  const TableLookup blue(palette.channels[0]);
  const TableLookup green(palette.channels[1]);
  const TableLookup red(palette.channels[2]);
  WalkBlocks<kVectorBytes>(
      count,
      [&](uint8_t* to, const uint8_t* from) {
        U8 channels[kBytes];
        if constexpr (kBytes == 4) LoadInterleaved<4>(to, channels);
        const U8 index = LoadU<U8>(from);
        channels[0] = blue(index);
        channels[1] = green(index);
        channels[2] = red(index);
        StoreInterleaved<kBytes>(channels, to);
      },
      To<kBytes>{dest}, From<1>{source});
}

}  // namespace

extern const DepthKernels kDepthKernels;
constinit const DepthKernels kDepthKernels = {
    .gray_to_24 = &GrayTo24,
    .gray_to_32 = &GrayTo32,
    .color_to_32 = &ColorTo32,
    .palette_to_24 = &Expand<3>,
    .palette_to_32 = &Expand<4>,
};

}  // namespace qel::QEL_LEVEL
