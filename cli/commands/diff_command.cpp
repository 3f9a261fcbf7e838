#include <cmath>
#include <iomanip>
#include <iostream>

#include "cli/commands/command_table.h"
#include "cli/commands/compare.h"
#include "cli/operations.h"
#include "cli/session/limit_options.h"
#include "cli/session/picture_io.h"
#include "cli/terminal/errors.h"

namespace qel::cli {

int DiffCommand(const Words& words) {
  const Options options(words, KnownOptions("diff"));
  const std::vector<std::string>& files = options.Files();
  if (files.size() != 2) throw Failure(kUsage, "write qel diff A B [-o DIFFERENCE]");
  const int limit = options.Number("--limit", 0, 255, 0);
  if (options.Has("-o")) {
    CheckOutputName(options.Value("-o"));
    CheckOutputIsApart(options.Value("-o"), files);
  }
  const pictures::ReadOptions reading{.limits = LimitsFrom(options)};
  const Picture a = LoadPicture(files[0], reading);
  const Picture b = LoadPicture(files[1], reading);
  const std::string obstacle = WhyNotComparable(*a.image, *b.image);
  if (!obstacle.empty()) throw Failure(kUsage, "these pictures cannot be compared: {}", obstacle);

  const Comparison comparison = Compare(*a.image, *b.image, limit);
  if (options.Has("-o")) {
    SavePicture(options.Value("-o"), *DrawDifference(*a.image, *b.image, comparison.largest), {},
                {});
  }
  const bool equal = comparison.differing_pixels == 0;
  if (options.Has("--json")) {
    JsonObject object;
    object.Flag("equal", equal)
        .Flag("exact", comparison.largest == 0)
        .Number("differing_pixels", comparison.differing_pixels)
        .Number("pixels", comparison.pixels)
        .Number("maximum_difference", comparison.largest)
        .Json("psnr", std::isinf(comparison.psnr) ? "null" : JsonReal(comparison.psnr));
    std::cout << object.Line();
    return equal ? kDone : kSomeFailed;
  }
  std::cout << (comparison.largest == 0 ? "exact"
                : equal                 ? "equal within the limit"
                                        : "different")
            << "\n"
            << "differing pixels    " << comparison.differing_pixels << " of " << comparison.pixels
            << "\n"
            << "maximum difference  " << comparison.largest << "\n"
            << "PSNR                ";
  if (std::isinf(comparison.psnr)) {
    std::cout << "infinite\n";
  } else {
    std::cout << std::fixed << std::setprecision(2) << comparison.psnr << " dB\n";
  }
  return equal ? kDone : kSomeFailed;
}

}  // namespace qel::cli
