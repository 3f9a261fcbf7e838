#include <algorithm>
#include <cmath>

#include "operations/arguments.h"
#include "operations/point_maps.h"
#include "operations/rows/common.h"
#include "operations/table.h"
#include "operations/text/numbers.h"

namespace qel::operations {
namespace {

constexpr std::string_view kTransform = "QELTransform";
constexpr std::string_view kDeform = "QELDeform";

/// A coordinate in pixels, or with a % sign in hundredths of `whole`.
bool ParseCoordinate(std::string_view text, double whole, double& coordinate) {
  const bool is_share = text.ends_with('%');
  if (is_share) text.remove_suffix(1);
  if (!ParseReal(text, coordinate) || !std::isfinite(coordinate)) return false;
  if (is_share) coordinate *= whole / 100;
  return true;
}

/// The argument `name` as a point of the picture: X,Y.
MapPoint PointOf(const Given& given, std::string_view name, const Shape& shape) {
  const std::string_view text = given.arguments.Text(name);
  const size_t comma = text.find(',');
  MapPoint point{};
  if (comma == std::string_view::npos ||
      !ParseCoordinate(text.substr(0, comma), shape.width, point.x) ||
      !ParseCoordinate(text.substr(comma + 1), shape.height, point.y)) {
    Refuse(
        given,
        std::string(name) + "=" + std::string(text) + " is no point; 12.5,40 or 10%,25% would be",
        name);
  }
  return point;
}

struct Corners {
  MapPoint top_left, top_right, bottom_left, bottom_right;
};

Corners CornersOf(const Given& given, const Shape& shape) {
  return {PointOf(given, "top-left", shape), PointOf(given, "top-right", shape),
          PointOf(given, "bottom-left", shape), PointOf(given, "bottom-right", shape)};
}

/// The size that was asked for; what was not, by the shorter of two opposite edges.
Shape ShapeAfterQuad(const Given& given, Shape shape) {
  const Corners corners = CornersOf(given, shape);
  const auto extent = [&](std::string_view name, const MapPoint& a, const MapPoint& b,
                          const MapPoint& c, const MapPoint& d) {
    const int wanted = given.arguments.Int(name);
    // As `Quad` measures: one bit of a length may be a column.
    const auto length = [](const MapPoint& from, const MapPoint& to) {
      const double x = to.x - from.x, y = to.y - from.y;
      return std::sqrt(x * x + y * y);
    };
    const double edge = std::min(length(a, b), length(c, d));
    return wanted != 0 ? wanted : static_cast<int>(std::min(edge, 1e6));
  };
  shape.width = extent("width", corners.top_left, corners.top_right, corners.bottom_left,
                       corners.bottom_right);
  shape.height = extent("height", corners.top_left, corners.bottom_left, corners.top_right,
                        corners.bottom_right);
  return shape;
}

result_t CallQuad(Call& call) {
  const Arguments& arguments = call.arguments;
  const auto [p1, p2, p3, p4] = CornersOf(call, ShapeOf(*call.image));
  return call.components.transform->Quad(
      call.image, call.result, p1.x, p1.y, p2.x, p2.y, p3.x, p3.y, p4.x, p4.y,
      static_cast<uint32_t>(arguments.Int("width")), static_cast<uint32_t>(arguments.Int("height")),
      static_cast<int16_t>(arguments.Int("blend")));
}

template <typename Map>
SmartPtr<PointMap> MakeMatrix(const Given& given, std::string_view name) {
  const std::vector<double>& numbers = given.arguments.Numbers(name);
  if (numbers.size() != Map::kNumbers) {
    Refuse(given,
           std::string(name) + "= takes " + std::to_string(Map::kNumbers) + " numbers, there are " +
               std::to_string(numbers.size()),
           name);
  }
  return SmartPtr<PointMap>::Adopt(new Map(numbers));
}

SmartPtr<PointMap> MakePolynomial(const Given& given) {
  const std::vector<double>& numbers = given.arguments.Numbers("polynomial");
  if (PolynomialMap::DegreeOf(numbers.size()) < 0) {
    Refuse(given,
           "polynomial= takes 6 numbers, 12 for squares, or 20 for cubes, there are " +
               std::to_string(numbers.size()),
           "polynomial");
  }
  return SmartPtr<PointMap>::Adopt(new PolynomialMap(numbers));
}

/// The coordinate transform of a step: the caller's own, or exactly one of its three kinds.
SmartPtr<ITransform> MapOf(const Given& given, const Shape& shape) {
  const Arguments& arguments = given.arguments;
  const bool affine = arguments.Has("affine");
  const bool projective = arguments.Has("projective");
  const bool own = arguments.Map() != nullptr;
  if (own + affine + projective + arguments.Has("polynomial") != 1) {
    Refuse(given, "give one of affine=, projective= and polynomial=");
  }
  if (own) return SmartPtr<ITransform>::Retain(arguments.Map());
  const SmartPtr<PointMap> map = affine       ? MakeMatrix<AffineMap>(given, "affine")
                                 : projective ? MakeMatrix<ProjectiveMap>(given, "projective")
                                              : MakePolynomial(given);
  if (arguments.Int("shares") != 0) {
    map->SetUnits({static_cast<double>(shape.width), static_cast<double>(shape.height)});
  }
  return SmartPtr<ITransform>::Retain(map.Get());
}

void CheckPointMap(const Given& given) { MapOf(given, {}); }

Shape ShapeAfterTransform(const Given& given, Shape shape) {
  const int width = given.arguments.Int("width");
  const int height = given.arguments.Int("height");
  if (width != 0) shape.width = width;
  if (height != 0) shape.height = height;
  return shape;
}

/// Of operations that may add alpha.
Shape ShapeWithAlpha(const Given& given, Shape shape) {
  if (given.arguments.Int("alpha") != 0) shape.bits = 32;
  return shape;
}

result_t CallTransform(Call& call) {
  const Arguments& arguments = call.arguments;
  const SmartPtr<ITransform> map = MapOf(call, ShapeOf(*call.image));
  return call.components.transform->Transform(map.Get(), call.image, call.result,
                                              arguments.Int("x-offset"), arguments.Int("y-offset"),
                                              static_cast<uint32_t>(arguments.Int("width")),
                                              static_cast<uint32_t>(arguments.Int("height")), 0, 0);
}

void CheckTransformPaste(const Given& given, const Shape& shape, const ShapeOfPicture& second) {
  const std::string& onto = given.arguments.Text("onto");
  const Shape target = second(onto);
  if (shape.bits == target.bits) return;
  RefuseDepth(given, "onto=" + onto + " has " + target.Bits() + " and the picture " + shape.Bits() +
                         "; bring both to one depth");
}

result_t CallTransformPaste(Call& call) {
  const Arguments& arguments = call.arguments;
  const SmartPtr<ITransform> map = MapOf(call, ShapeOf(*call.image));
  IQEL& onto = call.pictures.Get(arguments.Text("onto"));
  SmartPtr<IQELImageDIB> target = call.NewImage();
  if (const result_t copied = target->Assign(&onto, 0); Failed(copied)) return copied;
  const result_t result = call.components.transform->TransformPaste(
      map.Get(), call.image, target.Get(), arguments.Int("x-offset"), arguments.Int("y-offset"),
      static_cast<int16_t>(arguments.Int("fill-voids")), 0);
  *call.result = target.Detach();
  return result;
}

const Parameter kForceAlpha = {.name = "alpha",
                               .kind = Kind::kFlag,
                               .help = "make the picture 32 bits deep and opaque",
                               .standard = "no"};
Parameter NewExtent(std::string_view name, std::string_view help) {
  return {.name = name,
          .help = help,
          .standard = "0",
          .minimum = 0,
          .maximum = 65535,
          .usual = {0, 4000},
          .unit = "pixels"};
}
const Parameter kAffine = {.name = "affine",
                           .kind = Kind::kNumbers,
                           .help = "a,b,c,d,e,f: x' = a x + b y + c, y' = d x + e y + f",
                           .optional = true};
const Parameter kProjective = {.name = "projective",
                               .kind = Kind::kNumbers,
                               .help = "nine numbers, row by row: a matrix for (x, y, 1)",
                               .optional = true};
const Parameter kPolynomial = {
    .name = "polynomial",
    .kind = Kind::kNumbers,
    .help = "factors of 1, x, y, x^2, xy, y^2, ... for x', then as many for y'",
    .optional = true};
const Parameter kShares = {.name = "shares",
                           .kind = Kind::kFlag,
                           .help = "count x and y in shares of the picture from 0 to 1",
                           .standard = "no"};
const Parameter kXOffset = {.name = "x-offset",
                            .help = "added to every x",
                            .standard = "0",
                            .usual = {-1000, 1000},
                            .unit = "pixels"};
const Parameter kYOffset = {.name = "y-offset",
                            .help = "added to every y",
                            .standard = "0",
                            .usual = {-1000, 1000},
                            .unit = "pixels"};

constexpr Choice kCircleModes[] = {{"bulge", kCircleBulge},
                                   {"pinch", kCirclePinch},
                                   {"swirl", kCircleSwirl},
                                   {"unwrap", kCircleUnwrap},
                                   {"fold", kCircleFold}};

Parameter Corner(std::string_view name, std::string_view help, std::string_view standard) {
  return {.name = name, .kind = Kind::kPoint, .help = help, .standard = standard};
}
Parameter Gain(std::string_view name, std::string_view help) {
  return {.name = name, .kind = Kind::kNumber, .help = help, .standard = "0", .usual = {-2, 2}};
}
Parameter Pivot(std::string_view name, std::string_view help) {
  return {.name = name, .help = help, .standard = "0", .usual = {0, 4000}, .unit = "pixels"};
}

}  // namespace

std::vector<Operation> WarpOperations() {
  return {
      {.name = "skew",
       .component = kTransform,
       .summary = "Shears the picture about a pivot.",
       .depths = kAllDepths,
       .parameters = {Gain("x-gain", "pixels to the left per row below the pivot"),
                      Gain("y-gain", "pixels upward per column right of the pivot"),
                      Pivot("x-pivot", "column that keeps its height; 0 is the middle"),
                      Pivot("y-pivot", "row that keeps its place; 0 is the middle"), kForceAlpha},
       .example = "skew x-gain=0.4 y-gain=-0.1",
       .note = "What comes from outside takes the top-left colour, with alpha 1.",
       .method = &MethodNamed("Skew"),
       .numbers = {"x-gain", "y-gain", "x-pivot", "y-pivot", "", "alpha"},
       .result_shape = &ShapeWithAlpha},
      {.name = "quad",
       .component = kTransform,
       .summary = "Straightens the picture inside four corners into a rectangle.",
       .depths = kByteDepths,
       .parameters = {Corner("top-left", "x,y in pixels, or in % of the picture", "0,0"),
                      Corner("top-right", "likewise", "100%,0"),
                      Corner("bottom-left", "likewise", "0,100%"),
                      Corner("bottom-right", "likewise", "100%,100%"),
                      NewExtent("width", "of the new picture; 0: as the shorter of two edges"),
                      NewExtent("height", "likewise"),
                      {.name = "blend",
                       .kind = Kind::kFlag,
                       .help = "mix two by two pixels, above 8 bits",
                       .standard = "no"}},
       .example = "quad top-left=10%,15% top-right=95%,5% bottom-left=5%,90% "
                  "bottom-right=80%,95% blend=yes",
       .note = "The outermost pixels of the picture are never taken: they come out black.",
       .call = &CallQuad,
       .check = [](const Given& given) { CornersOf(given, {}); },
       .result_shape = &ShapeAfterQuad},
      {.name = "transform",
       .component = kTransform,
       .summary = "Fills a new picture by a formula that says where to read each pixel.",
       .depths = kByteDepths,
       .parameters = {kAffine, kProjective, kPolynomial, kShares, kXOffset, kYOffset,
                      NewExtent("width", "of the new picture; 0: as that of the old one"),
                      NewExtent("height", "likewise")},
       .example = "transform shares=yes polynomial=0.05,0.6,0.15,0.3,0,0,0.1,0,0.7,-0.3,0.3,0.1",
       .note = "What comes from outside is black, and opaque at 32 bits. Offsets count in pixels.",
       .fills_result = true,
       .call = &CallTransform,
       .check = &CheckPointMap,
       .result_shape = &ShapeAfterTransform},
      {.name = "transform-paste",
       .component = kTransform,
       .summary = "Sends every pixel to a place in another picture, by a formula.",
       .depths = kByteDepths,
       .parameters = {{.name = "onto",
                       .kind = Kind::kPicture,
                       .help = "the picture to paste into, of the same depth"},
                      kAffine,
                      kProjective,
                      kPolynomial,
                      kShares,
                      kXOffset,
                      kYOffset,
                      {.name = "fill-voids",
                       .kind = Kind::kFlag,
                       .help = "at 24 and 32 bits, fill zero pixels of the result from their "
                               "neighbours",
                       .standard = "no"}},
       .example = "transform-paste onto=other.png affine=0.5,-0.3,110,0.25,0.6,10",
       .picture_step = "transform-paste onto=other.png affine=0.5,-0.3,40,0.25,0.6,3",
       .note = "The file itself is left alone; the picture that was pasted into goes on to the "
               "next step.",
       .channel_order = ChannelOrder::kAlikeWithoutAlpha,
       .fills_result = true,
       .call = &CallTransformPaste,
       .check = &CheckPointMap,
       .check_shapes = &CheckTransformPaste,
       .shape_with_second = [](const Given&, Shape, const Shape& onto) { return onto; }},
      {.name = "circle",
       .component = kDeform,
       .summary = "Deforms the picture in circles about its centre.",
       .depths = kAllDepths,
       .in_place = true,
       .parameters = {{.name = "mode",
                       .kind = Kind::kChoice,
                       .help = "unwrap takes angle and distance as column and row",
                       .choices = kCircleModes},
                      {.name = "factor",
                       .kind = Kind::kNumber,
                       .help = "weakens the swirl",
                       .standard = "1",
                       .usual = {0.1, 4}},
                      kForceAlpha},
       .example = "circle mode=swirl factor=1.5",
       .note = "What comes from outside, as the corners do, takes the top-left colour, with alpha "
               "1.",
       .method = &MethodNamed("CircleTransform"),
       .numbers = {"mode", "alpha", "factor"},
       .result_shape = &ShapeWithAlpha},
  };
}

}  // namespace qel::operations
