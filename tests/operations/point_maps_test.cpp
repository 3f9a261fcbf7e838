#include "operations/point_maps.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "operations/arguments.h"

namespace qel::operations {
namespace {

MapPoint Mapped(PointMap* map, MapPoint units, double x, double y) {
  const auto owner = SmartPtr<PointMap>::Adopt(map);
  double z = 0;
  owner->SetUnits(units);
  EXPECT_EQ(owner->TransformPoint(&x, &y, &z), kOk);
  return {x, y};
}

TEST(PointMaps, ApplyTheirFormulas) {
  const struct {
    PointMap* map;
    MapPoint units, expected;
  } cases[] = {
      {new AffineMap({1, 2, 3, 4, 5, 6}), {1, 1}, {1 * 2 + 2 * 3 + 3, 4 * 2 + 5 * 3 + 6}},
      {new AffineMap({0, 1, 0, 1, 0, 0.5}), {10, 20}, {1.5, 14}},
      {new ProjectiveMap({1, 0, 0, 0, 1, 0, 1, 1, -1}), {1, 1}, {0.5, 0.75}},
      {new PolynomialMap({1, 2, 3, 4, 5, 6, 0, 0, 0, 1, 0, 0}),
       {1, 1},
       {1 + 2 * 2 + 3 * 3 + 4 * 4 + 5 * 6 + 6 * 9, 4}},
  };
  for (const auto& c : cases) {
    const MapPoint mapped = Mapped(c.map, c.units, 2, 3);
    EXPECT_DOUBLE_EQ(mapped.x, c.expected.x);
    EXPECT_DOUBLE_EQ(mapped.y, c.expected.y);
  }
  EXPECT_EQ(PolynomialMap::DegreeOf(20), 3);
  EXPECT_EQ(PolynomialMap::DegreeOf(8), -1);
}

TEST(PointMaps, ReadNumbersBetweenAnySeparatorsInRows) {
  const NumberRows read = ParseNumbers(" 1,-2.5;+3e2\n\n,4 ");
  EXPECT_EQ(read.numbers, (std::vector<double>{1, -2.5, 300, 4}));
  EXPECT_EQ(read.lengths, (std::vector<size_t>{2, 1, 1}));
  EXPECT_TRUE(ParseNumbers(" ").lengths.empty());
  EXPECT_THROW(ParseNumbers("1,two"), std::invalid_argument);
  EXPECT_THROW(ParseNumbers("1.2.3"), std::invalid_argument);
}

}  // namespace
}  // namespace qel::operations
