#include "transform/depth_kernels.h"

#include "image/colour_vectors.h"

namespace qel::QEL_LEVEL {
namespace {

#ifdef QEL_HAS_COLOUR_VECTORS

void GreyTo24(uint8_t* dest, const uint8_t* source, size_t count) {
  WalkBlocks<kVectorBytes>(
      count, [](uint8_t* to, const uint8_t* from) { StoreGreyPixels(to, Load(from)); }, To<3>{dest},
      From<1>{source});
}

void ColourTo32(uint8_t* dest, const uint8_t* source, size_t count) {
  WalkBlocks<kVectorBytes>(
      count,
      [](uint8_t* to, const uint8_t* from) {
        Vector channels[4];
        LoadPixels<3>(from, channels);
        channels[3] = FillBytes(255);
        StorePixels<4>(to, channels);
      },
      To<4>{dest}, From<3>{source});
}

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

void GreyTo24(uint8_t* __restrict dest, const uint8_t* __restrict source, size_t count) {
  for (size_t i = 0; i < count; ++i) dest[3 * i] = dest[3 * i + 1] = dest[3 * i + 2] = source[i];
}

void ColourTo32(uint8_t* __restrict dest, const uint8_t* __restrict source, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    for (size_t c = 0; c < 3; ++c) dest[4 * i + c] = source[3 * i + c];
    dest[4 * i + 3] = 255;
  }
}

template <size_t kBytes>
void Expand(uint8_t* __restrict dest, const uint8_t* __restrict source, size_t count,
            const PaletteTables& palette) {
  for (size_t i = 0; i < count; ++i) {
    for (size_t c = 0; c < 3; ++c) dest[kBytes * i + c] = palette.channels[c][source[i]];
  }
}

#endif

void GreyTo32(uint8_t* __restrict dest, const uint8_t* __restrict source, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    const uint32_t grey = source[i];
    const uint32_t colour = grey | grey << 8 | grey << 16 | 0xFF000000u;
    __builtin_memcpy(dest + 4 * i, &colour, 4);
  }
}

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
