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

/// The weights of taps at -7/4, -3/4, 1/4 and 5/4 of the kernels that take longest to compute.
struct KnownWeights {
  int interpolation;
  float weights[4];
};
constexpr KnownWeights kKnownWeights[] = {
    {10, {0.773553371f, 0.0664466098f, 0.773553371f, 0.0664466098f}},     // Blackman
    {11, {-0.0975884795f, 0.352826864f, 0.726375699f, -0.0151415644f}}};  // jinc

/// Makes the weights of the taps of even columns and rows of a doubled image.
void DoublingWeights(int interpolation, const TapWindow& window, float* weights) {
  for (const KnownWeights& known : kKnownWeights) {
    if (known.interpolation != interpolation) continue;
    std::copy(std::begin(known.weights), std::end(known.weights), weights);
    return;
  }
  TapWeights(window, MethodOf(interpolation).kernel, 0.75f, 0, weights);
}

/// Whether `dest` is of twice the size of `source`, at positions that single precision has exactly;
/// then the plan's weights are made. All kernels are even there, odd multiples of 1/4: polynomials
/// whose halves are not alike have nothing to round, and are not at the ends of their pieces.
bool CanDouble(const ImageView& source, const ImageView& dest, const TapWindow& window,
               ResamplePlan& plan) {
  constexpr int kExactPositions = 1 << 21;
  if (source.width > kExactPositions || source.height > kExactPositions ||
      dest.width != 2 * source.width || dest.height != 2 * source.height) {
    return false;
  }
  DoublingWeights(plan.interpolation, window, plan.weights);
  return true;
}

bool CanSample(ResampleMethod method, const ImageView& source, const ImageView& dest,
               ResamplePlan& plan) {
  if (method == ResampleMethod::kOneByOne) return true;
  if (!source.HasPixels() || (source.bit_count != 8 && source.bit_count < 24)) return false;
  const auto all = [&](auto&& within) {
    return SamplePositions(dest.Columns(), plan.scale.x).AllWithin([&](float v) {
      return within(v, source.width);
    }) && SamplePositions(dest.Rows(), plan.scale.y).AllWithin([&](float v) {
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

/// What is asked for, and what all plans for it have in common.
struct Request {
  Task task;
  ResamplePlan plan;
};

Request RequestFor(const ImageView& source, const ImageView& dest, int interpolation,
                   bool nearest_only) {
  const Scale scale = {static_cast<float>(source.width) / static_cast<float>(dest.width),
                       static_cast<float>(source.height) / static_cast<float>(dest.height)};
  const Task task = TaskOf(scale, interpolation, nearest_only, source.bit_count);
  // Deliberate: alpha of 32-bit images is not averaged; it stays as the new image had it.
  return {.task = task,
          .plan = {.method = ResampleMethod::kOneByOne,
                   .scale = scale,
                   .interpolation = interpolation,
                   .pixel_bytes = PixelBytesFor(task, source.bit_count),
                   .keep_alpha = task == Task::kAverage,
                   .weights = {}}};
}

/// Whether `method` gives the right pixels; if so, the plan is made for it.
bool CanMeet(Request& request, ResampleMethod method, const ImageView& source,
             const ImageView& dest) {
  request.plan.method = method;
  switch (request.task) {
    case Task::kCopy:
      return method == ResampleMethod::kNearest;
    case Task::kAverage:
      return CanAverage(method, request.plan.scale, source.HasPixels());
    case Task::kSample:
      return CanSample(method, source, dest, request.plan);
  }
  return false;
}

}  // namespace

std::optional<ResamplePlan> PlanResampleBy(ResampleMethod method, const ImageView& source,
                                           const ImageView& dest, int interpolation,
                                           bool nearest_only) {
  Request request = RequestFor(source, dest, interpolation, nearest_only);
  if (!CanMeet(request, method, source, dest)) return std::nullopt;
  return request.plan;
}

ResamplePlan PlanResample(const ImageView& source, const ImageView& dest, int interpolation,
                          bool nearest_only) {
  Request request = RequestFor(source, dest, interpolation, nearest_only);
  // Each of the tasks has a method that always can.
  size_t i = 0;
  while (!CanMeet(request, static_cast<ResampleMethod>(i), source, dest)) ++i;
  return request.plan;
}

}  // namespace qel
