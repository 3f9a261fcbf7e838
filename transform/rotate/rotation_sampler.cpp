#include "transform/rotate/rotation_sampler.h"

#include <algorithm>

#include "image/pixel_access.h"
#include "image/pixel_layout.h"
#include "simd/prefetch.h"

namespace qel {
namespace {

/// Index of the kernels for this many bytes per pixel.
size_t KernelIndex(int bit_count) {
  return bit_count == 8 ? 0 : DirectPixelBytes(bit_count) == 3 ? 1 : 2;
}

/// Rows whose samples are on their way from memory.
constexpr int kRowsAhead = 2;

SampleLine LineOf(const RotatedFrame::Row& way) {
  return {way.start_x, way.cosine, way.sine, way.sine_y, way.cosine_y, way.shift_x, way.shift_y};
}

}  // namespace

RotationSampler::RotationSampler(const RotatePlan& plan, const ImageView& source,
                                 const RotatedFrame& frame)
    : source_(source),
      frame_(frame),
      plan_(plan),
      how_(MethodOf(plan.interpolation)),
      taps_(how_.sampling == Sampling::kKernel12 ? kTaps12 : kTaps4),
      cache_(taps_, how_.kernel,
             how_.kernel != nullptr ? ActiveTapKernels().weights[plan.interpolation] : nullptr) {
  if (plan_.method == RotateMethod::kRemembered) cache_.Reserve();
}

PixelRun RotationSampler::InsideRun(const RotatedFrame::Row& way, const PixelRun& run) {
  // Kernels read up to four bytes behind the taps.
  constexpr int kPixelsBehind[] = {4, 2, 0};
  const int columns = source_.width - kPixelsBehind[KernelIndex(source_.bit_count)];
  if (how_.sampling == Sampling::kKernel4 || how_.sampling == Sampling::kKernel12) {
    return RunWithinSource(
        run, way, columns, source_.height, inside_guess_,
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

SampleRow RotationSampler::RowAt(int j, const PixelRun& run) {
  const RotatedFrame::Row way = frame_.RowAt(j);
  const SampleRow row = {way, plan_.method == RotateMethod::kOneByOne ? PixelRun{run.end, run.end}
                                                                      : InsideRun(way, run)};
  // Sums of taps take long enough for the processor to look ahead by itself.
  if (plan_.method == RotateMethod::kGather) Prefetch(j + kRowsAhead, row.inside);
  return row;
}

void RotationSampler::Prefetch(int j, const PixelRun& run) const {
  constexpr int32_t kPixelBytes[] = {1, 3, 4};
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

void RotationSampler::Copy(uint8_t* dest, const SampleRow& row) const {
  const RotateKernels& kernels = ActiveRotateKernels();
  const bool nearest = how_.sampling == Sampling::kNearest;
  const size_t kind = KernelIndex(source_.bit_count);
  const auto copy = kind == 0   ? kernels.copy1
                    : kind == 1 ? kernels.copy3
                    : nearest   ? kernels.copy4
                                : kernels.copy4_opaque;
  copy(dest, {source_.bits, source_.stride}, LineOf(row.way), row.inside.begin,
       static_cast<size_t>(row.inside.end - row.inside.begin), nearest ? 0.5f : 0.0f);
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
      for (int64_t y = top; y < top + taps_.count; ++y) {
        const bool has_row = y >= 0 && y < source_.height;
        const uint8_t* const row = has_row ? source_.Row(y) : source_.bits;
        for (int64_t x = left; x < left + taps_.count; ++x) {
          *copy++ = has_row && x >= 0 && x < source_.width ? codec.Load(row, x) : outside;
        }
      }
    }
  });
}

void RotationSampler::BlendBorder(uint32_t* colors, BorderPoints& border) {
  if (border.count == 0) return;
  SamplePoints& points = border.points;
  for (size_t i = border.count; i < kSampleGroup; ++i) {
    points.x[i] = points.x[border.count - 1];
    points.y[i] = points.y[border.count - 1];
  }
  Weights weights;
  Weigh(weights, points, border.count);
  alignas(64) uint32_t taps[kSampleGroup * kMaxTaps * kMaxTaps];
  CopyTaps(taps, points, border.count);
  // In the copy, the taps of a point lie below those of the one before.
  for (size_t i = 0; i < kSampleGroup; ++i) {
    const size_t at = std::min(i, border.count - 1);
    points.x[i] = static_cast<float>(-taps_.first);
    points.y[i] = static_cast<float>(static_cast<int>(at) * taps_.count - taps_.first);
  }
  const TapKernels& kernels = ActiveTapKernels();
  const auto blend = taps_.count == 4 ? kernels.blend4[2] : kernels.blend12[2];
  blend(colors, {reinterpret_cast<const uint8_t*>(taps), taps_.count * 4}, points,
        {weights.x, weights.y}, border.count);
  // Deliberate: near the border, 4 by 4 samples have alpha 0, also where all taps carry one.
  if (taps_.count == kTaps4.count) {
    for (size_t i = 0; i < border.count; ++i) colors[i] &= 0x00FFFFFFu;
  }
  border.count = 0;
}

void RotationSampler::Sample(uint32_t* colors, const SampleRow& row, int first, int count) {
  if (first < row.inside.begin || first >= row.inside.end) {
    return SampleSingly(colors, row, first, count);
  }
  SamplePoints points;
  ActiveRotateKernels().positions(points, LineOf(row.way), first, static_cast<size_t>(count));
  if (plan_.method == RotateMethod::kGather) {
    GatherInside(colors, points, static_cast<size_t>(count));
  } else {
    BlendInside(colors, points, static_cast<size_t>(count));
  }
}

}  // namespace qel
