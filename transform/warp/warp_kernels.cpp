#include "transform/warp/warp_kernels.h"

#include "image/colour_vectors.h"
#include "image/numeric.h"
#include "transform/warp/blend_pixel.h"
#include "transform/word_pixels.h"

namespace qel::QEL_LEVEL {
namespace {

/// How scattered pixels of `kFrom` bytes are written.
template <int kFromBytes, bool kMakeOpaque>
struct Depths {
  static constexpr int kFrom = kFromBytes;
  static constexpr int kTo = kMakeOpaque ? 4 : kFrom;
  /// Pixels of 3 bytes are loaded with the byte behind them.
  static constexpr int kLoaded = kFrom == 3 ? 4 : kFrom;

  static uint32_t Convert(uint32_t pixel) {
    constexpr uint32_t kAlpha = 0xFF000000u;
    constexpr uint32_t kMarker = uint32_t{kKeptAlpha} << 24;
    if (!kMakeOpaque || (kFrom == 4 && (pixel & kAlpha) == kMarker)) return pixel;
    return (kFrom == 1 ? pixel * 0x010101u : pixel) | kAlpha;
  }
};

/// The pixel at an offset, in the low bytes of a word.
template <typename Depth>
uint32_t PixelAt(const uint8_t* source, int32_t offset, uint32_t outside) {
  uint32_t pixel = 0;
  if (offset >= -kLargestOffset) [[likely]] {
    __builtin_memcpy(&pixel, source + offset, Depth::kLoaded);
  } else if (Depth::kFrom != 3 || offset == kOutsideOffset) {
    return outside;
  } else {
    __builtin_memcpy(&pixel, source + (int64_t{offset} + kNarrow), 3);
  }
  return Depth::Convert(pixel);
}

template <typename Depth>
void CopySingly(uint8_t* dest, size_t count, const uint8_t* source, const int32_t* offsets,
                uint32_t outside) {
  constexpr int kTo = Depth::kTo;
  // Four bytes are stored for three: the next pixel overwrites the last one.
  constexpr size_t kStored = kTo == 3 ? 4 : kTo;
  for (; count > 1; --count, ++offsets, dest += kTo) {
    const uint32_t pixel = PixelAt<Depth>(source, *offsets, outside);
    __builtin_memcpy(dest, &pixel, kStored);
  }
  if (count == 0) return;
  const uint32_t pixel = PixelAt<Depth>(source, *offsets, outside);
  __builtin_memcpy(dest, &pixel, kTo);
}

#ifdef QEL_LEVEL_avx512vbmi

template <int kFrom>
__m512i MakeOpaque(__m512i words) {
  const __m512i alpha = _mm512_set1_epi32(static_cast<int32_t>(0xFF000000u));
  if constexpr (kFrom == 4) {
    const __m512i marker = _mm512_set1_epi32(kKeptAlpha << 24);
    const __mmask16 unmarked = _mm512_cmpneq_epi32_mask(_mm512_and_si512(words, alpha), marker);
    return _mm512_mask_or_epi32(words, unmarked, words, alpha);
  }
  if constexpr (kFrom == 1) words = _mm512_mullo_epi32(words, _mm512_set1_epi32(0x010101));
  return _mm512_or_si512(words, alpha);
}

template <int kFrom, bool kOpaque>
void Copy(uint8_t* dest, size_t count, const uint8_t* source, const int32_t* offsets,
          uint32_t outside) {
  using Depth = Depths<kFrom, kOpaque>;
  const __m512i lowest = _mm512_set1_epi32(-kLargestOffset);
  for (; count >= 16; count -= 16, offsets += 16, dest += 16 * Depth::kTo) {
    const __mmask16 special = _mm512_cmplt_epi32_mask(_mm512_loadu_si512(offsets), lowest);
    if (special != 0) {
      CopySingly<Depth>(dest, 16, source, offsets, outside);
      continue;
    }
    __m512i words = LoadSixteen<Depth::kLoaded>(source, offsets);
    if constexpr (kOpaque) words = MakeOpaque<kFrom>(words);
    StoreWords<Depth::kTo>(dest, words);
  }
  CopySingly<Depth>(dest, count, source, offsets, outside);
}

#else

template <int kFrom, bool kOpaque>
void Copy(uint8_t* dest, size_t count, const uint8_t* source, const int32_t* offsets,
          uint32_t outside) {
  CopySingly<Depths<kFrom, kOpaque>>(dest, count, source, offsets, outside);
}

#endif

void Offsets(int32_t* __restrict offsets, const int32_t* __restrict sx,
             const int32_t* __restrict sy, size_t count, const OffsetRule& rule) {
  // A copy, so that the stores cannot change it.
  const OffsetRule r = rule;
  for (size_t i = 0; i < count; ++i) {
    const uint32_t column = static_cast<uint32_t>(sx[i]) - static_cast<uint32_t>(r.left);
    const uint32_t row = static_cast<uint32_t>(sy[i]) - static_cast<uint32_t>(r.top);
    const bool inside =
        (column < static_cast<uint32_t>(r.columns)) & (row < static_cast<uint32_t>(r.rows));
    const int32_t offset =
        WrapAdd(WrapMultiply(sy[i], r.stride), WrapMultiply(sx[i], r.pixel_bytes));
    const int32_t lowered = sx[i] == r.narrow_column ? WrapSubtract(offset, kNarrow) : offset;
    offsets[i] = inside ? lowered : kOutsideOffset;
  }
}

void Shear(int32_t* __restrict sx, int32_t* __restrict sy, size_t count, const ShearRow& row) {
  const ShearRow r = row;
  for (size_t i = 0; i < count; ++i) {
    const int32_t x = r.first_x + static_cast<int32_t>(i);
    const float shift_y = static_cast<float>(WrapSubtract(x, r.pivot_x)) * r.gain_y;
    sx[i] = TruncateToInt(static_cast<float>(x) + r.shift_x);
    sy[i] = TruncateToInt(r.y + shift_y);
  }
}

void Walk(int32_t* __restrict sx, int32_t* __restrict sy, size_t count, const FixedWalk& walk) {
  const FixedWalk w = walk;
  constexpr uint32_t kHalf = 1u << 15;
  for (size_t i = 0; i < count; ++i) {
    const auto k = static_cast<uint32_t>(i);
    sx[i] = static_cast<int32_t>(w.x + kHalf + k * w.step_x) >> 16;
    sy[i] = static_cast<int32_t>(w.y + kHalf + k * w.step_y) >> 16;
  }
}

template <size_t kBytes>
void BlendOneByOne(uint8_t* dest, size_t first, size_t count, const FixedWalk& walk,
                   const uint8_t* source, int32_t stride) {
  for (size_t i = first; i < count; ++i) {
    const uint32_t x = walk.x + static_cast<uint32_t>(i) * walk.step_x;
    const uint32_t y = walk.y + static_cast<uint32_t>(i) * walk.step_y;
    const int32_t offset = (static_cast<int32_t>(y) >> 16) * stride +
                           (static_cast<int32_t>(x) >> 16) * static_cast<int32_t>(kBytes);
    BlendPixel(dest + kBytes * i, source + offset, stride, kBytes, x & 0xFFFF, y & 0xFFFF);
  }
}

#ifdef QEL_HAS_COLOUR_VECTORS

// One lane per pixel: first the eight bytes of the upper and of the lower row, then for every
// channel its four bytes, then for every channel a sum of 32 bits.

inline __m128i LoadSquare(const uint8_t* top, int32_t stride) {
  const __m128i upper = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(top));
  return _mm_castps_si128(
      _mm_loadh_pi(_mm_castsi128_ps(upper), reinterpret_cast<const __m64*>(top + stride)));
}

template <size_t kBytes>
constexpr Pattern<16> kByChannelOfSquare = [] {
  Pattern<16> pattern{};
  for (size_t i = 0; i < 16; ++i) {
    const size_t channel = i / 4;
    const size_t corner = i % 4;
    const size_t from = channel + (corner % 2) * kBytes + (corner / 2) * 8;
    pattern.bytes[i] = static_cast<uint8_t>(channel < kBytes ? from : 0x80);
  }
  return pattern;
}();

/// The blend of one pixel per lane. With d as the difference of right and left pixels, e as that of
/// lower and upper ones and s as the sum of all, the weighted sum is 65536 s + (fx - 32768) d +
/// (fy - 32768) e; `weights_x` and `weights_y` hold these factors twice in every channel.
inline Vector BlendSquares(Vector squares, Vector weights_x, Vector weights_y) {
  const Vector left_to_right = FillDwords(0x01FF01FF);
  const Vector top_to_bottom = FillDwords(0x0101FFFF);
  const Vector sum = SumWordPairs(SumPairs(squares, FillBytes(1)), FillWords(1));
  const Vector d = SumWordPairs(SumPairs(squares, left_to_right), weights_x);
  const Vector e = SumWordPairs(SumPairs(squares, top_to_bottom), weights_y);
#ifdef QEL_LEVEL_avx2
  const Vector rounded = _mm256_add_epi32(_mm256_slli_epi32(sum, 16), FillDwords(1u << 17));
  return _mm256_srli_epi32(_mm256_add_epi32(rounded, _mm256_add_epi32(d, e)), 18);
#else
  const Vector rounded = _mm512_add_epi32(_mm512_slli_epi32(sum, 16), FillDwords(1u << 17));
  return _mm512_srli_epi32(_mm512_add_epi32(rounded, _mm512_add_epi32(d, e)), 18);
#endif
}

/// Blends four pixels into four bytes each.
template <size_t kBytes>
__m128i BlendFour(const int32_t* offsets, const int32_t* weights_x, const int32_t* weights_y,
                  const uint8_t* source, int32_t stride) {
  const auto square = [&](size_t i) { return LoadSquare(source + offsets[i], stride); };
  const __m128i wx = _mm_loadu_si128(reinterpret_cast<const __m128i*>(weights_x));
  const __m128i wy = _mm_loadu_si128(reinterpret_cast<const __m128i*>(weights_y));
  const Vector by_channel = FillLanes(kByChannelOfSquare<kBytes>.bytes);
#ifdef QEL_LEVEL_avx2
  const auto blend = [&](size_t low, size_t high) {
    const auto l = static_cast<int>(low);
    const auto h = static_cast<int>(high);
    const Vector spread = _mm256_setr_epi32(l, l, l, l, h, h, h, h);
    const auto weights = [&](__m128i w) {
      return _mm256_permutevar8x32_epi32(_mm256_castsi128_si256(w), spread);
    };
    const Vector squares = _mm256_set_m128i(square(high), square(low));
    return BlendSquares(ShuffleLanes(squares, by_channel), weights(wx), weights(wy));
  };
  const Vector words = _mm256_packs_epi32(blend(0, 2), blend(1, 3));
  const Vector bytes = _mm256_permute4x64_epi64(PackWords(words, words), 0x08);
  return _mm256_castsi256_si128(bytes);
#else
  const Vector spread = _mm512_setr_epi32(0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3);
  const auto weights = [&](__m128i w) {
    return _mm512_permutexvar_epi32(spread, _mm512_castsi128_si512(w));
  };
  Vector squares = _mm512_castsi128_si512(square(0));
  squares = _mm512_inserti32x4(squares, square(1), 1);
  squares = _mm512_inserti32x4(squares, square(2), 2);
  squares = _mm512_inserti32x4(squares, square(3), 3);
  return _mm512_cvtepi32_epi8(
      BlendSquares(ShuffleLanes(squares, by_channel), weights(wx), weights(wy)));
#endif
}

template <size_t kBytes>
void Blend(uint8_t* dest, size_t count, const FixedWalk& walk, const uint8_t* source,
           int32_t stride) {
  int32_t offsets[kWarpTile];
  int32_t weights_x[kWarpTile];
  int32_t weights_y[kWarpTile];
  const FixedWalk w = walk;
  const auto twice = [](uint32_t fraction) {
    return static_cast<int32_t>(((fraction & 0xFFFF) ^ 0x8000) * 0x10001u);
  };
  for (size_t i = 0; i < count; ++i) {
    const uint32_t x = w.x + static_cast<uint32_t>(i) * w.step_x;
    const uint32_t y = w.y + static_cast<uint32_t>(i) * w.step_y;
    offsets[i] = (static_cast<int32_t>(y) >> 16) * stride +
                 (static_cast<int32_t>(x) >> 16) * static_cast<int32_t>(kBytes);
    weights_x[i] = twice(x);
    weights_y[i] = twice(y);
  }
  const __m128i close_up = _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
  // Sixteen bytes are stored for four pixels: of 3-byte pixels more than they have.
  constexpr size_t kStored = kBytes == 4 ? 4 : 6;
  size_t i = 0;
  for (; i + kStored <= count; i += 4) {
    __m128i pixels = BlendFour<kBytes>(offsets + i, weights_x + i, weights_y + i, source, stride);
    if constexpr (kBytes == 3) pixels = _mm_shuffle_epi8(pixels, close_up);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dest + kBytes * i), pixels);
  }
  BlendOneByOne<kBytes>(dest, i, count, walk, source, stride);
}

#else

template <size_t kBytes>
void Blend(uint8_t* dest, size_t count, const FixedWalk& walk, const uint8_t* source,
           int32_t stride) {
  BlendOneByOne<kBytes>(dest, 0, count, walk, source, stride);
}

#endif

}  // namespace

extern const WarpKernels kWarpKernels;
constinit const WarpKernels kWarpKernels = {
    .copy1 = &Copy<1, false>,
    .copy3 = &Copy<3, false>,
    .copy4 = &Copy<4, false>,
    .copy1_opaque = &Copy<1, true>,
    .copy3_opaque = &Copy<3, true>,
    .copy4_opaque = &Copy<4, true>,
    .offsets = &Offsets,
    .shear = &Shear,
    .walk = &Walk,
    .blend3 = &Blend<3>,
    .blend4 = &Blend<4>,
};

}  // namespace qel::QEL_LEVEL
