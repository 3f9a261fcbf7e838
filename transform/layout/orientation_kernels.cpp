#include "transform/layout/orientation_kernels.h"

#include <type_traits>

#include "simd/interleaved.h"
#include "simd/prefetch.h"
#include "simd/stream.h"

namespace qel::QEL_LEVEL {
namespace {

template <int kBytes>
void CopyPixel(uint8_t* dest, const uint8_t* source) {
  __builtin_memcpy(dest, source, kBytes);
}

// Transposes go in tiles whose cache lines on both sides fit the innermost cache. Within a block of
// 16 bytes, interleaving rows i and i + n / 2 of n rows n elements long rotates the bits of row and
// column by one place; after log2(n) times they have changed sides: perfect shuffles (Stone 1971).
// A vector has rows of as many such squares below each other as it has blocks.

/// Source rows of a tile, and columns that are transposed together.
constexpr int64_t kTileRows = 64;
constexpr int64_t kTileColumns = 16;
/// Columns of a tile whose rows are whole lines of the cache: where the rows of a picture are many
/// lines apart, few of these stay in the nearest cache until the next tile.
template <int kBytes>
constexpr int64_t kWideTileColumns = kBytes == 1 ? 64 : kTileColumns;
/// Source columns of wide pictures that tiles go along before the next rows: each becomes a row in
/// a page of its own, and the processor remembers where some two thousand pages are.
constexpr int64_t kBandColumns = 1024;
static_assert(kBandColumns % kWideTileColumns<1> == 0);

/// Transposes the squares that the blocks of `rows` hold.
template <typename V, size_t kSide>
QEL_SIMD_INLINE void TransposeSquares(V (&rows)[kSide]) {
  static_assert(kSide * sizeof(typename V::Lane) == 16);
  for (size_t bit = 1; bit < kSide; bit *= 2) {
    V pairs[kSide];
    for (size_t i = 0; i < kSide / 2; ++i) {
      pairs[2 * i] = InterleaveLower(rows[i], rows[i + kSide / 2]);
      pairs[2 * i + 1] = InterleaveUpper(rows[i], rows[i + kSide / 2]);
    }
    for (size_t i = 0; i < kSide; ++i) rows[i] = pairs[i];
  }
}

/// What pixels of 4 bytes, or of 3 with room for a fourth, are transposed in. Squares of words are
/// joined and interleaved by more parts of the processor at once in vectors of two blocks than of
/// four.
template <int kBytes>
using PixelWords = std::conditional_t<kBytes == 4 && (kVectorBytes > 32), Half<U32>, U32>;

/// Four pixels in each block.
template <int kBytes, size_t kFirst>
QEL_SIMD_INLINE PixelWords<kBytes> LoadPixelBlocks(const uint8_t* source, int64_t stride) {
  const uint8_t* const from = source + kBytes * kFirst;
  if constexpr (kBytes == 4 && PixelWords<4>::kBytes < kVectorBytes) {
    return Combine(LoadU<Block<U32>>(from + stride), LoadU<Block<U32>>(from));
  } else if constexpr (kBytes == 4) {
    return LoadBlocks<U32>(from, stride);
  } else {
    // The last pixels of a row are loaded together with what lies before them, not behind.
    constexpr size_t kBefore = kFirst == kTileColumns - 4 ? 4 : 0;
    static constexpr auto kApart =
        MakePattern<16>([](size_t i) { return i % 4 == 3 ? 0x80 : i / 4 * 3 + i % 4 + kBefore; });
    return BitCast<U32>(ShuffleBlocks(LoadBlocks<U8>(from - kBefore, stride), kApart));
  }
}
/// Stores sixteen pixels of 3 bytes per block: four of them, with a fourth byte, are in that block
/// of each vector. Stores of whole blocks lie in one line of the cache.
QEL_SIMD_INLINE void StorePixels3(U32 v0, U32 v1, U32 v2, U32 v3, uint8_t* dest) {
  // The bytes that a block has of each vector, turned so far that they stand where they are stored.
  const auto turned = []<size_t kBy>(U32 v, std::integral_constant<size_t, kBy>) {
    static constexpr auto kPlaces = MakePattern<16>([](size_t i) {
      const size_t byte = (i + 16 - kBy) % 16;
      return byte < 12 ? byte / 3 * 4 + byte % 3 : 0x80;
    });
    return ShuffleBlocks(BitCast<U8>(v), kPlaces);
  };
  const U8 a = turned(v0, std::integral_constant<size_t, 0>());
  const U8 b = turned(v1, std::integral_constant<size_t, 12>());
  const U8 c = turned(v2, std::integral_constant<size_t, 8>());
  const U8 d = turned(v3, std::integral_constant<size_t, 4>());
  StoreBlocks(IfThenElse(MaskFromBits<U8, 0xF000'F000'F000'F000u>(), b, a), dest, 48);
  StoreBlocks(IfThenElse(MaskFromBits<U8, 0xFF00'FF00'FF00'FF00u>(), c, b), dest + 16, 48);
  StoreBlocks(IfThenElse(MaskFromBits<U8, 0xFFF0'FFF0'FFF0'FFF0u>(), d, c), dest + 32, 48);
}

/// Transposes four columns of as many rows of a tile as a vector has pixels of 4 bytes, or bytes.
template <int kBytes, size_t kFirst = 0>
QEL_SIMD_INLINE void TransposeRows(uint8_t* dest, int64_t dest_stride, const uint8_t* source,
                                   int64_t source_stride) {
  constexpr size_t kSquares = kBytes == 3 ? 4 : 1;
  PixelWords<kBytes> columns[kSquares][4];
  for (size_t k = 0; k < kSquares; ++k) {
    for (size_t i = 0; i < 4; ++i) {
      const auto row = static_cast<int64_t>(4 * k + i);
      columns[k][i] = LoadPixelBlocks<kBytes, kFirst>(source + row * source_stride,
                                                      4 * kSquares * source_stride);
    }
    TransposeSquares(columns[k]);
  }
  for (size_t i = 0; i < 4; ++i) {
    uint8_t* const to = dest + static_cast<int64_t>(kFirst + i) * dest_stride;
    if constexpr (kBytes == 4) {
      StoreU(columns[0][i], to);
    } else {
      StorePixels3(columns[0][i], columns[1][i], columns[2][i], columns[3][i], to);
    }
  }
  if constexpr (kFirst + 4 < kTileColumns) {
    TransposeRows<kBytes, kFirst + 4>(dest, dest_stride, source, source_stride);
  }
}

/// Source rows that are transposed together.
template <int kBytes>
constexpr int64_t kRowsAtOnce = kBytes == 4 ? PixelWords<4>::kLanes : U8::kLanes;

/// Transposes the first `rows` rows of a tile, a multiple of `kRowsAtOnce`, and `wide` columns.
template <int kBytes>
void TransposeTile(uint8_t* dest, int64_t dest_stride, const uint8_t* source, int64_t source_stride,
                   int64_t rows, int64_t wide = kTileColumns) {
  for (int64_t x = 0; x < rows; x += kRowsAtOnce<kBytes>) {
    const uint8_t* const from = source + x * source_stride;
    if constexpr (kBytes == 1) {
      for (int64_t y = 0; y < wide; y += kTileColumns) {
        U8 columns[16];
        for (int64_t i = 0; i < 16; ++i) {
          columns[i] = LoadBlocks<U8>(from + y + i * source_stride, 16 * source_stride);
        }
        TransposeSquares(columns);
        for (int64_t i = 0; i < 16; ++i) StoreU(columns[i], dest + x + (y + i) * dest_stride);
      }
    } else {
      TransposeRows<kBytes>(dest + x * kBytes, dest_stride, from, source_stride);
    }
  }
}

/// Not inlined: its loop would share registers with those round it.
template <int kBytes>
[[gnu::noinline]] void TransposeSingly(uint8_t* __restrict dest, int64_t dest_stride,
                                       const uint8_t* __restrict source, int64_t source_stride,
                                       int64_t columns, int64_t rows) {
  for (int64_t y = 0; y < columns; ++y) {
    uint8_t* to = dest + y * dest_stride;
    const uint8_t* from = source + y * kBytes;
    for (int64_t x = 0; x < rows; ++x, to += kBytes, from += source_stride) {
      CopyPixel<kBytes>(to, from);
    }
  }
}

/// Brings the rows of a rectangle into the second cache. They are more lines than the nearest one
/// waits for at a time.
template <int kWrite>
void PrefetchRectangle(const uint8_t* first, int64_t stride, int64_t rows, int64_t bytes) {
  constexpr int kSecondCache = 2;
  for (; rows > 0; --rows, first += stride) {
    for (int64_t at = 0; at < bytes; at += 64) {
      __builtin_prefetch(first + at, kWrite, kSecondCache);
    }
    __builtin_prefetch(first + bytes - 1, kWrite, kSecondCache);
  }
  asm volatile("");  // what does nothing else would be dropped
}

constexpr int64_t Smaller(int64_t a, int64_t b) { return a < b ? a : b; }

/// Transposes a tile in the nearest cache, from where its rows are stored past the others.
template <int kBytes>
void StreamTile(uint8_t* dest, int64_t dest_stride, const uint8_t* source, int64_t source_stride,
                int64_t wide) {
  constexpr int64_t kRowBytes = kTileRows * kBytes;
  alignas(64) uint8_t tile[kWideTileColumns<kBytes> * kRowBytes];
  TransposeTile<kBytes>(tile, kRowBytes, source, source_stride, kTileRows, wide);
  for (int64_t y = 0; y < wide; ++y) {
    StreamBytes(dest + y * dest_stride, tile + y * kRowBytes, kRowBytes);
  }
}

/// Transposes fewer rows than a tile has.
template <int kBytes>
void TransposeLowTile(uint8_t* dest, int64_t dest_stride, const uint8_t* source,
                      int64_t source_stride, int64_t rows) {
  constexpr int64_t kRows = kRowsAtOnce<kBytes>;
  if (rows >= kRows) {
    const int64_t last = rows - kRows;
    TransposeTile<kBytes>(dest, dest_stride, source, source_stride, rows - rows % kRows);
    if (rows % kRows == 0) return;
    // Some once more.
    return TransposeTile<kBytes>(dest + last * kBytes, dest_stride, source + last * source_stride,
                                 source_stride, kRows);
  }
  constexpr int64_t kRowBytes = kRows * kBytes;
  constexpr int64_t kColumnBytes = kTileColumns * kBytes;
  alignas(64) uint8_t from[kRows * kColumnBytes];
  alignas(64) uint8_t tile[kTileColumns * kRowBytes];
  for (int64_t x = 0; x < rows; ++x) {
    __builtin_memcpy(from + x * kColumnBytes, source + x * source_stride, kColumnBytes);
  }
  TransposeTile<kBytes>(tile, kRowBytes, from, kColumnBytes, kRows);
  for (int64_t y = 0; y < kTileColumns; ++y) {
    __builtin_memcpy(dest + y * dest_stride, tile + y * kRowBytes,
                     static_cast<size_t>(rows * kBytes));
  }
}

template <int kBytes>
void Transpose(uint8_t* dest, int64_t dest_stride, const uint8_t* source, int64_t source_stride,
               int64_t columns, int64_t rows, bool streams) {
  const bool is_high = rows >= kTileRows;
  // Fewer pixels of 3 bytes than go together are quicker one by one than copied and transposed.
  const bool pays = kBytes != 3 || (kHasTableLookupBytes && rows >= kRowsAtOnce<kBytes>);
  const bool has_tiles = pays && columns >= kTileColumns;
  const int64_t wide =
      is_high && columns >= kWideTileColumns<kBytes> ? kWideTileColumns<kBytes> : kTileColumns;
  const auto transpose_band = [&](int64_t next_x, int64_t begin, int64_t end) {
    // The last tiles overlap those before them.
    const int64_t x = has_tiles && is_high ? Smaller(next_x, rows - kTileRows) : next_x;
    const int64_t tile_rows = Smaller(rows - x, kTileRows);
    for (int64_t next_y = begin; next_y < end; next_y += wide) {
      const int64_t y = has_tiles ? Smaller(next_y, columns - wide) : next_y;
      uint8_t* const to = dest + y * dest_stride + x * kBytes;
      const uint8_t* const from = source + x * source_stride + y * kBytes;
      const int64_t ahead = Smaller(columns - y - wide, wide);
      if (!streams) {
        PrefetchRectangle<1>(to + wide * dest_stride, dest_stride, ahead, tile_rows * kBytes);
      }
      if (ahead > 0)
        PrefetchRectangle<0>(from + wide * kBytes, source_stride, tile_rows, ahead * kBytes);
      if (!has_tiles) {
        TransposeSingly<kBytes>(to, dest_stride, from, source_stride, Smaller(columns - y, wide),
                                tile_rows);
      } else if (!is_high) {
        TransposeLowTile<kBytes>(to, dest_stride, from, source_stride, rows);
      } else if (streams) {
        StreamTile<kBytes>(to, dest_stride, from, source_stride, wide);
      } else {
        TransposeTile<kBytes>(to, dest_stride, from, source_stride, kTileRows, wide);
      }
    }
  };
  const int64_t band_columns = columns <= 2 * kBandColumns ? columns : kBandColumns;
  for (int64_t begin = 0; begin < columns; begin += band_columns) {
    const int64_t end = Smaller(columns, begin + band_columns);
    for (int64_t x = 0; x < rows; x += kTileRows) transpose_band(x, begin, end);
  }
  if (streams) FinishStream();
}

template <int kBytes>
void ReversePixels(uint8_t* __restrict dest, const uint8_t* __restrict source, size_t count) {
  for (; kBytes == 1 && count >= 8; count -= 8, dest += 8) {
    uint64_t eight;
    __builtin_memcpy(&eight, source + count - 8, 8);
    eight = __builtin_bswap64(eight);
    __builtin_memcpy(dest, &eight, 8);
  }
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
  static constexpr auto kSwapped =
      MakePattern<16>([](size_t i) { return i % 4 % 2 == 0 ? i - i % 4 + 2 - i % 4 : i; });
  for (; kHasTableLookupBytes && count >= kVectorBytes; count -= kVectorBytes) {
    PrefetchInSteps<4 * kVectorBytes>(row);
    for (size_t v = 0; v < 4; ++v, row += kVectorBytes) {
      StoreU(ShuffleBlocks(LoadU<U8>(row), kSwapped), row);
    }
  }
  for (size_t x = 0; x < count; ++x) {
    const uint32_t word = WithSwappedEnds(LoadWord(row + 4 * x));
    __builtin_memcpy(row + 4 * x, &word, 4);
  }
}

void ExchangePixels4(uint8_t* __restrict top, uint8_t* __restrict bottom, size_t count) {
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
void Exchange4(uint8_t* top, uint8_t* bottom, size_t count) {
  constexpr size_t kRun = 64;
  for (; count >= kRun; count -= kRun, top += 4 * kRun, bottom += 4 * kRun) {
    PrefetchInSteps<4 * kRun>(top);
    PrefetchInSteps<4 * kRun>(bottom);
    ExchangePixels4(top, bottom, kRun);
  }
  ExchangePixels4(top, bottom, count);
}

/// Lanes in the opposite order: words at once, bytes within blocks and then the blocks.
template <typename V>
QEL_SIMD_INLINE V Reverse(V v) {
  constexpr size_t m = kBlockLanes<V>;
  if constexpr (m == 4) return Shuffled<V>(v, v, [](size_t i) { return V::kLanes - 1 - i; });
  const V turned = Shuffled<V>(v, v, [](size_t i) { return i - i % m + m - 1 - i % m; });
  return Shuffled<V>(turned, turned, [](size_t i) { return V::kLanes - m - i + 2 * (i % m); });
}

/// Brings what lies so far ahead. What is asked for row by row waits for most of a row before the
/// first of its pixels is moved.
QEL_SIMD_INLINE void Prefetch(const uint8_t* dest, const uint8_t* source, const RowsAhead& ahead) {
  PrefetchLine(source + ahead.source);
  PrefetchLine<1>(dest + ahead.dest);
}

/// Pixels of 3 bytes in the opposite order, until fewer than a vector of them are left; returns
/// their number. Each lookup turns as many whole pixels as fit with a byte more, which is loaded
/// from the pixel before and stored over by the next ones.
size_t ReverseTriples(uint8_t* dest, const uint8_t* source, size_t count, const RowsAhead& ahead) {
  constexpr size_t kTable = kHasByteLookup ? kVectorBytes : 16;
  constexpr size_t kPixels = (kTable - 1) / 3;
  constexpr size_t kAtOnce = kVectorBytes / kTable * kPixels;
  static constexpr auto kOrder = MakePattern<kTable>(
      [](size_t i) { return i < 3 * kPixels ? kTable - 3 * (i / 3 + 1) + i % 3 : 0; });
  const auto reverse = [&] {
    const auto last_of = [=](size_t table) {
      return source + 3 * (count - table * kPixels) - kTable;
    };
    if constexpr (kHasByteLookup) {
      StoreU(TableLookupLanes(LoadU<U8>(last_of(0)), LoadU<U8>(kOrder.bytes)), dest);
    } else {
      const U8 turned = ShuffleBlocks(GatherBlocks<U8>(last_of), kOrder);
      StoreBlocks(turned, dest, 3 * kPixels);
    }
    count -= kAtOnce;
    dest += 3 * kAtOnce;
  };
  constexpr size_t kVectors = 64 / kVectorBytes;  // of no more than a line
  while (count > kVectors * kAtOnce) {
    Prefetch(dest, source + 3 * (count - kVectors * kAtOnce), ahead);
    for (size_t v = 0; v < kVectors; ++v) reverse();
  }
  while (count > kAtOnce) reverse();
  return count;
}

template <int kBytes>
void ReverseRow(uint8_t* dest, const uint8_t* source, size_t count, const RowsAhead& ahead) {
  if constexpr (kHasTableLookupBytes && kBytes == 3) {
    const size_t rest = ReverseTriples(dest, source, count, ahead);
    dest += 3 * (count - rest);
    count = rest;
  } else if constexpr (kHasTableLookupBytes) {
    using Pixels = std::conditional_t<kBytes == 1, U8, U32>;
    const auto reverse = [&] {
      count -= Pixels::kLanes;
      StoreU(Reverse(LoadU<Pixels>(source + kBytes * count)), dest);
      dest += kVectorBytes;
    };
    constexpr size_t kVectors = 64 / kVectorBytes;  // of a line
    while (count >= kVectors * Pixels::kLanes) {
      Prefetch(dest, source + kBytes * count - 64, ahead);
      for (size_t v = 0; v < kVectors; ++v) reverse();
    }
    while (count >= Pixels::kLanes) reverse();
  } else {
    constexpr size_t kRun = 64;
    for (; count >= kRun; count -= kRun, dest += kBytes * kRun) {
      const uint8_t* const from = source + kBytes * (count - kRun);
      for (size_t at = 0; at < kBytes * kRun; at += 64) Prefetch(dest + at, from + at, ahead);
      ReversePixels<kBytes>(dest, from, kRun);
    }
  }
  ReversePixels<kBytes>(dest, source, count);
}

void SwapEnds3(uint8_t* row, size_t count) {
  for (; kHasTableLookupBytes && count >= kVectorBytes; count -= kVectorBytes) {
    PrefetchInSteps<3 * kVectorBytes>(row);
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
    PrefetchInSteps<3 * kVectorBytes>(top);
    PrefetchInSteps<3 * kVectorBytes>(bottom);
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
