#include "tests/support/forced_plans.h"

#include "image/pixel_access.h"
#include "image/pixel_layout.h"
#include "simd/stream.h"

// Part of every module under test, beside its entry points.

namespace qel {
namespace test {
namespace {

int64_t least_streamed_bytes = 24 << 20;

/// What `Rotate` does at an angle with pixels between: a frame over the background.
void RunRotateInFrame(const RotatePlan& plan, const ImageView& from, const ImageView& to,
                      int angle) {
  const uint32_t background = WithAlpha(
      GetPixelColor(from.bits, 0, 0, from.width, from.height, from.stride, from.bit_count), 255);
  for (int i = 0; i < to.width * to.height; ++i) {
    SetPixelColor(to.bits, i % to.width, i / to.width, to.width, to.height, to.stride, background,
                  to.bit_count);
  }
  RunRotate(plan, from, to,
            RotatedFrame::SameSize(from.width, from.height, Turn::ByDegrees(angle)));
}

bool Run(std::string_view operation, size_t number, const operations::MethodArguments& arguments,
         const ImageView& source, const ImageView& dest) {
  operations::ArgumentCursor cursor(arguments);
  const auto next = [&] { return cursor.Take<int>(); };
  const auto run_if = [&](const auto& plan, const auto& run) {
    if (plan) run(*plan, source, dest);
    return plan.has_value();
  };
  if (operation == "Resample") {
    const int width = next(), height = next(), interpolation = next();
    if (width == source.width && height == source.height) return false;
    return run_if(PlanResampleBy(static_cast<ResampleMethod>(number), source, dest, interpolation,
                                 next() != 0),
                  RunResample);
  }
  if (operation == "Rotate") {
    const int angle = next(), interpolation = next();
    const bool force_alpha = next() != 0, keep_size = next() != 0;
    if (force_alpha || !keep_size || angle % 90 == 0 || ExactPixelBytes(source.bit_count) == 0) {
      return false;
    }
    return run_if(PlanRotateBy(static_cast<RotateMethod>(number), source, interpolation, false),
                  [=](const RotatePlan& plan, const ImageView& from, const ImageView& to) {
                    RunRotateInFrame(plan, from, to, angle);
                  });
  }
  if (operation == "CircleTransform") {
    const int mode = next();
    const bool with_alpha = next() != 0;
    if (mode < 0 || with_alpha) return false;
    const Circle circle(source, mode, cursor.Take<float>());
    return run_if(PlanCircleBy(static_cast<CircleMethod>(number), circle, source, false),
                  RunCircle);
  }
  const int size = next();
  if (size <= 0) return false;
  if (operation == "Median") {
    const auto plan = PlanMedianBy(static_cast<MedianMethod>(number), size);
    return plan && RunMedian(*plan, source, dest);
  }
  if (operation == "Filter") {
    const int divisor = next();
    return run_if(
        PlanConvolutionBy(static_cast<ConvolutionMethod>(number), arguments.weights.data(), size,
                          divisor, next(), source.bit_count),
        RunConvolution);
  }
  const auto extrema = operation == "Erode"    ? Extrema::kMinimum
                       : operation == "Dilate" ? Extrema::kMaximum
                                               : Extrema::kRange;
  return run_if(PlanExtremaBy(static_cast<ExtremaMethod>(number), extrema, size, source),
                RunExtrema);
}

}  // namespace
}  // namespace test

int64_t LeastStreamedBytes() { return test::least_streamed_bytes; }

}  // namespace qel

extern "C" __attribute__((visibility("default"))) const qel::test::ForcedPlans QelForcedPlans;
const qel::test::ForcedPlans QelForcedPlans = {&qel::test::Run, &qel::test::least_streamed_bytes};
