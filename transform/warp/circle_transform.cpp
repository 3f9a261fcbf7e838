#include <algorithm>
#include <cmath>
#include <cstring>

#include "component/result_image.h"
#include "image/memory_reach.h"
#include "image/numeric.h"
#include "image/pixel_access.h"
#include "transform/image_deform.h"
#include "transform/resample/gather_map.h"
#include "transform/warp/circle_plan.h"
#include "transform/warp/nearest_copy.h"

namespace qel {
namespace {

/// Fills pictures pixel by pixel; always right, and slow.
void MapEveryPixel(const Circle& circle, ColorCopy& copy) {
  int32_t sx[kWarpTile];
  int32_t sy[kWarpTile];
  for (int y = 0; y < circle.height; ++y) {
    for (int x = 0; x < circle.width;) {
      const int count = std::min(static_cast<int>(kWarpTile), circle.width - x);
      for (int i = 0; i < count; ++i) {
        const Circle::Sample sample = circle.At(x + i, y);
        sx[i] = sample.x;
        sy[i] = sample.y;
      }
      copy(y, x, sx, sy, static_cast<size_t>(count));
      x += count;
    }
  }
}

/// The number of columns, counted from the centre, that lie within the limit at height `dy`.
int ReachOfRow(const Circle& circle, int dy) {
  int reach = 0;
  int beyond = circle.cx + 1;
  while (reach < beyond) {
    const int middle = reach + (beyond - reach) / 2;
    if (Circle::Distance(middle, dy) < circle.limit) {
      reach = middle + 1;
    } else {
      beyond = middle;
    }
  }
  return reach;
}

/// Folds pictures of any depth.
void Fold(const Circle& circle, ColorCopy& copy) {
  int32_t sx[kWarpTile];
  int32_t sy[kWarpTile];
  for (int y = 0; y < circle.height; ++y) {
    const int reach = ReachOfRow(circle, circle.cy - y);
    std::fill_n(sy, kWarpTile, y);
    for (int x = 0; x < circle.width;) {
      const int count = std::min(static_cast<int>(kWarpTile), circle.width - x);
      for (int i = 0; i < count; ++i) sx[i] = Circle::FoldedColumn(x + i);
      // What is out of reach lies at both ends.
      const auto position = [&](int column) { return std::clamp(column - x, 0, count); };
      std::fill(sx, sx + position(circle.cx - reach + 1), -1);
      std::fill(sx + position(circle.cx + reach), sx + count, -1);
      copy(y, x, sx, sy, static_cast<size_t>(count));
      x += count;
    }
  }
}

/// Folds pictures of whole bytes that keep their depth: all rows gather the same columns.
[[gnu::noinline]] void FoldRows(const Circle& circle, const ImageView& source,
                                const ImageView& dest, int pixel_bytes) {
  constexpr float kFoldStep = 2;  // but for every 32nd column
  // Columns that sample outside: the first 8, and at most 15 of the last.
  int missing[24];
  const uint32_t outside = OutsideColor(source);
  GatherMap<40 * 1024> map(pixel_bytes, false, kFoldStep, source.Columns() * pixel_bytes);
  for (int first = 0; first < circle.width;) {
    const int count = static_cast<int>(std::min<int64_t>(map.most_pixels(), circle.width - first));
    const int end = first + count;
    size_t missing_count = 0;
    map.Describe(count, [&](int64_t i) {
      const int x = first + static_cast<int>(i);
      const int column = Circle::FoldedColumn(x);
      const int inside = std::clamp(column, 0, circle.width - 1);
      if (inside != column) missing[missing_count++] = x;
      return int64_t{inside} * pixel_bytes;
    });
    for (int y = 0; y < circle.height; ++y) {
      map.Gather(dest.Row(y) + int64_t{first} * pixel_bytes, source.Row(y));
      const auto put_outside = [&](int begin, int past) {
        for (int64_t x = std::max(begin, first); x < std::min(past, end); ++x) {
          std::memcpy(dest.Row(y) + x * pixel_bytes, &outside, static_cast<size_t>(pixel_bytes));
        }
      };
      const int reach = ReachOfRow(circle, circle.cy - y);
      put_outside(0, circle.cx - reach + 1);
      put_outside(circle.cx + reach, circle.width);
      for (size_t k = 0; k < missing_count; ++k) put_outside(missing[k], missing[k] + 1);
    }
    first = end;
  }
}

/// Fills all four quarters from the mapping of one.
class QuarterMap {
 public:
  QuarterMap(const Circle& circle, const ImageView& source, const ImageView& dest, bool opaque,
             ColorCopy& copy)
      : circle_(circle),
        source_(source),
        dest_(dest),
        pixel_bytes_(AccessPixelBytes(source.bit_count)),
        copies_inside_(!opaque && source.HasPixels() && pixel_bytes_ >= 3 &&
                       HasSmallOffsets(source, pixel_bytes_) &&
                       !RowsOverlap(dest.Columns() * pixel_bytes_, dest.stride)),
        copy_(copy) {}

