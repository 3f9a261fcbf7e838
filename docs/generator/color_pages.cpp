#include "docs/generator/page.h"

namespace qel::docs {

std::vector<Page> ColorPages() {
  return {
      {"lut", "`v' = table[v]` for every colour byte; alpha stays.",
       "One pass in place; a table lookup a byte, 64 at a time where the processor permutes bytes.",
       QEL_EXAMPLE(uint8_t table[256]; for (int i = 0; i < 256; ++i) {
         const double left[] = {0, 60, 200}, right[] = {60, 200, 255};
         const int piece = i == 255 ? 2 : i / 85;
         const double share = i / 85.0 - piece;
         table[i] = uint8_t(left[piece] * (1 - share) + right[piece] * share + 0.5);
       } return color->Lut(image, table);)},
      {"negative", "`v' = 255 - v` for every colour byte; alpha stays.", "One pass in place."},
      {"light",
       "`v' = clamp(trunc((v - 128) * (100 + contrast) / 100 + brightness + 128))`, in single "
       "precision, for every colour byte.",
       "A table of 256 bytes, then one pass in place."},
      {"gamma",
       "`v' = clamp(trunc(255 * (v / 255) ^ (1 / gamma)))` for every colour byte, computed as "
       "`v^e / (255^e / 255)` in double precision with `e` in single.",
       "A table of 256 powers, then one pass in place."},
      {"shift-rgb",
       "`r' = clamp(r + red)`, and so for green and blue. Palette depths take the grey nearest to "
       "the shifted colour.",
       "One pass in place: a saturating addition and a saturating subtraction."},
      {"gray-scale",
       "24 and 32 bits: `grey = (b + g + r) / 3`, truncated; alpha stays. 8 bits: `v'[x] = "
       "(117 v[x] + 601 v[x + 1] + 306 v[x + 2]) >> 10`.",
       "One pass into a new image, which the host assigns to the old one."},
      {"threshold",
       "[gray-scale](gray-scale.md), then white where the sum of the channels exceeds `3 * level`, "
       "else black; alpha stays.",
       "The two passes of gray-scale and one in place."},
      {"colorize",
       "Lightness `l = ((max + min + 1) >> 1) / 255`; the colour of that lightness with the given "
       "hue (360 / 255 degrees a step) and saturation, `v' = (new * w + v * (256 - w)) >> 8` with "
       "`w = trunc(256 * blend)`; above a blend of 0.999 the new colour itself.",
       "256 colours in single precision, then one pass in place: three table lookups and a mix."},
      {"set-image-alpha", "`a' = alpha`, with 0 stored as 1.", "One pass in place."},
      {"set-image-transparent-pixel",
       "`a' = 0` where the colour equals the key, which has red in its low byte.",
       "One pass in place.", QEL_EXAMPLE(return color->SetImageTransparentPixel(image, 0xFFFFFF);)},
      {"set-image-alpha-transparency",
       "`a' = 0` where the colour equals the key, else `alpha`, with 0 stored as 1. The key has "
       "red in its low byte.",
       "One pass in place.",
       QEL_EXAMPLE(return color->SetImageAlphaTransparency(image, 200, 0xFFFFFF);)},
  };
}

}  // namespace qel::docs
