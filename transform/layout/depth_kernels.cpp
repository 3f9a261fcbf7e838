#include "transform/layout/depth_kernels.h"

#include <type_traits>

#include "image/widen_rows.h"
#include "simd/table_lookup.h"

namespace qel::QEL_LEVEL {
namespace {

/// Looks the channels up for whole vectors.
template <size_t kBytes>
void ExpandChannels(uint8_t* dest, const uint8_t* source, size_t count,
                    const PaletteColors& palette) {
  alignas(64) uint8_t channels[4][256];
  for (size_t i = 0; i < 256; i += kVectorBytes) {
    U8 of[4];
    LoadInterleaved<4>(reinterpret_cast<const uint8_t*>(palette.of + i), of);
    for (size_t c = 0; c < 3; ++c) StoreU(of[c], channels[c] + i);
  }
  const TableLookup blue(channels[0]), green(channels[1]), red(channels[2]);
  WalkBlocks<kVectorBytes>(
      count,
      [&](uint8_t* to, const uint8_t* from) {
        U8 pixels[kBytes];
        if constexpr (kBytes == 4) LoadInterleaved<4>(to, pixels);
        const U8 index = LoadU<U8>(from);
        pixels[0] = blue(index);
        pixels[1] = green(index);
        pixels[2] = red(index);
        StoreInterleaved<kBytes>(pixels, to);
      },
      To<kBytes>{dest}, From<1>{source});
}

/// Loads the colors pixel by pixel: at other levels two thirds of the time of their channels.
template <size_t kBytes>
void ExpandSingly(uint8_t* dest, const uint8_t* source, size_t count,
                  const PaletteColors& palette) {
  // Words are joined to vectors of two blocks sooner than to those of four.
  using Words = std::conditional_t<(kVectorBytes > 32), Half<U32>, U32>;
  constexpr size_t kPixels = kBytes == 4 ? Words::kLanes : 8;
  WalkBlocks<kPixels>(
      count,
      [&](uint8_t* to, const uint8_t* from) {
        uint64_t indices[(kPixels + 7) / 8] = {};
        __builtin_memcpy(indices, from, kPixels);
        const auto color = [&](size_t i) {
          return palette.of[indices[i / 8] >> (8 * (i % 8)) & 0xFF];
        };
        if constexpr (kBytes == 4) {
          const Words alpha = LoadU<Words>(to) & Set<Words>(0xFF000000u);
          StoreU(LanesFrom<Words>(color) | alpha, to);
        } else {
          // The fourth byte of each is stored over; the last one has none.
          for (size_t i = 0; i + 1 < kPixels; ++i) {
            const uint32_t pixel = color(i);
            __builtin_memcpy(to + 3 * i, &pixel, 4);
          }
          const uint32_t last = color(kPixels - 2) >> 16 | color(kPixels - 1) << 8;
          __builtin_memcpy(to + 3 * kPixels - 4, &last, 4);
        }
      },
      To<kBytes>{dest}, From<1>{source});
}

template <size_t kBytes>
void Expand(uint8_t* dest, const uint8_t* source, size_t count, const PaletteColors& palette) {
  if constexpr (kHasByteLookup) {
    ExpandChannels<kBytes>(dest, source, count, palette);
  } else {
    ExpandSingly<kBytes>(dest, source, count, palette);
  }
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