  void Fill(CircleMapping mapping) const {
    // Pixels of a row meet up to as many other pages of the source, and the processor remembers
    // where some two thousand are. Where rows turn, their four quarters meet different ones.
    constexpr int kMostColumns = 2048;
    const bool turns = circle_.mode == kCircleSwirl || circle_.mode == kCircleUnwrap;
    const int columns = circle_.cx + 1;
    const int band =
        columns <= kMostColumns ? columns : static_cast<int>(turns ? kWarpTile : 2 * kWarpTile);
    for (int first = 0; first < columns; first += band) {
      FillBand(mapping, first, std::min(first + band, columns));
    }
  }

 private:
  /// The columns from `first` to before `end`, counted from the centre to both sides.
  void FillBand(CircleMapping mapping, int first, int end) const {
    CircleSamples samples;
    CircleRun run = {.first_dx = first,
                     .dy = 0,
                     .count = 0,
                     .limit = circle_.limit,
                     .farthest = 0,
                     .scale_x = circle_.width / kFullTurn,
                     .scale_y = static_cast<double>(circle_.height),
                     .turn = 1.0 / circle_.swirl};
    int reach = end;
    for (run.dy = 0; run.dy <= circle_.cy; ++run.dy) {
      while (reach > first && !(Circle::Distance(reach - 1, run.dy) < circle_.limit)) --reach;
      for (run.first_dx = first; run.first_dx < end;) {
        const auto most = static_cast<int>(copies_inside_ ? kInsideRun : kWarpTile);
        int count = std::min(most, end - run.first_dx);
        const int reached = std::clamp(reach - run.first_dx, 0, count);
        // What is out of reach goes by itself.
        if (copies_inside_ && reached > 0) count = reached;
        run.count = static_cast<size_t>(reached);
        if (reached > 0) run.farthest = Circle::Distance(run.first_dx + reached - 1, run.dy);
        const bool any_too_close = reached > 0 && mapping(run, samples);
        if (reached == count && !any_too_close && CopyInside(run, samples)) {
          run.first_dx += count;
          continue;
        }
        run.count = static_cast<size_t>(count);
        for (int32_t* const x : {samples.left_x, samples.right_x}) {
          std::fill(x + reached, x + count, kOutOfReach);
        }
        PlaceRun(run, samples, any_too_close);
        run.first_dx += count;
      }
    }
  }

  /// Pixels of a quarter in a row of the result.
  struct Quarter {
    uint8_t* dest;
    uint8_t* repeat;  ///< takes the same pixels where it is not null
    const int32_t* offsets;
    size_t count;
    bool reversed;
  };

