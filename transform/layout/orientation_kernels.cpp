#include "transform/layout/orientation_kernels.h"

#include "image/colour_vectors.h"
#include "simd/fetch.h"
#include "transform/word_pixels.h"

namespace qel::QEL_LEVEL {
namespace {

template <int kBytes>
void CopyPixel(uint8_t* dest, const uint8_t* source) {
  __builtin_memcpy(dest, source, kBytes);
}

/// One rectangle of a transpose, pixel by pixel.
template <int kBytes>
void TransposeTile(uint8_t* dest, int64_t dest_stride, const uint8_t* source, int64_t source_stride,
                   int64_t columns, int64_t rows) {
  for (int64_t y = 0; y < columns; ++y) {
    for (int64_t x = 0; x < rows; ++x) {
      CopyPixel<kBytes>(dest + y * dest_stride + x * kBytes,
                        source + x * source_stride + y * kBytes);
    }
  }
}

constexpr int64_t Smaller(int64_t a, int64_t b) { return a < b ? a : b; }

/// Source rows and columns of a tile: its cache lines on both sides fit the innermost cache.
constexpr int64_t kTileRows = 64;
constexpr int64_t kTileColumns = 16;

#ifdef QEL_LEVEL_avx512vbmi

/// index[j] = make(j) as a register.
template <typename Make>
__m512i Indices(Make make) {
  Pattern<64> index;
  for (int j = 0; j < 64; ++j) index.bytes[j] = static_cast<uint8_t>(make(j));
  return Load(index.bytes);
}

/// Transposes 16 x 16 words held in 16 registers.
void TransposeWords(__m512i (&r)[16]) {
  __m512i t[16];
  for (int i = 0; i < 16; i += 2) {
    t[i] = _mm512_unpacklo_epi32(r[i], r[i + 1]);
    t[i + 1] = _mm512_unpackhi_epi32(r[i], r[i + 1]);
  }
  for (int i = 0; i < 16; i += 4) {
    r[i] = _mm512_unpacklo_epi64(t[i], t[i + 2]);
    r[i + 1] = _mm512_unpackhi_epi64(t[i], t[i + 2]);
    r[i + 2] = _mm512_unpacklo_epi64(t[i + 1], t[i + 3]);
    r[i + 3] = _mm512_unpackhi_epi64(t[i + 1], t[i + 3]);
  }
  // r[4 g + k] now holds, in its four parts p, words 4 g to 4 g + 3 of column 4 p + k.
  for (int k = 0; k < 4; ++k) {
    t[k] = _mm512_shuffle_i32x4(r[k], r[4 + k], 0x88);
    t[4 + k] = _mm512_shuffle_i32x4(r[k], r[4 + k], 0xDD);
    t[8 + k] = _mm512_shuffle_i32x4(r[8 + k], r[12 + k], 0x88);
    t[12 + k] = _mm512_shuffle_i32x4(r[8 + k], r[12 + k], 0xDD);
  }
  for (int k = 0; k < 4; ++k) {
    r[k] = _mm512_shuffle_i32x4(t[k], t[8 + k], 0x88);
    r[8 + k] = _mm512_shuffle_i32x4(t[k], t[8 + k], 0xDD);
    r[4 + k] = _mm512_shuffle_i32x4(t[4 + k], t[12 + k], 0x88);
    r[12 + k] = _mm512_shuffle_i32x4(t[4 + k], t[12 + k], 0xDD);
  }
}

/// 16 x 16 pixels of 3 or 4 bytes.
template <int kBytes>
void TransposeBlock(uint8_t* dest, int64_t dest_stride, const uint8_t* source,
                    int64_t source_stride) {
  __m512i block[16];
  for (int i = 0; i < 16; ++i) {
    const uint8_t* const row = source + i * source_stride;
    block[i] = kBytes == 4 ? _mm512_loadu_si512(row) : LoadWords3(row);
  }
  TransposeWords(block);
  for (int i = 0; i < 16; ++i) StoreWords<kBytes>(dest + i * dest_stride, block[i]);
}

/// 16 x 16 pixels of 1 byte: four registers of four rows each.
template <>
void TransposeBlock<1>(uint8_t* dest, int64_t dest_stride, const uint8_t* source,
                       int64_t source_stride) {
  __m512i rows[4];
  for (int i = 0; i < 4; ++i) {
    const uint8_t* const first = source + 4 * i * source_stride;
    const auto load = [&](int k) {
      return _mm_loadu_si128(reinterpret_cast<const __m128i*>(first + k * source_stride));
    };
    rows[i] = _mm512_castsi128_si512(load(0));
    rows[i] = _mm512_inserti32x4(rows[i], load(1), 1);
    rows[i] = _mm512_inserti32x4(rows[i], load(2), 2);
    rows[i] = _mm512_inserti32x4(rows[i], load(3), 3);
  }
  // Byte j of output register i is column 4 i + j / 16 of row j % 16.
  const __m512i order = Indices([](int j) { return j % 8 * 16 + j / 16; });
  for (int i = 0; i < 4; ++i) {
    const __m512i columns = _mm512_add_epi8(order, _mm512_set1_epi8(static_cast<char>(4 * i)));
    const __m512i upper = _mm512_permutex2var_epi8(rows[0], columns, rows[1]);
    const __m512i lower = _mm512_permutex2var_epi8(rows[2], columns, rows[3]);
    const __m512i both = _mm512_mask_blend_epi8(0xFF00FF00FF00FF00u, upper, lower);
    const auto store = [&](int k, __m128i row) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(dest + (4 * i + k) * dest_stride), row);
    };
    store(0, _mm512_extracti32x4_epi32(both, 0));
    store(1, _mm512_extracti32x4_epi32(both, 1));
    store(2, _mm512_extracti32x4_epi32(both, 2));
    store(3, _mm512_extracti32x4_epi32(both, 3));
  }
}

