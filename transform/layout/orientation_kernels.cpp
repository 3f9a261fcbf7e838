#include "transform/layout/orientation_kernels.h"

#include "simd/fetch.h"
#include "simd/interleaved.h"
#include "transform/word_vectors.h"

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

// Where bytes are looked up in whole vectors, sixteen pixels of sixteen rows at a time.

/// Transposes 16 x 16 words held in 16 vectors.
inline void TransposeWords(U32 (&r)[16]) {
  U32 t[16];
  for (size_t i = 0; i < 16; i += 2) {
    t[i] = InterleaveLower(r[i], r[i + 1]);
    t[i + 1] = InterleaveUpper(r[i], r[i + 1]);
  }
  const auto pairs = [](U32 v) { return BitCast<U64>(v); };
  for (size_t i = 0; i < 16; i += 4) {
    r[i] = BitCast<U32>(InterleaveLower(pairs(t[i]), pairs(t[i + 2])));
    r[i + 1] = BitCast<U32>(InterleaveUpper(pairs(t[i]), pairs(t[i + 2])));
    r[i + 2] = BitCast<U32>(InterleaveLower(pairs(t[i + 1]), pairs(t[i + 3])));
    r[i + 3] = BitCast<U32>(InterleaveUpper(pairs(t[i + 1]), pairs(t[i + 3])));
  }
  // r[4 g + k] now holds, in its four blocks p, words 4 g to 4 g + 3 of column 4 p + k.
  for (size_t k = 0; k < 4; ++k) {
    t[k] = ConcatEvenBlocks(r[4 + k], r[k]);
    t[4 + k] = ConcatOddBlocks(r[4 + k], r[k]);
    t[8 + k] = ConcatEvenBlocks(r[12 + k], r[8 + k]);
    t[12 + k] = ConcatOddBlocks(r[12 + k], r[8 + k]);
  }
  for (size_t k = 0; k < 4; ++k) {
    r[k] = ConcatEvenBlocks(t[8 + k], t[k]);
    r[8 + k] = ConcatOddBlocks(t[8 + k], t[k]);
    r[4 + k] = ConcatEvenBlocks(t[12 + k], t[4 + k]);
    r[12 + k] = ConcatOddBlocks(t[12 + k], t[4 + k]);
  }
}

/// 16 x 16 pixels of 3 or 4 bytes.
template <int kBytes>
void TransposeBlock(uint8_t* dest, int64_t dest_stride, const uint8_t* source,
                    int64_t source_stride) {
  U32 block[16];
  for (int i = 0; i < 16; ++i) {
    const uint8_t* const row = source + i * source_stride;
    block[i] = kBytes == 4 ? LoadU<U32>(row) : LoadWords3(row);
  }
  TransposeWords(block);
  for (int i = 0; i < 16; ++i) StoreWords<kBytes>(block[i], dest + i * dest_stride);
}

/// 16 x 16 pixels of 1 byte: four vectors of four rows each.
template <>
inline void TransposeBlock<1>(uint8_t* dest, int64_t dest_stride, const uint8_t* source,
                              int64_t source_stride) {
  U8 rows[4];
  for (int i = 0; i < 4; ++i)
    rows[i] = LoadBlocks<U8>(source + 4 * i * source_stride, source_stride);
  // Byte j of output vector i is column 4 i + j / 16 of row j % 16.
  static constexpr auto kOrder = MakePattern<64>([](size_t j) { return j % 8 * 16 + j / 16; });
  const U8 order = LoadU<U8>(kOrder.bytes);
  for (int i = 0; i < 4; ++i) {
    const U8 columns = order + Set<U8>(static_cast<uint8_t>(4 * i));
    const U8 upper = TwoTablesLookupLanes(rows[0], rows[1], columns);
    const U8 lower = TwoTablesLookupLanes(rows[2], rows[3], columns);
    const U8 both = IfThenElse(MaskFromBits<U8, 0xFF00'FF00'FF00'FF00u>(), lower, upper);
    StoreBlocks(both, dest + 4 * i * dest_stride, dest_stride);
  }
}

template <int kBytes>
void TransposeRectangle(uint8_t* dest, int64_t dest_stride, const uint8_t* source,
                        int64_t source_stride, int64_t columns, int64_t rows) {
  int64_t x = 0;
  if constexpr (kHasByteLookup) {
    for (; columns >= 16 && x + 16 <= rows; x += 16) {
      TransposeBlock<kBytes>(dest + x * kBytes, dest_stride, source + x * source_stride,
                             source_stride);
    }
  }
  TransposeTile<kBytes>(dest + x * kBytes, dest_stride, source + x * source_stride, source_stride,
                        columns, rows - x);
}

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

template <int kBytes>
void ReverseRow(uint8_t* dest, const uint8_t* source, size_t count) {
  // The words of a pixel are what 4-byte pixels move in.
  if constexpr (kHasTableLookupBytes && kBytes < 4) {
    for (; count >= kVectorBytes; count -= kVectorBytes) {
      const uint8_t* const from = source + (count - kVectorBytes) * kBytes;
      if constexpr (kBytes == 1) {
        StoreU(Reverse(LoadU<U8>(from)), dest);
      } else {
        U8 channels[kBytes];
        LoadInterleaved<kBytes>(from, channels);
        for (U8& channel : channels) channel = Reverse(channel);
        StoreInterleaved<kBytes>(channels, dest);
      }
      dest += kVectorBytes * kBytes;
    }
  }
  ReversePixels<kBytes>(dest, source, count);
}

void SwapEnds3(uint8_t* row, size_t count) {
  for (; kHasTableLookupBytes && count >= kVectorBytes; count -= kVectorBytes) {
    U8 channels[3];
    LoadInterleaved<3>(row, channels);
    const U8 swapped[3] = {channels[2], channels[1], channels[0]};
    StoreInterleaved<3>(swapped, row);
    row += 3 * kVectorBytes;
  }
  SwapEndsSingly(row, count);
}

void Exchange3(uint8_t* top, uint8_t* bottom, size_t count) {
  for (; kHasTableLookupBytes && count >= kVectorBytes; count -= kVectorBytes) {
    U8 upper[3];
    U8 lower[3];
    LoadInterleaved<3>(top, upper);
    LoadInterleaved<3>(bottom, lower);
    const U8 to_top[3] = {lower[2], lower[1], lower[0]};
    const U8 to_bottom[3] = {upper[2], upper[1], upper[0]};
    StoreInterleaved<3>(to_top, top);
    StoreInterleaved<3>(to_bottom, bottom);
    top += 3 * kVectorBytes;
    bottom += 3 * kVectorBytes;
  }
  ExchangeSingly(top, bottom, count);
}

}  // namespace

extern const OrientationKernels kOrientationKernels;
constinit const OrientationKernels kOrientationKernels = {
    .reverse1 = &ReverseRow<1>,
    .reverse3 = &ReverseRow<3>,
    .reverse4 = &ReverseRow<4>,
    .swap_ends3 = &SwapEnds3,
    .swap_ends4 = &SwapEnds4,
    .exchange3 = &Exchange3,
    .exchange4 = &Exchange4,
    .transpose1 = &Transpose<1>,
    .transpose3 = &Transpose<3>,
    .transpose4 = &Transpose<4>,
};

}  // namespace qel::QEL_LEVEL
