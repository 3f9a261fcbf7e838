#include "cli/batch/run_options.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <unistd.h>

#include <algorithm>
#include <limits>
#include <sstream>
#include <thread>

#include "cli/batch/progress.h"
#include "cli/session/input_list.h"
#include "cli/session/limit_options.h"
#include "cli/terminal/errors.h"

namespace qel::cli {
namespace {

std::string UsageOf(const std::string& command) {
  return fmt::format("write qel {} INPUT... -o OUTPUT{}", command,
                     command == "run" ? " STEP [STEP...]" : "");
}

/// Reads the steps in a file: words as on the command line, a line of steps each; # begins a
/// comment.
void ReadRecipe(const std::string& path, RunOptions& run) {
  run.recipe_file = path;
  std::istringstream file(ReadTextFile(path));
  std::vector<std::string> steps;
  int number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    const size_t begin = line.find_first_not_of(" \t\r");
    if (begin == line.npos || line[begin] == '#') continue;
    steps.push_back(line.substr(begin, line.find_last_not_of(" \t\r") - begin + 1));
    run.recipe_lines.push_back(number);
  }
  if (steps.empty()) throw Failure(kUsage, "--recipe {} has no steps", path);
  run.steps.insert(run.steps.begin(), steps.begin(), steps.end());
}

constexpr int kLargestJobs = 1024;

/// Splits the words at -o or --in-place.
void SplitWords(const std::string& command, const Options& options, RunOptions& run) {
  const bool in_place = options.Has("--in-place");
  if (in_place && options.Has("-o")) {
    throw Failure(kUsage, "-o and --in-place exclude each other");
  }
  if (!in_place && options.Value("-o").empty()) throw Failure(kUsage, "{}", UsageOf(command));
  const size_t before = options.RestBefore(in_place ? "--in-place" : "-o");
  const auto split = options.rest().begin() + static_cast<std::ptrdiff_t>(before);
  run.inputs = {options.rest().begin(), split};
  run.steps = {split, options.rest().end()};
  run.list = options.Value("--files-from");
  run.output = options.Value("-o");
  const auto from_input = std::ranges::count(run.inputs, "-");
  if (in_place && from_input != 0) {
    throw Failure(kUsage, "standard input cannot be replaced; write -o in place of --in-place");
  }
  if (from_input + (run.list == "-") > 1) {
    throw Failure(kUsage, "standard input can be read once; name - once");
  }
  if (run.output == "-" && !options.Has("--format")) {
    throw Failure(kUsage, "standard output has no name; say which --format it gets");
  }
  if (run.inputs.empty() && run.list.empty()) {
    throw Failure(kUsage, "there are no inputs before {}; {}", in_place ? "--in-place" : "-o",
                  UsageOf(command));
  }
}

/// What stands for the extension of the outputs; empty without --format.
std::string ExtensionOf(const Options& options) {
  if (!options.Has("--format")) return {};
  const std::string extension = "." + options.Value("--format");
  try {
    pictures::FormatOfPath(extension);
  } catch (const pictures::PictureError& error) {
    throw Failure(kUsage, "--format {}", error.what());
  }
  return extension;
}

pictures::Strip StripOf(const Options& options) {
  if (!options.Has("--strip")) return pictures::Strip::kNothing;
  const std::string what = options.Value("--strip", "all");
  if (what != "all" && what != "gps") {
    throw Failure(kUsage, "--strip takes nothing, =all or =gps, not {}", what);
  }
  return what == "gps" ? pictures::Strip::kPlaces : pictures::Strip::kAll;
}

std::string Recipe(const Options& options, const std::vector<std::string>& steps) {
  std::string recipe;
  for (const std::string& word : steps) recipe += (recipe.empty() ? "" : " ") + word;
  if (options.Has("--keep-depth")) recipe += " --keep-depth";
  for (const char* const name : {"--quality", "--format", "--strip"}) {
    if (options.Has(name)) recipe += fmt::format(" {} {}", name, options.Value(name));
  }
  for (const char* const name : {"--lossless", "--to-srgb", "--no-orient"}) {
    if (options.Has(name)) recipe += " " + std::string(name);
  }
  return recipe;
}

}  // namespace

RunOptions ParseRunOptions(const std::string& command, const Options& options) {
  RunOptions run;
  SplitWords(command, options, run);
  if (command == "convert" && !run.steps.empty()) {
    throw Failure(kUsage, "qel convert takes no steps; write qel run INPUT... -o OUTPUT {}",
                  run.steps.front());
  }
  if (options.Has("--recipe")) ReadRecipe(options.Value("--recipe"), run);
  run.reading.limits = LimitsFrom(options);
  run.reading.keep_palette_depth = options.Has("--keep-depth");
  run.writing.jpeg_quality = options.Number("--quality", 1, 100, run.writing.jpeg_quality);
  run.writing.webp_quality = options.Number("--quality", 1, 100, run.writing.webp_quality);
  run.writing.webp_lossless = options.Has("--lossless");
  run.writing.extension = ExtensionOf(options);
  run.writing.strip = StripOf(options);
  run.reading.to_srgb = options.Has("--to-srgb");
  run.reading.upright = !options.Has("--no-orient");
  run.recipe = Recipe(options, run.steps);
  run.module = options.Value("--module");
  const int cores = static_cast<int>(std::thread::hardware_concurrency());
  run.jobs = options.Number("--jobs", 1, kLargestJobs, std::clamp(cores, 1, kLargestJobs));
  run.threads = options.Number("--threads", 1, kLargestJobs, 0);
  run.band_rows = options.Number("--band-rows", 1, std::numeric_limits<int>::max(), 0);
  run.make_folders = options.Has("--parents");
  if (options.Has("--force")) run.replace = pictures::Replace::kAny;
  run.dry_run = options.Has("--dry-run");
  run.manifest = options.Value("--json");
  run.resume = options.Has("--resume");
  run.notes = !options.Has("--no-notes");
  run.stats = options.Has("--stats");
  if (run.resume && run.manifest.empty()) {
    throw Failure(kUsage, "--resume needs --json FILE, the manifest of the earlier run");
  }
  if (run.resume && run.dry_run) {
    throw Failure(kUsage, "--dry-run reads headers only and cannot tell what --resume leaves out");
  }
  if (options.Has("--shard")) run.shard = ParseShard(options.Value("--shard"));
  run.progress = options.Value("--progress", "auto");
  if (!IsProgressName(run.progress)) {
    throw Failure(kUsage, "--progress takes auto, bar, json or none, not {}", run.progress);
  }
  run.progress_descriptor = options.Number("--progress-fd", 0, std::numeric_limits<int>::max(), 2);
  if (options.Has("--progress-fd") &&
      (run.progress != "json" || fcntl(run.progress_descriptor, F_GETFD) < 0)) {
    throw Failure(kUsage, "--progress-fd takes an open descriptor for --progress=json");
  }
  return run;
}

}  // namespace qel::cli
