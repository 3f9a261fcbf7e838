#include "cli/commands.h"
#include "cli/errors.h"
#include "cli/options.h"
#include "cli/session.h"

namespace qel::cli {

int RunCommand(const Words& words) {
  const Options options(words, {{"-o", Options::Takes::kValue},
                                {"--keep-depth", Options::Takes::kNothing},
                                {"--quality", Options::Takes::kValue},
                                {"--module", Options::Takes::kValue}});
  if (options.rest().empty() || !options.Has("-o")) {
    throw Failure(kUsage, "write qel run INPUT -o OUTPUT STEP [STEP...]");
  }
  const std::string& input = options.rest().front();
  const std::string output = options.Value("-o");
  // Everything that can be known to be wrong is said before the first file is read.
  const std::vector<Step> steps = ParseSteps({options.rest().begin() + 1, options.rest().end()});
  CheckOutputName(output);
  pictures::ReadOptions reading;
  reading.keep_palette_depth = options.Has("--keep-depth");
  pictures::WriteOptions writing;
  writing.jpeg_quality = options.Number("--quality", 1, 100, writing.jpeg_quality);
  writing.webp_quality = options.Number("--quality", 1, 100, writing.webp_quality);

  const Session session(options.Value("--module"));
  Picture picture = LoadPicture(input, reading);
  PictureSource second_pictures(reading);
  picture.image = session.Run(steps, std::move(picture.image), second_pictures);
  SavePicture(output, *picture.image, picture.metadata, writing);
  return kDone;
}

}  // namespace qel::cli
