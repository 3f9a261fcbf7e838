#include "cli/session/input_list.h"

#include <fnmatch.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <iterator>

#include "cli/terminal/errors.h"
#include "cli/terminal/options.h"
#include "pictures/picture_file.h"

namespace qel::cli {
namespace {

namespace fs = std::filesystem;

bool HasWildcards(const std::string& text) { return text.find_first_of("*?[") != text.npos; }

/// Names in a folder; an empty name is the working directory. Folders are not entered through
/// links.
void ForEachEntry(const std::string& folder,
                  const std::function<void(const std::string& name, bool is_folder)>& visit) {
  std::error_code error;
  for (fs::directory_iterator entry(folder.empty() ? "." : folder, error), end;
       !error && entry != end; entry.increment(error)) {
    std::error_code ignored;
    const bool is_folder = entry->symlink_status(ignored).type() == fs::file_type::directory;
    visit(entry->path().filename().string(), is_folder);
  }
  if (error) throw Failure(kNoInput, "{}: {}", folder, error.message());
}

/// Adds what matches `rest` below `prefix`, which is empty or ends with a slash.
void Match(const std::string& prefix, const std::string& rest, std::vector<std::string>& found) {
  const size_t slash = rest.find('/');
  const std::string head = rest.substr(0, slash);
  const std::string tail =
      slash == rest.npos ? ""
                         : rest.substr(std::min(rest.find_first_not_of('/', slash), rest.size()));
  std::error_code ignored;
  if (head == "**" && slash != rest.npos) {
    Match(prefix, tail, found);
    ForEachEntry(prefix, [&](const std::string& name, bool is_folder) {
      if (is_folder && name[0] != '.') Match(prefix + name + "/", rest, found);
    });
  } else if (!HasWildcards(head)) {
    const std::string path = prefix + head;
    if (slash != rest.npos) {
      if (fs::is_directory(path + "/", ignored)) Match(path + "/", tail, found);
    } else if (fs::exists(path, ignored)) {
      found.push_back(path);
    }
  } else {
    ForEachEntry(prefix, [&](const std::string& name, bool) {
      if (fnmatch(head.c_str(), name.c_str(), FNM_PERIOD) != 0) return;
      const bool is_folder = fs::is_directory(prefix + name, ignored);
      if (slash != rest.npos && is_folder) Match(prefix + name + "/", tail, found);
      if (slash == rest.npos && !is_folder) found.push_back(prefix + name);
    });
  }
}

std::vector<std::string> Expand(const std::string& pattern) {
  std::error_code ignored;
  if (pattern.empty()) throw Failure(kNoInput, "{}", kNamelessInput);
  if (!HasWildcards(pattern) || fs::exists(pattern, ignored)) return {pattern};
  std::vector<std::string> found;
  const size_t start = pattern.find_first_not_of('/');
  Match(pattern.substr(0, start), pattern.substr(start), found);
  std::ranges::sort(found);
  found.erase(std::unique(found.begin(), found.end()), found.end());
  if (found.empty()) throw Failure(kNoInput, "{}: no file matches", pattern);
  return found;
}

}  // namespace

std::vector<std::string> ExpandPatterns(const std::vector<std::string>& patterns) {
  std::vector<std::string> paths;
  for (const std::string& pattern : patterns) {
    std::ranges::move(Expand(pattern), std::back_inserter(paths));
  }
  return paths;
}

std::string ReadTextFile(const std::string& path, int64_t most_bytes) {
  pictures::Limits limits;
  limits.max_memory = most_bytes;
  const std::vector<uint8_t> bytes = pictures::ReadFile(path, limits);
  return {bytes.begin(), bytes.end()};
}

std::vector<std::string> ReadNameList(const std::string& path) {
  const std::string content = ReadTextFile(path, pictures::Limits().max_memory);
  const char separator = content.find('\0') != content.npos ? '\0' : '\n';
  std::vector<std::string> names;
  for (size_t start = 0; start < content.size();) {
    const size_t end = std::min(content.find(separator, start), content.size());
    if (end > start) names.push_back(content.substr(start, end - start));
    start = end + 1;
  }
  return names;
}

}  // namespace qel::cli
