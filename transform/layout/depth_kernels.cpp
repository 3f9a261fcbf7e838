#include "transform/layout/depth_kernels.h"

#include "image/widen_rows.h"

namespace qel::QEL_LEVEL {
namespace {

#ifdef QEL_HAS_COLOUR_VECTORS

template <size_t kBytes>
void Expand(uint8_t* dest, const uint8_t* source, size_t count, const PaletteTables& palette) {
  const TableLookup blue(palette.channels[0]);
  const TableLookup green(palette.channels[1]);
  const TableLookup red(palette.channels[2]);
  WalkBlocks<kVectorBytes>(
      count,
      [&](uint8_t* to, const uint8_t* from) {
        Vector channels[kBytes];
        if constexpr (kBytes == 4) LoadPixels<4>(to, channels);
        const Vector index = Load(from);
        channels[0] = blue(index);
        channels[1] = green(index);
        channels[2] = red(index);
        StorePixels<kBytes>(to, channels);
      },
      To<kBytes>{dest}, From<1>{source});
}

#else

template <size_t kBytes>
void Expand(uint8_t* __restrict dest, const uint8_t* __restrict source, size_t count,
            const PaletteTables& palette) {
  for (size_t i = 0; i < count; ++i) {
    for (size_t c = 0; c < 3; ++c) dest[kBytes * i + c] = palette.channels[c][source[i]];
  }
}

#endif

}  // namespace

extern const DepthKernels kDepthKernels;
constinit const DepthKernels kDepthKernels = {
    .grey_to_24 = &GreyTo24,
    .grey_to_32 = &GreyTo32,
    .colour_to_32 = &ColourTo32,
    .palette_to_24 = &Expand<3>,
    .palette_to_32 = &Expand<4>,
};

}  // namespace qel::QEL_LEVEL
