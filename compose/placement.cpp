#include "compose/placement.h"

#include <algorithm>
#include <cmath>

namespace qel::compose {
namespace {

constexpr double kLongestSide = 1e6;

int Rounded(double extent) {
  return static_cast<int>(std::clamp(std::round(extent), 1.0, kLongestSide));
}

/// Offset along one axis; `side` is 0 for its begin, 1 for the middle, 2 for its end.
int Offset(int side, int outer, int inner, int inwards) {
  if (side == 0) return inwards;
  if (side == 2) return outer - inner - inwards;
  const int room = outer - inner;
  // Half of an odd overlap is rounded like half of odd room, so that both are symmetric.
  return (room >= 0 ? room / 2 : -(-room / 2)) + inwards;
}

}  // namespace

Box Place(Gravity gravity, const Size& outer, const Size& inner, int dx, int dy) {
  const int place = static_cast<int>(gravity);
  return {Offset(place % 3, outer.width, inner.width, dx),
          Offset(place / 3, outer.height, inner.height, dy), inner.width, inner.height};
}

FittedSize FitSize(const Size& source, double wanted_width, double wanted_height, Fit fit,
                   bool enlarges) {
  const double x = wanted_width / source.width, y = wanted_height / source.height;
  double x_scale = wanted_width > 0 ? x : y, y_scale = wanted_height > 0 ? y : x;
  if (fit == Fit::kInside) x_scale = y_scale = std::min(x_scale, y_scale);
  if (fit == Fit::kCover) x_scale = y_scale = std::max(x_scale, y_scale);
  if (!enlarges && std::max(x_scale, y_scale) > 1) return {source, source};
  const Size scaled = {Rounded(source.width * x_scale), Rounded(source.height * y_scale)};
  if (fit != Fit::kCover) return {scaled, scaled};
  const auto taken = [](int extent, double wanted) {
    return wanted > 0 ? std::min(extent, Rounded(wanted)) : extent;
  };
  return {scaled, {taken(scaled.width, wanted_width), taken(scaled.height, wanted_height)}};
}

Size LargestInside(const Size& size, double ratio) {
  const double width = size.height * ratio;
  return width <= size.width ? Size{std::min(Rounded(width), size.width), size.height}
                             : Size{size.width, std::min(Rounded(size.width / ratio), size.height)};
}

Size SmallestRound(const Size& size, double ratio) {
  const double width = size.height * ratio;
  return width >= size.width ? Size{std::max(Rounded(width), size.width), size.height}
                             : Size{size.width, std::max(Rounded(size.width / ratio), size.height)};
}

}  // namespace qel::compose
