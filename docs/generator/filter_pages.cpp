#include "docs/generator/page.h"

namespace qel::docs {
namespace {

constexpr std::string_view kPairs =
    "Few weights go two by two as products of bytes with 16-bit sums; linear in the pixels.";

}  // namespace

std::vector<Page> FilterPages() {
  return {
      {"erode",
       "`v' = min` of the channel over `size` x `size` pixels; even sizes reach one further up and "
       "left. Alpha is that of the last pixel of the square.",
       "Hardly grows with the size: rows are combined in groups that share a core, columns by "
       "doubling.",
       QEL_EXAMPLE(return filter->Erode(image, 5, result);)},
      {"dilate",
       "`v' = max` of the channel over `size` x `size` pixels, else as [erode](erode.md).",
       "As erode.", QEL_EXAMPLE(return filter->Dilate(image, 5, result);)},
      {"edge",
       "`v' = max - min` of the channel over `size` x `size` pixels, else as [erode](erode.md).",
       "Twice erode, reading the picture once.",
       QEL_EXAMPLE(return filter->Edge(image, 3, result);)},
      {"filter",
       "`v' = clamp(sum(weight * v) / divisor + offset)`; the division truncates and is left out "
       "for "
       "a divisor of 0. Kernels are not mirrored. Sums wrap at 32 bits.",
       "The shortest of five ways for the kernel: pairs of weights, a row times a column, sliding "
       "boxes, four weights an instruction, or one by one.",
       QEL_EXAMPLE(int kernel[] = {0, -1, 0, -1, 5, -1, 0, -1, 0};
                   return filter->Filter(image, kernel, 3, 1, 0, result);)},
      {"contour",
       "Over the eight neighbours, column by column: `kept` starts at 0; where `neighbour - centre "
       "> "
       "kept`, `kept = neighbour`. `v' = 255 - kept`. Alpha is the centre's.",
       "Eight comparisons a byte; linear in the pixels.",
       QEL_EXAMPLE(return filter->Contour(image, result);)},
      {"jitter",
       "Each pixel becomes that at `(x + dx, y + dy)`, `dx` and `dy` drawn by `rand` from "
       "`-amount` to `amount`.",
       "Two calls of `rand` a pixel, which is nearly all.",
       QEL_EXAMPLE(return filter->Jitter(image, 6, result);)},
      {"noise",
       "`v' = clamp(v + d)`, `d` drawn by `rand` for each channel from `-amount / 2` to `amount / "
       "2`, red first.",
       "Three calls of `rand` a pixel, which is nearly all.",
       QEL_EXAMPLE(return filter->Noise(image, 80, result);)},
      {"median",
       "The pixels of the square in the order of their brightness `(117 b + 601 g + 306 r) >> 10`, "
       "equal ones column by column: the one in the middle, alpha included. No colours are mixed.",
       "Networks up to size 5; up to 15 the brightness is found bit by bit with counts of columns; "
       "beyond, a histogram slides. Grows less than the size squared.",
       QEL_EXAMPLE(return filter->Median(image, 5, result);)},
      {"emboss", "Kernel `0 0 -1; 0 0 0; 1 0 0`, offset 127. See [filter](filter.md).", kPairs,
       QEL_EXAMPLE(return filter->Emboss(image, result);)},
      {"blur", "Kernel `1 1 1; 1 1 1; 1 1 1`, divisor 9. See [filter](filter.md).", kPairs,
       QEL_EXAMPLE(return filter->Blur(image, result);)},
      {"soften", "Kernel `1 1 1; 1 8 1; 1 1 1`, divisor 16. See [filter](filter.md).", kPairs,
       QEL_EXAMPLE(return filter->Soften(image, result);)},
      {"sharpen", "Kernel `-1 -1 -1; -1 15 -1; -1 -1 -1`, divisor 7. See [filter](filter.md).",
       kPairs, QEL_EXAMPLE(return filter->Sharpen(image, result);)},
      {"gaussian-blur",
       "Level 0: `1 2 1; 2 4 2; 1 2 1`, divisor 16. Levels 1 to 3: 5 x 5 weights with divisors 52, "
       "273 and 159. See [filter](filter.md).",
       kPairs, QEL_EXAMPLE(return filter->GaussianBlur(image, 3, result);)},
  };
}

}  // namespace qel::docs
