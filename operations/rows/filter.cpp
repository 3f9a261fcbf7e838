#include <cmath>
#include <cstdlib>
#include <limits>
#include <numeric>
#include <string>

#include "operations/rows/common.h"
#include "operations/table.h"
#include "operations/text/numbers.h"

namespace qel::operations {
namespace {

constexpr std::string_view kFilterComponent = "QELFilterTransform";
constexpr std::string_view kBorder =
    "Outside the picture its top-left pixel stands in, with alpha 1: along the edges a frame of "
    "its colour may show.";
constexpr Choice kSeeds[] = {{"per-file", -1}};

/// A square of whole numbers, row by row.
struct Kernel {
  std::vector<int> weights;
  int size;
};

/// The kernel of a step. Throws `StepError` for numbers that are not whole or do not fit 32 bits,
/// and for others than a square of them; where rows are parted, each must be as long as there are
/// rows.
Kernel KernelOf(const Given& given) {
  const auto refuse = [&](const std::string& message) {
    Refuse(given, "kernel: " + message, "kernel");
  };
  const std::vector<double>& numbers = given.arguments.Numbers("kernel");
  using Limits = std::numeric_limits<int>;
  for (const double number : numbers) {
    if (number >= Limits::min() && number <= Limits::max() && number == std::floor(number))
      continue;
    refuse(FormatReal(number) + " is no whole number of 32 bits");
  }
  const std::string count = std::to_string(numbers.size());
  const auto side = static_cast<size_t>(std::lround(std::sqrt(numbers.size())));
  if (side == 0 || side * side != numbers.size()) {
    refuse(count + " weights are no square; 9, 25 or 49 would be");
  }
  const std::vector<size_t>& rows = given.arguments.RowLengths("kernel");
  for (const size_t row : rows) {
    if (rows.size() == 1 || (rows.size() == side && row == side)) continue;
    refuse(count + " weights need rows of " + std::to_string(side) + ", one has " +
           std::to_string(row));
  }
  return {{numbers.begin(), numbers.end()}, static_cast<int>(side)};
}

result_t CallFilter(Call& call) {
  Kernel kernel = KernelOf(call);
  const int divisor =
      call.arguments.Has("divisor")
          ? call.arguments.Int("divisor")
          : static_cast<int>(std::accumulate(kernel.weights.begin(), kernel.weights.end(), 0u));
  return call.components.filter->Filter(call.image, kernel.weights.data(), kernel.size, divisor,
                                        call.arguments.Int("offset"), call.result);
}

constexpr int kSeedPerFile = kSeeds[0].value;

/// A number that depends on every byte of the rows (Fowler, Noll and Vo, 1991).
unsigned HashOf(IQEL& image) {
  const Shape shape = ShapeOf(image);
  uint8_t* bits = nullptr;
  int stride = 0, unread = 0;
  image.GetBits(0, &unread, &bits, &stride);
  uint32_t hash = 2166136261u;
  for (int y = 0; y < shape.height; ++y) {
    const uint8_t* const row = bits + int64_t{y} * stride;
    for (int64_t i = 0; i < int64_t{shape.width} * shape.bits / 8; ++i) {
      hash = (hash ^ row[i]) * 16777619u;
    }
  }
  return hash;
}

/// Picks the sequence that `rand` gives, where one is asked for.
void Seed(const Call& call) {
  if (call.arguments.Has("seed") && call.arguments.Int("seed") == kSeedPerFile) {
    std::srand(HashOf(*call.image));
    return;
  }
  if (call.arguments.Has("seed")) std::srand(static_cast<unsigned>(call.arguments.Int("seed")));
}

const Parameter kSize = {.name = "size",
                         .help = "columns and rows of the neighbourhood",
                         .standard = "3",
                         .minimum = 1,
                         .usual = {1, 31},
                         .unit = "pixels"};
const Parameter kSeed = {.name = "seed",
                         .help = "picks the random sequence, per-file by the pixels",
                         .minimum = 0,
                         .usual = {0, 1000},
                         .choices = kSeeds,
                         .optional = true};
const Surprise kSameRandom = {
    "Every picture gets the same random numbers; seed=per-file gives each its own.",
    [](const Given& given, const Shape&) { return !given.arguments.Has("seed"); }};
const Surprise kFrame = {kBorder, &Always};

Border BorderOfSize(const Given& given, const Shape&) {
  return SquareOf(given.arguments.Int("size"));
}
Border BorderOfKernel(const Given& given, const Shape&) { return SquareOf(KernelOf(given).size); }

/// A row of a filter over 3 x 3 pixels, without arguments.
Operation Plain(std::string_view name, std::string_view summary, std::string_view method) {
  return {.name = name,
          .component = kFilterComponent,
          .summary = summary,
          .depths = kAllDepths,
          .example = name,
          .surprises = {kFrame},
          .border = [](const Given&, const Shape&) { return SquareOf(3); },
          .fills_result = true,
          .method = &MethodNamed(method)};
}

/// A row of a filter that draws from `rand`.
Operation Random(std::string_view name, std::string_view summary, std::string_view example,
                 std::string_view note, std::string_view method, Parameter amount) {
  amount.name = "amount";
  return {.name = name,
          .component = kFilterComponent,
          .summary = summary,
          .depths = kAllDepths,
          .random = true,
          .parameters = {amount, kSeed},
          .example = example,
          .note = note,
          .surprises = {kSameRandom},
          .positional = "amount",
          .method = &MethodNamed(method),
          .numbers = {"amount"},
          .prepare = &Seed};
}

/// A row of a filter over a neighbourhood of a given size.
Operation Sized(std::string_view name, std::string_view summary, std::string_view example,
                std::string_view method) {
  Operation row = Plain(name, summary, method);
  row.parameters = {kSize};
  row.border = &BorderOfSize;
  row.example = example;
  return row;
}

/// Of operations that tell the color channels apart.
Operation InOrder(Operation row) {
  row.channel_order = ChannelOrder::kBlueGreenRed;
  return row;
}

}  // namespace

std::vector<Operation> FilterOperations() {
  return {
      Sized("erode", "Takes the minimum of each channel over a square.", "erode size=5", "Erode"),
      Sized("edge", "Takes the maximum minus the minimum of each channel over a square.",
            "edge size=3", "Edge"),
      Sized("dilate", "Takes the maximum of each channel over a square.", "dilate size=5",
            "Dilate"),
      {.name = "filter",
       .component = kFilterComponent,
       .summary = "Weighs each neighbourhood by a kernel of whole numbers.",
       .depths = kAllDepths,
       .parameters = {{.name = "kernel",
                       .kind = Kind::kNumbers,
                       .help = "rows of weights, as \"0 -1 0; -1 5 -1; 0 -1 0\""},
                      {.name = "divisor",
                       .help = "divides the sums, 0 does not; left out: the sum of the weights",
                       .usual = {1, 256},
                       .optional = true},
                      {.name = "offset",
                       .help = "added after dividing",
                       .standard = "0",
                       .usual = {-255, 255}}},
       .example = "filter 'kernel=0 -1 0; -1 5 -1; 0 -1 0'",
       .surprises = {kFrame},
       .border = &BorderOfKernel,
       .fills_result = true,
       .call = &CallFilter,
       .check = [](const Given& given) { KernelOf(given); }},
      Plain("contour", "Draws contours, dark on white.", "Contour"),
      Random("jitter", "Replaces each pixel by one nearby, at random.", "jitter amount=6",
             "Pixels that would come from outside stay.", "Jitter",
             {.help = "farthest distance in columns and in rows",
              .standard = "4",
              .usual = {0, 64},
              .unit = "pixels"}),
      InOrder(Random("noise", "Adds a random offset to each channel.", "noise amount=80",
                     "Grey pictures take the grey nearest to the noisy colour.", "Noise",
                     {.help = "span of the offsets, half of it either way",
                      .standard = "40",
                      .usual = {0, 255}})),
      InOrder(Sized("median", "Takes the pixel of middle brightness over a square.",
                    "median size=5", "Median")),
      Plain("emboss", "Relief on grey, lit from the bottom left.", "Emboss"),
      Plain("blur", "Mean over 3 x 3 pixels.", "Blur"),
      Plain("soften", "Mean over 3 x 3 pixels with half of the weight on the middle.", "Soften"),
      Plain("sharpen", "Sharpens over 3 x 3 pixels.", "Sharpen"),
      {.name = "gaussian-blur",
       .component = kFilterComponent,
       .summary = "One of four Gaussian blurs.",
       .depths = kAllDepths,
       .parameters = {{.name = "level",
                       .help = "0 spans 3 x 3 pixels, 1 to 3 span 5 x 5",
                       .standard = "3",
                       .minimum = 0,
                       .maximum = 3}},
       .example = "gaussian-blur level=3",
       .surprises = {{"Level 2 is a little lopsided and darkens by 2 percent.",
                      [](const Given& given, const Shape&) {
                        return given.arguments.Int("level") == 2;
                      }},
                     kFrame},
       .border = [](const Given& given,
                    const Shape&) { return SquareOf(given.arguments.Int("level") == 0 ? 3 : 5); },
       .fills_result = true,
       .method = &MethodNamed("GaussianBlur")},
  };
}

}  // namespace qel::operations
