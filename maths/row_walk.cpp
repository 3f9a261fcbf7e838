#include "maths/row_walk.h"

#include <algorithm>

namespace qel {
namespace {

/// Addresses from the first byte of a walk to the one after its last.
struct Reach {
  Reach(const RowWalk& walk, int64_t columns, int64_t rows) {
    const auto bits = reinterpret_cast<intptr_t>(walk.bits);
    const int64_t to_last_row = walk.step * (rows - 1);
    begin = bits + std::min<int64_t>(to_last_row, 0);
    end = bits + std::max<int64_t>(to_last_row, 0) + columns * walk.pixel_bytes;
  }
  intptr_t begin, end;
};

bool SamePixels(const RowWalk& a, const RowWalk& b, int64_t rows) {
  return a.bits == b.bits && a.pixel_bytes == b.pixel_bytes && (a.step == b.step || rows == 1);
}

}  // namespace

CpuLevel LevelFor(const RowWalk& dest, std::initializer_list<RowWalk> sources, int64_t columns,
                  int64_t rows) {
  const Reach written(dest, columns, rows);
  for (const RowWalk& source : sources) {
    if (source.bits == nullptr || SamePixels(dest, source, rows)) continue;
    const Reach read(source, columns, rows);
    if (read.begin < written.end && written.begin < read.end) return CpuLevel::kSse2;
  }
  return kActiveCpuLevel;
}

}  // namespace qel