  /// Copies the pixels of all quarters where all of them are inside; else does nothing.
  bool CopyInside(const CircleRun& run, const CircleSamples& samples) const {
    if (!copies_inside_) return false;
    const bool unwraps = circle_.mode == kCircleUnwrap;
    const int cx = unwraps ? 0 : circle_.cx;
    const int cy = unwraps ? 0 : circle_.cy;
    CircleOffsets offsets;
    kernels_.offsets(offsets, samples, run.count, source_.stride, pixel_bytes_);
    // Pixels of 3 bytes are read with the byte behind them.
    const int last_x = source_.width - (pixel_bytes_ == 3 ? 2 : 1);
    const auto is_inside = [](int center, int least, int most, int last) {
      return center >= -least && center <= last - most;
    };
    if (!is_inside(cx, offsets.least_x, offsets.most_x, last_x) ||
        !is_inside(cy, offsets.least_y, offsets.most_y, source_.height - 1) ||
        (!unwraps && (!is_inside(cx, -offsets.most_x, -offsets.least_x, last_x) ||
                      !is_inside(cy, -offsets.most_y, -offsets.least_y, source_.height - 1)))) {
      return false;
    }
    Quarter quarters[4];
    size_t quarter_count = 0;
    const bool has_lower = run.dy > 0 && circle_.cy + run.dy < circle_.height;
    for (const bool is_left : {true, false}) {
      // The middle column belongs to the right.
      const int skipped = is_left && run.first_dx == 0 ? 1 : 0;
      const int first_dx = run.first_dx + skipped;
      int count = static_cast<int>(run.count) - skipped;
      if (!is_left) count = std::min(count, circle_.width - circle_.cx - first_dx);
      if (count <= 0) continue;
      const int x = is_left ? circle_.cx - first_dx - count + 1 : circle_.cx + first_dx;
      const auto pixels_at = [&](int y) { return dest_.Row(y) + int64_t{x} * pixel_bytes_; };
      uint8_t* const upper = pixels_at(circle_.cy - run.dy);
      uint8_t* const lower = has_lower ? pixels_at(circle_.cy + run.dy) : nullptr;
      const auto add = [&](uint8_t* dest, uint8_t* repeat, const int32_t* from) {
        quarters[quarter_count++] = {dest, repeat, from + skipped, static_cast<size_t>(count),
                                     is_left};
      };
      // A half turn maps the lower left on the upper right, and an unwrapped lower half is the
      // upper one.
      add(upper, unwraps ? lower : nullptr,
          (is_left ? offsets.left : offsets.right)[unwraps ? 0 : 1]);
      if (has_lower && !unwraps) add(lower, nullptr, (is_left ? offsets.right : offsets.left)[0]);
    }
    const uint8_t* const center = source_.Row(cy) + int64_t{cx} * pixel_bytes_;
    const CopyQuarter forward = pixel_bytes_ == 3 ? kernels_.copy3 : kernels_.copy4;
    const CopyQuarter backward =
        pixel_bytes_ == 3 ? kernels_.copy3_reversed : kernels_.copy4_reversed;
    for (size_t q = 0; q < quarter_count; ++q) {
      const Quarter& quarter = quarters[q];
      const Quarter* const next = q + 1 < quarter_count ? &quarters[q + 1] : nullptr;
      (quarter.reversed ? backward : forward)(quarter.dest, quarter.count, center, quarter.offsets,
                                              next != nullptr ? next->offsets : nullptr,
                                              next != nullptr ? next->count : 0);
      if (quarter.repeat != nullptr) {
        std::memcpy(quarter.repeat, quarter.dest,
                    quarter.count * static_cast<size_t>(pixel_bytes_));
      }
    }
    return true;
  }

  /// Copies the pixels of all quarters.
  void PlaceRun(const CircleRun& run, const CircleSamples& samples, bool any_too_close) const {
    const int upper = circle_.cy - run.dy;
    const bool has_lower = run.dy > 0 && circle_.cy + run.dy < circle_.height;
    const int lower = has_lower ? circle_.cy + run.dy : upper;
    // An unwrapped lower half is the upper one.
    const bool repeats = circle_.mode == kCircleUnwrap && !any_too_close;
    for (const bool left : {true, false}) {
      Place(run, samples, left, any_too_close, upper, repeats ? lower : upper);
      if (has_lower && !repeats) Place(run, samples, left, any_too_close, lower, lower);
    }
  }

