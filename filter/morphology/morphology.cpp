#include "filter/filter_image.h"
#include "filter/filter_transform.h"
#include "filter/morphology/extrema_job.h"
#include "filter/morphology/extrema_plan.h"
#include "image/copy_rows.h"

namespace qel {
namespace {

void RunSquare(const ExtremaJob& job) {
  // Windows bring the alpha of their last pixel with them.
  job.out.KeepAlpha();
  const auto size = static_cast<size_t>(job.size);
  const auto step = static_cast<size_t>(job.source.pixel_bytes());
  const auto square =
      job.kernels.size() == 2 ? ActiveFilterKernels().range : job.kernels[0]->square;
  ForEachRowOfWindows<kMostSquare>(job.source, job.out, Window::Square(job.size), 0, job.scratch,
                                   [&](uint8_t* dest, const uint8_t* const* rows, size_t bytes) {
                                     square(dest, rows, size, step, bytes);
                                   });
}

}  // namespace

void RunExtrema(const ExtremaPlan& plan, const ImageView& source, const ImageView& dest) {
  if (plan.method == ExtremaMethod::kCopy) {
    CopyRows(dest.bits, dest.stride, source.bits, source.stride,
             source.Columns() * (source.bit_count / 8), source.Rows());
    return;
  }
  const FilterKernels& all = ActiveFilterKernels();
  const ExtremumKernels* const minimum = &all.minimum;
  const ExtremumKernels* const range[] = {&all.maximum, minimum};
  const std::span<const ExtremumKernels* const> kernels =
      plan.extrema == Extrema::kMinimum   ? std::span(&minimum, 1)
      : plan.extrema == Extrema::kMaximum ? std::span(range, 1)
                                          : std::span(range);
  const SourceRows rows(source);
  DestRows out(dest, source, Reach(plan.size).after);
  ScratchBlock<kExtremaScratchBytes> scratch;
  const ExtremaJob job = {rows, out, plan.size, kernels, scratch};
  switch (plan.method) {
    case ExtremaMethod::kCopy:
      break;
    case ExtremaMethod::kSquare:
      return RunSquare(job);
    case ExtremaMethod::kGroups:
      return RunExtremaByGroups(job);
    case ExtremaMethod::kBlocks:
      return RunExtremaByBlocks(job);
  }
}

namespace {

/// The common course of the three operations. `empty` is what windows without pixels give.
result_t Run(IQEL* image, Extrema extrema, int size, uint32_t empty, IQEL** result) {
  return FilterWindows(image, size, empty, result,
                       [=](const ImageView& source, const ImageView& dest) {
                         RunExtrema(PlanExtrema(extrema, size, source), source, dest);
                         return true;
                       });
}

constexpr uint32_t kWhite = PackColor(255, 255, 255, 0);
constexpr uint32_t kBlack = PackColor(0, 0, 0, 0);

}  // namespace

result_t CQELFilterTransform::Erode(IQEL* image, int size, IQEL** result) {
  return Run(image, Extrema::kMinimum, size, kWhite, result);
}

result_t CQELFilterTransform::Dilate(IQEL* image, int size, IQEL** result) {
  return Run(image, Extrema::kMaximum, size, kBlack, result);
}

result_t CQELFilterTransform::Edge(IQEL* image, int size, IQEL** result) {
  return Run(image, Extrema::kRange, size, kWhite, result);
}

}  // namespace qel
