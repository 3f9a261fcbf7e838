#include <algorithm>
#include <cmath>
#include <cstring>

#include "component/result_image.h"
#include "image/memory_reach.h"
#include "image/numeric.h"
#include "simd/prefetch.h"
#include "transform/image_transform.h"
#include "transform/warp/blend_pixel.h"
#include "transform/warp/nearest_copy.h"

namespace qel {
namespace {

constexpr int32_t kOne = 65536;

struct Vector2 {
  double x, y;
  Vector2 operator-(const Vector2& other) const { return {x - other.x, y - other.y}; }
  double Length() const { return std::sqrt(x * x + y * y); }
};

int32_t ToFixed(double value) { return TruncateToInt(value * kOne + 0.5); }

/// One of `count` steps along `way`; a way without length has none.
FixedWalk StepsAlong(const Vector2& way, uint32_t count) {
  const double length = way.Length();
  const double divisor = length / (length / count);
  if (!(divisor > 0.001)) return {};
  return {.x = 0,
          .y = 0,
          .step_x = static_cast<uint32_t>(ToFixed(way.x / divisor)),
          .step_y = static_cast<uint32_t>(ToFixed(way.y / divisor))};
}
FixedWalk StartAt(FixedWalk walk, uint32_t x, uint32_t y) {
  walk.x = x;
  walk.y = y;
  return walk;
}
/// The same walk from pixel `k` on.
FixedWalk From(const FixedWalk& walk, size_t k) {
  const auto n = static_cast<uint32_t>(k);
  return StartAt(walk, walk.x + n * walk.step_x, walk.y + n * walk.step_y);
}
/// True when no position of the walk wraps round.
bool StaysInRange(const FixedWalk& walk, int64_t count) {
  const auto in_range = [=](uint32_t start, uint32_t step) {
    const int64_t end = static_cast<int32_t>(start) + count * static_cast<int32_t>(step) + kOne;
    return end == static_cast<int32_t>(end);
  };
  return in_range(walk.x, walk.step_x) && in_range(walk.y, walk.step_y);
}

/// Fills rows of the straightened picture.
class QuadRows {
 public:
  QuadRows(const ImageView& source, const ImageView& dest, bool blend)
      : source_(source),
        dest_(dest),
        bytes_(source.bit_count / 8),
        blend_(blend && source.bit_count > 8),
        copy_(source, {.source_bytes = bytes_, .opaque = false}, 1, 0) {
    if (!copy_ || bytes_ < 3) return;
    const WarpKernels& kernels = ActiveWarpKernels();
    if (blend_) {
      blend_pixels_ = bytes_ == 3 ? kernels.blend3 : kernels.blend4;
    } else if (!RowsOverlap(dest.Columns() * bytes_, dest.stride)) {
      copy_pixels_ = bytes_ == 3 ? kernels.copy_walked3 : kernels.copy_walked4;
    }
  }

  /// A later row goes along `later`.
  void Fill(int row, const FixedWalk& walk, const FixedWalk& later) {
    const auto columns = static_cast<size_t>(dest_.Columns());
    uint8_t* const dest = dest_.Row(row);
    const bool by_vectors = blend_pixels_ != nullptr || copy_pixels_ != nullptr;
    size_t first = columns;
    size_t last = columns;
    if (by_vectors && StaysInRange(walk, dest_.Columns())) {
      // A straight walk is inside a rectangle for one run of pixels.
      for (first = 0; first < columns && !CanTakeVectors(From(walk, first));) ++first;
      while (last > first && !CanTakeVectors(From(walk, last - 1))) --last;
    } else if (!blend_ && copy_) {
      Tiles(0, columns, [&](size_t from, size_t count) {
        int32_t sx[kWarpTile];
        int32_t sy[kWarpTile];
        ActiveWarpKernels().walk(sx, sy, count, From(walk, from));
        copy_(At(dest, from), sx, sy, count);
      });
      return;
    }
    OneByOne(dest, 0, first, walk);
    if (copy_pixels_ != nullptr) {
      copy_pixels_(At(dest, first), last - first, source_.bits, source_.stride, From(walk, first),
                   From(later, first));
    } else {
      Tiles(first, last, [&](size_t from, size_t count) {
        blend_pixels_(At(dest, from), count, From(walk, from), source_.bits, source_.stride);
      });
    }
    OneByOne(dest, last, columns, walk);
  }
  void Finish() { copy_.Finish(); }

  /// Has the memory bring what a later row is going to read.
  void Prefetch(const FixedWalk& walk) const {
    // Copies of pixels bring their rows themselves.
    if (bytes_ == 1 || copy_pixels_ != nullptr) return;
    constexpr size_t kPixelsPerFetch = 16;
    for (size_t k = 0; k < static_cast<size_t>(dest_.Columns()); k += kPixelsPerFetch) {
      const FixedWalk at = From(walk, k);
      if (source_.bits == nullptr || !IsInside(Nearest(at.x), Nearest(at.y))) continue;
      const uint8_t* const top = source_.Row(Lower(at.y)) + int64_t{Lower(at.x)} * bytes_;
      PrefetchLine(top);
      PrefetchLine(top + source_.stride);
    }
  }

 private:
  template <typename Tile>
  static void Tiles(size_t first, size_t last, Tile&& tile) {
    for (size_t x = first; x < last; x += kWarpTile) tile(x, std::min(kWarpTile, last - x));
  }
  uint8_t* At(uint8_t* row, size_t x) const { return row + x * static_cast<size_t>(bytes_); }

