#include "filter/median/median_kernels.h"

#include "filter/median/brightness_lanes.h"
#include "filter/median/color_rows.h"
#include "filter/median/network_rows.h"
#include "filter/median/selection_rows.h"
#include "image/packed_pixels.h"
#include "simd/row_walk.h"

namespace qel::QEL_LEVEL {
namespace {

template <size_t kBytes>
void Keys(uint8_t* keys, const uint8_t* pixels, size_t count) {
  const auto block = [](uint8_t* to, const uint8_t* from) {
    U8 channels[kBytes];
    LoadInterleaved<kBytes>(from, channels);
    const auto words = BrightnessTimes128(channels[0], channels[1], channels[2]);
    StoreU(ReorderDemote2To<U8>(ShiftRight<7>(words.lower), ShiftRight<7>(words.upper)), to);
  };
  WalkBlocks<kVectorBytes>(count, block, To<1>{keys}, From<kBytes>{pixels});
}

/// One pixel after the other.
template <size_t kBytes>
void CopyTaps(uint8_t* dest, const uint8_t* const* rows, const uint8_t* taps, size_t size,
              size_t count) {
  const uint8_t* at[kMostSelected * kMostSelected];
  for (size_t i = 0; i < size; ++i) {
    for (size_t j = 0; j < size; ++j) at[i * size + j] = rows[j] + i * kBytes;
  }
  const size_t last = count - 1;
  // Whole words are quicker than three bytes; the last pixel must not touch what follows.
  size_t x = 0;
  for (; kBytes == 3 && x + 4 <= last; x += 4) {
    uint32_t pixels[4];
    for (size_t k = 0; k < 4; ++k) {
      __builtin_memcpy(&pixels[k], at[taps[x + k]] + (x + k) * kBytes, sizeof(pixels[k]));
    }
    StoreFourOf3(pixels[0], pixels[1], pixels[2], pixels[3], dest + x * kBytes);
  }
  for (; x < last; ++x) {
    __builtin_memcpy(dest + x * kBytes, at[taps[x]] + x * kBytes, 4);
  }
  __builtin_memcpy(dest + last * kBytes, at[taps[last]] + last * kBytes, kBytes);
}

/// Largest size whose taps fit the tables of `GatherTaps`.
constexpr size_t kMostGathered = 8;

/// As many pixels as fit a vector at a time. Two vectors of each row hold all taps of a row; a
/// lookup brings each byte the one at its tap, which counts where the tap lies in that row.
template <size_t kBytes>
void GatherTaps(uint8_t* dest, const uint8_t* const* rows, const uint8_t* taps, size_t size,
                size_t count) {
  constexpr size_t kPixels = kVectorBytes / kBytes;
  alignas(64) uint8_t numbers[kVectorBytes], columns[kVectorBytes], tap_rows[kVectorBytes];
  for (size_t i = 0; i < kVectorBytes; ++i) {
    numbers[i] = static_cast<uint8_t>(i / kBytes);
    columns[i] = static_cast<uint8_t>(i / size * kBytes);
    tap_rows[i] = static_cast<uint8_t>(i % size);
  }
  const U8 place = Iota<U8>(0);
  const U8 pixel = LoadU<U8>(numbers);
  const U8 column = LoadU<U8>(columns);
  const U8 tap_row = LoadU<U8>(tap_rows);
  for (size_t k = 0; k < count; k += kPixels) {
    const U8 tap = TableLookupLanes(LoadU<U8>(taps + k), pixel);
    const U8 from = place + TableLookupLanes(column, tap);
    const U8 row = TableLookupLanes(tap_row, tap);
    U8 out = Zero<U8>();
    for (size_t j = 0; j < size; ++j) {
      const U8 pixels = LoadU<U8>(rows[j] + k * kBytes);
      const Mask<U8> counts = row == Set<U8>(static_cast<uint8_t>(j));
      const U8 next = LoadU<U8>(rows[j] + k * kBytes + kVectorBytes);
      out = IfThenElse(counts, TwoTablesLookupLanes(pixels, next, from), out);
    }
    const size_t left = (count - k) * kBytes;
    if (left >= kVectorBytes) {
      // What belongs to the next pixels is stored once more with these.
      StoreU(out, dest + k * kBytes);
    } else {
      BlendedStore(out, FirstN<U8>(left), dest + k * kBytes);
    }
  }
}

template <size_t kBytes>
void CopyTapsAtOnce(uint8_t* dest, const uint8_t* const* rows, const uint8_t* taps, size_t size,
                    size_t count) {
  if constexpr (kHasByteLookup) {
    if (size <= kMostGathered) return GatherTaps<kBytes>(dest, rows, taps, size, count);
  }
  CopyTaps<kBytes>(dest, rows, taps, size, count);
}

}  // namespace

extern const MedianKernels kMedianKernels;
constinit const MedianKernels kMedianKernels = {
    .keys3 = &Keys<3>,
    .keys4 = &Keys<4>,
    .center_keys = &CenterKeys,
    .count_columns = &CountColumns,
    .rank = &Rank,
    .sort_keys = &MiddleKeys<3>,
    .sort_taps = &MiddleTaps<3>,
    .select_keys = &SelectKeys,
    .select_taps = &SelectTaps,
    .copy_taps3 = &CopyTapsAtOnce<3>,
    .copy_taps4 = &CopyTapsAtOnce<4>,
    .colors3 = ColorKernelsOf<3>(),
    .colors4 = ColorKernelsOf<4>(),
};

}  // namespace qel::QEL_LEVEL
