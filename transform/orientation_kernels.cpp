#include "transform/orientation_kernels.h"

#ifdef QEL_LEVEL_avx512vbmi
#include <immintrin.h>
#endif

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

constexpr __mmask64 FirstBytes(size_t count) {
  return count >= 64 ? ~__mmask64{0} : (__mmask64{1} << count) - 1;
}

struct IndexTable {
  alignas(64) uint8_t index[64];
};

/// index[j] = make(j) as a register.
template <typename Make>
__m512i Indices(Make make) {
  IndexTable table;
  for (int j = 0; j < 64; ++j) table.index[j] = static_cast<uint8_t>(make(j));
  return _mm512_load_si512(table.index);
}

/// Reverses pixels in groups that fill a register, the last one partly.
template <int kBytes>
void Reverse(uint8_t* dest, const uint8_t* source, size_t count) {
  constexpr size_t kGroup = 64 / kBytes;
  const __m512i order = Indices([](int j) {
    return j / kBytes < static_cast<int>(kGroup)
               ? (static_cast<int>(kGroup) - 1 - j / kBytes) * kBytes + j % kBytes
               : 0;
  });
  while (count > 0) {
    const size_t pixels = count < kGroup ? count : kGroup;
    const __mmask64 bytes = FirstBytes(pixels * kBytes);
    count -= pixels;
    const __m512i group = _mm512_maskz_loadu_epi8(bytes, source + count * kBytes);
    const __m512i shift = _mm512_set1_epi8(static_cast<char>((kGroup - pixels) * kBytes));
    const __m512i reversed = _mm512_permutexvar_epi8(_mm512_sub_epi8(order, shift), group);
    _mm512_mask_storeu_epi8(dest, bytes, reversed);
    dest += pixels * kBytes;
  }
}

constexpr size_t kGroup3 = 21;  // 24-bit pixels of a register

/// Bytes 0 and 2 of every pixel exchanged; what is behind the last whole pixel stays.
template <int kBytes>
__m512i SwappedOrder() {
  return Indices([](int j) {
    if (j / kBytes * kBytes + kBytes > 64) return j;
    return j % kBytes == 0 ? j + 2 : j % kBytes == 2 ? j - 2 : j;
  });
}

template <int kBytes>
void SwapEnds(uint8_t* row, size_t count) {
  constexpr size_t kGroup = 64 / kBytes;
  const __m512i order = SwappedOrder<kBytes>();
  for (size_t done = 0; done < count; done += kGroup) {
    const __mmask64 bytes = FirstBytes((count - done < kGroup ? count - done : kGroup) * kBytes);
    uint8_t* const group = row + done * kBytes;
    const __m512i old = _mm512_maskz_loadu_epi8(bytes, group);
    _mm512_mask_storeu_epi8(group, bytes, _mm512_permutexvar_epi8(order, old));
  }
}

