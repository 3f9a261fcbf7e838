#include "cli/batch/batch_plan.h"

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <unordered_map>

#include "cli/batch/manifest.h"
#include "cli/session/picture_io.h"
#include "cli/terminal/errors.h"
#include "pictures/temporary_name.h"

namespace qel::cli {
namespace {

namespace fs = std::filesystem;

std::string FolderOf(const std::string& path) {
  const std::string folder = fs::path(path).parent_path().string();
  return folder.empty() ? "." : folder;
}

/// A folder as output means a file of the input's name in it.
std::string AsPattern(const std::string& output) {
  std::error_code ignored;
  if (output.empty() || (!output.ends_with('/') && !fs::is_directory(output, ignored))) {
    return output;
  }
  return output + (output.ends_with('/') ? "" : "/") + "{stem}.{ext}";
}

/// Tells whether two names mean one file, through links and different spellings, also for files
/// that there are not yet.
class Identities {
 public:
  std::string Of(const std::string& path) {
    if (path == "-") return path;
    const std::unique_ptr<char, void (*)(void*)> resolved(realpath(path.c_str(), nullptr),
                                                          &std::free);
    if (resolved != nullptr) return resolved.get();
    const auto [folder, is_new] = folders_.try_emplace(FolderOf(path));
    std::error_code ignored;
    if (is_new) folder->second = fs::weakly_canonical(fs::absolute(folder->first), ignored);
    return (folder->second / fs::path(path).filename()).string();
  }

 private:
  std::unordered_map<std::string, fs::path> folders_;
};

[[noreturn]] void RefuseReplacing(const BatchItem& item, const std::string& read) {
  if (item.input == read) {
    throw Failure(kUsage,
                  "{} would be replaced by its own output; write --in-place in place of -o if that "
                  "is meant",
                  read);
  }
  throw Failure(kUsage, "the output of {} would replace {}, which is read as well", item.input,
                read);
}

/// The manifest is written where it stands: nothing else may be the same file, under any name, nor
/// may anything but the manifest of an earlier run stand there.
void RefuseManifest(const std::vector<BatchItem>& items, const BatchRequest& request) {
  struct stat manifest {};
  if (stat(request.manifest.c_str(), &manifest) != 0) return;
  const auto refuse_if_same = [&](const std::string& path) {
    struct stat other {};
    if (stat(path.c_str(), &other) != 0) return;
    if (other.st_dev != manifest.st_dev || other.st_ino != manifest.st_ino) return;
    throw Failure(kUsage,
                  "--json {} is the same file as {}, which the run needs; give the manifest a name "
                  "of its own",
                  request.manifest, path);
  };
  for (const std::string& path : request.other_files) refuse_if_same(path);
  for (const std::string& path : request.second_pictures) refuse_if_same(path);
  for (const BatchItem& item : items) {
    refuse_if_same(item.input);
    refuse_if_same(item.output);
  }
  if (!S_ISREG(manifest.st_mode) || BeginsLikeManifest(request.manifest)) return;
  throw Failure(kUsage,
                "--json {} would replace a file that is no manifest; remove that first if it shall "
                "go, or give the manifest a name of its own",
                request.manifest);
}

void RefuseClashes(const std::vector<BatchItem>& items, const BatchRequest& request) {
  Identities identities;
  // The names of files that are read, and the inputs of those that are written, by identity.
  std::unordered_map<std::string, std::string> read, written;
  const bool in_place = request.output.empty();
  for (const std::string& name : request.second_pictures) read.emplace(identities.Of(name), name);
  for (const BatchItem& item : items) {
    if (!in_place) read.emplace(identities.Of(item.input), item.input);
  }
  for (const BatchItem& item : items) {
    const std::string output = identities.Of(item.output);
    const auto found = read.find(output);
    if (found != read.end() && output != "-") RefuseReplacing(item, found->second);
    const auto [other, is_new] = written.emplace(output, item.input);
    if (is_new) continue;
    if (in_place) throw Failure(kUsage, "{} is given twice, which --in-place forbids", item.input);
    throw Failure(kUsage,
                  "{} and {} would both become {}; tell outputs apart with {{stem}}, {{dir}} or "
                  "{{n}}",
                  other->second, item.input, item.output);
  }
  if (request.manifest.empty()) return;
  const std::string manifest = identities.Of(request.manifest);
  if (read.contains(manifest) || written.contains(manifest)) {
    throw Failure(kUsage, "--json {} is one of the pictures", request.manifest);
  }
  RefuseManifest(items, request);
}

void CheckOutputOf(const BatchItem& item) {
  try {
    CheckOutputName(item.output);
  } catch (const Failure&) {
    std::error_code ignored;
    if (!fs::is_directory(item.input, ignored)) throw;
    throw Failure(kNoInput, "{} is a folder; name its pictures, as '{}/*.png'", item.input,
                  (fs::path(item.input) / "").parent_path().string());
  }
}

/// The folders of the outputs, each with one output in it.
std::unordered_map<std::string, const BatchItem*> FoldersOf(const std::vector<BatchItem>& items) {
  std::unordered_map<std::string, const BatchItem*> folders;
  for (const BatchItem& item : items) folders.emplace(FolderOf(item.output), &item);
  return folders;
}

}  // namespace

std::vector<BatchItem> PlanBatch(const BatchRequest& request) {
  std::vector<BatchItem> items;
  items.reserve(request.inputs.size());
  const OutputName output(AsPattern(request.output));
  for (const std::string& input : request.inputs) {
    items.push_back({input, request.output.empty() ? input : output.For(input, items.size() + 1)});
    if (request.names_format) CheckOutputOf(items.back());
  }
  RefuseClashes(items, request);
  const size_t files = items.size();
  const auto at = [&](size_t index) { return items.begin() + static_cast<std::ptrdiff_t>(index); };
  items.erase(at(request.shard.End(files)), items.end());
  items.erase(items.begin(), at(request.shard.Begin(files)));
  for (const auto& [folder, item] : FoldersOf(items)) {
    std::error_code ignored;
    if (request.make_folders || fs::is_directory(folder, ignored)) continue;
    throw Failure(kNoOutput, "{}: there is no folder {}; make it, or have it made with --parents",
                  item->output, folder);
  }
  return items;
}

void PrepareOutputFolders(const std::vector<BatchItem>& items) {
  for (const auto& [folder, item] : FoldersOf(items)) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) throw Failure(kNoOutput, "{}: {}", folder, error.message());
    pictures::RemoveStrays(folder);
  }
}

}  // namespace qel::cli
