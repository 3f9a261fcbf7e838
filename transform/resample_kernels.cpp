#include "transform/resample_kernels.h"

#ifdef QEL_LEVEL_avx512vbmi
#include <immintrin.h>
#endif

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

/// means[i] = windows[i] / area.
void Divide(uint8_t* __restrict means, const uint16_t* __restrict windows, size_t count,
            const SmallBox& box) {
  const uint32_t factor = box.factor;
  const int shift = box.shift;
  for (size_t i = 0; i < count; ++i) {
    const auto high = static_cast<uint16_t>((windows[i] * factor) >> 16);
    means[i] = static_cast<uint8_t>(high >> shift);
  }
}

/// Column sums of the rows of a box.
void SumBoxRows(uint16_t* __restrict sums, const uint8_t* __restrict source, int64_t stride,
                size_t count, size_t rows) {
  const uint8_t* row = source;
  if (rows % 2 == 0) {
    const uint8_t* const next = row + stride;
    for (size_t i = 0; i < count; ++i) sums[i] = static_cast<uint16_t>(row[i] + next[i]);
    row = next + stride;
  } else {
    for (size_t i = 0; i < count; ++i) sums[i] = row[i];
    row += stride;
  }
  for (size_t left = (rows - 1) / 2; left > 0; --left) {
    const uint8_t* const next = row + stride;
    for (size_t i = 0; i < count; ++i) {
      sums[i] = static_cast<uint16_t>(sums[i] + row[i] + next[i]);
    }
    row = next + stride;
  }
}

/// The highest power of two that is not above `value`.
constexpr size_t HighestBit(size_t value) {
  size_t bit = 1;
  while (bit * 2 <= value) bit *= 2;
  return bit;
}

/// sums[i] = a[i] + b[i].
void AddWindows(uint16_t* __restrict sums, const uint16_t* a, const uint16_t* b, size_t count) {
  for (size_t i = 0; i < count; ++i) sums[i] = static_cast<uint16_t>(a[i] + b[i]);
}

void BoxMeans(uint8_t* means, const uint8_t* source, int64_t stride, size_t count,
              const SmallBox& box, uint16_t* scratch) {
  uint16_t* const columns = scratch;
  uint16_t* spare = scratch + count;
  uint16_t* next_spare = scratch + 2 * count;
  SumBoxRows(columns, source, stride, count, box.rows);
  // Windows grow by doubling, and by one column where the next bit of their final length is set.
  const uint16_t* windows = columns;
  const auto replace_windows = [&](const uint16_t* a, const uint16_t* b) {
    AddWindows(spare, a, b, count);
    uint16_t* const filled = spare;
    spare = next_spare;
    next_spare = filled;
    windows = filled;
  };
  size_t length = 1;
  for (size_t bit = HighestBit(box.columns) / 2; bit > 0; bit /= 2) {
    count -= length * box.pixel_bytes;
    replace_windows(windows, windows + length * box.pixel_bytes);
    length *= 2;
    if ((box.columns & bit) == 0) continue;
    count -= box.pixel_bytes;
    replace_windows(columns, windows + box.pixel_bytes);
    ++length;
  }
  Divide(means, windows, count, box);
}

void SumRows(uint32_t* __restrict sums, const uint8_t* __restrict source, int64_t stride,
             size_t count, size_t rows) {
  for (size_t i = 0; i < count; ++i) sums[i] = source[i];
  for (size_t r = 1; r < rows; ++r) {
    const uint8_t* const row = source + static_cast<int64_t>(r) * stride;
    for (size_t i = 0; i < count; ++i) sums[i] += row[i];
  }
}

/// The taps of one plane, one after the other.
void GatherSingly(TilePlane* planes, const uint8_t* row, const TileTaps& tile) {
  for (size_t tap = 0; tap < tile.taps; ++tap) {
    for (size_t channel = 0; channel < tile.channels; ++channel) {
      float* const plane = planes[tap * tile.channels + channel];
      for (size_t x = 0; x < kTileColumns; ++x) {
        const int64_t offset = tile.offsets[tap][x];
        plane[x] = offset < 0 ? tile.outside[channel] : row[static_cast<size_t>(offset) + channel];
      }
    }
  }
}

