#include "transform/resample/resample_kernels.h"

#include <utility>

#include "transform/word_vectors.h"

namespace qel::QEL_LEVEL {
namespace {

/// The taps of columns `from` to `to`, one after the other.
void GatherPlanesSingly(float* planes, const uint8_t* row, const TileTaps& tile, size_t from,
                        size_t to) {
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

/// Vectors of columns that are summed at a time: each has one sum per channel in each of two rows,
/// and the additions of one fill the waits of the others.
template <size_t kChannels>
constexpr size_t kVectors = kChannels == 1 ? 2 : 1;

/// Sums of one row.
template <size_t kChannels>
struct RowSums {
  F32 of[kVectors<kChannels>][kChannels] = {};
};

/// Adds the taps of the columns from column `x` on for `kRows` rows: rows outer, columns inner,
/// weights multiplied with each other first. Rows i and i + `kWeights` have the same weights, and
/// rows 2 i and 2 i + 1 of four the same taps.
template <size_t kTaps, size_t kChannels, size_t kWeights, size_t kRows>
inline void SumTaps(RowSums<kChannels> (&sums)[kRows], const BlendRow (&rows)[kRows],
                    const TileTaps& tile, size_t x) {
  for (size_t j = 0; j < kTaps; ++j) {
    for (size_t i = 0; i < kTaps; ++i) {
      for (size_t v = 0; v < kVectors<kChannels>; ++v) {
        const size_t first = x + v * F32::kLanes;
        const F32 column_weight = LoadU<F32>(tile.weights[i] + first);
        F32 weights[kWeights];
        for (size_t r = 0; r < kWeights; ++r) {
          weights[r] = column_weight * Set<F32>(rows[r].weights[j]);
        }
        for (size_t c = 0; c < kChannels; ++c) {
          const size_t at = (i * kChannels + c) * tile.columns + first;
          F32 tap;
          for (size_t r = 0; r < kRows; ++r) {
            if (kRows != 4 || r % 2 == 0) tap = LoadU<F32>(rows[r].planes[j] + at);
            sums[r].of[v][c] += weights[r % kWeights] * tap;
          }
        }
      }
    }
  }
}

/// The next byte of a column is its next channel or the first one of its next tap.
template <bool kTwoParts>
void GatherGroup(float* planes, const uint8_t* row, const TileTaps& tile, size_t x) {
  const TapGroup& group = tile.groups[x / kGroupColumns];
  const uint8_t* const from = row + group.base;
  const U8 part0 = LoadFirst(from, group.bytes);
  const U8 part1 = kTwoParts ? LoadFirst(from + 64, group.bytes - 64) : Zero<U8>();
  I32 index = LoadU<I32>(group.index);
  const auto low_bytes = MaskFromBits<U8, 0x1111'1111'1111'1111u>();
  for (size_t plane = 0; plane < tile.taps * tile.channels; ++plane) {
    const U8 places = BitCast<U8>(index);
    const U8 found =
        kTwoParts ? TwoTablesLookupLanes(part0, part1, places) : TableLookupLanes(part0, places);
    const U8 bytes = IfThenElse(low_bytes, found, Zero<U8>());
    StoreU(ConvertTo<F32>(BitCast<I32>(bytes)), planes + plane * tile.columns + x);
    index += Set<I32>(1);
  }
}

void GatherGroups(float* planes, const uint8_t* row, const TileTaps& tile) {
  for (size_t x = 0; x < tile.columns; x += kGroupColumns) {
    const int64_t bytes = tile.groups[x / kGroupColumns].bytes;
    if (bytes == 0) {
      GatherPlanesSingly(planes, row, tile, x, x + kGroupColumns);
    } else {
      (bytes > 64 ? &GatherGroup<true> : &GatherGroup<false>)(planes, row, tile, x);
    }
  }
}

/// Four taps of a vector of columns from column `x` on.
template <int... kAt>
void GatherFour(float* planes, const uint8_t* row, const TileTaps& tile, size_t tap, size_t x,
                std::integer_sequence<int, kAt...>) {
  I32 words[4];
  LoadWordColumns(words, [&](size_t k) { return row + tile.offsets[tap][x + k]; });
  // The taps of a column lie side by side: the next byte is the next channel or the next tap.
  const auto store = [&](size_t at, F32 values) {
    StoreU(values, planes + (tap * tile.channels + at) * tile.columns + x);
  };
  (store(kAt, ByteOfWords<kAt % 4>(words[kAt / 4])), ...);
}

/// The same for single bytes whose columns lie within 16 bytes of each other.
void GatherFourClose(float* planes, const uint8_t* row, const TileTaps& tile, size_t tap,
                     size_t x) {
  const int32_t* const index = tile.groups[x / kGroupColumns].index + x % kGroupColumns;
  const U8 bytes = LoadDup128<U8>(row + tile.offsets[tap][x]);
  // The upper bytes of words become 0.
  I32 places = (LoadU<I32>(index) - Set<I32>(index[0])) | Set<I32>(static_cast<int>(0x80808000u));
  for (size_t at = 0; at < 4; ++at) {
    const I32 words = BitCast<I32>(TableLookupBytesOr0(bytes, BitCast<U8>(places)));
    StoreU(ConvertTo<F32>(words), planes + (tap + at) * tile.columns + x);
    places += Set<I32>(1);
  }
}

template <int kChannels>
void GatherColumns(float* planes, const uint8_t* row, const TileTaps& tile) {
  for (size_t x = 0; x < tile.columns; x += F32::kLanes) {
    // Sixteen bytes are loaded from the first one of each four taps on.
    const int64_t last_load = tile.offsets[tile.taps - 4][x + F32::kLanes - 1];
    const bool inside =
        tile.offsets[0][x] >= 0 && tile.offsets[tile.taps - 1][x + F32::kLanes - 1] >= 0;
    if (!inside || last_load + 16 > tile.row_bytes) {
      GatherPlanesSingly(planes, row, tile, x, x + F32::kLanes);
      continue;
    }
    const int64_t spread = tile.offsets[0][x + F32::kLanes - 1] - tile.offsets[0][x];
    const bool close = kChannels == 1 && kHasTableLookupBytes && spread <= 12;
    for (size_t tap = 0; tap < tile.taps; tap += 4) {
      if (close) {
        GatherFourClose(planes, row, tile, tap, x);
      } else {
        GatherFour(planes, row, tile, tap, x, std::make_integer_sequence<int, 4 * kChannels>());
      }
    }
  }
}

void GatherPlanes(float* planes, const uint8_t* row, const TileTaps& tile) {
  if (kHasByteLookup) return GatherGroups(planes, row, tile);
  const auto gather = tile.channels == 1   ? &GatherColumns<1>
                      : tile.channels == 3 ? &GatherColumns<3>
                                           : &GatherColumns<4>;
  gather(planes, row, tile);
}

/// Stores the sums of a vector of columns from column `x` on.
template <size_t kChannels>
inline void StoreVector(const BlendRow& row, const F32 (&sums)[kChannels], const TileTaps& tile,
                        size_t x, size_t count) {
  I32 colors = PackColors(sums);
  if constexpr (kChannels == 4) {
    const I32 mask = row.with_alpha ? LoadU<I32>(tile.alpha_mask + x) : Zero<I32>();
    colors |= ShiftLeft<24>(BytesOf(sums[3]) & mask);
  }
  StoreWords<static_cast<int>(kChannels)>(BitCast<U32>(colors), row.dest + x * kChannels,
                                          count - x);
}
template <size_t kChannels>
inline void StoreSums(const BlendRow& row, const RowSums<kChannels>& sums, const TileTaps& tile,
                      size_t x, size_t count) {
  for (size_t v = 0; v < kVectors<kChannels> && x < count; ++v, x += F32::kLanes) {
    StoreVector<kChannels>(row, sums.of[v], tile, x, count);
  }
}

template <size_t kTaps, size_t kChannels, size_t kWeights, size_t kRows>
void BlendSharing(const BlendRow (&rows)[kRows], const TileTaps& tile, size_t count) {
  for (size_t x = 0; x < count; x += kVectors<kChannels> * F32::kLanes) {
    RowSums<kChannels> sums[kRows];
    SumTaps<kTaps, kChannels, kWeights>(sums, rows, tile, x);
    for (size_t r = 0; r < kRows; ++r) StoreSums<kChannels>(rows[r], sums[r], tile, x, count);
  }
}
template <size_t kTaps, size_t kChannels, size_t kRows>
void BlendColumns(const BlendRow (&rows)[kRows], const TileTaps& tile, size_t count) {
  // Without AVX-512 there are too few registers for the colors of four rows.
  if constexpr (kRows == 4 && kChannels > 1 && F32::kLanes < 16) {
    BlendSharing<kTaps, kChannels, 1, 2>({rows[0], rows[2]}, tile, count);
    BlendSharing<kTaps, kChannels, 1, 2>({rows[1], rows[3]}, tile, count);
  } else {
    BlendSharing<kTaps, kChannels, 2>(rows, tile, count);
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
    .gather_planes = &GatherPlanes,
    .blend_pair = &Blend<2>,
    .blend_block = &Blend<4>,
};

}  // namespace qel::QEL_LEVEL
