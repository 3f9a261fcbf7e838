#include "maths/row_walk.h"

#include <algorithm>

#include "image/memory_reach.h"

namespace qel {
namespace {

MemoryReach ReachOf(const RowWalk& walk, int64_t columns, int64_t rows) {
  return {walk.bits, walk.step, columns * walk.pixel_bytes, rows};
}

bool SamePixels(const RowWalk& a, const RowWalk& b, int64_t rows) {
  return a.bits == b.bits && a.pixel_bytes == b.pixel_bytes && (a.step == b.step || rows == 1);
}

}  // namespace

bool MayGoByVectors(const RowWalk& dest, std::initializer_list<RowWalk> sources, int64_t columns,
                    int64_t rows) {
  const MemoryReach written = ReachOf(dest, columns, rows);
  for (const RowWalk& source : sources) {
    if (source.bits == nullptr || SamePixels(dest, source, rows)) continue;
    if (ReachOf(source, columns, rows).Meets(written)) return false;
  }
  return true;
}

bool IsApart(const RowWalk& dest, std::initializer_list<RowWalk> sources, int64_t columns,
             int64_t rows) {
  const MemoryReach written = ReachOf(dest, columns, rows);
  return std::ranges::none_of(sources, [&](const RowWalk& source) {
    return source.bits != nullptr && ReachOf(source, columns, rows).Meets(written);
  });
}

}  // namespace qel