// Vectors as long as the level's registers; the compiler knows their arithmetic, and every lane
// rounds as a single number would.
#if defined(QEL_LEVEL_sse2)
constexpr size_t kLanes = 4;
#elif defined(QEL_LEVEL_avx2)
constexpr size_t kLanes = 8;
#else
constexpr size_t kLanes = 16;
#endif
typedef float Floats __attribute__((vector_size(4 * kLanes)));
typedef int32_t Ints __attribute__((vector_size(4 * kLanes)));

inline Floats Load(const float* values) {
  Floats lanes;
  __builtin_memcpy(&lanes, values, sizeof(lanes));
  return lanes;
}
inline Ints Bytes(Floats sum) {
  const Floats zero = {};
  const Floats most = zero + 255.0f;
  sum = sum > most ? most : sum;
  sum = sum > zero ? sum : zero;
  return __builtin_convertvector(sum, Ints);
}

/// The sums of `kLanes` columns from column `x` on: rows outer, columns inner, weights multiplied
/// with each other first.
template <size_t kTaps, size_t kChannels>
inline void SumTaps(Floats (&sums)[kChannels], const TilePlane* const* rows,
                    const float* row_weights, const TileTaps& tile, size_t x) {
  for (Floats& sum : sums) sum = Floats{};
  for (size_t j = 0; j < kTaps; ++j) {
    for (size_t i = 0; i < kTaps; ++i) {
      const Floats weight = Load(tile.weights[i] + x) * row_weights[j];
      for (size_t c = 0; c < kChannels; ++c) {
        sums[c] += weight * Load(rows[j][i * kChannels + c] + x);
      }
    }
  }
}

#ifdef QEL_LEVEL_avx512vbmi

constexpr __mmask64 FirstBytes(size_t count) {
  return count >= 64 ? ~__mmask64{0} : (__mmask64{1} << count) - 1;
}

/// Loads `count` bytes into the beginning of a register.
inline __m512i LoadFirst(const uint8_t* bytes, int64_t count) {
  return count > 0 ? _mm512_maskz_loadu_epi8(FirstBytes(static_cast<size_t>(count)), bytes)
                   : _mm512_setzero_si512();
}

