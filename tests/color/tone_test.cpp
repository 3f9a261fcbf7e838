#include "tests/support/module_under_test.h"

namespace qel::test {
namespace {

class Tone : public OperationTest {};
QEL_INSTANTIATE_LEVELS(Tone);

TEST_P(Tone, NegativeComplementsColourBytesOnly) {
  ForEachRaster(1, kAllDepths, [&](const Raster& raster, Rng&) {
    ExpectSame(
        {raster}, [&](auto images, IQEL**) { return module_->color->Negative(images[0]); },
        [](auto images, Raster&) {
          Raster& image = images[0];
          const bool known = image.bit_count == 8 || image.bit_count == 24 || image.bit_count == 32;
          for (int y = 0; known && y < image.height; ++y) {
            for (int x = 0; x < image.RowBytes(); ++x) {
              if (image.bit_count != 32 || x % 4 != 3) image.Row(y)[x] ^= 0xFF;
            }
          }
          return kOk;
        });
  });
}

}  // namespace
}  // namespace qel::test
