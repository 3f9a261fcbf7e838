#include <algorithm>
#include <cstdlib>

#include "component/result_image.h"
#include "image/memory_reach.h"
#include "image/numeric.h"
#include "transform/image_transform.h"
#include "transform/rotate/rotated_frame.h"
#include "transform/warp/affine_kernels.h"
#include "transform/warp/nearest_copy.h"

namespace qel {
namespace {

struct SkewRule {
  float x_gain, y_gain;
  int pivot_x, pivot_y;
};

/// Draws a sheared picture.
class SkewRows {
 public:
  SkewRows(const ImageView& source, const ImageView& dest, bool opaque, const SkewRule& rule)
      : source_(source),
        dest_(dest),
        rule_(rule),
        pixel_bytes_(AccessPixelBytes(source.bit_count)),
        copies_lines_(!opaque && CopiesLines()),
        copy_(source, dest, opaque) {}

  void Draw() {
    int y = 0;
    if (CopiesSquares()) {
      for (; y + kSquareSide <= dest_.height; y += kSquareSide) DrawSquares(y);
    }
    for (; y < dest_.height; ++y) {
      if (copies_lines_) {
        DrawLine(y);
      } else {
        DrawRow(y, 0, dest_.width);
      }
    }
    copy_.Finish();
  }

 private:
  /// True where positions are exact enough, and apart, for squares of pixels of 1 byte.
  bool CopiesSquares() const {
    // Differences of columns and pivots are exact up to here.
    constexpr int64_t kMostPivot = 1 << 20;
    const auto is_small = [](const ImageView& view) {
      return view.bit_count == 8 && std::max(view.width, view.height) <= kMostSquareSource;
    };
    const int64_t bytes = std::abs(int64_t{source_.stride}) * source_.Rows();
    return is_small(source_) && is_small(dest_) && source_.HasPixels() && bytes <= INT32_MAX &&
           std::max(std::abs(int64_t{rule_.pivot_x}), std::abs(int64_t{rule_.pivot_y})) <=
               kMostPivot &&
           !RowsOverlap(dest_.width, dest_.stride) &&
           ActiveAffineKernels().copy_squares1 != nullptr;
  }

  /// True where what is inside of a row can be copied as a whole: pixels of 3 or 4 bytes.
  bool CopiesLines() const {
    // Up to here, single precision has all columns and rows.
    constexpr int kLargestSize = 1 << 23;
    return source_.HasPixels() && pixel_bytes_ >= 3 &&
           std::max({source_.width, source_.height, dest_.width}) <= kLargestSize &&
           HasSmallOffsets(source_, pixel_bytes_) &&
           !RowsOverlap(dest_.Columns() * pixel_bytes_, dest_.stride);
  }

  float ShiftOf(int y) const {
    return static_cast<float>(WrapSubtract(y, rule_.pivot_y)) * rule_.x_gain;
  }

  ShearRow RowAt(int y, int first) const {
    return {.first_x = first,
            .pivot_x = rule_.pivot_x,
            .y = static_cast<float>(y),
            .shift_x = ShiftOf(y),
            .gain_y = rule_.y_gain};
  }

  /// The columns of a row whose pixels come from inside, and of 3 bytes have another behind them.
  PixelRun InsideOf(const ShearRow& row) {
    const auto x_of = [&](int x) { return static_cast<float>(x) + row.shift_x; };
    const auto y_of = [&](int x) {
      return row.y + static_cast<float>(WrapSubtract(x, row.pivot_x)) * row.gain_y;
    };
    // True for what is not a number.
    const auto too_low = [](float v) { return !(v > -1.0f); };
    const auto too_high = [](int size) {
      return [=](float v) { return v >= static_cast<float>(size); };
    };
    const PixelRun columns = RunWithin({0, dest_.width}, true, guess_x_, x_of, too_low,
                                       too_high(source_.width - (pixel_bytes_ == 3 ? 1 : 0)));
    return RunWithin(columns, row.gain_y >= 0, guess_y_, y_of, too_low, too_high(source_.height));
  }

