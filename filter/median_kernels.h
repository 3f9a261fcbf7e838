#ifndef QEL_FILTER_MEDIAN_KERNELS_H_
#define QEL_FILTER_MEDIAN_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "image/cpu_level.h"

namespace qel {

/// Row functions of the median. Keys are brightnesses. A window of `size` has its taps in the order
/// of visiting: columns outer, rows inner; the wanted one is at size * size / 2 once they are
/// sorted by key with that order kept. `rows` are scratch rows of keys, of which up to `kRowSlack`
/// bytes past the last window are read; nothing else is touched beyond the counts.
struct MedianKernels {
  /// The keys of 3- or 4-byte pixels.
  void (*keys3)(uint8_t* keys, const uint8_t* pixels, size_t count);
  void (*keys4)(uint8_t* keys, const uint8_t* pixels, size_t count);
  /// The wanted key, or the wanted tap's place in the order of visiting, of `count` windows; sizes
  /// up to `kMostSelected`.
  void (*select_key)(uint8_t* keys, const uint8_t* const* rows, size_t size, size_t count);
  void (*select_tap)(uint8_t* taps, const uint8_t* const* rows, size_t size, size_t count);
  /// Walks columns of `length` keys, `pitch` bytes apart. Each has as many taps as it has keys
  /// equal to `key`, and `extra` more. Returns the column that contains tap number `*rest`, and
  /// leaves in
  /// `*rest` its number within that column; `columns` when there are not so many.
  size_t (*find_column)(const uint8_t* keys, size_t pitch, size_t columns, size_t length,
                        uint8_t key, int64_t extra, int64_t* rest);
};

/// The largest size whose taps can be counted in a byte.
inline constexpr size_t kMostSelected = 15;

namespace sse2 {
extern const MedianKernels kMedianKernels;
}
namespace avx2 {
extern const MedianKernels kMedianKernels;
}
namespace avx512 {
extern const MedianKernels kMedianKernels;
}
namespace avx512vbmi {
extern const MedianKernels kMedianKernels;
}

inline const MedianKernels& MedianKernelsFor(CpuLevel level) {
  return TableForLevel(level, sse2::kMedianKernels, avx2::kMedianKernels, avx512::kMedianKernels,
                       avx512vbmi::kMedianKernels);
}
inline const MedianKernels& ActiveMedianKernels() { return MedianKernelsFor(kActiveCpuLevel); }

}  // namespace qel

#endif  // QEL_FILTER_MEDIAN_KERNELS_H_
