#include <cmath>

#include "tests/support/module_under_test.h"
#include "tests/support/oracle_transform.h"

namespace qel::test {
namespace {

class Circle : public OperationTest {
 protected:
  void ExpectOracle(const Raster& raster, int mode, int with_alpha, float factor) {
    SCOPED_TRACE(testing::Message() << "mode " << mode << ", factor " << factor);
    ExpectSame(
        {raster},
        [&](auto images, IQEL**) {
          return module_->deform->CircleTransform(images[0], mode, with_alpha, factor);
        },
        [&](auto images, Raster&) {
          return oracle::CircleTransform(images[0], mode, with_alpha, factor);
        });
  }
};
QEL_INSTANTIATE_LEVELS(Circle);

TEST_P(Circle, EqualsItsOracleAtEveryDepth) {
  constexpr float kFactors[] = {1, 0.3f, 5, -1, 0.01f, 0, INFINITY, 1e-9f};
  for (uint64_t seed = 0; seed < 12; ++seed) {
    ForEachRaster(seed, kAllDepths, [&](const Raster& raster, Rng& rng) {
      const int mode = rng.OneIn(8) ? INT32_MAX : rng.Int(-1, 5);
      ExpectOracle(raster, mode, rng.Int(0, 1), kFactors[rng.Int(0, 7)]);
    });
    if (HasFailure()) return;
  }
}

// The mappings are computed in other ways than they are defined: every pixel of many sizes.
TEST_P(Circle, EqualsItsOracleAtEverySize) {
  Rng rng(1);
  const int step = 7;
  for (int width = 1; width < 260; width += rng.Int(1, step)) {
    const int height = rng.OneIn(4) ? width : rng.Int(1, 260);
    // Neighbours differ everywhere, so that no wrong position goes unnoticed.
    Raster raster(rng, width, height, 32, kModelArgb, {});
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        const uint8_t pixel[] = {static_cast<uint8_t>(x), static_cast<uint8_t>(x >> 8),
                                 static_cast<uint8_t>(y), 9};
        std::copy(pixel, pixel + 4, raster.Row(y) + 4 * x);
      }
    }
    for (int mode = 0; mode < 5; ++mode) ExpectOracle(raster, mode, 0, rng.Float(0.05f, 3));
    if (HasFailure()) return;
  }
}

}  // namespace
}  // namespace qel::test
