#include <cmath>
#include <cstring>
#include <limits>

#include "tests/support/module_under_test.h"
#include "tests/support/oracle_transform.h"

namespace qel::test {
namespace {

class Warp : public OperationTest {
 protected:
  IQELTransform& transform() { return *module_->transform; }
};
QEL_INSTANTIATE_LEVELS(Warp);

TEST_P(Warp, SkewEqualsItsOracle) {
  constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
  constexpr float kGains[] = {0, 0.5f, -0.5f, 1, 3e9f, kNaN, -INFINITY, 1e-30f};
  for (uint64_t seed = 0; seed < 12; ++seed) {
    ForEachRaster(seed, kAllDepths, [&](const Raster& raster, Rng& rng) {
      const auto gain = [&] { return rng.OneIn(3) ? kGains[rng.Int(0, 7)] : rng.Float(-1, 1); };
      const auto pivot = [&] {
        return rng.OneIn(3) ? 0 : rng.OneIn(8) ? INT32_MIN + rng.Int(0, 1) : rng.Int(-20, 120);
      };
      const float gain_x = gain(), gain_y = gain();
      const int pivot_x = pivot(), pivot_y = pivot(), opaque = rng.Int(0, 1);
      ExpectSame(
          {raster},
          [&](auto images, IQEL** result) {
            return transform().Skew(images[0], result, gain_x, gain_y, pivot_x, pivot_y, 77,
                                    opaque);
          },
          [&](auto images, Raster& result) {
            return oracle::Skew(images[0], result, gain_x, gain_y, pivot_x, pivot_y, opaque);
          });
    });
    if (HasFailure()) return;
  }
}

TEST_P(Warp, QuadEqualsItsOracle) {
  for (uint64_t seed = 0; seed < 40; ++seed) {
    ForEachRaster(seed, kAllDepths, [&](const Raster& raster, Rng& rng) {
      const double w = raster.width, h = raster.height;
      oracle::Corners c = {0, 0, w, 0, 0, h, w, h};
      const float reach = rng.OneIn(3) ? 0.0f : rng.OneIn(2) ? 3.0f : 40.0f;
      for (double* v : {&c.x1, &c.y1, &c.x2, &c.y2, &c.x3, &c.y3, &c.x4, &c.y4}) {
        *v += static_cast<double>(rng.Float(-reach, reach));
        if (rng.OneIn(60)) *v = rng.OneIn(2) ? 32767.9 : -32768;
        if (rng.OneIn(400)) *v = rng.OneIn(2) ? 1e12 : std::nan("");
      }
      if (rng.OneIn(6)) c.x3 = c.x1, c.y3 = c.y1;
      const auto size = [&](int derived) {
        return static_cast<uint32_t>(rng.OneIn(3) ? derived : rng.Int(1, 150));
      };
      const uint32_t new_width = size(rng.OneIn(2) ? 0 : 65536), new_height = size(0);
      const auto blend = static_cast<int16_t>(rng.Int(-1, 1));
      ExpectSame(
          {raster},
          [&](auto images, IQEL** result) {
            return transform().Quad(images[0], result, c.x1, c.y1, c.x2, c.y2, c.x3, c.y3, c.x4,
                                    c.y4, new_width, new_height, blend);
          },
          [&](auto images, Raster& result) {
            return oracle::Quad(images[0], result, c, new_width, new_height, blend);
          });
    });
    if (HasFailure()) return;
  }
}

}  // namespace
}  // namespace qel::test
