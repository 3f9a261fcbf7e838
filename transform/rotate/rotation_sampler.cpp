#include "transform/rotate/rotation_sampler.h"

#include <algorithm>
#include <bit>

#include "image/pixel_access.h"
#include "image/pixel_layout.h"
#include "simd/prefetch.h"

namespace qel {
namespace {

/// Index of the kernels for this many bytes per pixel.
size_t KernelIndex(int bit_count) {
  return bit_count == 8 ? 0 : DirectPixelBytes(bit_count) == 3 ? 1 : 2;
}

constexpr int32_t kPixelBytes[] = {1, 3, 4};

/// Rows whose samples are on their way from memory.
constexpr int kRowsAhead = 2;

/// True where the pixels of a square can be looked up in few loads.
bool CopiesSquares(const RotatePlan& plan, const ImageView& source) {
  return plan.method == RotateMethod::kGather && source.bit_count == 8 &&
         std::max(source.width, source.height) <= kMostSquareSource &&
         ActiveAffineKernels().copy_squares1 != nullptr;
}

SampleLine LineOf(const RotatedFrame::Row& way) {
  return {way.start_x, way.cosine, way.sine, way.sine_y, way.cosine_y, way.shift_x, way.shift_y};
}

}  // namespace

RotationSampler::RotationSampler(const RotatePlan& plan, const ImageView& source,
                                 const RotatedFrame& frame, bool uses_alpha)
    : source_(source),
      frame_(frame),
      plan_(plan),
      how_(MethodOf(plan.interpolation)),
      taps_(how_.sampling == Sampling::kKernel12 ? kTaps12 : kTaps4),
      cache_(taps_, how_.kernel,
             how_.kernel != nullptr ? ActiveTapKernels().weights[plan.interpolation] : nullptr),
      copied_rows_(CopiesSquares(plan, source) ? kMostCopiedRows : 1),
      tile_(source, kPixelBytes[KernelIndex(source.bit_count)]) {
  if (plan_.method == RotateMethod::kRemembered) cache_.Reserve();
  const bool is_bounded = plan_.method == RotateMethod::kBounded;
  if (is_bounded && !tile_.Reserve()) plan_.method = RotateMethod::kComputed;
  // What stands in outside has an alpha where pixels have none.
  bounds_border_ =
      plan_.method == RotateMethod::kBounded && (source.bit_count == 32 || !uses_alpha);
}

int RotationSampler::ReadableColumns() const {
  // Kernels read up to four bytes behind the taps.
  constexpr int kPixelsBehind[] = {4, 2, 0};
  return source_.width - kPixelsBehind[KernelIndex(source_.bit_count)];
}

bool RotationSampler::HasTapsInside(float x, float y) const {
  return taps_.Inside(TapOrigin(x), ReadableColumns()) &&
         taps_.Inside(TapOrigin(y), source_.height);
}

PixelRun RotationSampler::InsideRun(const RotatedFrame::Row& way, const PixelRun& run) {
  if (how_.sampling == Sampling::kKernel4 || how_.sampling == Sampling::kKernel12) {
    return RunWithinSource(
        run, way, ReadableColumns(), source_.height, inside_guess_,
        [&](float v, int) { return v < 0.0f || TapOrigin(v) + taps_.first < 0; },
        [&](float v, int size) { return TapOrigin(v) + taps_.first + taps_.count > size; });
  }
  // The last column and row are left to single samples, whose alpha differs there.
  const float offset = how_.sampling == Sampling::kNearest ? 0.5f : 0.0f;
  return RunWithinSource(
      run, way, source_.width, source_.height, inside_guess_,
      [&](float v, int) { return TruncateToInt(v + offset) < 0 || v + offset < 0.0f; },
      [&](float v, int size) { return TruncateToInt(v + offset) >= size - 1; });
}

PixelRun RotationSampler::BoundedRun(const RotatedFrame::Row& way, const PixelRun& run) {
  return RunWithinSource(
      run, way, source_.width, source_.height, inside_guess_,
      [](float v, int) { return v < kLeastBounded; }, [](float, int) { return false; });
}

void RotationSampler::LeaveBounds() {
  constexpr int64_t kEnough = 2048;
  if (bounded_ < kEnough || 8 * doubted_ < bounded_) return;
  plan_.method = RotateMethod::kRemembered;
  bounds_border_ = false;
  cache_.Reserve();
}

SampleRow RotationSampler::RowAt(int j, const PixelRun& run) {
  if (plan_.method == RotateMethod::kBounded) LeaveBounds();
  const RotatedFrame::Row way = frame_.RowAt(j);
  const SampleRow row = {j, way,
                         plan_.method == RotateMethod::kOneByOne ? PixelRun{run.end, run.end}
                         : bounds_border_                        ? BoundedRun(way, run)
                                                                 : InsideRun(way, run)};
  // Sums of taps take long enough for the processor to look ahead by itself, and squares ask for
  // what they need.
  if (plan_.method == RotateMethod::kGather && copied_rows_ == 1) {
    Prefetch(j + kRowsAhead, row.inside);
  }
  return row;
}

void RotationSampler::Prefetch(int j, const PixelRun& run) const {
  const int32_t pixel_bytes = kPixelBytes[KernelIndex(source_.bit_count)];
  ActiveRotateKernels().prefetch({source_.bits, source_.stride}, pixel_bytes,
                                 LineOf(frame_.RowAt(j)), run.begin,
                                 static_cast<size_t>(run.end - run.begin));
}

void RotationSampler::SampleSingly(uint32_t* colors, const SampleRow& row, int first,
                                   int count) const {
  for (int i = 0; i < count; ++i) {
    colors[i] = GetPixelColorInterpolated(source_.bits, row.way.SourceX(first + i),
                                          row.way.SourceY(first + i), source_.width, source_.height,
                                          source_.stride, plan_.interpolation, source_.bit_count);
  }
}

void RotationSampler::GatherInside(uint32_t* colors, const SamplePoints& points,
                                   size_t count) const {
  const RotateKernels& kernels = ActiveRotateKernels();
  const size_t kind = KernelIndex(source_.bit_count);
  const auto gather = kind == 0 ? kernels.gather1 : kind == 1 ? kernels.gather3 : kernels.gather4;
  const bool nearest = how_.sampling == Sampling::kNearest;
  // At 24 bits and more the truncated pixel comes out opaque, the nearest one with its own alpha.
  const uint32_t keep = kind == 2 && nearest ? 0xFFFFFFFFu : 0x00FFFFFFu;
  const uint32_t add = kind != 0 && !nearest ? 0xFF000000u : 0u;
  gather(colors, {source_.bits, source_.stride}, points, count, nearest ? 0.5f : 0.0f, keep, add);
}

void RotationSampler::CopyRun(const CopiedRow& row, const PixelRun& run) const {
  if (run.begin >= run.end) return;
  const RotateKernels& kernels = ActiveRotateKernels();
  const bool nearest = how_.sampling == Sampling::kNearest;
  const size_t kind = KernelIndex(source_.bit_count);
  const auto copy = kind == 0   ? kernels.copy1
                    : kind == 1 ? kernels.copy3
                    : nearest   ? kernels.copy4
                                : kernels.copy4_opaque;
  copy(row.pixels + run.begin * kPixelBytes[kind], {source_.bits, source_.stride},
       LineOf(row.row.way), run.begin, static_cast<size_t>(run.end - run.begin),
       nearest ? 0.5f : 0.0f);
}

PixelRun RotationSampler::CopySquares(const CopiedRow* rows, const PixelRun& run) const {
  const RotatedFrame::Row& way = rows[0].row.way;
  const float offset = how_.sampling == Sampling::kNearest ? 0.5f : 0.0f;
  AffineAxis x = {way.start_x, way.cosine, way.shift_x, offset, {}};
  AffineAxis y = {way.start_x, -way.sine, way.shift_y, offset, {}};
  PixelRun common = run;
  for (int k = 0; k < kSquareSide; ++k) {
    x.rows[k] = rows[k].row.way.sine_y;
    y.rows[k] = rows[k].row.way.cosine_y;
    common.begin = std::max(common.begin, rows[k].row.inside.begin);
    common.end = std::min(common.end, rows[k].row.inside.end);
  }
  const auto copied = static_cast<int>(ActiveAffineKernels().copy_squares1(
      rows[0].pixels, rows[1].pixels - rows[0].pixels,
      {source_.bits, source_.stride, source_.width, source_.height}, x, y, common.begin,
      static_cast<size_t>(std::max(common.end - common.begin, 0))));
  return {common.begin, common.begin + copied};
}

void RotationSampler::Copy(const CopiedRow* rows, int count) const {
  PixelRun all = rows[0].row.inside;
  for (int k = 1; k < count; ++k) {
    all.begin = std::min(all.begin, rows[k].row.inside.begin);
    all.end = std::max(all.end, rows[k].row.inside.end);
  }
  const auto copy_columns = [&](int first, int end, const PixelRun& run) {
    for (int k = first; k < end; ++k) {
      CopyRun(rows[k], {std::max(run.begin, rows[k].row.inside.begin),
                        std::min(run.end, rows[k].row.inside.end)});
    }
  };
  const int in_squares = count == 1 ? 0 : count / kSquareSide * kSquareSide;
  // Squares below each other come from the same lines of the cache.
  constexpr int kColumns = 256;
  for (int first = all.begin; in_squares > 0 && first < all.end; first += kColumns) {
    const PixelRun run = {first, std::min(all.end, first + kColumns)};
    for (int k = 0; k < in_squares; k += kSquareSide) {
      const PixelRun copied = CopySquares(rows + k, run);
      copy_columns(k, k + kSquareSide, {run.begin, copied.begin});
      copy_columns(k, k + kSquareSide, {copied.end, run.end});
    }
  }
  copy_columns(in_squares, count, all);
}

void RotationSampler::Weigh(Weights& weights, const SamplePoints& points, size_t count) {
  const WeighTaps weigh = ActiveTapKernels().weights[plan_.interpolation];
  if (weigh != nullptr && plan_.method != RotateMethod::kRemembered) {
    weigh(weights.x, points.x, count);
    weigh(weights.y, points.y, count);
  } else {
    cache_.Weigh(weights.x, points.x, count);
    cache_.Weigh(weights.y, points.y, count);
  }
}

void RotationSampler::BlendInside(uint32_t* colors, const SamplePoints& points, size_t count) {
  Weights weights;
  Weigh(weights, points, count);
  const TapKernels& kernels = ActiveTapKernels();
  const size_t kind = KernelIndex(source_.bit_count);
  const auto blend = taps_.count == 4 ? kernels.blend4[kind] : kernels.blend12[kind];
  blend(colors, {source_.bits, source_.stride}, points, {weights.x, weights.y}, count);
}

void RotationSampler::CopyTaps(uint32_t* copy, const SamplePoints& points, size_t count) const {
  VisitAccessLayout(source_.bit_count, [&](auto codec) {
    const uint32_t outside = OutsideColor(source_);
    for (size_t i = 0; i < count; ++i) {
      const int64_t left = int64_t{TapOrigin(points.x[i])} + taps_.first;
      const int64_t top = int64_t{TapOrigin(points.y[i])} + taps_.first;
      // Whatever is outside, the same loads and no branches: nobody could foresee them.
      int64_t columns[kMaxTaps];
      uint32_t masks[kMaxTaps];
      for (int k = 0; k < taps_.count; ++k) {
        columns[k] = std::clamp<int64_t>(left + k, 0, source_.width - 1);
        masks[k] = columns[k] == left + k ? ~0u : 0u;
      }
      for (int64_t y = top; y < top + taps_.count; ++y) {
        const int64_t inside_y = std::clamp<int64_t>(y, 0, source_.height - 1);
        const uint8_t* const row = source_.Row(inside_y);
        const uint32_t row_mask = inside_y == y ? ~0u : 0u;
        for (int k = 0; k < taps_.count; ++k) {
          const uint32_t mask = masks[k] & row_mask;
          *copy++ = (codec.Load(row, columns[k]) & mask) | (outside & ~mask);
        }
      }
    }
  });
}

void RotationSampler::BlendCopies(uint32_t* colors, const SamplePoints& points, size_t count) {
  Weights weights;
  Weigh(weights, points, count);
  alignas(64) uint32_t taps[kSampleGroup * kMaxTaps * kMaxTaps];
  CopyTaps(taps, points, count);
  // In the copy, the taps of a point lie below those of the one before.
  SamplePoints copies;
  for (size_t i = 0; i < kSampleGroup; ++i) {
    const size_t at = std::min(i, count - 1);
    copies.x[i] = static_cast<float>(-taps_.first);
    copies.y[i] = static_cast<float>(static_cast<int>(at) * taps_.count - taps_.first);
  }
  const TapKernels& kernels = ActiveTapKernels();
  const auto blend = taps_.count == 4 ? kernels.blend4[2] : kernels.blend12[2];
  blend(colors, {reinterpret_cast<const uint8_t*>(taps), taps_.count * 4}, copies,
        {weights.x, weights.y}, count);
  // Deliberate: near the border, 4 by 4 samples have alpha 0, also where all taps carry one.
  if (taps_.count == kTaps4.count) {
    for (size_t i = 0; i < count; ++i) colors[i] &= 0x00FFFFFFu;
  }
}

void RotationSampler::BlendPoints(uint32_t* colors, PointQueue& queue, bool is_inside) {
  if (queue.count == 0) return;
  SamplePoints& points = queue.points;
  for (size_t i = queue.count; i < kSampleGroup; ++i) {
    points.x[i] = points.x[queue.count - 1];
    points.y[i] = points.y[queue.count - 1];
  }
  if (is_inside) return BlendInside(colors, points, queue.count);
  BlendCopies(colors, points, queue.count);
}

PixelBox RotationSampler::BoxOfTaps(std::pair<float, float> x, std::pair<float, float> y) const {
  const auto first = [&](float v) { return TruncateToInt(v) + taps_.first; };
  const auto behind = [&](float v) { return first(v) + taps_.count; };
  return {first(x.first), first(y.first), behind(x.second), behind(y.second)};
}

void RotationSampler::CoverBand(const SampleRow& row, int first) {
  const int begin = first / band() * band();
  const int last = begin + band() - 1;
  // Rows below come next: as many as the tile has room for.
  for (int rows = kSampleChunk;; rows = rows * 3 / 4) {
    const RotatedFrame::Row below = frame_.RowAt(row.j + rows - 1);
    // Positions rise or fall along rows and columns without a turn.
    const PixelBox box = BoxOfTaps(std::minmax({row.way.SourceX(begin), row.way.SourceX(last),
                                                below.SourceX(begin), below.SourceX(last)}),
                                   std::minmax({row.way.SourceY(begin), row.way.SourceY(last),
                                                below.SourceY(begin), below.SourceY(last)}));
    if (tile_.Fill(box) || rows == 1) return;
  }
}

uint64_t RotationSampler::BlendBounded(uint32_t* colors, const SampleRow& row, int first,
                                       const SamplePoints& points, size_t count) {
  const size_t last = count - 1;
  const PixelBox box = BoxOfTaps(std::minmax({points.x[0], points.x[last]}),
                                 std::minmax({points.y[0], points.y[last]}));
  if (!tile_.Holds(box)) CoverBand(row, first);
  const uint64_t doubts = ActiveBoundedKernels().blend[KernelIndex(source_.bit_count)](
      colors, tile_.values(), points, count);
  bounded_ += static_cast<int64_t>(count);
  doubted_ += std::popcount(doubts);
  return doubts;
}

uint64_t RotationSampler::Sample(uint32_t* colors, const SampleRow& row, int first, int count) {
  if (first < row.inside.begin || first >= row.inside.end) {
    SampleSingly(colors, row, first, count);
    return 0;
  }
  SamplePoints points;
  ActiveRotateKernels().positions(points, LineOf(row.way), first, static_cast<size_t>(count));
  const auto pixels = static_cast<size_t>(count);
  if (plan_.method == RotateMethod::kBounded) {
    return BlendBounded(colors, row, first, points, pixels);
  }
  if (plan_.method == RotateMethod::kGather) {
    GatherInside(colors, points, pixels);
  } else {
    BlendInside(colors, points, pixels);
  }
  return 0;
}

}  // namespace qel
