#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <stdexcept>

#include "cli/commands/command_table.h"
#include "cli/operations.h"
#include "cli/session/sha256.h"
#include "cli/terminal/errors.h"
#include "cli/terminal/json_reader.h"
#include "pictures/picture_file.h"

namespace qel::cli {
namespace {

using Line = std::map<std::string, std::string>;

/// What a file has become since the run: empty when it is as it was.
std::string ChangeOf(const std::string& path, const std::string& hash) {
  if (hash.empty()) return "the manifest has no hash of it";
  if (access(path.c_str(), F_OK) != 0) return "is missing";
  try {
    return HashOfFile(path) == hash ? "" : "has changed";
  } catch (const pictures::PictureError& error) {
    return error.what();
  }
}

/// Prints what one line of a manifest finds; true when all is as it was.
bool Verify(const Line& line, bool inputs_too) {
  const std::string& output = line.at("output");
  // What a run has started before it was killed may be done.
  if (line.at("status") == "failed") {
    std::cout << Printable(output) << ": the run failed on " << Printable(line.at("input")) << "\n";
    return false;
  }
  const auto check = [&](const std::string& path, const std::string& hash) {
    const std::string change = ChangeOf(path, hash);
    if (!change.empty()) std::cout << Printable(path + ": " + change) << "\n";
    return change.empty();
  };
  const bool output_kept = check(output, line.at("output_sha256"));
  // In place, the input of the run is gone.
  if (!inputs_too || line.at("input") == output) return output_kept;
  return check(line.at("input"), line.at("input_sha256")) && output_kept;
}

}  // namespace

int VerifyCommand(const Words& words) {
  const Options options(words, KnownOptions("verify"));
  if (options.Files().size() != 1) throw Failure(kUsage, "write qel verify MANIFEST");
  const std::string& path = options.Files()[0];
  std::ifstream file(path, std::ios::binary);
  if (!file) throw Failure(kNoInput, "{}: {}", path, std::strerror(errno));
  size_t number = 0, kept = 0;
  for (std::string text; std::getline(file, text);) {
    ++number;
    Line line;
    try {
      line = ReadJsonTexts(text);
    } catch (const std::invalid_argument& error) {
      throw Failure(kNoInput, "{}: line {}: {}", path, number, error.what());
    }
    for (const char* const name : {"input", "output", "status"}) {
      if (line.contains(name)) continue;
      throw Failure(kNoInput,
                    "{}: line {} has no \"{}\": it is none of a manifest, as qel run --json writes "
                    "it",
                    path, number, name);
    }
    for (const char* const name : {"output_sha256", "input_sha256"}) line.try_emplace(name);
    kept += Verify(line, !options.Has("--outputs-only")) ? 1 : 0;
  }
  if (number == 0) throw Failure(kNoInput, "{}: the manifest has no lines", path);
  std::cout << kept << " of " << number << " as the run left them\n";
  return kept == number ? kDone : kSomeFailed;
}

}  // namespace qel::cli
