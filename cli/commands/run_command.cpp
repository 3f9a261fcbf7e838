#include <fmt/core.h>

#include <iostream>
#include <memory>

#include "cli/batch/batch_plan.h"
#include "cli/batch/batch_runner.h"
#include "cli/batch/dry_run.h"
#include "cli/batch/run_options.h"
#include "cli/commands/command_table.h"
#include "cli/session/input_list.h"
#include "cli/session/session.h"
#include "cli/session/sha256.h"
#include "cli/terminal/console.h"
#include "cli/terminal/errors.h"

namespace qel::cli {
namespace {

std::vector<std::string> ListInputs(const RunOptions& options) {
  std::vector<std::string> inputs = ExpandPatterns(options.inputs);
  if (!options.list.empty()) {
    std::ranges::move(ReadNameList(options.list), std::back_inserter(inputs));
  }
  if (inputs.empty()) throw Failure(kNoInput, "{}: the list names no files", options.list);
  return inputs;
}

/// What the run reads besides pictures.
std::vector<std::string> OtherFiles(const RunOptions& options) {
  std::vector<std::string> files;
  if (options.manifest.empty()) return files;
  files.push_back(options.module.empty() ? OwnModulePath() : options.module);
  if (!options.list.empty() && options.list != "-") files.push_back(options.list);
  if (!options.recipe_file.empty()) files.push_back(options.recipe_file);
  return files;
}

/// The recipe with what the second pictures hold now.
std::string FullRecipe(const RunOptions& options, const std::vector<std::string>& pictures) {
  std::string recipe = options.recipe;
  for (const std::string& path : pictures) {
    recipe += fmt::format(" {}:{}", path, HashOfFile(path, options.reading.limits));
  }
  return recipe;
}

/// The steps of the recipe and of the command line. Throws `StepError`, and `Failure` with the
/// line of the recipe that is wrong.
std::vector<Step> StepsOf(const RunOptions& options) {
  try {
    return ReadSteps(options.steps);
  } catch (const StepError&) {
    for (size_t i = 0; i < options.recipe_lines.size(); ++i) {
      try {
        // With the lines before it: an argument may stand below its step.
        ReadSteps({options.steps.begin(), options.steps.begin() + static_cast<ptrdiff_t>(i) + 1});
      } catch (const StepError& error) {
        throw Failure(kUsage, "{}, line {}: {}", options.recipe_file, options.recipe_lines[i],
                      error.what());
      }
    }
    throw;
  }
}

/// `qel run` and `qel convert`: the same but for the steps.
int Run(const std::string& command, const Words& words) {
  Interruption interruption;
  // Everything that can be known to be wrong is said before the first file is changed.
  const RunOptions options = ParseRunOptions(command, Options(words, KnownOptions(command)));
  if (!options.notes) SilenceNotes();
  std::vector<Step> steps;
  if (command == "run") steps = StepsOf(options);
  const std::vector<std::string> second_paths = PictureNames(steps);
  const std::vector<BatchItem> items = PlanBatch({.inputs = ListInputs(options),
                                                  .output = options.output,
                                                  .names_format = options.writing.extension.empty(),
                                                  .shard = options.shard,
                                                  .make_folders = options.make_folders,
                                                  .manifest = options.manifest,
                                                  .other_files = OtherFiles(options),
                                                  .second_pictures = second_paths});
  if (options.dry_run) {
    return DryRun(items, steps, options);
  }

  const Session session(options.module, options.reading.limits);
  PictureFiles second_pictures(options.reading);
  for (const std::string& path : second_paths) second_pictures.Get(path);
  interruption.Hold();
  PrepareOutputFolders(items);
  std::unique_ptr<Manifest> manifest;
  if (!options.manifest.empty()) {
    manifest = std::make_unique<Manifest>(options.manifest, FullRecipe(options, second_paths),
                                          items.size(), options.resume);
  }
  const auto progress = MakeProgress(options.progress, options.progress_descriptor, items.size());
  const Forecaster forecaster{
      steps, options.reading.limits,
      [&](const std::string& path) { return ShapeOf(second_pictures.Get(path)); }, options.writing,
      options.band_rows};
  const JobTools tools{forecaster, options.reading, options.writing, session, second_pictures};
  RunStats stats(steps.size());
  const ExitCode code = RunBatch({.items = items,
                                  .tools = tools,
                                  .replace = options.replace,
                                  .manifest = manifest.get(),
                                  .resume = options.resume,
                                  .progress = *progress,
                                  .stats = options.stats ? &stats : nullptr,
                                  .threads = options.threads},
                                 options.jobs, interruption);
  if (options.stats) {
    std::vector<std::string> texts;
    for (const Step& step : steps) texts.push_back(step.text);
    stats.Print(texts, std::cout);
    std::cout << "memory at its peak " << Mebibytes(PeakBytes()) << "\n";
  }
  return code;
}

}  // namespace

int RunCommand(const Words& words) { return Run("run", words); }

int ConvertCommand(const Words& words) { return Run("convert", words); }

}  // namespace qel::cli
