#include "tests/support/forced_plans.h"

// Part of every module under test, beside its entry points.

namespace qel::test {
namespace {

bool Convolve(ConvolutionMethod method, const ImageView& source, const ImageView& dest,
              const int* kernel, int size, int divisor, int offset) {
  const auto plan = PlanConvolutionBy(method, kernel, size, divisor, offset, source.bit_count);
  if (plan) RunConvolution(*plan, source, dest);
  return plan.has_value();
}

bool FindExtrema(const ExtremaPlan& plan, const ImageView& source, const ImageView& dest) {
  if (!CanFindExtrema(plan, source)) return false;
  RunExtrema(plan, source, dest);
  return true;
}

bool Median(MedianMethod method, const ImageView& source, const ImageView& dest, int size) {
  return CanFindMedian(method, size) && RunMedian(PlanMedian(method, size), source, dest);
}

bool Resample(ResampleMethod method, const ImageView& source, const ImageView& dest,
              int interpolation, bool nearest_only) {
  ResamplePlan plan;
  if (!CanResample(method, source, dest, interpolation, nearest_only, plan)) return false;
  RunResample(plan, source, dest);
  return true;
}

bool Rotate(RotateMethod method, const ImageView& source, const ImageView& dest, int angle,
            int interpolation) {
  if (!CanRotate(method, source, interpolation, false)) return false;
  const auto frame = RotatedFrame::SameSize(source.width, source.height, Turn::ByDegrees(angle));
  DrawRotated({method, interpolation}, source, dest, frame);
  return true;
}

bool TransformCircle(CircleMethod method, const ImageView& source, const ImageView& dest, int mode,
                     float factor) {
  const Circle circle(source, mode, factor);
  if (!CanTransformCircle(method, circle, source, false)) return false;
  RunCircle(method, circle, source, dest, false);
  return true;
}

}  // namespace
}  // namespace qel::test

extern "C" __attribute__((visibility("default"))) const qel::test::ForcedPlans QelForcedPlans;
const qel::test::ForcedPlans QelForcedPlans = {
    .convolution = &qel::test::Convolve,
    .extrema = &qel::test::FindExtrema,
    .median = &qel::test::Median,
    .resample = &qel::test::Resample,
    .rotate = &qel::test::Rotate,
    .circle = &qel::test::TransformCircle,
};