template <int kBytes>
void Exchange(uint8_t* top, uint8_t* bottom, size_t count) {
  constexpr size_t kGroup = 64 / kBytes;
  constexpr __mmask64 kColour = kBytes == 4 ? 0x7777777777777777u : ~__mmask64{0};
  const __m512i order = SwappedOrder<kBytes>();
  for (size_t done = 0; done < count; done += kGroup) {
    const __mmask64 bytes = FirstBytes((count - done < kGroup ? count - done : kGroup) * kBytes);
    const __m512i upper = _mm512_maskz_loadu_epi8(bytes, top + done * kBytes);
    const __m512i lower = _mm512_maskz_loadu_epi8(bytes, bottom + done * kBytes);
    _mm512_mask_storeu_epi8(top + done * kBytes, bytes & kColour,
                            _mm512_permutexvar_epi8(order, lower));
    _mm512_mask_storeu_epi8(bottom + done * kBytes, bytes & kColour,
                            _mm512_permutexvar_epi8(order, upper));
  }
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

/// 16 x 16 pixels of 3 or 4 bytes; pixels of 3 bytes travel as words.
template <int kBytes>
void TransposeBlock(uint8_t* dest, int64_t dest_stride, const uint8_t* source,
                    int64_t source_stride) {
  constexpr __mmask64 kRow = kBytes == 4 ? ~__mmask64{0} : (__mmask64{1} << 48) - 1;
  __m512i block[16];
  if constexpr (kBytes == 4) {
    for (int i = 0; i < 16; ++i) block[i] = _mm512_loadu_si512(source + i * source_stride);
    TransposeWords(block);
    for (int i = 0; i < 16; ++i) _mm512_storeu_si512(dest + i * dest_stride, block[i]);
  } else {
    const __m512i spread = Indices([](int j) { return j / 4 * 3 + j % 4; });
    const __m512i gather = Indices([](int j) { return j < 48 ? j / 3 * 4 + j % 3 : 0; });
    for (int i = 0; i < 16; ++i) {
      block[i] = _mm512_permutexvar_epi8(spread,
                                         _mm512_maskz_loadu_epi8(kRow, source + i * source_stride));
    }
    TransposeWords(block);
    for (int i = 0; i < 16; ++i) {
      _mm512_mask_storeu_epi8(dest + i * dest_stride, kRow,
                              _mm512_permutexvar_epi8(gather, block[i]));
    }
  }
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
void Reverse(uint8_t* __restrict dest, const uint8_t* __restrict source, size_t count) {
  for (size_t x = 0; x < count; ++x) {
    CopyPixel<kBytes>(dest + x * kBytes, source + (count - 1 - x) * kBytes);
  }
}

template <int kBytes>
void SwapEnds(uint8_t* row, size_t count) {
  for (size_t x = 0; x < count; ++x) {
    uint8_t* const pixel = row + x * kBytes;
    const uint8_t first = pixel[0];
    pixel[0] = pixel[2];
    pixel[2] = first;
  }
}

template <int kBytes>
void Exchange(uint8_t* __restrict top, uint8_t* __restrict bottom, size_t count) {
  for (size_t x = 0; x < count; ++x) {
    uint8_t* const upper = top + x * kBytes;
    uint8_t* const lower = bottom + x * kBytes;
    const uint8_t old[3] = {upper[0], upper[1], upper[2]};
    upper[0] = lower[2];
    upper[1] = lower[1];
    upper[2] = lower[0];
    lower[0] = old[2];
    lower[1] = old[1];
    lower[2] = old[0];
  }
}

template <int kBytes>
void TransposeRectangle(uint8_t* dest, int64_t dest_stride, const uint8_t* source,
                        int64_t source_stride, int64_t columns, int64_t rows) {
  TransposeTile<kBytes>(dest, dest_stride, source, source_stride, columns, rows);
}

#endif

template <int kBytes>
void Transpose(uint8_t* dest, int64_t dest_stride, const uint8_t* source, int64_t source_stride,
               int64_t columns, int64_t rows) {
  for (int64_t x = 0; x < rows; x += kTileRows) {
    for (int64_t y = 0; y < columns; y += kTileColumns) {
      TransposeRectangle<kBytes>(dest + y * dest_stride + x * kBytes, dest_stride,
                                 source + x * source_stride + y * kBytes, source_stride,
                                 Smaller(columns - y, kTileColumns), Smaller(rows - x, kTileRows));
    }
  }
}

}  // namespace

extern const OrientationKernels kOrientationKernels;
constinit const OrientationKernels kOrientationKernels = {
    .reverse1 = &Reverse<1>,
    .reverse3 = &Reverse<3>,
    .reverse4 = &Reverse<4>,
    .swap_ends3 = &SwapEnds<3>,
    .swap_ends4 = &SwapEnds<4>,
    .exchange3 = &Exchange<3>,
    .exchange4 = &Exchange<4>,
    .transpose1 = &Transpose<1>,
    .transpose3 = &Transpose<3>,
    .transpose4 = &Transpose<4>,
};

}  // namespace qel::QEL_LEVEL
