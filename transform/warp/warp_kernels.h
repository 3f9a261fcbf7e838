#ifndef QEL_TRANSFORM_WARP_WARP_KERNELS_H_
#define QEL_TRANSFORM_WARP_WARP_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "simd/cpu_level.h"
#include "transform/warp/offset_rule.h"

namespace qel {

/// Pixels that are mapped in one go: their positions wait on the stack.
inline constexpr size_t kWarpTile = 512;

/// A run of a straight walk in 16.16 fixed point, which wraps round.
struct FixedWalk {
  uint32_t x, y;            ///< position of the first pixel
  uint32_t step_x, step_y;  ///< from pixel to pixel
};

/// The shear of one row: column x samples x + `shift_x`, and row `y` + (x - pivot) * `gain_y`.
struct ShearRow {
  int32_t first_x;  ///< column of the first pixel
  int32_t pivot_x;
  float y, shift_x, gain_y;
};

/// Pixels of 4 bytes with this alpha keep it when all others are made opaque.
inline constexpr uint8_t kKeptAlpha = 1;

/// Writes `count` pixels from these offsets in a source, or the outside color. Pixels of 3 bytes
/// are loaded with the byte behind them, unless their offset is lowered.
using CopyScattered = void (*)(uint8_t* dest, size_t count, const uint8_t* source,
                               const int32_t* offsets, uint32_t outside);

/// Positions that change slowly: those of 16 neighbours lie in few rows.
struct CloseRows {
  int32_t rows;  ///< how many, at most `kMostCloseRows`
  int32_t
      stride;  ///< from one to the next along the neighbours: that of the source, or its opposite
};
inline constexpr int32_t kMostCloseRows = 4;

struct WarpKernels {
  /// Pixels of 1, 3 or 4 bytes as they are;
  CopyScattered copy1, copy3, copy4;
  /// the same as pixels of 4 bytes with alpha 255 but where it is `kKeptAlpha`.
  CopyScattered copy1_opaque, copy3_opaque, copy4_opaque;
  /// Writes pixels of 1 byte whose positions change slowly, and whose columns do not fall: 16 of
  /// them are looked up in as many bytes of each of their rows. Returns the number of pixels before
  /// the first ones that are not like that or not well inside, or before a rest smaller than a
  /// vector. Null where there are no lookups.
  size_t (*copy_close1)(uint8_t* dest, const int32_t* sx, const int32_t* sy, size_t count,
                        const uint8_t* source, const OffsetRule& rule, const CloseRows& close);
  /// offsets[i] of position (sx[i], sy[i]). True when all are inside.
  bool (*offsets)(int32_t* offsets, const int32_t* sx, const int32_t* sy, size_t count,
                  const OffsetRule& rule);
  /// Where the pixels of a row are; writes whole vectors, up to `kWarpTile` positions.
  void (*shear)(int32_t* sx, int32_t* sy, size_t count, const ShearRow& row);
  /// The nearest pixel at every position of a walk.
  void (*walk)(int32_t* sx, int32_t* sy, size_t count, const FixedWalk& walk);
  /// Copies pixels of 3 or 4 bytes from where those of a row, or of a walk, are, all inside a
  /// source of small offsets. Pixels of 3 bytes are read together with the byte behind them. The
  /// memory brings what a later row is going to read, which may be outside.
  void (*copy_sheared3)(uint8_t* dest, size_t count, const uint8_t* source, int32_t stride,
                        const ShearRow& row, const ShearRow& later);
  void (*copy_sheared4)(uint8_t* dest, size_t count, const uint8_t* source, int32_t stride,
                        const ShearRow& row, const ShearRow& later);
  void (*copy_walked3)(uint8_t* dest, size_t count, const uint8_t* source, int32_t stride,
                       const FixedWalk& walk, const FixedWalk& later);
  void (*copy_walked4)(uint8_t* dest, size_t count, const uint8_t* source, int32_t stride,
                       const FixedWalk& walk, const FixedWalk& later);
  /// Blends two by two pixels of 3 or 4 bytes at every position of a walk, `kWarpTile` pixels at
  /// most. Their offsets fit, and at each of them eight bytes of both rows may be read.
  void (*blend3)(uint8_t* dest, size_t count, const FixedWalk& walk, const uint8_t* source,
                 int32_t stride);
  void (*blend4)(uint8_t* dest, size_t count, const FixedWalk& walk, const uint8_t* source,
                 int32_t stride);
};

QEL_TABLES_PER_LEVEL(WarpKernels)

}  // namespace qel

#endif  // QEL_TRANSFORM_WARP_WARP_KERNELS_H_
