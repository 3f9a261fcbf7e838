#include <algorithm>
#include <filesystem>

#include "cli/commands/command_table.h"
#include "cli/drawing/picture_sheet.h"
#include "cli/session/input_list.h"
#include "cli/session/limit_options.h"
#include "cli/session/session.h"
#include "cli/terminal/console.h"
#include "cli/terminal/errors.h"
#include "compose/placement.h"
#include "compose/resize.h"

namespace qel::cli {
namespace {

constexpr int kUsualColumns = 3;
constexpr int kMostColumns = 100;
constexpr int kLargestSize = 10000;

[[noreturn]] void RefuseSize(int64_t pixels, const pictures::Limits& limits) {
  throw Failure(
      kUsage,
      "the sheet would have {} pixels, more than the limit of {}; scale its pictures with "
      "--size N",
      pixels, limits.max_pixels);
}

/// The size of a picture that is scaled down to lie in `size` x `size` pixels; 0 leaves it.
compose::Size ThumbnailSize(const compose::Size& whole, int size) {
  if (size == 0) return whole;
  return compose::FitSize(whole, size, size, compose::Fit::kInside, false).scaled;
}

/// The picture in colours, scaled to a size.
SmartPtr<host::HostImage> Thumbnail(const host::HostImage& image, const compose::Size& small) {
  SmartPtr<host::HostImage> colors = AsColor(image);
  const compose::Size whole = {image.width(), image.height()};
  if (small == whole) return colors;
  SmartPtr<host::HostImage> scaled = MakeImage(small.width, small.height, 32);
  const compose::Resizer resizer({.source_width = whole.width,
                                  .source_height = whole.height,
                                  .width = small.width,
                                  .height = small.height,
                                  .dest_width = small.width,
                                  .dest_height = small.height});
  resizer.Run({colors->Bits(), colors->stride(), whole.width, whole.height, 4}, 0,
              {scaled->Bits(), scaled->stride(), small.width, small.height, 4}, 0);
  return scaled;
}

/// A file as a thumbnail. It may be decoded at less than its size, but at twice the thumbnail's.
SmartPtr<host::HostImage> LoadThumbnail(const std::string& path, int size,
                                        pictures::ReadOptions reading) {
  pictures::ByteSource file(path, reading.limits);
  const pictures::PictureInfo info = pictures::ReadPictureHeader(file, path, reading);
  const compose::Size whole = {info.width, info.height};
  const compose::Size small = ThumbnailSize(whole, size);
  reading.most_shrunk = std::min(whole.width / small.width, whole.height / small.height) / 2;
  return Thumbnail(*DecodePicture(file, path, reading).image, small);
}

std::vector<CaptionedPicture> LoadAll(const std::vector<std::string>& paths, int size,
                                      const pictures::ReadOptions& reading) {
  std::vector<CaptionedPicture> pictures;
  int64_t pixels = 0;
  for (const std::string& path : paths) {
    auto picture = LoadThumbnail(path, size, reading);
    pixels += int64_t{picture->width()} * picture->height();
    // Before memory is full of what will not fit.
    if (!reading.limits.AllowSize(1, pixels)) RefuseSize(pixels, reading.limits);
    pictures.push_back({std::filesystem::path(path).filename().string(), std::move(picture)});
  }
  return pictures;
}

/// The picture as it came, then after each step. With `apart` every step starts from the first.
std::vector<CaptionedPicture> RunSteps(const std::string& path, const std::vector<Step>& steps,
                                       const std::string& module, bool apart, int size,
                                       const pictures::ReadOptions& reading) {
  const Session session(module, reading.limits);
  std::vector<CaptionedPicture> pictures;
  pictures.push_back(
      {std::filesystem::path(path).filename().string(), LoadPicture(path, reading).image});
  PictureFiles second_pictures(reading);
  for (const Step& step : steps) {
    host::HostImage& source = *(apart ? pictures.front() : pictures.back()).image;
    std::vector<std::string> notes;
    auto result = session.Run({step}, CopyOf(source), second_pictures, notes);
    for (const std::string& note : SurprisesOf({step}, ShapeOf(source))) PrintNoteOnce(note);
    PrintNotes(path, notes);
    pictures.push_back({step.text, std::move(result)});
  }
  for (CaptionedPicture& picture : pictures) {
    const compose::Size whole = {picture.image->width(), picture.image->height()};
    picture.image = Thumbnail(*picture.image, ThumbnailSize(whole, size));
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
  if (options.Has("--no-notes")) SilenceNotes();
  const int size = options.Number("--size", 1, kLargestSize, 0);
  const int columns = options.Number("--columns", 1, kMostColumns, kUsualColumns);
  const pictures::ReadOptions reading{.limits = LimitsFrom(options)};
  CheckOutputName(output);
  std::vector<Step> steps;
  if (options.Has("--steps")) steps = ReadSteps({rest.begin() + 1, rest.end()});
  const std::vector<std::string> captions = options.Values("--caption");
  std::vector<std::string> paths;
  if (!options.Has("--steps")) paths = ExpandPatterns(rest);
  std::vector<std::string> read = paths;
  if (options.Has("--steps")) {
    read = PictureNames(steps);
    read.push_back(rest.front());
  }
  CheckOutputIsApart(output, read);
  const size_t count = options.Has("--steps") ? steps.size() + 1 : paths.size();
  if (captions.size() > count) {
    throw Failure(kUsage, "there are {} captions for {} pictures", captions.size(), count);
  }
  std::vector<CaptionedPicture> pictures =
      options.Has("--steps") ? RunSteps(rest.front(), steps, options.Value("--module"),
                                        options.Has("--apart"), size, reading)
                             : LoadAll(paths, size, reading);
  for (size_t i = 0; i < captions.size(); ++i) pictures[i].caption = captions[i];
  if (options.Has("--no-captions")) {
    for (CaptionedPicture& picture : pictures) picture.caption.clear();
  }
  const int used_columns = std::min(columns, static_cast<int>(pictures.size()));
  const SheetSize sheet = SizeOfSheet(pictures, used_columns);
  if (!reading.limits.AllowSize(sheet.width, sheet.height)) {
    RefuseSize(sheet.width * sheet.height, reading.limits);
  }
  SavePicture(output, *MakeSheet(pictures, used_columns), {}, {});
  return kDone;
}

}  // namespace qel::cli
