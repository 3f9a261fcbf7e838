#include "transform/resample/gather_map.h"

#include <algorithm>
#include <cstring>

namespace qel {
namespace {

constexpr size_t kBlockBytes = sizeof(GatherBlock::index);

/// Describes the parts of a block, of `part` bytes each, each of which is loaded as a whole, within
/// the row. Of parts of words, `positions` are those of words.
template <typename Index>
void DescribeParts(GatherBlock& block, const int64_t* positions, size_t count, size_t part_bytes,
                   int64_t row_bytes) {
  const size_t part = part_bytes / sizeof(Index);
  const auto loaded = static_cast<int64_t>(part_bytes);
  constexpr auto kItem = static_cast<int64_t>(sizeof(Index));
  const auto for_parts = [&](auto&& describe) {
    for (size_t first = 0; first < count; first += part) {
      const int64_t* const begin = positions + first;
      const int64_t* const end = positions + std::min(first + part, count);
      const auto [low, high] = std::minmax_element(begin, end);
      describe(first, begin, end, *low, *high);
    }
  };
  int64_t loads = 1;
  for_parts([&](size_t, const int64_t*, const int64_t*, int64_t low, int64_t high) {
    loads = std::max(loads, (high - low + kItem - 1 + loaded) / loaded);
  });
  const int64_t last_start = row_bytes - loads * loaded;
  block.loads = static_cast<int32_t>(loads);
  block.base = std::min(block.base, last_start);
  if (block.base < 0 || loads > kMostPartLoads) block.span = 0;
  for_parts([&](size_t first, const int64_t* begin, const int64_t* end, int64_t low, int64_t) {
    const int64_t from = std::min(low, last_start);
    block.starts[first / part] = static_cast<uint8_t>(from - block.base);
    for (uint8_t* index = block.index + first * sizeof(Index); begin < end; ++begin) {
      const auto place = static_cast<Index>((*begin - from) / kItem);
      std::memcpy(index, &place, sizeof(place));
      index += sizeof(place);
    }
  });
}

}  // namespace

GatherRow GatherRowFor(int pixel_bytes) {
  const GatherKernels& kernels = ActiveGatherKernels();
  return pixel_bytes == 1   ? kernels.gather1
         : pixel_bytes == 2 ? kernels.gather2
         : pixel_bytes == 3 ? kernels.gather3
                            : kernels.gather4;
}

void DescribeBlocks(GatherBlock* blocks, GatherBlockKind kind, const int32_t* offsets, size_t count,
                    size_t pixel_bytes, int64_t row_bytes) {
  int64_t positions[kBlockBytes];
  size_t pixel = 0;
  size_t byte = 0;
  // Words are described as such.
  const size_t item = kind == GatherBlockKind::kVectors ? sizeof(uint32_t) : 1;
  for (size_t first = 0; first < count * pixel_bytes; first += kBlockBytes) {
    const size_t items = std::min(kBlockBytes, count * pixel_bytes - first) / item;
    for (size_t i = 0; i < items; ++i) {
      positions[i] = int64_t{offsets[pixel]} + static_cast<int64_t>(byte);
      byte += item;
      if (byte < pixel_bytes) continue;
      byte = 0;
      ++pixel;
    }
    const auto [low, high] = std::minmax_element(positions, positions + items);
    const int64_t span = *high - *low + static_cast<int64_t>(item);
    GatherBlock& block = *blocks++;
    block = {*low, span <= 256 ? static_cast<int32_t>(span) : 0, 0, {}, {}};
    if (block.span == 0) continue;
    if (kind == GatherBlockKind::kQuarters) {
      DescribeParts<uint8_t>(block, positions, items, kBlockBytes / 4, row_bytes);
    } else if (kind == GatherBlockKind::kVectors) {
      DescribeParts<uint32_t>(block, positions, items, ActiveGatherKernels().vector_bytes,
                              row_bytes);
    } else {
      for (size_t i = 0; i < items; ++i) {
        block.index[i] = static_cast<uint8_t>(positions[i] - block.base);
      }
    }
  }
}

}  // namespace qel