template <int kBytes>
void TransposeRectangle(uint8_t* dest, int64_t dest_stride, const uint8_t* source,
                        int64_t source_stride, int64_t columns, int64_t rows) {
  if (columns < 16) {
    TransposeTile<kBytes>(dest, dest_stride, source, source_stride, columns, rows);
    return;
  }
  int64_t x = 0;
  for (; x + 16 <= rows; x += 16) {
    TransposeBlock<kBytes>(dest + x * kBytes, dest_stride, source + x * source_stride,
                           source_stride);
  }
  TransposeTile<kBytes>(dest + x * kBytes, dest_stride, source + x * source_stride, source_stride,
                        columns, rows - x);
}

#else

template <int kBytes>
void TransposeRectangle(uint8_t* dest, int64_t dest_stride, const uint8_t* source,
                        int64_t source_stride, int64_t columns, int64_t rows) {
  TransposeTile<kBytes>(dest, dest_stride, source, source_stride, columns, rows);
}

#endif

/// Brings the rows of a rectangle.
template <int kWrite>
void FetchRectangle(const uint8_t* first, int64_t stride, int64_t rows, int64_t bytes) {
  for (; rows > 0; --rows, first += stride) Fetch<kWrite>(first, bytes);
}

template <int kBytes>
void Transpose(uint8_t* dest, int64_t dest_stride, const uint8_t* source, int64_t source_stride,
               int64_t columns, int64_t rows) {
  for (int64_t x = 0; x < rows; x += kTileRows) {
    const int64_t tile_rows = Smaller(rows - x, kTileRows);
    for (int64_t y = 0; y < columns; y += kTileColumns) {
      uint8_t* const to = dest + y * dest_stride + x * kBytes;
      const uint8_t* const from = source + x * source_stride + y * kBytes;
      const int64_t ahead = Smaller(columns - y - kTileColumns, kTileColumns);
      FetchRectangle<1>(to + kTileColumns * dest_stride, dest_stride, ahead, tile_rows * kBytes);
      if (ahead > 0)
        FetchRectangle<0>(from + kTileColumns * kBytes, source_stride, tile_rows, ahead * kBytes);
      TransposeRectangle<kBytes>(to, dest_stride, from, source_stride,
                                 Smaller(columns - y, kTileColumns), tile_rows);
    }
  }
}

template <int kBytes>
void ReversePixels(uint8_t* __restrict dest, const uint8_t* __restrict source, size_t count) {
  for (size_t x = 0; x < count; ++x) {
    CopyPixel<kBytes>(dest + x * kBytes, source + (count - 1 - x) * kBytes);
  }
}

void SwapEndsSingly(uint8_t* row, size_t count) {
  for (size_t x = 0; x < count; ++x) {
    uint8_t* const pixel = row + x * 3;
    const uint8_t first = pixel[0];
    pixel[0] = pixel[2];
    pixel[2] = first;
  }
}

void ExchangeSingly(uint8_t* __restrict top, uint8_t* __restrict bottom, size_t count) {
  SwapEndsSingly(top, count);
  SwapEndsSingly(bottom, count);
  for (size_t i = 0; i < 3 * count; ++i) {
    const uint8_t upper = top[i];
    top[i] = bottom[i];
    bottom[i] = upper;
  }
}

// Pixels of 4 bytes are words: the vectoriser makes little of their single bytes.

inline uint32_t LoadWord(const uint8_t* pixel) {
  uint32_t word;
  __builtin_memcpy(&word, pixel, 4);
  return word;
}
inline uint32_t WithSwappedEnds(uint32_t word) {
  return (word & 0xFF00FF00u) | (word >> 16 & 0xFFu) | (word & 0xFFu) << 16;
}

