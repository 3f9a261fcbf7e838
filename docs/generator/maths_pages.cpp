#include "docs/generator/page.h"

namespace qel::docs {

std::vector<Page> MathsPages() {
  return {
      {"equal",
       "Every pixel, or those that the mask selects, become one value: a byte, three bytes "
       "(highest first), or a word.",
       "One pass.", QEL_EXAMPLE(return maths->Equal(image, mask, int(0xFF204080));), true},
      {"copy",
       "`dest(x + i, y + j) = source(i, j)`, converted where depths differ: greys become three "
       "equal channels, colours the truncated mean.",
       "One pass over what is pasted.",
       QEL_EXAMPLE(return maths->Copy(image, other, nullptr, 80, 33);)},
      {"add-scale",
       "`v' = clamp(trunc(a * factor + b * with_factor + offset))` in single precision.",
       "One pass over both.",
       QEL_EXAMPLE(return maths->AddScale(image, image, other, nullptr, 0.7f, 0.6f, 0);)},
      {"scale",
       "`v' = clamp(trunc(v * factor + offset))` in single precision; a colour that becomes a grey "
       "is averaged first.",
       "8-bit channel values go through a table of 256 results; one pass.",
       QEL_EXAMPLE(const result_t made = maths->CreateDestImage(result, image, 24, kModelBgr);
                   return Failed(made) ? made : maths->Scale(*result, image, nullptr, 1.4f, -30);)},
      {"subtract",
       "`v' = max(a - b, 0)`, or `|a - b|`. Returns how many channel values differ by 2 or more, "
       "at 24 and 32 bits.",
       "One pass over both; the tally is summed along the way.",
       QEL_EXAMPLE(return maths->Subtract(image, image, other, 1);)},
      {"create-dest-image", "A new picture of the same size, in another depth if one is given.",
       "The host's `Create`.",
       QEL_EXAMPLE(return maths->CreateDestImage(result, image, 8, int(kModelMono));)},
      {"add", "`v' = clamp(trunc((a + b) / divisor))`; 0 means no division, and 2 multiplies by 4.",
       "511 sums have a table; one pass over both.",
       QEL_EXAMPLE(return maths->Add(empty, image, other, 1.5f);)},
      {"scale8",
       "`v' = clamp(trunc(v * factor) + offset)` of signed 32-bit integers `v`, in double "
       "precision.",
       "One pass.",
       QEL_EXAMPLE(SmartPtr<IQEL> integers;
                   maths->CreateDestImage(integers.Put(), image, 0, int(kModelMono));
                   maths->Copy(integers.Get(), image, nullptr, 0, 0);
                   return maths->Scale8(empty, integers.Get(), 256, 0.0000152587890625);)},
  };
}

}  // namespace qel::docs
