#include <algorithm>
#include <filesystem>

#include "cli/batch/session.h"
#include "cli/commands/command_table.h"
#include "cli/drawing/picture_sheet.h"
#include "cli/terminal/errors.h"

namespace qel::cli {
namespace {

constexpr int kUsualColumns = 3;
constexpr int kMostColumns = 100;

std::vector<CaptionedPicture> LoadAll(const std::vector<std::string>& paths) {
  std::vector<CaptionedPicture> pictures;
  for (const std::string& path : paths) {
    pictures.push_back(
        {std::filesystem::path(path).filename().string(), LoadPicture(path, {}).image});
  }
  return pictures;
}

/// The picture as it came, then after each step. With `apart` every step starts from the first.
std::vector<CaptionedPicture> RunSteps(const std::string& path, const std::vector<Step>& steps,
                                       const std::string& module, bool apart) {
  const Session session(module);
  std::vector<CaptionedPicture> pictures = LoadAll({path});
  PictureFiles second_pictures;
  for (const Step& step : steps) {
    host::HostImage& source = *(apart ? pictures.front() : pictures.back()).image;
    auto result = session.Run({step}, CopyOf(source), second_pictures);
    pictures.push_back({step.text, std::move(result)});
  }
  return pictures;
}

}  // namespace

int SheetCommand(const Words& words) {
  const Options options(words, KnownOptions("sheet"));
  const std::vector<std::string>& rest = options.rest();
  if (rest.empty() || !options.Has("-o")) {
    throw Failure(kUsage,
                  "write qel sheet PICTURE... -o SHEET, or PICTURE --steps STEP... -o SHEET");
  }
  const std::string output = options.Value("-o");
  const int columns = options.Number("--columns", 1, kMostColumns, kUsualColumns);
  CheckOutputName(output);
  std::vector<Step> steps;
  if (options.Has("--steps")) steps = ReadSteps({rest.begin() + 1, rest.end()});
  const std::vector<std::string> captions = options.Values("--caption");
  const size_t count = options.Has("--steps") ? steps.size() + 1 : rest.size();
  if (captions.size() > count) {
    throw Failure(kUsage, "there are " + std::to_string(captions.size()) + " captions for " +
                              std::to_string(count) + " pictures");
  }
  std::vector<CaptionedPicture> pictures =
      options.Has("--steps")
          ? RunSteps(rest.front(), steps, options.Value("--module"), options.Has("--apart"))
          : LoadAll(rest);
  for (size_t i = 0; i < captions.size(); ++i) pictures[i].caption = captions[i];
  for (CaptionedPicture& picture : pictures) picture.image = AsColour(*picture.image);
  const int used_columns = std::min(columns, static_cast<int>(pictures.size()));
  SavePicture(output, *MakeSheet(pictures, used_columns), {}, {});
  return kDone;
}

}  // namespace qel::cli
