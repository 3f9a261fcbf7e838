#include "transform/resample/resample_plan.h"

#include <algorithm>
#include <iterator>

#include "image/pixel_layout.h"
#include "transform/resample/box_kernels.h"
#include "transform/resample/resample_methods.h"

namespace qel {
namespace {

/// What is asked for; each is another arithmetic.
enum class Task { kCopy, kAverage, kSample };

Task TaskOf(const Scale& scale, int interpolation, bool nearest_only, int bit_count) {
  const bool enlarges = scale.x <= 1.0f && scale.y <= 1.0f && interpolation == 0;
  const bool whole_bytes = bit_count == 32 || bit_count == 24 || bit_count == 16 || bit_count == 8;
  if ((enlarges || nearest_only) && whole_bytes) return Task::kCopy;
  return scale.x >= 1.0f && scale.y >= 1.0f && !nearest_only ? Task::kAverage : Task::kSample;
}

/// Bytes that are moved together. Averages take depths other than 24 and 32 bits as one byte.
int PixelBytesFor(Task task, int bit_count) {
  switch (task) {
    case Task::kCopy:
      return bit_count / 8;
    case Task::kAverage:
      return bit_count == 32 ? 4 : bit_count == 24 ? 3 : 1;
    case Task::kSample:
      return bit_count == 8 ? 1 : DirectPixelBytes(bit_count);
  }
  return 0;
}

bool CanAverage(ResampleMethod method, const Scale& scale, bool has_pixels) {
  const auto area =
      static_cast<uint32_t>(WrapMultiply(TruncateToInt(scale.x), TruncateToInt(scale.y)));
  switch (method) {
    case ResampleMethod::kNearest:
      return area == 1 || !has_pixels;
    case ResampleMethod::kHalve:
      return has_pixels && scale.x == 2.0f && scale.y == 2.0f;
    case ResampleMethod::kSmallBoxes:
      return has_pixels && area > 1 && area <= kLargestSmallBox;
    case ResampleMethod::kLargeBoxes:
      return has_pixels;
    default:
      return false;
  }
}

/// Whether `dest` is of twice the size of `source`, at positions that single precision has exactly,
/// and weighted by a kernel that is even there; then the plan's weights are made.
bool CanDouble(const ImageView& source, const ImageView& dest, const TapWindow& window,
               ResamplePlan& plan) {
  constexpr int kExactPositions = 1 << 21;
  if (source.width > kExactPositions || source.height > kExactPositions ||
      dest.width != 2 * source.width || dest.height != 2 * source.height) {
    return false;
  }
  const KernelFunction kernel = MethodOf(plan.interpolation).kernel;
  float odd[kMaxTaps];
  TapWeights(window, kernel, 0.75f, 0, plan.weights);
  TapWeights(window, kernel, 0.25f, 0, odd);
  return std::equal(odd, odd + window.count, std::reverse_iterator(plan.weights + window.count));
}

bool CanSample(ResampleMethod method, const ImageView& source, const ImageView& dest,
               ResamplePlan& plan) {
  if (method == ResampleMethod::kOneByOne) return true;
  if (!source.HasPixels() || (source.bit_count != 8 && source.bit_count < 24)) return false;
  const auto all = [&](auto&& within) {
    return SamplePositions(dest.Columns(), plan.scale.x).AllOf([&](float v) {
      return within(v, source.width);
    }) && SamplePositions(dest.Rows(), plan.scale.y).AllOf([&](float v) {
      return within(v, source.height);
    });
  };
  const Sampling sampling = MethodOf(plan.interpolation).sampling;
  if (sampling == Sampling::kNearest || sampling == Sampling::kBilinear) {
    return method == ResampleMethod::kGather && all([=](float v, int size) {
             const int tap = sampling == Sampling::kNearest ? NearestTap(v) : TruncateToInt(v);
             return tap >= 0 && tap < size;
           });
  }
  const TapWindow& window = sampling == Sampling::kKernel4 ? kTaps4 : kTaps12;
  if (method == ResampleMethod::kDoubling) return CanDouble(source, dest, window, plan);
  return method == ResampleMethod::kTaps &&
         all([&](float v, int size) { return !window.Misses(TapOrigin(v), size); });
}

}  // namespace

std::optional<ResamplePlan> PlanResampleBy(ResampleMethod method, const ImageView& source,
                                           const ImageView& dest, int interpolation,
                                           bool nearest_only) {
  const Scale scale = {static_cast<float>(source.width) / static_cast<float>(dest.width),
                       static_cast<float>(source.height) / static_cast<float>(dest.height)};
  const Task task = TaskOf(scale, interpolation, nearest_only, source.bit_count);
  // Deliberate: alpha of 32-bit images is not averaged; it stays as the new image had it.
  ResamplePlan plan = {.method = method,
                       .scale = scale,
                       .interpolation = interpolation,
                       .pixel_bytes = PixelBytesFor(task, source.bit_count),
                       .keep_alpha = task == Task::kAverage,
                       .weights = {}};
  const bool can = task == Task::kCopy      ? method == ResampleMethod::kNearest
                   : task == Task::kAverage ? CanAverage(method, scale, source.HasPixels())
                                            : CanSample(method, source, dest, plan);
  if (!can) return std::nullopt;
  return plan;
}

ResamplePlan PlanResample(const ImageView& source, const ImageView& dest, int interpolation,
                          bool nearest_only) {
  std::optional<ResamplePlan> plan;
  for (size_t i = 0; !plan; ++i) {  // each of the tasks has a method that always can
    plan =
        PlanResampleBy(static_cast<ResampleMethod>(i), source, dest, interpolation, nearest_only);
  }
  return *plan;
}

}  // namespace qel
