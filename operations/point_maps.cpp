#include "operations/point_maps.h"

namespace qel::operations {

result_t PointMap::TransformPoint(double* x, double* y, double* /*z*/) {
  const MapPoint mapped = Map({*x / units_.x, *y / units_.y});
  *x = mapped.x * units_.x;
  *y = mapped.y * units_.y;
  return kOk;
}

MapPoint AffineMap::Map(const MapPoint& p) const {
  return {m_[0] * p.x + m_[1] * p.y + m_[2], m_[3] * p.x + m_[4] * p.y + m_[5]};
}

MapPoint ProjectiveMap::Map(const MapPoint& p) const {
  const auto row = [&](size_t i) { return m_[i] * p.x + m_[i + 1] * p.y + m_[i + 2]; };
  const double divisor = row(6);
  return {row(0) / divisor, row(3) / divisor};
}

int PolynomialMap::DegreeOf(size_t numbers) {
  for (int degree = 1; degree <= kLargestDegree; ++degree) {
    if (2 * Terms(degree) == numbers) return degree;
  }
  return -1;
}

MapPoint PolynomialMap::Map(const MapPoint& p) const {
  MapPoint sum{0, 0};
  const size_t terms = factors_.size() / 2;
  size_t term = 0;
  for (int degree = 0; term < terms; ++degree) {
    // x^degree first, then one x after the other becomes a y.
    for (int ys = 0; ys <= degree; ++ys, ++term) {
      double power = 1;
      for (int k = 0; k < degree; ++k) power *= k < degree - ys ? p.x : p.y;
      sum.x += factors_[term] * power;
      sum.y += factors_[term + terms] * power;
    }
  }
  return sum;
}

}  // namespace qel::operations
