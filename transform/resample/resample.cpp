#include "component/result_image.h"
#include "image/pixel_access.h"
#include "transform/image_transform.h"
#include "transform/resample/resample_methods.h"

namespace qel {
namespace {

/// Samples pixel by pixel: what every quicker way must equal.
void SampleOneByOne(const ResamplePlan& plan, const ImageView& source, const ImageView& dest) {
  const SamplePositions columns(dest.Columns(), plan.scale.x);
  const SamplePositions rows(dest.Rows(), plan.scale.y);
  for (int64_t y = 0; y < rows.size(); ++y) {
    for (int64_t x = 0; x < columns.size(); ++x) {
      const uint32_t color =
          GetPixelColorInterpolated(source.bits, columns[x], rows[y], source.width, source.height,
                                    source.stride, plan.interpolation, source.bit_count);
      SetPixelColor(dest.bits, static_cast<int>(x), static_cast<int>(y), dest.width, dest.height,
                    dest.stride, color, dest.bit_count);
    }
  }
}

}  // namespace

void RunResample(const ResamplePlan& plan, const ImageView& source, const ImageView& dest) {
  switch (plan.method) {
    case ResampleMethod::kNearest:
      return CopyNearest(plan, source, dest);
    case ResampleMethod::kHalve:
      return HalveByBoxes(plan, source, dest);
    case ResampleMethod::kSmallBoxes:
      return AverageSmallBoxes(plan, source, dest);
    case ResampleMethod::kLargeBoxes:
      return AverageLargeBoxes(plan, source, dest);
    case ResampleMethod::kGather:
      return GatherPixels(plan, source, dest);
    case ResampleMethod::kDoubling:
      return DoubleByTaps(plan, source, dest);
    case ResampleMethod::kTaps:
      if (SumTapsByTiles(plan, source, dest)) return;
      [[fallthrough]];
    case ResampleMethod::kOneByOne:
      return SampleOneByOne(plan, source, dest);
  }
}

result_t CQELImageTransform::Resample(IQEL* source, IQEL** result, int new_width, int new_height,
                                      int method, int nearest_only) {
  if (source == nullptr) return kFail;
  if (result == nullptr) return kNullOutput;
  ImageShape shape;
  const result_t read = ReadFormat(*source, shape);
  if (Failed(read)) return read;
  ReadSize(*source, shape);
  const ImageView view = ReadPlane(*source, shape, 0);
  // The caller owns the new image from here on, also when a host call throws.
  SmartPtr<IQELImageDIB> made = QELObject::CreateImageDIB();
  *result = made.Detach();
  if (*result == nullptr) return kFail;
  const auto output = QueryFor<IQELImage>(*result);
  if (!output) return kOk;
  ImageShape resized = shape;
  resized.width = new_width;
  resized.height = new_height;
  const ImageView dest = NewPixels(*output, resized).Plane(0);
  if (new_width == shape.width && new_height == shape.height) {
    output->Assign(source, 0);
  } else if (dest.HasPixels()) {
    RunResample(PlanResample(view, dest, method, nearest_only != 0), view, dest);
  }
  return kOk;
}

}  // namespace qel
