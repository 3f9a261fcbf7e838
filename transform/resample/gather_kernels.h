#ifndef QEL_TRANSFORM_RESAMPLE_GATHER_KERNELS_H_
#define QEL_TRANSFORM_RESAMPLE_GATHER_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "simd/cpu_level.h"

namespace qel {

/// Where 64 bytes of a gathered row come from.
struct GatherBlock {
  int64_t base;       ///< offset of the first byte that is read
  int32_t span;       ///< bytes that are read from there, 0 when they are too far apart
  int32_t loads;      ///< of parts: how many times as many bytes are read for each
  uint8_t starts[4];  ///< of parts: the first byte that is read for each, relative to `base`
  uint8_t index[64];  ///< relative to `base`, or to the start of the part
};
/// What pixels are gathered by.
enum class GatherBlockKind {
  kNone,      ///< offsets
  kQuarters,  ///< blocks whose quarters come from a few loads of as many bytes each
  kVectors,   ///< blocks of words, whose vectors do; `index` has words
  kSpans,     ///< blocks that come from up to 256 bytes
};
/// Most loads for a part of a block.
inline constexpr int kMostPartLoads = 4;

/// Which pixels of a source row a destination row takes.
struct GatherPlan {
  size_t pixels;              ///< of the destination row
  const int32_t* offsets;     ///< offset of each one in the source row
  GatherBlockKind kind;       ///< of the blocks; `kVectors` for 4 bytes only
  const GatherBlock* blocks;  ///< the same for every 64 bytes of the destination row
  bool keep_alpha;            ///< leave the fourth byte of pixels as it is
};

struct GatherKernels {
  /// What pixels are gathered by if there are blocks; by offsets only where a block has no span.
  GatherBlockKind block_kind;
  /// Bytes of a vector, where words are gathered by these too, else 0.
  size_t vector_bytes;
  /// Copies the pixels of 1, 2, 3 or 4 bytes that `plan` names.
  void (*gather1)(uint8_t* dest, const uint8_t* source, const GatherPlan& plan);
  void (*gather2)(uint8_t* dest, const uint8_t* source, const GatherPlan& plan);
  void (*gather3)(uint8_t* dest, const uint8_t* source, const GatherPlan& plan);
  void (*gather4)(uint8_t* dest, const uint8_t* source, const GatherPlan& plan);

  /// Makes 4-byte pixels opaque.
  void (*make_opaque)(uint8_t* row, size_t count);
};

QEL_TABLES_PER_LEVEL(GatherKernels)

}  // namespace qel

#endif  // QEL_TRANSFORM_RESAMPLE_GATHER_KERNELS_H_
