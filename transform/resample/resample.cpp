#include "transform/resample/resample.h"

#include "component/result_image.h"
#include "image/pixel_access.h"
#include "image/pixel_layout.h"
#include "transform/image_transform.h"
#include "transform/resample/box_kernels.h"

namespace qel {
namespace {

bool CopiesNearest(const Scale& scale, int interpolation, bool nearest_only, int bit_count) {
  const bool enlarges = scale.x <= 1.0f && scale.y <= 1.0f && interpolation == 0;
  const bool whole_bytes = bit_count == 32 || bit_count == 24 || bit_count == 16 || bit_count == 8;
  return (enlarges || nearest_only) && whole_bytes;
}

bool AveragesBoxes(const Scale& scale, bool nearest_only) {
  return scale.x >= 1.0f && scale.y >= 1.0f && !nearest_only;
}

/// Bytes per pixel of box averages: depths other than 24 and 32 bits count as one byte.
int BoxPixelBytes(int bit_count) { return bit_count == 32 ? 4 : bit_count == 24 ? 3 : 1; }

ResampleMethod MethodForBoxes(const Scale& scale) {
  if (scale.x == 2.0f && scale.y == 2.0f) return ResampleMethod::kHalve;
  const auto area =
      static_cast<uint32_t>(WrapMultiply(TruncateToInt(scale.x), TruncateToInt(scale.y)));
  return area == 1                 ? ResampleMethod::kNearest
         : area > kLargestSmallBox ? ResampleMethod::kLargeBoxes
                                   : ResampleMethod::kSmallBoxes;
}

/// The way for samples of an interpolation: which one depends on whether all of them are within.
ResampleMethod MethodForSamples(const ImageView& source, const SamplePositions& columns,
                                const SamplePositions& rows, Sampling sampling) {
  if (!source.HasPixels() || (source.bit_count != 8 && source.bit_count < 24)) {
    return ResampleMethod::kOneByOne;
  }
  const auto all_within = [&](auto&& within) {
    return columns.AllOf([&](float v) { return within(v, source.width); }) &&
           rows.AllOf([&](float v) { return within(v, source.height); });
  };
  if (sampling == Sampling::kNearest || sampling == Sampling::kBilinear) {
    return all_within([=](float v, int size) {
      const int tap = sampling == Sampling::kNearest ? NearestTap(v) : TruncateToInt(v);
      return tap >= 0 && tap < size;
    })
               ? ResampleMethod::kPick
               : ResampleMethod::kOneByOne;
  }
  const TapWindow& window = sampling == Sampling::kKernel4 ? kTaps4 : kTaps12;
  return all_within([&](float v, int size) { return !window.Misses(TapOrigin(v), size); })
             ? ResampleMethod::kTaps
             : ResampleMethod::kOneByOne;
}

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

const char* NameOf(ResampleMethod method) {
  constexpr const char* kNames[] = {"none",        "nearest", "halve", "small boxes",
                                    "large boxes", "pick",    "taps",  "one by one"};
  return kNames[static_cast<size_t>(method)];
}

ResamplePlan PlanResampling(const ImageView& source, const ImageView& dest, const Scale& scale,
                            int interpolation, bool nearest_only) {
  const bool copies = CopiesNearest(scale, interpolation, nearest_only, source.bit_count);
  const bool boxes = !copies && AveragesBoxes(scale, nearest_only);
  ResamplePlan plan = {.method = ResampleMethod::kNone,
                       .scale = scale,
                       .interpolation = interpolation,
                       .pixel_bytes = copies                  ? source.bit_count / 8
                                      : boxes                 ? BoxPixelBytes(source.bit_count)
                                      : source.bit_count == 8 ? 1
                                                              : DirectPixelBytes(source.bit_count),
                       // Deliberate: alpha of 32-bit images is not averaged; it stays as the new
                       // image had it.
                       .keep_alpha = boxes};
  if (!dest.HasPixels()) return plan;
  if (!copies && !boxes) {
    plan.method = MethodForSamples(source, {dest.Columns(), scale.x}, {dest.Rows(), scale.y},
                                   MethodOf(interpolation).sampling);
  } else if (!source.Empty()) {
    const bool has_memory = source.bits != nullptr;
    plan.method = boxes && has_memory ? MethodForBoxes(scale) : ResampleMethod::kNearest;
  }
  return plan;
}

void Run(const ResamplePlan& plan, const ImageView& source, const ImageView& dest) {
  switch (plan.method) {
    case ResampleMethod::kNone:
      return;
    case ResampleMethod::kNearest:
      return CopyNearest(plan, source, dest);
    case ResampleMethod::kHalve:
      return HalveByBoxes(plan, source, dest);
    case ResampleMethod::kSmallBoxes:
      return AverageSmallBoxes(plan, source, dest);
    case ResampleMethod::kLargeBoxes:
      return AverageLargeBoxes(plan, source, dest);
    case ResampleMethod::kPick:
      return PickPixels(plan, source, dest);
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
  const Scale scale = {static_cast<float>(shape.width) / static_cast<float>(new_width),
                       static_cast<float>(shape.height) / static_cast<float>(new_height)};
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
  } else {
    Run(PlanResampling(view, dest, scale, method, nearest_only != 0), view, dest);
  }
  return kOk;
}

}  // namespace qel