__m512i PickBytes(const uint8_t* source, const PickBlock& block) {
  const uint8_t* const from = source + block.base;
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

template <int kBytes>
void Pick(uint8_t* dest, const uint8_t* source, const PickPlan& plan) {
  const size_t bytes = plan.pixels * kBytes;
  const __mmask64 lanes = plan.keep_alpha && kBytes == 4 ? 0x7777777777777777u : ~__mmask64{0};
  for (size_t at = 0; at < bytes; at += 64) {
    const PickBlock& block = plan.blocks[at / 64];
    if (block.span > 0) {
      _mm512_mask_storeu_epi8(dest + at, FirstBytes(bytes - at) & lanes, PickBytes(source, block));
    } else {
      // Pixels that reach into the next block are written twice with the same bytes.
      const size_t end = (at + 64 + kBytes - 1) / kBytes;
      PickSingly<kBytes>(dest, source, plan, at / kBytes, end < plan.pixels ? end : plan.pixels);
    }
  }
}

void Gather(TilePlane* planes, const uint8_t* row, const TileTaps& tile) {
  if (tile.span == 0 || tile.span > 128) {
    GatherSingly(planes, row, tile);
    return;
  }
  const __m512i part0 = LoadFirst(row + tile.base, tile.span);
  const __m512i part1 = LoadFirst(row + tile.base + 64, tile.span - 64);
  const __m512i base = _mm512_set1_epi64(tile.base);
  __m256i first[2];
  for (int half = 0; half < 2; ++half) {
    first[half] = _mm512_cvtepi64_epi32(
        _mm512_sub_epi64(_mm512_loadu_si512(tile.offsets[0] + 8 * half), base));
  }
  __m512i index = _mm512_inserti64x4(_mm512_castsi256_si512(first[0]), first[1], 1);
  // The taps of a column lie side by side: the next byte is the next channel or the next tap.
  for (size_t plane = 0; plane < tile.taps * tile.channels; ++plane) {
    const __m512i bytes = _mm512_maskz_permutex2var_epi8(0x1111111111111111u, part0, index, part1);
    _mm512_storeu_ps(planes[plane], _mm512_cvtepi32_ps(bytes));
    index = _mm512_add_epi32(index, _mm512_set1_epi32(1));
  }
}

/// Stores packed colours as pixels.
template <size_t kChannels>
inline void StoreColours(uint8_t* dest, __m512i colours, size_t count) {
  if constexpr (kChannels == 4) {
    _mm512_mask_storeu_epi8(dest, FirstBytes(4 * count), colours);
  } else if constexpr (kChannels == 1) {
    _mm_mask_storeu_epi8(dest, static_cast<__mmask16>(FirstBytes(count)),
                         _mm512_cvtepi32_epi8(colours));
  } else {
    alignas(64) static constexpr uint8_t kOrder[64] = {
        0,  1,  2,  4,  5,  6,  8,  9,  10, 12, 13, 14, 16, 17, 18, 20,
        21, 22, 24, 25, 26, 28, 29, 30, 32, 33, 34, 36, 37, 38, 40, 41,
        42, 44, 45, 46, 48, 49, 50, 52, 53, 54, 56, 57, 58, 60, 61, 62};
    _mm512_mask_storeu_epi8(dest, FirstBytes(3 * count),
                            _mm512_permutexvar_epi8(_mm512_load_si512(kOrder), colours));
  }
}

#else

template <int kBytes>
void Pick(uint8_t* dest, const uint8_t* source, const PickPlan& plan) {
  PickSingly<kBytes>(dest, source, plan, 0, plan.pixels);
}

void Gather(TilePlane* planes, const uint8_t* row, const TileTaps& tile) {
  GatherSingly(planes, row, tile);
}

template <size_t kChannels>
inline void StoreColours(uint8_t* dest, Ints colours, size_t count) {
  for (size_t x = 0; x < kLanes && x < count; ++x) {
    const int32_t colour = colours[x];
    __builtin_memcpy(dest + x * kChannels, &colour, kChannels);
  }
}

#endif

template <size_t kTaps, size_t kChannels>
void BlendColumns(uint8_t* dest, const TilePlane* const* rows, const float* row_weights,
                  const TileTaps& tile, size_t count, bool with_alpha) {
  for (size_t x = 0; x < count; x += kLanes) {
    Floats sums[kChannels];
    SumTaps<kTaps, kChannels>(sums, rows, row_weights, tile, x);
    Ints colours = Bytes(sums[0]);
    for (size_t c = 1; c < kChannels && c < 3; ++c) colours |= Bytes(sums[c]) << (8 * c);
    if constexpr (kChannels == 4) {
      Ints mask = {};
      if (with_alpha) __builtin_memcpy(&mask, tile.alpha_mask + x, sizeof(mask));
      colours |= (Bytes(sums[3]) & mask) << 24;
    }
#ifdef QEL_LEVEL_avx512vbmi
    StoreColours<kChannels>(dest + x * kChannels, reinterpret_cast<__m512i>(colours), count - x);
#else
    StoreColours<kChannels>(dest + x * kChannels, colours, count - x);
#endif
  }
}

template <size_t kTaps>
BlendTile BlendOf(size_t channels) {
  return channels == 1   ? &BlendColumns<kTaps, 1>
         : channels == 3 ? &BlendColumns<kTaps, 3>
                         : &BlendColumns<kTaps, 4>;
}

BlendTile Blend(size_t taps, size_t channels) {
  return taps == 4 ? BlendOf<4>(channels) : BlendOf<12>(channels);
}

}  // namespace

extern const ResampleKernels kResampleKernels;
constinit const ResampleKernels kResampleKernels = {
    .pick1 = &Pick<1>,
    .pick2 = &Pick<2>,
    .pick3 = &Pick<3>,
    .pick4 = &Pick<4>,
    .box_means = &BoxMeans,
    .sum_rows = &SumRows,
    .gather = &Gather,
    .blend = &Blend,
};

}  // namespace qel::QEL_LEVEL