  /// A row of pixels of 3 or 4 bytes.
  void DrawLine(int y) {
    constexpr int kRowsAhead = 2;
    const PixelRun run = InsideOf(RowAt(y, 0));
    const auto copy =
        pixel_bytes_ == 3 ? ActiveWarpKernels().copy_sheared3 : ActiveWarpKernels().copy_sheared4;
    DrawRow(y, 0, run.begin);
    copy(dest_.Row(y) + int64_t{run.begin} * pixel_bytes_, static_cast<size_t>(run.end - run.begin),
         source_.bits, source_.stride, RowAt(y, run.begin),
         RowAt(WrapAdd(y, kRowsAhead), run.begin));
    DrawRow(y, run.end, dest_.width);
  }

  /// Columns `first` to before `end` of a row.
  void DrawRow(int y, int first, int end) {
    ShearRow row = RowAt(y, first);
    int32_t sx[kWarpTile];
    int32_t sy[kWarpTile];
    while (row.first_x < end) {
      const int count = std::min(static_cast<int>(kWarpTile), end - row.first_x);
      ActiveWarpKernels().shear(sx, sy, static_cast<size_t>(count), row);
      copy_(y, row.first_x, sx, sy, static_cast<size_t>(count));
      row.first_x += count;
    }
  }

  /// `kSquareSide` rows from `top` on.
  void DrawSquares(int top) {
    AffineAxis x = {.start = 0, .gain = 1, .shift = 0, .offset = 0, .rows = {}};
    AffineAxis y = {.start = -static_cast<float>(rule_.pivot_x),
                    .gain = rule_.y_gain,
                    .shift = 0,
                    .offset = 0,
                    .rows = {}};
    for (int k = 0; k < kSquareSide; ++k) {
      x.rows[k] = ShiftOf(top + k);
      y.rows[k] = static_cast<float>(top + k);
    }
    const AffineSource source = {source_.bits, source_.stride, source_.width, source_.height};
    // Columns that go row by row where squares do not: more and more until they do.
    constexpr int kFewest = 64;
    int others = kFewest;
    for (int first = 0; first < dest_.width;) {
      const auto copied = static_cast<int>(
          ActiveAffineKernels().copy_squares1(dest_.Row(top), dest_.stride, source, x, y, first,
                                              static_cast<size_t>(dest_.width - first)));
      others = copied > 0 ? kFewest : 2 * others;
      first += copied;
      const int end = first + std::min(others, dest_.width - first);
      for (int k = 0; k < kSquareSide; ++k) DrawRow(top + k, first, end);
      first = end;
    }
  }

  const ImageView source_;
  const ImageView dest_;
  const SkewRule rule_;
  const int pixel_bytes_;
  const bool copies_lines_;
  ColorCopy copy_;
  EdgeGuess guess_x_[2];
  EdgeGuess guess_y_[2];
};

}  // namespace

result_t CQELImageTransform::Skew(IQEL* source, IQEL** result, float x_gain, float y_gain,
                                  int x_pivot, int y_pivot, int /*reserved*/, int force_alpha) {
  if (source == nullptr) return kFail;
  if (result == nullptr) return kNullOutput;
  const bool opaque = force_alpha != 0;
  const ImageView view = ReadView(*source);
  ResultImage output = ResultImage::FromCollection();
  if (!output) return kFail;
  ImageShape shape = view;
  if (opaque) {
    shape.bit_count = 32;
    shape.model = kModelArgb;
  }
  output.Create(shape);
  const ImageView dest = output.View();
  // A pivot at column or row 0 cannot be asked for: 0 is the centre.
  const int pivot_x = x_pivot == 0 ? view.width / 2 : x_pivot;
  const int pivot_y = y_pivot == 0 ? view.height / 2 : y_pivot;
  if (dest.HasPixels()) {
    SkewRows skew(view, dest, opaque, {x_gain, y_gain, pivot_x, pivot_y});
    skew.Draw();
  }
  output.Store(result);
  return kOk;
}

}  // namespace qel
