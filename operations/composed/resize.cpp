#include "compose/resize.h"

#include <algorithm>
#include <array>
#include <memory>
#include <mutex>

#include "operations/composed/common.h"
#include "operations/table.h"

namespace qel::operations {
namespace {

constexpr Choice kFits[] = {{"inside", 0}, {"cover", 1}, {"exact", 2}};
constexpr Choice kFilters[] = {{"lanczos", 0}, {"mitchell", 1}, {"area", 2}, {"nearest", 3}};

compose::FittedSize FittedSizeOf(const Given& given, const Shape& shape) {
  const Arguments& arguments = given.arguments;
  const auto wanted = [&](std::string_view name, int whole) {
    return arguments.Has(name) ? arguments.Pixels(name, whole) : 0;
  };
  return compose::FitSize(
      SizeOf(shape), wanted("width", shape.width), wanted("height", shape.height),
      static_cast<compose::Fit>(arguments.Int("fit")), arguments.Int("enlarge") != 0);
}

/// A resizer; the last ones are kept, for the bands of a picture all need the same.
std::shared_ptr<const compose::Resizer> ResizerFor(const compose::ResizeRequest& request) {
  struct Kept {
    compose::ResizeRequest request;
    std::shared_ptr<const compose::Resizer> resizer;
  };
  static std::mutex mutex;
  static std::array<Kept, 8> kept;
  static size_t oldest = 0;
  const std::lock_guard lock(mutex);
  const auto found = std::ranges::find_if(
      kept, [&](const Kept& each) { return each.resizer && each.request == request; });
  if (found != kept.end()) return found->resizer;
  Kept& place = kept[oldest++ % kept.size()];
  place = {request, std::make_shared<const compose::Resizer>(request)};
  return place.resizer;
}

/// The one for a picture of this shape; null when the picture stays as it is.
std::shared_ptr<const compose::Resizer> ResizerOf(const Given& given, const Shape& shape) {
  const auto [scaled, taken] = FittedSizeOf(given, shape);
  if (scaled == SizeOf(shape) && taken == scaled) return {};
  const compose::Box part = compose::Place(GravityOf(given), scaled, taken, 0, 0);
  return ResizerFor({shape.width, shape.height, scaled.width, scaled.height, part.x, part.y,
                     part.width, part.height,
                     static_cast<compose::ResizeFilter>(given.arguments.Int("filter")),
                     given.arguments.Int("linear") != 0});
}

SmartPtr<IQEL> Resize(Call& call) {
  const Shape& shape = call.band.whole;
  const RowRange rows = call.band.result;
  const compose::Pixels source = PixelsOf(call, *call.image);
  const auto resizer = ResizerOf(call, shape);
  if (resizer == nullptr) return {};
  SmartPtr<IQEL> result =
      MakeImage(call, {FittedSizeOf(call, shape).taken.width, rows.size()}, source.channels);
  resizer->Run(source, call.band.first_row, PixelsOf(call, *result.Get()), rows.begin);
  return result;
}

RowRange RowsOfResize(const Given& given, const Shape& shape, RowRange result) {
  const auto resizer = ResizerOf(given, shape);
  return resizer != nullptr ? resizer->SourceRows(result) : result;
}

}  // namespace

Operation ResizeRow() {
  Parameter gravity = kGravityParameter;
  gravity.help = "with fit=cover, the part that is kept";
  return {.name = "resize",
          .component = kEveryday,
          .summary = "Scales the picture to a size, smoothly and with its transparency.",
          .depths = kByteDepths,
          .parameters = {ExtentParameter("width", "the width; without it, by the height"),
                         ExtentParameter("height", "the height; without it, by the width"),
                         {.name = "fit",
                          .kind = Kind::kChoice,
                          .help = "stay inside width and height, cover them and cut off what "
                                  "stands over, or take exactly them",
                          .standard = "inside",
                          .choices = kFits},
                         gravity,
                         {.name = "enlarge",
                          .kind = Kind::kFlag,
                          .help = "enlarge pictures that are smaller, which otherwise stay",
                          .standard = "no"},
                         {.name = "filter",
                          .kind = Kind::kChoice,
                          .help = "lanczos is sharpest, mitchell softer without halos, area the "
                                  "mean, nearest copies pixels",
                          .standard = "lanczos",
                          .choices = kFilters},
                         {.name = "linear",
                          .kind = Kind::kFlag,
                          .help = "mix light instead of colour values: fine patterns keep their "
                                  "brightness",
                          .standard = "no"}},
          .example = "resize width=1600 height=1600",
          .picture_step = "resize width=70",
          .note = "Colours are weighted by their alpha, edges get no frame.",
          .positional = "width",
          .compose = &Resize,
          .source_rows = &RowsOfResize,
          .check =
              [](const Given& given) {
                if (given.arguments.Has("width") || given.arguments.Has("height")) return;
                Refuse(given, "give width=, height= or both, in pixels or as 50%");
              },
          .result_shape =
              [](const Given& given, Shape shape) {
                const compose::Size taken = FittedSizeOf(given, shape).taken;
                shape.width = taken.width;
                shape.height = taken.height;
                return shape;
              }};
}

}  // namespace qel::operations
