#include "pictures/pixel_target.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "pictures/index_rows.h"

namespace qel::pictures {
namespace {

/// How an orientation leads from an upright position back to the stored one: the axes are
/// exchanged, then each may run backwards.
struct Turn {
  bool exchanged;
  bool mirrored_x;
  bool mirrored_y;
};
constexpr Turn kTurns[8] = {
    {false, false, false}, {false, true, false}, {false, true, true}, {false, false, true},
    {true, false, false},  {true, false, true},  {true, true, true},  {true, true, false},
};
constexpr Turn TurnOf(int orientation) { return kTurns[orientation - 1]; }

/// Copies pixels of `kBytes` bytes; the source advances by any step along either axis. Squares
/// keep both sides of a quarter turn in the cache.
template <int kBytes>
void MoveSquares(const uint8_t* from, ptrdiff_t step_x, ptrdiff_t step_y, uint8_t* to,
                 ptrdiff_t stride, int width, int height) {
  constexpr int kSide = 64;
  for (int top = 0; top < height; top += kSide) {
    const int bottom = std::min(height, top + kSide);
    for (int left = 0; left < width; left += kSide) {
      const int right = std::min(width, left + kSide);
      for (int y = top; y < bottom; ++y) {
        const uint8_t* pixel = from + y * step_y + left * step_x;
        uint8_t* out = to + y * stride + ptrdiff_t{left} * kBytes;
        for (int x = left; x < right; ++x, pixel += step_x, out += kBytes) {
          std::memcpy(out, pixel, kBytes);
        }
      }
    }
  }
}

}  // namespace

void CheckSize(const Input& input, int64_t width, int64_t height) {
  if (width < 1 || height < 1) input.Broken("the header states a picture without pixels");
  const Limits& limits = input.options.limits;
  if (limits.AllowSize(width, height)) return;
  if (std::max(width, height) > INT32_MAX) {
    input.Fail(PictureError::Kind::kTooLarge, "{} x {} pixels; a side has {} at most", width,
               height, INT32_MAX);
  }
  input.Fail(PictureError::Kind::kTooLarge, "{} x {} pixels are more than the limit of {}", width,
             height, limits.max_pixels);
}

bool KeepsRowOrder(int orientation) {
  const Turn turn = TurnOf(orientation);
  return !turn.exchanged && !turn.mirrored_y;
}

bool NeedsBuffer(int orientation) {
  const Turn turn = TurnOf(orientation);
  return turn.exchanged || turn.mirrored_x;
}

void MakeUpright(PictureInfo& info, int orientation) {
  if (!TurnOf(orientation).exchanged) return;
  std::swap(info.width, info.height);
  std::swap(info.metadata.dpi_x, info.metadata.dpi_y);
}

PixelTarget::PixelTarget(const PixelBuffer& upright, int width, int height, int bit_count,
                         int orientation)
    : upright_(upright),
      stored_(upright),
      stored_width_(width),
      stored_height_(height),
      upright_width_(width),
      upright_height_(height),
      bit_count_(bit_count),
      orientation_(orientation) {
  if (TurnOf(orientation).exchanged) std::swap(upright_width_, upright_height_);
  if (NeedsBuffer(orientation)) {
    stored_.stride = static_cast<ptrdiff_t>(RowBytes(width, bit_count));
    waiting_.Resize(static_cast<size_t>(stored_.stride) * static_cast<size_t>(height));
    stored_.bits = waiting_.data();
  } else if (TurnOf(orientation).mirrored_y) {
    stored_.bits += ptrdiff_t{height - 1} * stored_.stride;
    stored_.stride = -stored_.stride;
  }
}

void PixelTarget::Finish() const {
  if (waiting_.size() > 0) MoveUpright();
  const int used_bits = static_cast<int>(int64_t{upright_width_} * bit_count_ % 8);
  if (used_bits == 0) return;
  const size_t last = RowBytes(upright_width_, bit_count_) - 1;
  for (int y = 0; y < upright_height_; ++y) {
    uint8_t& byte = upright_.bits[y * upright_.stride + static_cast<ptrdiff_t>(last)];
    byte = static_cast<uint8_t>(byte & 0xFF << (8 - used_bits));
  }
}

void PixelTarget::MoveUpright() const {
  const Turn turn = TurnOf(orientation_);
  const uint8_t* const stored = stored_.bits;
  if (bit_count_ < 8) {
    for (int y = 0; y < upright_height_; ++y) {
      uint8_t* const row = upright_.bits + y * upright_.stride;
      for (int x = 0; x < upright_width_; ++x) {
        int sx = turn.exchanged ? y : x;
        int sy = turn.exchanged ? x : y;
        if (turn.mirrored_x) sx = stored_width_ - 1 - sx;
        if (turn.mirrored_y) sy = stored_height_ - 1 - sy;
        StoreIndex(row, bit_count_, x, LoadIndex(stored + sy * stored_.stride, bit_count_, sx));
      }
    }
    return;
  }
  const int bytes = bit_count_ / 8;
  const ptrdiff_t along = turn.mirrored_x ? -bytes : bytes;
  const ptrdiff_t down = turn.mirrored_y ? -stored_.stride : stored_.stride;
  const uint8_t* from = stored;
  if (turn.mirrored_x) from += ptrdiff_t{stored_width_ - 1} * bytes;
  if (turn.mirrored_y) from += ptrdiff_t{stored_height_ - 1} * stored_.stride;
  const auto move = bytes == 1 ? MoveSquares<1> : bytes == 3 ? MoveSquares<3> : MoveSquares<4>;
  move(from, turn.exchanged ? down : along, turn.exchanged ? along : down, upright_.bits,
       upright_.stride, upright_width_, upright_height_);
}

}  // namespace qel::pictures
