#include "transform/depth_kernels.h"

#ifdef QEL_LEVEL_avx512vbmi
#include <immintrin.h>
#endif

namespace qel::QEL_LEVEL {
namespace {

#ifdef QEL_LEVEL_avx512vbmi

constexpr __mmask64 FirstBytes(size_t count) {
  return count >= 64 ? ~__mmask64{0} : (__mmask64{1} << count) - 1;
}

/// A register whose byte j is make(j).
template <typename Make>
__m512i Bytes(Make make) {
  alignas(64) uint8_t bytes[64];
  for (int j = 0; j < 64; ++j) bytes[j] = static_cast<uint8_t>(make(j));
  return _mm512_load_si512(bytes);
}

/// Stores the first `count` bytes of up to three registers.
void StoreThree(uint8_t* dest, size_t count, const __m512i (&parts)[3]) {
  for (size_t k = 0; k < 3 && 64 * k < count; ++k) {
    _mm512_mask_storeu_epi8(dest + 64 * k, FirstBytes(count - 64 * k), parts[k]);
  }
}

/// Calls `convert(offset, pixels)` for groups of `kGroup` pixels, the last one partly.
template <size_t kGroup, typename Convert>
void ForGroups(size_t count, Convert convert) {
  size_t i = 0;
  for (; i + kGroup <= count; i += kGroup) convert(i, kGroup);
  if (i < count) convert(i, count - i);
}

void GreyTo24(uint8_t* dest, const uint8_t* source, size_t count) {
  const __m512i spread[3] = {Bytes([](int j) { return j / 3; }),
                             Bytes([](int j) { return (64 + j) / 3; }),
                             Bytes([](int j) { return (128 + j) / 3; })};
  ForGroups<64>(count, [&](size_t i, size_t pixels) {
    const __m512i grey = _mm512_maskz_loadu_epi8(FirstBytes(pixels), source + i);
    __m512i parts[3];
    for (int k = 0; k < 3; ++k) parts[k] = _mm512_permutexvar_epi8(spread[k], grey);
    StoreThree(dest + 3 * i, 3 * pixels, parts);
  });
}

void ColourTo32(uint8_t* dest, const uint8_t* source, size_t count) {
  const __m512i spread = Bytes([](int j) { return j / 4 * 3 + j % 4; });
  const __m512i alpha = _mm512_set1_epi32(static_cast<int>(0xFF000000u));
  ForGroups<16>(count, [&](size_t i, size_t pixels) {
    const __m512i colour = _mm512_maskz_loadu_epi8(FirstBytes(3 * pixels), source + 3 * i);
    const __m512i spaced = _mm512_mask_permutexvar_epi8(alpha, 0x7777777777777777u, spread, colour);
    _mm512_mask_storeu_epi8(dest + 4 * i, FirstBytes(4 * pixels), spaced);
  });
}

/// A palette as three tables of 256 bytes, looked up 64 at a time.
class PaletteLookup {
 public:
  explicit PaletteLookup(const uint8_t* palette) {
    const __m512i first = Bytes([](int j) { return 4 * (j % 32); });
    for (int channel = 0; channel < 3; ++channel) {
      const __m512i order = _mm512_add_epi8(first, _mm512_set1_epi8(static_cast<char>(channel)));
      for (int part = 0; part < 4; ++part) {
        const uint8_t* const entries = palette + 256 * part;
        const __m512i lower = _mm512_permutex2var_epi8(_mm512_loadu_si512(entries), order,
                                                       _mm512_loadu_si512(entries + 64));
        const __m512i upper = _mm512_permutex2var_epi8(_mm512_loadu_si512(entries + 128), order,
                                                       _mm512_loadu_si512(entries + 192));
        parts_[channel][part] = _mm512_mask_blend_epi8(0xFFFFFFFF00000000u, lower, upper);
      }
    }
  }

