#include "docs/generator/page.h"
#include "transform/resample/resample_plan.h"
#include "transform/rotate/rotate_plan.h"
#include "transform/warp/circle_plan.h"

namespace qel::docs {
namespace {

/// A picture of 24 bits, for plans; its memory is not looked at.
ImageView ViewOf(int width, int height) {
  static uint8_t pixel;
  ImageView view;
  static_cast<ImageShape&>(view) = {width, height, 1, 24, 0};
  view.bits = &pixel;
  return view;
}
/// The built-in picture.
ImageView ExamplePicture() { return ViewOf(160, 106); }

}  // namespace

std::vector<Page> TransformPages() {
  return {
      {"flip", "`out(x, y) = in(x, height - 1 - y)`, whole rows with their padding.",
       "A copy of each row."},
      {"mirror", "`out(x, y) = in(width - 1 - x, y)`.", "One pass; rows are turned in registers."},
      {"flip-bits", "Exchanges the first and the third byte of every pixel.", "One pass in place."},
      {"flip-image-and-bits",
       "[flip](flip.md) and [flip-bits](flip-bits.md) in place. Alpha stays where it is.",
       "One pass in place, two rows at a time."},
      {"increase-bpp",
       "8-bit indices become the colours of the picture's palette, or greys without one; 24 bits "
       "become 32.",
       "One pass.", QEL_EXAMPLE(return transform->IncreaseBpp(image, result, 32, kModelArgb);)},
      {"resample",
       "Enlarging reads `(x + 0.5) * w / w' - 0.5` and the same down, and weighs 4 x 4 pixels (12 "
       "x 12 by method 5) by the kernel of the method; method 0 copies the nearest. Shrinking "
       "along both axes is the mean over boxes of whole pixels.",
       CostOf(kResampleMethods,
              TextOf(kResampleMethods,
                     PlanResample(ExamplePicture(), ViewOf(176, 117), 14, false).method)),
       QEL_EXAMPLE(return transform->Resample(image, result, 176, 117, 14, 0);)},
      {"rotate",
       "Every pixel of the result is turned back about the centre, and the source is read there by "
       "the method. 90, 180 and 270 degrees are exact turns.",
       "Quarter turns go by tiles that are transposed in registers. Other angles take positions of "
       "whole rows in vectors, and are sampled " +
           CostOf(kRotateMethods,
                  TextOf(kRotateMethods, PlanRotate(ExamplePicture(), 3, false).method))},
      {"rotate-paste",
       "Like [rotate](rotate.md), of the second picture into the top-left of this one: blended by "
       "its alpha, or leaving out a key colour at 24 bits. The angle is in radians in C++.",
       "As rotate, and a blend.",
       QEL_EXAMPLE(
           return transform->RotatePaste(other, image, 20 * 3.14159265358979323846 / 180, 4, -1);)},
      {"skew",
       "`out(x, y) = in(x + x_gain * (y - y_pivot), y + y_gain * (x - x_pivot))`, truncated.",
       "One scattered read a pixel."},
      {"quad",
       "Each pixel of the result divides the sides of the quadrilateral in its own proportions and "
       "reads where they meet: the nearest pixel, or four blended ones.",
       "One or four scattered reads a pixel.",
       QEL_EXAMPLE(return transform->Quad(image, result, 16, 15.9, 152, 5.3, 8, 95.4, 128, 100.7, 0,
                                          0, 1);)},
      {"transform",
       "`out(x, y) = in(floor(map(x, y)))` for a map of your own: one call for each pixel, row by "
       "row.",
       "Your calls; the rest is one read a pixel.",
       QEL_EXAMPLE(return transform->Transform(map, image, result, 0, 0, 0, 0, 0, 0);)},
      {"transform-paste",
       "Sends every pixel through a map of your own into another picture of the same depth; holes "
       "that remain can be filled from their neighbours.",
       "Your calls; the rest is one write a pixel.",
       QEL_EXAMPLE(return transform->TransformPaste(map, image, other, 0, 0, 0, 0);)},
      {"circle",
       "With the radius `r` about the centre and half the diagonal `R`: bulge reads `r * r / R`, "
       "pinch `sqrt(R * r)`, swirl turns by `r / (factor * R / 2)` radians, unwrap reads column "
       "`width * |a| / (2 pi)` and row `height * r / R` at the angle `a`, fold reads column "
       "`x - 16 + x mod 32`.",
       CostOf(kCircleMethods,
              TextOf(kCircleMethods, PlanCircle(Circle(ExamplePicture(), kCircleSwirl, 1.5f),
                                                ExamplePicture(), false)
                                         .method))},
  };
}

}  // namespace qel::docs
