#include "tests/support/forced_plans.h"

#include "image/pixel_access.h"
#include "image/pixel_layout.h"
#include "simd/stream.h"

// Part of every module under test, beside its entry points.

namespace qel {
namespace test {
namespace {

int64_t least_streamed_bytes = 32 << 20;

bool Rotate(RotateMethod method, const ImageView& from, const ImageView& to, int angle,
            int interpolation) {
  if (angle % 90 == 0 || ExactPixelBytes(from.bit_count) == 0 ||
      !CanRotate(method, from, interpolation, false)) {
    return false;
  }
  const uint32_t background = WithAlpha(
      GetPixelColor(from.bits, 0, 0, from.width, from.height, from.stride, from.bit_count), 255);
  for (int i = 0; i < to.width * to.height; ++i) {
    SetPixelColor(to.bits, i % to.width, i / to.width, to.width, to.height, to.stride, background,
                  to.bit_count);
  }
  const auto frame = RotatedFrame::SameSize(from.width, from.height, Turn::ByDegrees(angle));
  RunRotate({method, interpolation}, from, to, frame);
  return true;
}

bool Run(std::string_view operation, size_t method, const operations::MethodArguments& arguments,
         const ImageView& source, const ImageView& dest) {
  operations::ArgumentCursor cursor(arguments);
  const auto next = [&] { return cursor.Take<int>(); };
  if (operation == "Resample") {
    const int width = next(), height = next(), interpolation = next();
    ResamplePlan plan;
    const bool can = (width != source.width || height != source.height) &&
                     CanResample(static_cast<ResampleMethod>(method), source, dest, interpolation,
                                 next() != 0, plan);
    if (can) RunResample(plan, source, dest);
    return can;
  }
  if (operation == "Rotate") {
    const int angle = next(), interpolation = next();
    const bool force_alpha = next() != 0, keep_size = next() != 0;
    return !force_alpha && keep_size &&
           Rotate(static_cast<RotateMethod>(method), source, dest, angle, interpolation);
  }
  if (operation == "CircleTransform") {
    const int mode = next();
    const bool with_alpha = next() != 0;
    if (mode < 0 || with_alpha) return false;
    const Circle circle(source, mode, cursor.Take<float>());
    const auto by = static_cast<CircleMethod>(method);
    if (!CanTransformCircle(by, circle, source, false)) return false;
    RunCircle(by, circle, source, dest, false);
    return true;
  }
  const int size = next();
  if (size <= 0) return false;
  if (operation == "Median") {
    const auto by = static_cast<MedianMethod>(method);
    return CanFindMedian(by, size) && RunMedian(PlanMedian(by, size), source, dest);
  }
  if (operation == "Filter") {
    const int divisor = next();
    const auto plan =
        PlanConvolutionBy(static_cast<ConvolutionMethod>(method), arguments.weights.data(), size,
                          divisor, next(), source.bit_count);
    if (plan) RunConvolution(*plan, source, dest);
    return plan.has_value();
  }
  const auto extrema = operation == "Erode"    ? Extrema::kMinimum
                       : operation == "Dilate" ? Extrema::kMaximum
                                               : Extrema::kRange;
  const ExtremaPlan plan = {static_cast<ExtremaMethod>(method), extrema, size};
  if (!CanFindExtrema(plan, source)) return false;
  RunExtrema(plan, source, dest);
  return true;
}

}  // namespace
}  // namespace test

int64_t LeastStreamedBytes() { return test::least_streamed_bytes; }

}  // namespace qel

extern "C" __attribute__((visibility("default"))) const qel::test::ForcedPlans QelForcedPlans;
const qel::test::ForcedPlans QelForcedPlans = {&qel::test::Run, &qel::test::least_streamed_bytes};
