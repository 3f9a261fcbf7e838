#include <algorithm>
#include <cstring>

#include "component/result_image.h"
#include "image/pixel_layout.h"
#include "transform/image_transform.h"

namespace qel {
namespace {

/// Fills zero bytes from `step` bytes before the last column on with the mean of the neighbours
/// that are not zero, where at least `least` of the four are.
template <int kStep, int kLeast>
void FillZeroBytes(const ImageView& view) {
  const int64_t end = (view.Columns() - 1) * kStep;
  for (int64_t y = 1; y < view.Rows() - 1; ++y) {
    uint8_t* const row = view.Row(y);
    const uint8_t* const next = view.Row(y + 1);
    const uint8_t* const previous = view.Row(y - 1);
    // Zeros are searched for one after the other: a filled one is a neighbour of the next.
    for (int64_t i = kStep; i < end; ++i) {
      const void* const zero = std::memchr(row + i, 0, static_cast<size_t>(end - i));
      if (zero == nullptr) break;
      i = static_cast<const uint8_t*>(zero) - row;
      int sum = 0;
      int count = 0;
      for (const int value : {row[i - kStep], row[i + kStep], next[i], previous[i]}) {
        sum += value;
        count += value != 0;
      }
      if (count >= kLeast) row[i] = static_cast<uint8_t>(sum / count);
    }
  }
}

/// Pixels that are looked at together: most groups have no voids.
constexpr int64_t kGroup = 64;

/// True when one of a group of pixels from `x` on is zero.
bool HasZero(const uint8_t* row, int64_t x) {
  int zeros = 0;
  for (int64_t i = 0; i < kGroup; ++i) zeros |= Bgra::Load(row, x + i) == 0;
  return zeros != 0;
}

/// Fills zero pixels with the pixel to the right or else below.
void FillZeroPixels(const ImageView& view) {
  const uint32_t opaque = view.model == kModelArgb || view.model == kModelAbgr ? 0xFF000000u : 0u;
  ImageView words = view;
  // Rows are walked in whole pixels.
  words.stride = view.stride / 4 * 4;
  const int64_t end = view.Columns() - 1;
  for (int64_t y = 1; y < view.Rows() - 1; ++y) {
    uint8_t* const row = words.Row(y);
    const uint8_t* const next = words.Row(y + 1);
    for (int64_t first = 1; first < end; first += kGroup) {
      if (first + kGroup <= end && !HasZero(row, first)) continue;
      for (int64_t x = first; x < std::min(first + kGroup, end); ++x) {
        if (Bgra::Load(row, x) != 0) continue;
        uint32_t filler = Bgra::Load(row, x + 1);
        if (filler == 0) filler = Bgra::Load(next, x);
        if (filler != 0) Bgra::Store(row, x, filler | opaque);
      }
    }
  }
}

}  // namespace

result_t CQELImageTransform::FillVoids(IQEL* image) {
  if (image == nullptr) return kFail;
  const ImageView view = ReadView(*image);
  const int bytes = ExactPixelBytes(view.bit_count);
  if (bytes == 0) return kFail;
  if (!view.HasPixels()) return kOk;
  if (bytes == 1) {
    FillZeroBytes<1, 1>(view);
  } else if (bytes == 3) {
    // Deliberate: bytes of colors need three neighbours, grays are content with one.
    FillZeroBytes<3, 3>(view);
  } else {
    FillZeroPixels(view);
  }
  return kOk;
}

}  // namespace qel
