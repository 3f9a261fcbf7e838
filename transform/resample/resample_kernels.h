#ifndef QEL_TRANSFORM_RESAMPLE_RESAMPLE_KERNELS_H_
#define QEL_TRANSFORM_RESAMPLE_RESAMPLE_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "simd/cpu_level.h"

namespace qel {

/// Output columns that are interpolated together: whole vectors of every level.
inline constexpr size_t kMaxTileColumns = 192;
inline constexpr size_t kMaxTapCount = 12;
inline constexpr size_t kMaxChannels = 4;

/// Columns whose taps are spread out together, and the most bytes that these lie in.
inline constexpr size_t kGroupColumns = 16;
inline constexpr int64_t kMostGroupBytes = 128;

/// Where the taps of a group of columns lie in a source row, all of them inside. Those of a column
/// lie side by side.
struct TapGroup {
  int64_t base;                  ///< offset of the first byte
  int64_t bytes;                 ///< how many from there; 0 where taps are outside or far away
  int32_t index[kGroupColumns];  ///< of the first byte of each column, relative to `base`
};

/// Where the taps of the columns of a tile lie in a source row.
struct TileTaps {
  int64_t row_bytes;  ///< of the source row
  size_t taps;        ///< along one axis
  size_t channels;    ///< bytes per pixel
  size_t columns;     ///< a multiple of 16, and of 32 for single channels
  /// Byte offset of each tap of each column; below 0 the tap is outside. They do not fall.
  int64_t offsets[kMaxTapCount][kMaxTileColumns];
  TapGroup groups[kMaxTileColumns / kGroupColumns];
  uint8_t outside[kMaxChannels];  ///< channels of the pixel that stands in outside
  float weights[kMaxTapCount][kMaxTileColumns];
  int32_t alpha_mask[kMaxTileColumns];  ///< 0 for columns without alpha, else 255
};

/// One destination row of a tile. A plane has one value per column of the tile.
struct BlendRow {
  uint8_t* dest;
  const float* planes[kMaxTapCount];  ///< of each tap row, ordered by tap, then channel
  const float* weights;               ///< of each tap row
  bool with_alpha;                    ///< false makes alpha 0
};

/// Stores the first `count` pixels of two destination rows of a tile, which may be the same: sums
/// of weighted taps as bytes.
using BlendPair = void (*)(const BlendRow (&rows)[2], const TileTaps& tile, size_t count);
/// The same for two such pairs of rows: those of a pair have the same taps, and those at the same
/// place in both pairs have the same weights.
using BlendBlock = void (*)(const BlendRow (&rows)[4], const TileTaps& tile, size_t count);

struct ResampleKernels {
  /// Spreads a source row out into planes: channel c of tap t of column x goes to
  /// planes[(t * channels + c) * columns + x].
  void (*gather_planes)(float* planes, const uint8_t* row, const TileTaps& tile);
  /// The functions for 4 or 12 taps along an axis and 1, 3 or 4 channels.
  BlendPair (*blend_pair)(size_t taps, size_t channels);
  BlendBlock (*blend_block)(size_t taps, size_t channels);
};

QEL_TABLES_PER_LEVEL(ResampleKernels)

}  // namespace qel

#endif  // QEL_TRANSFORM_RESAMPLE_RESAMPLE_KERNELS_H_
