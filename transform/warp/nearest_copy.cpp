#include "transform/warp/nearest_copy.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "image/numeric.h"
#include "image/pixel_access.h"
#include "image/pixel_layout.h"
#include "simd/prefetch.h"
#include "transform/warp/point_kernels.h"

namespace qel {

static_assert(kKeptAlpha == kOutsideMarker);

namespace {

/// The rows that 16 neighbours lie in where positions change as slowly as from the first one to the
/// last, and nothing where that is too fast.
std::optional<CloseRows> FindCloseRows(const int32_t* sx, const int32_t* sy, size_t count,
                                       int32_t stride) {
  const auto pixels = static_cast<int64_t>(count);
  const int64_t columns = int64_t{sx[count - 1]} - sx[0];
  const int64_t rows = int64_t{sy[count - 1]} - sy[0];
  const int64_t close_rows = 2 + 16 * std::abs(rows) / pixels;
  if (columns < 0 || columns >= pixels || close_rows > kMostCloseRows) return std::nullopt;
  return CloseRows{static_cast<int32_t>(close_rows), rows < 0 ? -stride : stride};
}

}  // namespace

bool HasSmallOffsets(const ImageView& source, int pixel_bytes) {
  return std::abs(int64_t{source.stride}) * source.Rows() + pixel_bytes * source.Columns() <=
         kLargestOffset;
}

CopyScattered NearestCopy::FunctionFor(const Depths& depths) {
  const WarpKernels& kernels = ActiveWarpKernels();
  switch (depths.source_bytes) {
    case 1:
      return depths.opaque ? kernels.copy1_opaque : kernels.copy1;
    case 3:
      return depths.opaque ? kernels.copy3_opaque : kernels.copy3;
    case 4:
      return depths.opaque ? kernels.copy4_opaque : kernels.copy4;
    default:
      return nullptr;
  }
}

NearestCopy::NearestCopy(const ImageView& source, const Depths& depths, int margin,
                         std::optional<uint32_t> outside)
    : bits_(source.bits),
      dest_bytes_(static_cast<size_t>(depths.opaque ? 4 : depths.source_bytes)),
      outside_(outside) {
  if (!source.HasPixels() || !HasSmallOffsets(source, depths.source_bytes)) return;
  const auto inner = [=](int size) { return size > 2 * margin ? size - 2 * margin : 0; };
  rule_ = {.left = margin,
           .top = margin,
           .columns = inner(source.width),
           .rows = inner(source.height),
           .stride = source.stride,
           .pixel_bytes = depths.source_bytes,
           .narrow_column = depths.source_bytes == 3 ? source.width - 1 : -1};
  copy_ = FunctionFor(depths);
  copies_close_ =
      depths.source_bytes == 1 && !depths.opaque && ActiveWarpKernels().copy_close1 != nullptr;
}

void NearestCopy::operator()(uint8_t* dest, const int32_t* sx, const int32_t* sy, size_t count,
                             uint8_t* repeat) {
  if (count == 0) return;
  const auto close = copies_close_ ? FindCloseRows(sx, sy, count, rule_.stride) : std::nullopt;
  if (close) {
    WriteClose(dest, sx, sy, count, *close);
    if (repeat != nullptr) std::memcpy(repeat, dest, count * dest_bytes_);
    return;
  }
  int32_t* const offsets = tiles_[turn_].offsets;
  TakeTurn(dest, repeat, count, ActiveWarpKernels().offsets(offsets, sx, sy, count, rule_), 4);
}

static_assert(kWarpTile / kPointGroup <= kMostPointGroups);

void NearestCopy::AtPoints(uint8_t* dest, const double* x, const double* y, size_t count) {
  alignas(64) int32_t sx[kWarpTile];
  alignas(64) int32_t sy[kWarpTile];
  const PointKernels& kernels = ActivePointKernels();
  if (copies_close_) {
    kernels.cells(sx, sy, x, y, count, {});
    return (*this)(dest, sx, sy, count);
  }
  int32_t* const offsets = tiles_[turn_].offsets;
  const uint32_t inside = kernels.cell_offsets(offsets, sx, sy, x, y, count, {}, rule_);
  const size_t groups = count / kPointGroup;
  const uint64_t full_groups = (uint64_t{1} << groups) - 1;
  int32_t* const end = offsets + count;
  const bool all_inside = (inside & full_groups) == full_groups &&
                          std::find(offsets + groups * kPointGroup, end, kOutsideOffset) == end;
  // Points take their time: there is room for more fetches, and for those of the destination.
  PrefetchRun<1>(dest, static_cast<int64_t>(count * dest_bytes_));
  TakeTurn(dest, nullptr, count, all_inside, 2);
}

/// Has the memory bring the pixels of the tile that has the turn, and writes the one before.
void NearestCopy::TakeTurn(uint8_t* dest, uint8_t* repeat, size_t count, bool all_inside,
                           size_t pixels_per_fetch) {
  Tile& tile = tiles_[turn_];
  tile.all_inside = all_inside;
  tile.dest = dest;
  tile.repeat = repeat;
  tile.count = count;
  // Neighbours in a row come from different rows of the source, which the processor does not
  // foresee.
  for (size_t i = 0; i < count; i += pixels_per_fetch) {
    if (tile.offsets[i] >= -kLargestOffset) PrefetchLine(bits_ + tile.offsets[i]);
  }
  turn_ = 1 - turn_;
  Write(tiles_[turn_]);
}

void NearestCopy::Write(Tile& tile) {
  if (tile.count == 0) return;
  WriteOffsets(tile.dest, tile.offsets, tile.count, tile.all_inside);
  if (tile.repeat != nullptr) std::memcpy(tile.repeat, tile.dest, tile.count * dest_bytes_);
  tile.count = 0;
}

void NearestCopy::WriteClose(uint8_t* dest, const int32_t* sx, const int32_t* sy, size_t count,
                             const CloseRows& close) const {
  const WarpKernels& kernels = ActiveWarpKernels();
  // Pixels that go by offsets where blocks do not fit.
  constexpr size_t kOthers = 64;
  int32_t offsets[kOthers];
  for (size_t done = 0; done < count;) {
    done +=
        kernels.copy_close1(dest + done, sx + done, sy + done, count - done, bits_, rule_, close);
    const size_t others = std::min(kOthers, count - done);
    if (others == 0) break;
    const bool all_inside = kernels.offsets(offsets, sx + done, sy + done, others, rule_);
    WriteOffsets(dest + done, offsets, others, all_inside);
    done += others;
  }
}

void NearestCopy::WriteOffsets(uint8_t* dest, const int32_t* offsets, size_t count,
                               bool all_inside) const {
  if (outside_ || all_inside) {
    return copy_(dest, count, bits_, offsets, outside_.value_or(0));
  }
  const auto is_outside = [](int32_t offset) { return offset == kOutsideOffset; };
  const int32_t* const end = offsets + count;
  for (const int32_t* at = offsets; at < end;) {
    const int32_t* const begin = std::find_if_not(at, end, is_outside);
    at = std::find_if(begin, end, is_outside);
    if (begin == at) continue;
    copy_(dest + (begin - offsets) * rule_.pixel_bytes, static_cast<size_t>(at - begin), bits_,
          begin, 0);
  }
}

ColorCopy::ColorCopy(const ImageView& source, const ImageView& dest, bool opaque)
    : source_(source),
      dest_(dest),
      opaque_(opaque),
      nearest_(source, {AccessPixelBytes(source.bit_count), opaque}, 0, OutsideColor(source)) {}

void ColorCopy::operator()(int y, int x, const int32_t* sx, const int32_t* sy, size_t count,
                           int repeat_y) {
  if (nearest_) {
    const int64_t offset = x * int64_t{AccessPixelBytes(dest_.bit_count)};
    nearest_(dest_.Row(y) + offset, sx, sy, count,
             repeat_y == y ? nullptr : dest_.Row(repeat_y) + offset);
    return;
  }
  for (size_t i = 0; i < count; ++i) {
    uint32_t color = GetPixelColor(source_.bits, sx[i], sy[i], source_.width, source_.height,
                                   source_.stride, source_.bit_count);
    if (opaque_ && AlphaOf(color) != kOutsideMarker) color = WithAlpha(color, 255);
    const auto put = [&](int row) {
      SetPixelColor(dest_.bits, x + static_cast<int>(i), row, dest_.width, dest_.height,
                    dest_.stride, color, dest_.bit_count);
    };
    put(y);
    if (repeat_y != y) put(repeat_y);
  }
}

}  // namespace qel