void SwapEnds4(uint8_t* row, size_t count) {
  for (size_t x = 0; x < count; ++x) {
    const uint32_t word = WithSwappedEnds(LoadWord(row + 4 * x));
    __builtin_memcpy(row + 4 * x, &word, 4);
  }
}

void Exchange4(uint8_t* __restrict top, uint8_t* __restrict bottom, size_t count) {
  constexpr uint32_t kAlpha = 0xFF000000u;
  for (size_t x = 0; x < count; ++x) {
    const uint32_t upper = LoadWord(top + 4 * x);
    const uint32_t lower = LoadWord(bottom + 4 * x);
    const uint32_t to_top = (WithSwappedEnds(lower) & ~kAlpha) | (upper & kAlpha);
    const uint32_t to_bottom = (WithSwappedEnds(upper) & ~kAlpha) | (lower & kAlpha);
    __builtin_memcpy(top + 4 * x, &to_top, 4);
    __builtin_memcpy(bottom + 4 * x, &to_bottom, 4);
  }
}

#ifdef QEL_HAS_COLOUR_VECTORS

/// The bytes of a vector in the opposite order.
inline Vector ReverseBytes(Vector v) {
  static constexpr Pattern<16> kBackwards = {
      {15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0}};
  v = ShuffleLanes(v, FillLanes(kBackwards.bytes));
#ifdef QEL_LEVEL_avx2
  return _mm256_permute4x64_epi64(v, 0x4E);
#else
  return _mm512_shuffle_i64x2(v, v, 0x1B);
#endif
}

template <int kBytes>
void Reverse(uint8_t* dest, const uint8_t* source, size_t count) {
  for (; count >= kVectorBytes; count -= kVectorBytes) {
    const uint8_t* const from = source + (count - kVectorBytes) * kBytes;
    if constexpr (kBytes == 1) {
      Store(dest, ReverseBytes(Load(from)));
    } else {
      Vector channels[kBytes];
      LoadPixels<kBytes>(from, channels);
      for (Vector& channel : channels) channel = ReverseBytes(channel);
      StorePixels<kBytes>(dest, channels);
    }
    dest += kVectorBytes * kBytes;
  }
  ReversePixels<kBytes>(dest, source, count);
}
/// The words of a pixel are what 4-byte pixels move in.
template <>
void Reverse<4>(uint8_t* dest, const uint8_t* source, size_t count) {
  ReversePixels<4>(dest, source, count);
}

void SwapEnds3(uint8_t* row, size_t count) {
  for (; count >= kVectorBytes; count -= kVectorBytes) {
    Vector channels[3];
    LoadPixels<3>(row, channels);
    const Vector swapped[3] = {channels[2], channels[1], channels[0]};
    StorePixels<3>(row, swapped);
    row += 3 * kVectorBytes;
  }
  SwapEndsSingly(row, count);
}

void Exchange3(uint8_t* top, uint8_t* bottom, size_t count) {
  for (; count >= kVectorBytes; count -= kVectorBytes) {
    Vector upper[3];
    Vector lower[3];
    LoadPixels<3>(top, upper);
    LoadPixels<3>(bottom, lower);
    const Vector to_top[3] = {lower[2], lower[1], lower[0]};
    const Vector to_bottom[3] = {upper[2], upper[1], upper[0]};
    StorePixels<3>(top, to_top);
    StorePixels<3>(bottom, to_bottom);
    top += 3 * kVectorBytes;
    bottom += 3 * kVectorBytes;
  }
  ExchangeSingly(top, bottom, count);
}

#else

template <int kBytes>
void Reverse(uint8_t* dest, const uint8_t* source, size_t count) {
  ReversePixels<kBytes>(dest, source, count);
}
void SwapEnds3(uint8_t* row, size_t count) { SwapEndsSingly(row, count); }
void Exchange3(uint8_t* top, uint8_t* bottom, size_t count) { ExchangeSingly(top, bottom, count); }

#endif

}  // namespace

extern const OrientationKernels kOrientationKernels;
constinit const OrientationKernels kOrientationKernels = {
    .reverse1 = &Reverse<1>,
    .reverse3 = &Reverse<3>,
    .reverse4 = &Reverse<4>,
    .swap_ends3 = &SwapEnds3,
    .swap_ends4 = &SwapEnds4,
    .exchange3 = &Exchange3,
    .exchange4 = &Exchange4,
    .transpose1 = &Transpose<1>,
    .transpose3 = &Transpose<3>,
    .transpose4 = &Transpose<4>,
};

}  // namespace qel::QEL_LEVEL