  /// Copies the pixels of one quarter into row `y`, and the same into row `repeat_y`.
  void Place(const CircleRun& run, const CircleSamples& samples, bool left, bool any_too_close,
             int y, int repeat_y) const {
    const bool unwrap = circle_.mode == kCircleUnwrap;
    const bool lower = y > circle_.cy;
    // A half turn maps the lower left on the upper right.
    const bool from_left = unwrap || !lower ? left : !left;
    const int32_t* from_x = from_left ? samples.left_x : samples.right_x;
    const int32_t* from_y = from_left ? samples.left_y : samples.right_y;
    const int sign = unwrap || lower ? 1 : -1;
    const int cx = unwrap ? 0 : circle_.cx;
    const int cy = unwrap ? 0 : circle_.cy;
    int first_dx = run.first_dx;
    auto count = static_cast<int>(run.count);
    if (left && first_dx == 0) {
      // The middle column belongs to the right.
      ++first_dx;
      ++from_x;
      ++from_y;
      --count;
    }
    if (!left) count = std::min(count, circle_.width - circle_.cx - first_dx);
    if (count <= 0) return;
    const int x = left ? circle_.cx - first_dx - count + 1 : circle_.cx + first_dx;
    const auto pixels = static_cast<size_t>(count);
    const auto place = left ? kernels_.place_reversed : kernels_.place;
    int32_t sx[kWarpTile];
    int32_t sy[kWarpTile];
    place(sx, from_x, pixels, cx, sign);
    place(sy, from_y, pixels, cy, sign);
    for (int i = 0; any_too_close && i < count; ++i) {
      if (from_x[i] != kTooClose) continue;
      const int at = left ? count - 1 - i : i;
      const Circle::Sample sample = circle_.At(x + at, y);
      sx[at] = sample.x;
      sy[at] = sample.y;
    }
    copy_(y, x, sx, sy, pixels, repeat_y);
  }

  const Circle& circle_;
  const ImageView source_;
  const ImageView dest_;
  const int pixel_bytes_;
  const bool copies_inside_;
  ColorCopy& copy_;
  const CircleKernels& kernels_ = ActiveCircleKernels();
};

}  // namespace

void RunCircle(const CirclePlan& plan, const ImageView& source, const ImageView& dest) {
  const auto& [method, circle, opaque] = plan;
  if (method == CircleMethod::kFoldRows) {
    return FoldRows(circle, source, dest, AccessPixelBytes(source.bit_count));
  }
  ColorCopy copy(source, dest, opaque);
  if (method == CircleMethod::kQuarters) {
    const CircleKernels& kernels = ActiveCircleKernels();
    const CircleMapping mappings[] = {kernels.bulge, kernels.pinch, kernels.swirl, kernels.unwrap};
    QuarterMap(circle, source, dest, opaque, copy).Fill(mappings[circle.mode]);
  } else if (method == CircleMethod::kFold) {
    Fold(circle, copy);
  } else {
    MapEveryPixel(circle, copy);
  }
  copy.Finish();
}

result_t CQELImageDeform::CircleTransform(IQEL* image, int mode, int with_alpha, float factor) {
  if (image == nullptr) return kFail;
  if (mode < 0) return kInvalidArgument;
  const bool opaque = with_alpha != 0;
  const ImageView source = ReadSizeBitsAndFormat(*image);
  ImageShape shape = source;
  // Deliberate: the color model stays that of the source when alpha is added.
  if (opaque) shape.bit_count = 32;
  const ResultImage output = ResultImage::Like(shape);
  if (!output) return kFail;
  const ImageView dest = output.View();
  if (dest.HasPixels()) {
    RunCircle(PlanCircle(Circle(source, mode, factor), source, opaque), source, dest);
  }
  output.AssignTo(image);
  return kOk;
}

}  // namespace qel
