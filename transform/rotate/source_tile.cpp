#include "transform/rotate/source_tile.h"

#include <algorithm>
#include <iterator>
#include <new>

#include "image/pixel_access.h"

namespace qel {

namespace {

/// Taps of samples go no further out.
constexpr int kReach = 8;

}  // namespace

SourceTile::SourceTile(const ImageView& source, int pixel_bytes)
    : source_(source), pixel_bytes_(pixel_bytes) {
  const uint32_t outside = OutsideColor(source);
  const uint8_t channels[] = {BlueOf(outside), GreenOf(outside), RedOf(outside), AlphaOf(outside)};
  std::copy(std::begin(channels), std::end(channels), outside_);
}

bool SourceTile::Reserve() {
  memory_.reset(new (std::nothrow) float[kMostValues + kTileMargin]);
  return memory_ != nullptr;
}

bool SourceTile::Fill(PixelBox box) {
  box = {std::max(box.left, -kReach), std::max(box.top, -kReach),
         std::min(box.right, source_.width + kReach),
         std::min(box.bottom, source_.height + kReach)};
  const int64_t row_values = (int64_t{box.right} - box.left) * pixel_bytes_;
  if (row_values * (int64_t{box.bottom} - box.top) > kMostValues) return false;
  // Of each row, what is inside.
  const int begin = std::clamp(0, box.left, box.right);
  const int end = std::clamp(source_.width, begin, box.right);
  const auto inside_values = static_cast<size_t>(end - begin) * static_cast<size_t>(pixel_bytes_);
  const BoundedKernels& kernels = ActiveBoundedKernels();
  ByteRange range;
  float* to = memory_.get();
  const auto put_outside = [&](int count) {
    if (count <= 0) return;
    kernels.spread(to, outside_, static_cast<size_t>(pixel_bytes_), range);
    // The pixel before, again and again.
    float* const behind = to + int64_t{count} * pixel_bytes_;
    for (float* next = to + pixel_bytes_; next < behind; ++next) *next = next[-pixel_bytes_];
    to = behind;
  };
  for (int row = box.top; row < box.bottom; ++row) {
    if (row < 0 || row >= source_.height) {
      put_outside(box.right - box.left);
      continue;
    }
    put_outside(begin - box.left);
    kernels.spread(to, source_.Row(row) + int64_t{begin} * pixel_bytes_, inside_values, range);
    to += inside_values;
    put_outside(box.right - end);
  }
  // Lanes that nobody looks at would take long with numbers of other kinds.
  std::fill_n(to, kTileMargin, 0.0f);
  constexpr Tolerance kTolerance =
      ToleranceOf(kLanczosLine, kLanczosLine, kBoundedWeightError, kLanczosApart, kLanczosApart);
  box_ = box;
  tile_ = {.values = memory_.get(),
           .stride = static_cast<int32_t>(row_values),
           .column = box.left,
           .row = box.top,
           .bound = static_cast<float>(kTolerance.Of(range.lowest, range.highest))};
  return true;
}

}  // namespace qel
