#ifndef QEL_OPERATIONS_POINT_MAPS_H_
#define QEL_OPERATIONS_POINT_MAPS_H_

#include <array>
#include <vector>

#include "host/host_object.h"
#include "qel/smart_ptr.h"
#include "qel/transform.h"

namespace qel::operations {

struct MapPoint {
  double x, y;
};

/// A ready-made coordinate transform. Its formula sees coordinates in units of its own: pixels, or
/// shares of a picture.
class PointMap : public host::HostObject<ITransform> {
 public:
  /// Lengths of the units, in pixels.
  void SetUnits(MapPoint units) { units_ = units; }
  result_t TransformPoint(double* x, double* y, double* z) final;

 protected:
  virtual MapPoint Map(const MapPoint& point) const = 0;

 private:
  MapPoint units_{1, 1};
};

/// x' = a x + b y + c and y' = d x + e y + f.
class AffineMap final : public PointMap {
 public:
  static constexpr size_t kNumbers = 6;
  /// `numbers` are a to f.
  explicit AffineMap(const std::vector<double>& numbers) : m_(numbers) {}

 private:
  MapPoint Map(const MapPoint& p) const override;
  const std::vector<double> m_;
};

/// The three rows of a matrix, applied to (x, y, 1); the third result divides the others.
class ProjectiveMap final : public PointMap {
 public:
  static constexpr size_t kNumbers = 9;
  explicit ProjectiveMap(const std::vector<double>& numbers) : m_(numbers) {}

 private:
  MapPoint Map(const MapPoint& p) const override;
  const std::vector<double> m_;
};

/// Polynomials for x' and y', terms in the order 1, x, y, x^2, xy, y^2, x^3, ...
class PolynomialMap final : public PointMap {
 public:
  static constexpr int kLargestDegree = 8;
  static constexpr size_t Terms(int degree) {
    return static_cast<size_t>((degree + 1) * (degree + 2) / 2);
  }
  /// `numbers` are the factors of x', then those of y': twice `Terms` of a degree.
  explicit PolynomialMap(const std::vector<double>& numbers) : factors_(numbers) {}
  /// The degree that needs so many numbers for both; -1 when there is none.
  static int DegreeOf(size_t numbers);

 private:
  MapPoint Map(const MapPoint& p) const override;
  const std::vector<double> factors_;
};

}  // namespace qel::operations

#endif  // QEL_OPERATIONS_POINT_MAPS_H_
