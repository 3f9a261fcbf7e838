#include "pictures/pixel_target.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

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
  input.Fail(PictureError::Kind::kTooLarge, std::to_string(width) + " x " + std::to_string(height) +
                                                " pixels are more than the limit of " +
                                                std::to_string(limits.max_pixels));
}

PixelTarget::PixelTarget(const Input& input, PictureInfo& info, int orientation)
    : orientation_(input.options.upright ? orientation : 1),
      stored_width_(info.width),
      stored_height_(info.height),
      bit_count_(info.bit_count) {
  info.orientation = orientation;
  const Turn turn = TurnOf(orientation_);
  const bool waits = turn.exchanged || turn.mirrored_x;
  CheckSize(input, info.width, info.height);
  const uint64_t bytes = RowBytes(info.width, info.bit_count) * static_cast<uint64_t>(info.height);
  input.Plan(waits ? 2 * bytes : bytes);
  if (turn.exchanged) {
    std::swap(info.width, info.height);
    std::swap(info.metadata.dpi_x, info.metadata.dpi_y);
  }
  upright_width_ = info.width;
  upright_height_ = info.height;
  if (input.allocate == nullptr) return;

  upright_ = (*input.allocate)(info);
  const auto row_bytes = static_cast<ptrdiff_t>(RowBytes(info.width, bit_count_));
  if (upright_.bits == nullptr || (info.height > 1 && std::abs(upright_.stride) < row_bytes)) {
    throw std::invalid_argument("the allocator of a picture gave no room for its rows");
  }
  if (waits) {
    stride_ = static_cast<ptrdiff_t>(RowBytes(stored_width_, bit_count_));
    waiting_.Resize(static_cast<size_t>(stride_) * static_cast<size_t>(stored_height_));
    bits_ = waiting_.data();
  } else if (turn.mirrored_y) {
    bits_ = upright_.bits + ptrdiff_t{stored_height_ - 1} * upright_.stride;
    stride_ = -upright_.stride;
  } else {
    bits_ = upright_.bits;
    stride_ = upright_.stride;
  }
}

void PixelTarget::Finish() {
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
  const uint8_t* const stored = waiting_.data();
  if (bit_count_ < 8) {
    for (int y = 0; y < upright_height_; ++y) {
      uint8_t* const row = upright_.bits + y * upright_.stride;
      for (int x = 0; x < upright_width_; ++x) {
        int sx = turn.exchanged ? y : x;
        int sy = turn.exchanged ? x : y;
        if (turn.mirrored_x) sx = stored_width_ - 1 - sx;
        if (turn.mirrored_y) sy = stored_height_ - 1 - sy;
        StoreIndex(row, bit_count_, x, LoadIndex(stored + sy * stride_, bit_count_, sx));
      }
    }
    return;
  }
  const int bytes = bit_count_ / 8;
  const ptrdiff_t along = turn.mirrored_x ? -bytes : bytes;
  const ptrdiff_t down = turn.mirrored_y ? -stride_ : stride_;
  const uint8_t* from = stored;
  if (turn.mirrored_x) from += ptrdiff_t{stored_width_ - 1} * bytes;
  if (turn.mirrored_y) from += ptrdiff_t{stored_height_ - 1} * stride_;
  const auto move = bytes == 1 ? MoveSquares<1> : bytes == 3 ? MoveSquares<3> : MoveSquares<4>;
  move(from, turn.exchanged ? down : along, turn.exchanged ? along : down, upright_.bits,
       upright_.stride, upright_width_, upright_height_);
}

}  // namespace qel::pictures
