#include "transform/rotate/rotation_sampler.h"

#include <algorithm>

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
             how_.kernel != nullptr ? ActiveRotateKernels().weights[plan.interpolation] : nullptr) {
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

void RotationSampler::BlendInside(uint32_t* colors, const SamplePoints& points, size_t count) {
  const RotateKernels& kernels = ActiveRotateKernels();
  alignas(64) float wx[kSampleChunk * kMaxTaps];
  alignas(64) float wy[kSampleChunk * kMaxTaps];
  const WeighTaps weigh = kernels.weights[plan_.interpolation];
  if (weigh != nullptr && plan_.method != RotateMethod::kRemembered) {
    weigh(wx, points.x, count);
    weigh(wy, points.y, count);
  } else {
    cache_.Weigh(wx, points.x, count);
    cache_.Weigh(wy, points.y, count);
  }
  const size_t kind = KernelIndex(source_.bit_count);
  const auto blend = taps_.count == 4 ? kernels.blend4[kind] : kernels.blend12[kind];
  blend(colors, {source_.bits, source_.stride}, points, {wx, wy}, count);
}

void RotationSampler::SampleInside(uint32_t* colors, const SampleRow& row, int first,
                                   size_t count) {
  SamplePoints points;
  ActiveRotateKernels().positions(points, LineOf(row.way), first, count);
  if (plan_.method == RotateMethod::kGather) {
    GatherInside(colors, points, count);
  } else {
    BlendInside(colors, points, count);
  }
}

void RotationSampler::Sample(uint32_t* colors, const SampleRow& row, int first, int count) {
  const PixelRun run = {first, first + count};
  const PixelRun inside = run.Intersect(row.inside);
  if (inside.begin == inside.end) {
    SampleSingly(colors, row, first, count);
    return;
  }
  // What kernels write beyond their run is overwritten by the single samples after it.
  SampleInside(colors + (inside.begin - first), row, inside.begin,
               static_cast<size_t>(inside.end - inside.begin));
  SampleSingly(colors, row, first, inside.begin - first);
  SampleSingly(colors + (inside.end - first), row, inside.end, run.end - inside.end);
}

}  // namespace qel