  /// The nearest pixel keeps a distance of one pixel to the border.
  bool IsInside(int32_t sx, int32_t sy) const {
    return sx >= 1 && sx <= source_.Columns() - 2 && sy >= 1 && sy <= source_.Rows() - 2;
  }
  static int32_t Nearest(uint32_t position) {
    return static_cast<int32_t>(position + kOne / 2) >> 16;
  }
  static int32_t Lower(uint32_t position) { return static_cast<int32_t>(position) >> 16; }
  /// True where the pixel is inside and, if it blends, eight bytes from the upper left one on lie
  /// in the row.
  bool CanTakeVectors(const FixedWalk& at) const {
    return IsInside(Nearest(at.x), Nearest(at.y)) &&
           (!blend_ || int64_t{Lower(at.x)} * bytes_ + 8 <= int64_t{source_.width} * bytes_);
  }

  void OneByOne(uint8_t* dest, size_t first, size_t last, const FixedWalk& walk) const {
    const auto bytes = static_cast<size_t>(bytes_);
    for (size_t k = first; k < last; ++k) {
      const FixedWalk at = From(walk, k);
      const int32_t sx = Nearest(at.x);
      const int32_t sy = Nearest(at.y);
      if (source_.bits == nullptr || !IsInside(sx, sy)) {
        std::memset(At(dest, k), 0, bytes);
      } else if (!blend_) {
        std::memcpy(At(dest, k), source_.Row(sy) + int64_t{sx} * bytes_, bytes);
      } else {
        const uint8_t* const top = source_.Row(Lower(at.y)) + int64_t{Lower(at.x)} * bytes_;
        BlendPixel(At(dest, k), top, source_.stride, bytes, at.x & 0xFFFF, at.y & 0xFFFF);
      }
    }
  }

  const ImageView source_;
  const ImageView dest_;
  const int bytes_;
  const bool blend_;
  NearestCopy copy_;
  decltype(WarpKernels::blend3) blend_pixels_ = nullptr;
  decltype(WarpKernels::copy_walked3) copy_pixels_ = nullptr;
};

/// `size` as asked for, or the shorter of two edges.
uint32_t SizeOr(uint32_t size, double edge, double opposite_edge) {
  if (size > 0 && size < 65536) return size;
  return static_cast<uint32_t>(TruncateToInt(std::min(edge, opposite_edge)));
}

}  // namespace

result_t CQELImageTransform::Quad(IQEL* source, IQEL** result, double x1, double y1, double x2,
                                  double y2, double x3, double y3, double x4, double y4,
                                  uint32_t new_width, uint32_t new_height, int16_t blend) {
  if (source == nullptr) return kFail;
  if (result == nullptr) return kNullOutput;
  const ImageShape source_shape = ReadShape(*source);
  const Vector2 top_left{x1, y1};
  const Vector2 top_right{x2, y2};
  const Vector2 bottom_left{x3, y3};
  const Vector2 bottom_right{x4, y4};
  const Vector2 left_edge = bottom_left - top_left;
  const Vector2 right_edge = bottom_right - top_right;
  const uint32_t columns =
      SizeOr(new_width, (top_right - top_left).Length(), (bottom_right - bottom_left).Length());
  const uint32_t rows = SizeOr(new_height, left_edge.Length(), right_edge.Length());
  const ImageShape shape = {.width = static_cast<int>(columns),
                            .height = static_cast<int>(rows),
                            .planes = 1,
                            .bit_count = source_shape.bit_count,
                            .model = source_shape.model};
  ResultImage output = ResultImage::Like(shape);
  if (!output) return kFail;
  const ImageView dest = output.View();
  const ImageView view = ReadPlane(*source, source_shape, 0);
  if (view.bit_count >= 8 && dest.HasPixels()) {
    const auto start = [](const Vector2& point, const FixedWalk& steps) {
      return StartAt(steps, static_cast<uint32_t>(ToFixed(point.x)),
                     static_cast<uint32_t>(ToFixed(point.y)));
    };
    FixedWalk left = start(top_left, StepsAlong(left_edge, rows));
    FixedWalk right = start(top_right, StepsAlong(right_edge, rows));
    QuadRows picture(view, dest, blend != 0);
    const auto scan_line = [=](const FixedWalk& from, const FixedWalk& to) {
      // Scan lines run between whole pixels.
      const auto whole = [](uint32_t v) { return static_cast<int32_t>(v) / kOne; };
      const int32_t x = whole(from.x);
      const int32_t y = whole(from.y);
      const Vector2 way{static_cast<double>(whole(to.x) - x), static_cast<double>(whole(to.y) - y)};
      return StartAt(StepsAlong(way, columns), static_cast<uint32_t>(x) << 16,
                     static_cast<uint32_t>(y) << 16);
    };
    constexpr size_t kRowsAhead = 4;
    for (int y = 0; y < dest.height; ++y) {
      const FixedWalk later = scan_line(From(left, kRowsAhead), From(right, kRowsAhead));
      picture.Prefetch(later);
      picture.Fill(y, scan_line(left, right), later);
      left = From(left, 1);
      right = From(right, 1);
    }
    picture.Finish();
  }
  output.Store(result);
  return kOk;
}

}  // namespace qel
