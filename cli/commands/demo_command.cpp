#include <algorithm>
#include <filesystem>
#include <iostream>

#include "cli/commands/command_table.h"
#include "cli/drawing/demo_scene.h"
#include "cli/drawing/picture_sheet.h"
#include "cli/operations.h"
#include "cli/session/session.h"
#include "cli/terminal/errors.h"

namespace qel::cli {
namespace {

constexpr int kSheetColumns = 3;

SmartPtr<host::HostImage> DrawScene() {
  SmartPtr<host::HostImage> scene = MakeImage(kDemoWidth, kDemoHeight, 32);
  DrawDemoScene(CanvasOf(*scene));
  return scene;
}

/// A soft disc: the second picture of operations that take two, as colours and as a mask.
SmartPtr<host::HostImage> DrawDisc(int bit_count) {
  SmartPtr<host::HostImage> disc = MakeImage(kDemoWidth, kDemoHeight, bit_count);
  for (int y = 0; y < kDemoHeight; ++y) {
    for (int x = 0; x < kDemoWidth; ++x) {
      const int dx = x - kDemoWidth / 2, dy = y - kDemoHeight / 2;
      const int level = std::clamp(255 - (dx * dx + dy * dy) / 80, 0, 255);
      if (bit_count == 8) {
        disc->Row(y)[x] = static_cast<uint8_t>(level > 64 ? 255 : 0);
      } else {
        CanvasOf(*disc).Set(x, y, {level / 255.0, level / 400.0, 0.3, 1});
      }
    }
  }
  return disc;
}

}  // namespace

int DemoCommand(const Words& words) {
  const Options options(words, KnownOptions("demo"));
  if (!options.rest().empty()) throw Failure(kUsage, "qel demo takes no pictures");
  const std::filesystem::path folder = options.Value("-o", "qel-demo");
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error) throw Failure(kNoOutput, "{}: {}", folder.string(), error.message());

  const Session session(options.Value("--module"));
  const SmartPtr<host::HostImage> scene = DrawScene();
  PictureFiles second_pictures;
  second_pictures.Provide("other.png", DrawDisc(32));
  second_pictures.Provide("mask.png", DrawDisc(8));
  SavePicture((folder / "scene.png").string(), *scene, {}, {});

  std::vector<CaptionedPicture> results{{"before", AsColor(*scene)}};
  for (const Operation& operation : OperationTable()) {
    const auto result =
        session.Run(ParseSteps({std::string(operation.example)}), CopyOf(*scene), second_pictures);
    SavePicture((folder / (std::string(operation.name) + ".png")).string(), *result, {}, {});
    results.push_back({std::string(operation.example), AsColor(*result)});
  }
  SavePicture((folder / "before-after.png").string(), *MakeSheet(results, kSheetColumns), {}, {});
  std::cout << "Wrote " << results.size() + 1 << " pictures to " << folder.string()
            << "; see before-after.png first.\n";
  return kDone;
}

}  // namespace qel::cli
