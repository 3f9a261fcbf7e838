#include "compose/resize.h"

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

SmartPtr<IQEL> Resize(Call& call) {
  const Shape shape = ShapeOf(*call.image);
  const auto [scaled, taken] = FittedSizeOf(call, shape);
  const compose::Pixels source = PixelsOf(call, *call.image);
  if (scaled == SizeOf(shape) && taken == scaled) return {};
  const compose::Box part = compose::Place(GravityOf(call), scaled, taken, 0, 0);
  SmartPtr<IQEL> result = MakeImage(call, taken, source.channels);
  const compose::Resizer resizer({source.width, source.height, scaled.width, scaled.height, part.x,
                                  part.y, part.width, part.height,
                                  static_cast<compose::ResizeFilter>(call.arguments.Int("filter")),
                                  call.arguments.Int("linear") != 0});
  resizer.Run(source, 0, PixelsOf(call, *result.Get()), 0);
  return result;
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
