#include "transform/resample/resample_kernels.h"

#include <utility>

#include "simd/fetch.h"
#include "transform/lanes.h"
#include "transform/word_pixels.h"

namespace qel::QEL_LEVEL {
namespace {

/// Pixels one after the other. The fourth byte stays where the plan keeps alpha.
template <int kBytes>
void PickSingly(uint8_t* dest, const uint8_t* source, const PickPlan& plan, size_t from,
                size_t to) {
  constexpr int kColourBytes = kBytes < 3 ? kBytes : 3;
  if (plan.keep_alpha) {
    for (size_t x = from; x < to; ++x) {
      __builtin_memcpy(dest + x * kBytes, source + plan.offsets[x], kColourBytes);
    }
    return;
  }
  for (size_t x = from; x < to; ++x) {
    __builtin_memcpy(dest + x * kBytes, source + plan.offsets[x], kBytes);
  }
}

void MakeOpaque(uint8_t* row, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    uint32_t colour;
    __builtin_memcpy(&colour, row + 4 * i, 4);
    colour |= 0xFF000000u;
    __builtin_memcpy(row + 4 * i, &colour, 4);
  }
}

/// The taps of columns `from` to `to`, one after the other.
void GatherSingly(float* planes, const uint8_t* row, const TileTaps& tile, size_t from, size_t to) {
  for (size_t tap = 0; tap < tile.taps; ++tap) {
    for (size_t channel = 0; channel < tile.channels; ++channel) {
      float* const plane = planes + (tap * tile.channels + channel) * tile.columns;
      const uint8_t outside = tile.outside[channel];
      for (size_t x = from; x < to; ++x) {
        const int64_t offset = tile.offsets[tap][x];
        plane[x] = offset < 0 ? outside : row[static_cast<size_t>(offset) + channel];
      }
    }
  }
}

#ifdef QEL_LEVEL_avx512vbmi
inline __m512i ToRegister(Ints words) { return reinterpret_cast<__m512i>(words); }
#else
inline Ints ToRegister(Ints words) { return words; }
#endif

/// Vectors of columns that are summed at a time: each has one sum per channel in each of two rows,
/// and the additions of one fill the waits of the others.
template <size_t kChannels>
constexpr size_t kVectors = kChannels == 1 ? 2 : 1;

/// Sums of one row.
template <size_t kChannels>
struct RowSums {
  Floats of[kVectors<kChannels>][kChannels] = {};
};

/// Adds the taps of the columns from column `x` on for two rows: rows outer, columns inner, weights
/// multiplied with each other first.
template <size_t kTaps, size_t kChannels>
inline void SumTaps(RowSums<kChannels> (&sums)[2], const BlendRow (&rows)[2], const TileTaps& tile,
                    size_t x) {
  for (size_t j = 0; j < kTaps; ++j) {
    for (size_t i = 0; i < kTaps; ++i) {
      for (size_t v = 0; v < kVectors<kChannels>; ++v) {
        const size_t first = x + v * kLanes;
        const Floats column_weight = LoadFloats(tile.weights[i] + first);
        const Floats upper_weight = column_weight * rows[0].weights[j];
        const Floats lower_weight = column_weight * rows[1].weights[j];
        for (size_t c = 0; c < kChannels; ++c) {
          const size_t at = (i * kChannels + c) * tile.columns + first;
          sums[0].of[v][c] += upper_weight * LoadFloats(rows[0].planes[j] + at);
          sums[1].of[v][c] += lower_weight * LoadFloats(rows[1].planes[j] + at);
        }
      }
    }
  }
}

/// The same for four rows in the order of `BlendBlock`.
template <size_t kTaps, size_t kChannels>
inline void SumTaps(RowSums<kChannels> (&sums)[4], const BlendRow (&rows)[4], const TileTaps& tile,
                    size_t x) {
  for (size_t j = 0; j < kTaps; ++j) {
    for (size_t i = 0; i < kTaps; ++i) {
      for (size_t v = 0; v < kVectors<kChannels>; ++v) {
        const size_t first = x + v * kLanes;
        const Floats column_weight = LoadFloats(tile.weights[i] + first);
        const Floats even_weight = column_weight * rows[0].weights[j];
        const Floats odd_weight = column_weight * rows[1].weights[j];
        for (size_t c = 0; c < kChannels; ++c) {
          const size_t at = (i * kChannels + c) * tile.columns + first;
          const Floats upper = LoadFloats(rows[0].planes[j] + at);
          const Floats lower = LoadFloats(rows[2].planes[j] + at);
          sums[0].of[v][c] += even_weight * upper;
          sums[1].of[v][c] += odd_weight * upper;
          sums[2].of[v][c] += even_weight * lower;
          sums[3].of[v][c] += odd_weight * lower;
        }
      }
    }
  }
}

#ifdef QEL_LEVEL_avx512vbmi

/// Loads `count` bytes into the beginning of a register.
inline __m512i LoadFirst(const uint8_t* bytes, int64_t count) {
  return count > 0 ? _mm512_maskz_loadu_epi8(FirstBytes(static_cast<size_t>(count)), bytes)
                   : _mm512_setzero_si512();
}

constexpr bool kPicksBlocks = true;
/// Bytes that are fetched in advance.
constexpr int64_t kAhead = 1024;

__m512i PickBytes(const uint8_t* source, const PickBlock& block) {
  const uint8_t* const from = source + block.base;
  // The processor does not foresee loads under masks.
  for (int64_t at = 0; at < block.span; at += 64) FetchLine(from + kAhead + at);
  const __m512i index = _mm512_loadu_si512(block.index);
  const __m512i part0 = LoadFirst(from, block.span);
  if (block.span <= 64) return _mm512_permutexvar_epi8(index, part0);
  const __m512i part1 = LoadFirst(from + 64, block.span - 64);
  const __m512i low = _mm512_permutex2var_epi8(part0, index, part1);
  if (block.span <= 128) return low;
  const __m512i part2 = LoadFirst(from + 128, block.span - 128);
  const __m512i part3 = LoadFirst(from + 192, block.span - 192);
  const __m512i high = _mm512_permutex2var_epi8(part2, index, part3);
  return _mm512_mask_blend_epi8(_mm512_movepi8_mask(index), low, high);
}

/// Stores the bytes in `lanes`; the others of a whole register are stored as they were, because
/// masked stores take several times as long as plain ones.
inline void StorePicked(uint8_t* dest, size_t count, __m512i picked, __mmask64 lanes) {
  if (count < 64) {
    _mm512_mask_storeu_epi8(dest, FirstBytes(count) & lanes, picked);
    return;
  }
  if (lanes != ~__mmask64{0}) {
    FetchLine<1>(dest + kAhead);
    picked = _mm512_mask_mov_epi8(_mm512_loadu_si512(dest), lanes, picked);
  }
  _mm512_storeu_si512(dest, picked);
}

template <int kBytes>
void Pick(uint8_t* dest, const uint8_t* source, const PickPlan& plan) {
  const size_t bytes = plan.pixels * kBytes;
  const __mmask64 lanes = plan.keep_alpha && kBytes == 4 ? 0x7777777777777777u : ~__mmask64{0};
  for (size_t at = 0; at < bytes; at += 64) {
    const PickBlock& block = plan.blocks[at / 64];
    if (block.span > 0) {
      StorePicked(dest + at, bytes - at, PickBytes(source, block), lanes);
    } else {
      // Pixels that reach into the next block are written twice with the same bytes.
      const size_t end = (at + 64 + kBytes - 1) / kBytes;
      PickSingly<kBytes>(dest, source, plan, at / kBytes, end < plan.pixels ? end : plan.pixels);
    }
  }
}

/// The next byte of a column is its next channel or the first one of its next tap.
template <bool kTwoParts>
void GatherGroup(float* planes, const uint8_t* row, const TileTaps& tile, size_t x) {
  const TapGroup& group = tile.groups[x / kGroupColumns];
  const uint8_t* const from = row + group.base;
  const __m512i part0 = LoadFirst(from, group.bytes);
  const __m512i part1 = kTwoParts ? LoadFirst(from + 64, group.bytes - 64) : _mm512_setzero_si512();
  __m512i index = _mm512_loadu_si512(group.index);
  constexpr __mmask64 kLowBytes = 0x1111111111111111u;
  for (size_t plane = 0; plane < tile.taps * tile.channels; ++plane) {
    const __m512i bytes = kTwoParts ? _mm512_maskz_permutex2var_epi8(kLowBytes, part0, index, part1)
                                    : _mm512_maskz_permutexvar_epi8(kLowBytes, index, part0);
    _mm512_storeu_ps(planes + plane * tile.columns + x, _mm512_cvtepi32_ps(bytes));
    index = _mm512_add_epi32(index, _mm512_set1_epi32(1));
  }
}

void Gather(float* planes, const uint8_t* row, const TileTaps& tile) {
  for (size_t x = 0; x < tile.columns; x += kGroupColumns) {
    const int64_t bytes = tile.groups[x / kGroupColumns].bytes;
    if (bytes == 0) {
      GatherSingly(planes, row, tile, x, x + kGroupColumns);
    } else {
      (bytes > 64 ? &GatherGroup<true> : &GatherGroup<false>)(planes, row, tile, x);
    }
  }
}

#else

constexpr bool kPicksBlocks = false;

template <int kBytes>
void Pick(uint8_t* dest, const uint8_t* source, const PickPlan& plan) {
  PickSingly<kBytes>(dest, source, plan, 0, plan.pixels);
}

#if QEL_HAS_REGISTERS

/// Four taps of `kLanes` columns from column `x` on.
template <int... kAt>
void GatherFour(float* planes, const uint8_t* row, const TileTaps& tile, size_t tap, size_t x,
                std::integer_sequence<int, kAt...>) {
  Ints words[4];
  LoadWordColumns(words, [&](size_t k) { return row + tile.offsets[tap][x + k]; });
  // The taps of a column lie side by side: the next byte is the next channel or the next tap.
  const auto store = [&](size_t at, Floats values) {
    float* const plane = planes + (tap * tile.channels + at) * tile.columns;
    __builtin_memcpy(plane + x, &values, sizeof(values));
  };
  (store(kAt, ByteOfWords<kAt % 4>(words[kAt / 4])), ...);
}

template <int kChannels>
void GatherColumns(float* planes, const uint8_t* row, const TileTaps& tile) {
  for (size_t x = 0; x < tile.columns; x += kLanes) {
    // Sixteen bytes are loaded from the first one of each four taps on.
    const int64_t last_load = tile.offsets[tile.taps - 4][x + kLanes - 1];
    const bool inside = tile.offsets[0][x] >= 0 && tile.offsets[tile.taps - 1][x + kLanes - 1] >= 0;
    if (!inside || last_load + 16 > tile.row_bytes) {
      GatherSingly(planes, row, tile, x, x + kLanes);
      continue;
    }
    for (size_t tap = 0; tap < tile.taps; tap += 4) {
      GatherFour(planes, row, tile, tap, x, std::make_integer_sequence<int, 4 * kChannels>());
    }
  }
}

void Gather(float* planes, const uint8_t* row, const TileTaps& tile) {
  const auto gather = tile.channels == 1   ? &GatherColumns<1>
                      : tile.channels == 3 ? &GatherColumns<3>
                                           : &GatherColumns<4>;
  gather(planes, row, tile);
}

#else

void Gather(float* planes, const uint8_t* row, const TileTaps& tile) {
  GatherSingly(planes, row, tile, 0, tile.columns);
}

#endif

/// Stores packed colours as pixels.
template <int kBytes>
inline void StoreWords(uint8_t* dest, Ints colours, size_t count) {
  int32_t words[kLanes];
  __builtin_memcpy(words, &colours, sizeof(words));
  const size_t last = (count < kLanes ? count : kLanes) - 1;
  // Four bytes are stored for three: the next pixel overwrites the last one.
  constexpr size_t kStored = kBytes == 3 ? 4 : kBytes;
  for (size_t x = 0; x < last; ++x) __builtin_memcpy(dest + x * kBytes, words + x, kStored);
  __builtin_memcpy(dest + last * kBytes, words + last, kBytes);
}

#endif

/// Stores the sums of `kLanes` columns from column `x` on.
template <size_t kChannels>
inline void StoreVector(const BlendRow& row, const Floats (&sums)[kChannels], const TileTaps& tile,
                        size_t x, size_t count) {
  Ints colours = BytesOf(sums[0]);
  for (size_t c = 1; c < kChannels && c < 3; ++c) colours |= BytesOf(sums[c]) << (8 * c);
  if constexpr (kChannels == 4) {
    Ints mask = {};
    if (row.with_alpha) __builtin_memcpy(&mask, tile.alpha_mask + x, sizeof(mask));
    colours |= (BytesOf(sums[3]) & mask) << 24;
  }
  StoreWords<static_cast<int>(kChannels)>(row.dest + x * kChannels, ToRegister(colours), count - x);
}
template <size_t kChannels>
inline void StoreSums(const BlendRow& row, const RowSums<kChannels>& sums, const TileTaps& tile,
                      size_t x, size_t count) {
  for (size_t v = 0; v < kVectors<kChannels> && x < count; ++v, x += kLanes) {
    StoreVector<kChannels>(row, sums.of[v], tile, x, count);
  }
}

template <size_t kTaps, size_t kChannels, size_t kRows>
void BlendColumns(const BlendRow (&rows)[kRows], const TileTaps& tile, size_t count) {
  // Without AVX-512 there are too few registers for the colours of four rows.
  if constexpr (kRows == 4 && kChannels > 1 && kLanes < 16) {
    BlendColumns<kTaps, kChannels, 2>({rows[0], rows[1]}, tile, count);
    BlendColumns<kTaps, kChannels, 2>({rows[2], rows[3]}, tile, count);
    return;
  }
  for (size_t x = 0; x < count; x += kVectors<kChannels> * kLanes) {
    RowSums<kChannels> sums[kRows];
    SumTaps<kTaps, kChannels>(sums, rows, tile, x);
    for (size_t r = 0; r < kRows; ++r) StoreSums<kChannels>(rows[r], sums[r], tile, x, count);
  }
}

template <size_t kRows>
using BlendRows = void (*)(const BlendRow (&rows)[kRows], const TileTaps& tile, size_t count);

template <size_t kTaps, size_t kRows>
BlendRows<kRows> BlendOf(size_t channels) {
  return channels == 1   ? &BlendColumns<kTaps, 1, kRows>
         : channels == 3 ? &BlendColumns<kTaps, 3, kRows>
                         : &BlendColumns<kTaps, 4, kRows>;
}

template <size_t kRows>
BlendRows<kRows> Blend(size_t taps, size_t channels) {
  return taps == 4 ? BlendOf<4, kRows>(channels) : BlendOf<12, kRows>(channels);
}

}  // namespace

extern const ResampleKernels kResampleKernels;
constinit const ResampleKernels kResampleKernels = {
    .picks_blocks = kPicksBlocks,
    .pick1 = &Pick<1>,
    .pick2 = &Pick<2>,
    .pick3 = &Pick<3>,
    .pick4 = &Pick<4>,
    .make_opaque = &MakeOpaque,
    .gather = &Gather,
    .blend_pair = &Blend<2>,
    .blend_block = &Blend<4>,
};

}  // namespace qel::QEL_LEVEL
