#ifndef QEL_FILTER_MORPHOLOGY_EXTREMA_PLAN_H_
#define QEL_FILTER_MORPHOLOGY_EXTREMA_PLAN_H_

#include <algorithm>
#include <cstdint>
#include <optional>

#include "filter/filter_kernels.h"
#include "image/image_view.h"
#include "image/plan.h"

namespace qel {

/// Which extrema of each channel over a square window an operation gives.
enum class Extrema { kMinimum, kMaximum, kRange };  // the range: maximum - minimum

/// How they are found, in the order of preference.
enum class ExtremaMethod { kCopy, kSquare, kGroups, kBlocks };

inline constexpr MethodText kExtremaMethods[] = {
    {"copy", "size 1, a copy of each row"},
    {"square",
     "up to 7, the whole window in one pass: down its rows, then across the columns, which stay in "
     "registers, or in the nearest cache for even sizes; `2 size - 2` comparisons a byte"},
    {"groups",
     "up to 127, `edge` at 32 bits 119, rows in groups of eight that share a core, which consists "
     "of the extrema of eight rows each, with a suffix above it and a prefix below (van Herk 1992, "
     "Gil and Werman 1993): three to five comparisons a byte, and across them `log2(size)`"},
    {"blocks",
     "beyond, strips of columns whose rows are widened and form blocks, of as many rows as windows "
     "have blocks: the end of one, whole ones and the begin of another make up a window, which "
     "takes four comparisons a byte, and across them twice `log2(size)`"},
};

/// What extrema take, made from the size of windows and the shape of the image.
struct ExtremaPlan {
  ExtremaMethod method;
  Extrema extrema;
  int size;  ///< pixels of a window's side, at least 1
};

/// The smallest windows that `kBlocks` takes: their lower half must reach beyond a block.
inline constexpr int kFewestInBlocks = 16;

/// The plan with `method` for windows of `size`, at least 1; nothing when that cannot find the
/// extrema of `source`.
inline std::optional<ExtremaPlan> PlanExtremaBy(ExtremaMethod method, Extrema extrema, int size,
                                                const ImageView& source) {
  bool can = false;
  switch (method) {
    case ExtremaMethod::kCopy:
      can = size == 1 && extrema != Extrema::kRange && source.HasPixels() &&
            (source.bit_count == 8 || source.bit_count == 24 || source.bit_count == 32);
      break;
    case ExtremaMethod::kSquare:
      can = size <= int{kMostSquare};
      break;
    case ExtremaMethod::kGroups:
      can = size >= int{kGroupRows} && size <= int{kMostGrouped};
      break;
    case ExtremaMethod::kBlocks:
      can = size >= kFewestInBlocks;
      break;
  }
  if (!can) return std::nullopt;
  return ExtremaPlan{method, extrema, size};
}

/// The largest windows that groups find sooner than blocks: of four bytes, twice, the nearest cache
/// holds pieces that are too short.
inline int MostGrouped(Extrema extrema, int bit_count) {
  return extrema == Extrema::kRange && bit_count == 32 ? 119 : int{kMostGrouped};
}

/// The plan with the first method that can and pays.
inline ExtremaPlan PlanExtrema(Extrema extrema, int size, const ImageView& source) {
  for (const ExtremaMethod method :
       {ExtremaMethod::kCopy, ExtremaMethod::kSquare, ExtremaMethod::kGroups}) {
    const bool pays =
        method != ExtremaMethod::kGroups || size <= MostGrouped(extrema, source.bit_count);
    const auto plan = PlanExtremaBy(method, extrema, size, source);
    if (pays && plan) return *plan;
  }
  return {ExtremaMethod::kBlocks, extrema, size};
}

/// Writes the extrema of `source` to `dest`, which has its shape and pixels to store. Allocates
/// nothing.
void RunExtrema(const ExtremaPlan& plan, const ImageView& source, const ImageView& dest);

}  // namespace qel

#endif  // QEL_FILTER_MORPHOLOGY_EXTREMA_PLAN_H_
