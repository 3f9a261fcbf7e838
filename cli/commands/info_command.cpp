#include <fmt/core.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <optional>
#include <sstream>

#include "cli/batch/forecast.h"
#include "cli/commands/command_table.h"
#include "cli/operations.h"
#include "cli/session/input_list.h"
#include "cli/session/picture_io.h"
#include "cli/terminal/console.h"
#include "cli/terminal/errors.h"
#include "pictures/exif.h"
#include "pictures/icc.h"
#include "pictures/picture_file.h"

namespace qel::cli {
namespace {

namespace fs = std::filesystem;

/// What a file says of its picture.
struct FileInfo {
  std::string path;
  pictures::PictureInfo picture = {};
  std::optional<uintmax_t> bytes = {};  ///< none of a pipe
  std::string changed = {};             ///< when, as ISO 8601 in UTC
  double memory = 0;                    ///< bytes of the decoded picture
};

std::string TimeOf(const std::string& path) {
  std::error_code error;
  const fs::file_time_type written = fs::last_write_time(path, error);
  if (error) return {};
  const std::time_t seconds = std::chrono::system_clock::to_time_t(
      std::chrono::time_point_cast<std::chrono::system_clock::duration>(
          std::chrono::file_clock::to_sys(written)));
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  std::ostringstream text;
  text << std::put_time(&parts, "%Y-%m-%dT%H:%M:%SZ");
  return text.str();
}

/// When the camera took it, or when the file was made, as EXIF states it; empty when it does not.
std::string TakenAt(const pictures::Metadata& metadata) {
  constexpr uint16_t kTakenTag = 0x9003, kMadeTag = 0x0132;
  const std::optional<pictures::Exif> exif = pictures::ParseExif(metadata.exif);
  if (!exif) return {};
  const auto find = [](const pictures::ExifDirectory& directory, uint16_t tag) {
    const auto found = std::ranges::find(directory, tag, &pictures::ExifEntry::tag);
    return found == directory.end() ? std::string()
                                    : std::string(found->data.begin(), found->data.end());
  };
  std::string date = find(exif->photo, kTakenTag);
  if (date.empty()) date = find(exif->main, kMadeTag);
  // "2024:05:31 12:00:00" and a zero byte.
  constexpr size_t kLength = 19;
  if (date.size() < kLength || date.find_first_not_of("0123456789: ") < kLength) return {};
  date.resize(kLength);
  date[4] = date[7] = '-';
  return date;
}

FileInfo Look(const std::string& path) {
  FileInfo info{path, pictures::ReadPictureHeader(path)};
  std::error_code error;
  const uintmax_t bytes = fs::file_size(path, error);
  if (!error) info.bytes = bytes;
  info.changed = TimeOf(path);
  info.memory = ImageBytes(ShapeOf(info.picture));
  return info;
}

std::string_view MeaningOf(int bit_count) {
  return bit_count == 32 ? "colours and alpha" : bit_count == 24 ? "colours" : "grey";
}

void Print(const FileInfo& info) {
  const pictures::PictureInfo& picture = info.picture;
  const auto line = [](std::string_view tag, const std::string& text) {
    if (text.empty()) return;
    std::cout << "  " << std::left << std::setw(13) << tag << Printable(text) << "\n";
  };
  std::cout << Printable(info.path) << "\n";
  line("size", fmt::format("{} x {} pixels, {:.1f} megapixels", picture.width, picture.height,
                           1e-6 * picture.width * picture.height));
  line("depth", fmt::format("{} bits: {}", picture.bit_count, MeaningOf(picture.bit_count)));
  line("format", info.bytes
                     ? fmt::format("{}, {} bytes", pictures::NameOf(picture.format), *info.bytes)
                     : std::string(pictures::NameOf(picture.format)));
  if (picture.metadata.dpi_x > 0) {
    line("resolution",
         fmt::format("{:.0f} x {:.0f} dpi", picture.metadata.dpi_x, picture.metadata.dpi_y));
  }
  line("profile", picture.metadata.icc_profile.empty()
                      ? "none"
                      : pictures::ProfileName(picture.metadata.icc_profile));
  line("orientation", picture.orientation == 1
                          ? "as stored"
                          : fmt::format("{} in the file, is applied", picture.orientation));
  line("taken", TakenAt(picture.metadata));
  line("changed", info.changed);
  line("memory", fmt::format("{} decoded", Mebibytes(info.memory)));
  for (const std::string& note : picture.notes) line("note", note);
}

std::string AsJson(const FileInfo& info) {
  const pictures::PictureInfo& picture = info.picture;
  JsonObject object;
  object.Text("path", info.path)
      .Text("format", pictures::NameOf(picture.format))
      .Json("bytes", info.bytes ? std::to_string(*info.bytes) : "null")
      .Number("width", picture.width)
      .Number("height", picture.height)
      .Number("bits", picture.bit_count)
      .Flag("alpha", picture.HasAlpha())
      .Real("dpi_x", picture.metadata.dpi_x)
      .Real("dpi_y", picture.metadata.dpi_y)
      .Text("profile", picture.metadata.icc_profile.empty()
                           ? ""
                           : pictures::ProfileName(picture.metadata.icc_profile))
      .Number("orientation", picture.orientation)
      .Text("taken", TakenAt(picture.metadata))
      .Text("changed", info.changed)
      .Number("memory", static_cast<int64_t>(info.memory));
  std::vector<std::string> notes;
  for (const std::string& note : picture.notes) notes.push_back(JsonText(note));
  object.Json("notes", JsonArray(notes));
  return object.Line();
}

}  // namespace

int InfoCommand(const Words& words) {
  const Options options(words, KnownOptions("info"));
  if (options.rest().empty()) throw Failure(kUsage, "write qel info PICTURE...");
  const std::vector<std::string> paths = ExpandPatterns(options.rest());
  size_t failed = 0;
  ExitCode code = kDone;
  for (const std::string& path : paths) {
    try {
      const FileInfo info = Look(path);
      if (options.Has("--json")) {
        std::cout << AsJson(info);
      } else {
        Print(info);
      }
    } catch (const pictures::PictureError& error) {
      PrintMessage(error.what());
      code = ExitCodeOf(error);
      ++failed;
    }
  }
  return failed == 0 ? kDone : failed == paths.size() ? code : kSomeFailed;
}

}  // namespace qel::cli