  __m512i Channel(int channel, __m512i index) const {
    const __m512i(&parts)[4] = parts_[channel];
    const __m512i low = _mm512_permutex2var_epi8(parts[0], index, parts[1]);
    const __m512i high = _mm512_permutex2var_epi8(parts[2], index, parts[3]);
    return _mm512_mask_blend_epi8(_mm512_movepi8_mask(index), low, high);
  }

 private:
  __m512i parts_[3][4];
};

void PaletteTo24(uint8_t* dest, const uint8_t* source, size_t count, const uint8_t* palette) {
  const PaletteLookup lookup(palette);
  // Byte j of part k is channel (64 k + j) % 3 of pixel (64 k + j) / 3; red comes in by a mask.
  __m512i order[3];
  __mmask64 red_lanes[3];
  for (int k = 0; k < 3; ++k) {
    order[k] = Bytes([k](int j) {
      const int at = 64 * k + j;
      return at / 3 + (at % 3 == 1 ? 64 : 0);
    });
    red_lanes[k] = 0;
    for (int j = 0; j < 64; ++j) red_lanes[k] |= __mmask64{(64 * k + j) % 3 == 2} << j;
  }
  ForGroups<64>(count, [&](size_t i, size_t pixels) {
    const __m512i index = _mm512_maskz_loadu_epi8(FirstBytes(pixels), source + i);
    const __m512i blue = lookup.Channel(0, index);
    const __m512i green = lookup.Channel(1, index);
    const __m512i red = lookup.Channel(2, index);
    __m512i parts[3];
    for (int k = 0; k < 3; ++k) {
      const __m512i two = _mm512_permutex2var_epi8(blue, order[k], green);
      parts[k] = _mm512_mask_permutexvar_epi8(two, red_lanes[k], order[k], red);
    }
    StoreThree(dest + 3 * i, 3 * pixels, parts);
  });
}

#else

void GreyTo24(uint8_t* __restrict dest, const uint8_t* __restrict source, size_t count) {
  for (size_t i = 0; i < count; ++i) dest[3 * i] = dest[3 * i + 1] = dest[3 * i + 2] = source[i];
}

void ColourTo32(uint8_t* __restrict dest, const uint8_t* __restrict source, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    dest[4 * i] = source[3 * i];
    dest[4 * i + 1] = source[3 * i + 1];
    dest[4 * i + 2] = source[3 * i + 2];
    dest[4 * i + 3] = 255;
  }
}

void PaletteTo24(uint8_t* __restrict dest, const uint8_t* __restrict source, size_t count,
                 const uint8_t* __restrict palette) {
  size_t i = 0;
  // Whole entries overlap the next pixel, which is written after them.
  for (; i + 1 < count; ++i) __builtin_memcpy(dest + 3 * i, palette + 4 * source[i], 4);
  if (i < count) __builtin_memcpy(dest + 3 * i, palette + 4 * source[i], 3);
}

#endif

void GreyTo32(uint8_t* __restrict dest, const uint8_t* __restrict source, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    const uint32_t colour =
        source[i] | uint32_t{source[i]} << 8 | uint32_t{source[i]} << 16 | 0xFF000000u;
    __builtin_memcpy(dest + 4 * i, &colour, 4);
  }
}

void PaletteTo32(uint8_t* __restrict dest, const uint8_t* __restrict source, size_t count,
                 const uint8_t* __restrict palette) {
  for (size_t i = 0; i < count; ++i) {
    uint32_t colour;
    uint32_t old;
    __builtin_memcpy(&colour, palette + 4 * source[i], 4);
    __builtin_memcpy(&old, dest + 4 * i, 4);
    colour = (colour & 0x00FFFFFFu) | (old & 0xFF000000u);
    __builtin_memcpy(dest + 4 * i, &colour, 4);
  }
}

}  // namespace

extern const DepthKernels kDepthKernels;
constinit const DepthKernels kDepthKernels = {
    .grey_to_24 = &GreyTo24,
    .grey_to_32 = &GreyTo32,
    .colour_to_32 = &ColourTo32,
    .palette_to_24 = &PaletteTo24,
    .palette_to_32 = &PaletteTo32,
};

}  // namespace qel::QEL_LEVEL
