#include "cli/batch/manifest.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>
#include <utility>

#include "cli/operations.h"
#include "cli/session/sha256.h"
#include "cli/terminal/console.h"
#include "cli/terminal/errors.h"
#include "cli/terminal/json_reader.h"
#include "pictures/atomic_file.h"
#include "pictures/byte_reader.h"
#include "pictures/temporary_name.h"

namespace qel::cli {
namespace {

using pictures::BytesOf;

/// So many lines that are not understood are told one by one.
constexpr int kToldLines = 5;

/// The start of every line of an item.
JsonObject Describe(const BatchItem& item, const std::string& recipe, std::string_view status) {
  JsonObject line;
  line.Text("input", item.input).Text("output", item.output);
  line.Text("recipe", recipe).Text("status", status);
  return line;
}

/// The hash by which the line of an item is found again.
std::string KeyOf(const BatchItem& item, const std::string& recipe,
                  const std::string& output_hash) {
  return Sha256(BytesOf(Describe(item, recipe, "").Text("output_sha256", output_hash).Object()));
}

/// The hash of the input in a line of a manifest; empty when it has none.
std::string InputHashOf(const std::string& line) { return ReadJsonTexts(line)["input_sha256"]; }

}  // namespace

bool BeginsLikeManifest(const std::string& path) {
  constexpr std::string_view kMember = "\"input\"";
  std::ifstream file(path, std::ios::binary);
  const int first = file.get();
  if (first != '{') return first == std::ifstream::traits_type::eof();
  std::string line;
  std::getline(file, line);
  return line.find(kMember) != line.npos || (file.eof() && kMember.starts_with(line));
}

Manifest::Manifest(const std::string& path, const std::string& recipe, size_t items, bool resume)
    : path_(path), recipe_(recipe), lines_(items) {
  struct stat status {};
  if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
    throw Failure(kNoOutput, "{}: not a regular file", path);
  }
  file_.descriptor = open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
  if (file_.descriptor < 0) throw Failure(kNoOutput, "{}: {}", path, std::strerror(errno));
  if (flock(file_.descriptor, LOCK_EX | LOCK_NB) != 0) {
    throw Failure(kNoOutput, "{}: another run is writing this manifest", path);
  }
  pictures::RemoveStrays(std::filesystem::path(path).parent_path() / ".");
  if (resume) ReadEarlierLines();
  // What follows must not become part of a line that was cut off.
  CutToSize();
}

void Manifest::ReadEarlierLines() {
  std::ifstream file(path_, std::ios::binary);
  int number = 0, strange = 0;
  const auto tell = [&](const std::string& what) {
    if (++strange > kToldLines) return;
    PrintMessage("{}: line {} is not understood: {}", path_, number, what);
  };
  for (std::string text; std::getline(file, text); size_ += text.size() + 1) {
    ++number;
    if (file.eof()) {
      tell("it was cut off");
      break;
    }
    try {
      auto texts = ReadJsonTexts(text);
      const std::string& status = texts["status"];
      if (status == "failed") continue;
      if ((status != "started" && status != "done") || texts["output_sha256"].empty()) {
        tell("it does not say what was done");
        continue;
      }
      earlier_[KeyOf({texts["input"], texts["output"]}, texts["recipe"], texts["output_sha256"])] =
          {size_, static_cast<uint32_t>(text.size() + 1)};
    } catch (const std::invalid_argument& error) {
      tell(error.what());
    }
  }
  if (strange > kToldLines) {
    PrintMessage("{}: so are {} more lines", path_, strange - kToldLines);
  }
}

void Manifest::CutToSize() {
  if (ftruncate(file_.descriptor, static_cast<off_t>(size_)) == 0) return;
  size_ = static_cast<uint64_t>(lseek(file_.descriptor, 0, SEEK_END));
}

std::string Manifest::Read(const Line& line) const {
  std::string text(line.length, '\0');
  const ssize_t got =
      pread(file_.descriptor, text.data(), text.size(), static_cast<off_t>(line.offset));
  return got == static_cast<ssize_t>(text.size()) ? text : "";
}

std::string Manifest::LineOf(const BatchItem& item, std::string_view status,
                             const std::string& input_hash, const std::string& output_hash) const {
  JsonObject line = Describe(item, recipe_, status);
  return line.Text("output_sha256", output_hash).Text("input_sha256", input_hash).Line();
}

bool Manifest::TakeOver(size_t index, const BatchItem& item, const std::string& input_hash,
                        const std::string& output_hash) {
  const auto found = earlier_.find(KeyOf(item, recipe_, output_hash));
  if (found == earlier_.end()) return false;
  const std::string text = Read(found->second);
  if (text.empty()) return false;
  const std::string earlier_hash = InputHashOf(text);
  if (!input_hash.empty() && input_hash != earlier_hash) return false;
  const std::string line = LineOf(item, "done", earlier_hash, output_hash);
  if (text != line) return Append(line, index);
  const std::lock_guard lock(mutex_);
  lines_[index] = found->second;
  return true;
}

bool Manifest::Append(const std::string& text, std::optional<size_t> index) {
  const std::lock_guard lock(mutex_);
  const bool written = WriteAll(file_.descriptor, text);
  if (index) lines_[*index] = {size_, written ? static_cast<uint32_t>(text.size()) : 0};
  if (written) {
    size_ += text.size();
  } else {
    CutToSize();
  }
  return written;
}

void Manifest::RecordStarted(const BatchItem& item, const std::string& input_hash,
                             const std::string& output_hash) {
  const bool written = Append(LineOf(item, "started", input_hash, output_hash), {});
  const bool in_place = item.input == item.output;
  if (!written || (in_place && fdatasync(file_.descriptor) != 0)) {
    throw Failure(kNoOutput, "{}: no room for another line", path_);
  }
}

void Manifest::RecordDone(size_t index, const BatchItem& item, const std::string& input_hash,
                          const std::string& output_hash) {
  if (!Append(LineOf(item, "done", input_hash, output_hash), index)) {
    throw Failure(kNoOutput, "{}: no room for another line", path_);
  }
}

void Manifest::RecordFailed(size_t index, const BatchItem& item, const std::string& reason) {
  Append(Describe(item, recipe_, "failed").Text("error", reason).Line(), index);
  const std::lock_guard lock(mutex_);
  any_failed_ = true;
}

std::vector<std::string> Manifest::EarlierLines(bool of_others) const {
  if (earlier_.empty()) return {};
  using Names = std::pair<std::string, std::string>;
  const auto names_of = [](std::map<std::string, std::string> texts) {
    return Names(std::move(texts["input"]), std::move(texts["output"]));
  };
  std::map<Names, bool> failed;
  for (const Line& line : lines_) {
    if (line.length == 0) continue;
    auto texts = ReadJsonTexts(Read(line));
    const bool has_failed = texts["status"] == "failed";
    failed[names_of(std::move(texts))] = has_failed;
  }
  std::map<uint64_t, std::string> kept;
  for (const auto& [key, line] : earlier_) {
    std::string text = Read(line);
    if (text.empty()) continue;
    const auto item = failed.find(names_of(ReadJsonTexts(text)));
    if (item == failed.end() ? of_others : item->second) kept[line.offset] = std::move(text);
  }
  std::vector<std::string> texts;
  for (auto& [offset, text] : kept) texts.push_back(std::move(text));
  return texts;
}

void Manifest::Finish(bool interrupted) {
  const std::lock_guard lock(mutex_);
  // Opened for writing it was at the start.
  pictures::AtomicFile file(path_, pictures::Replace::kAny);
  for (const Line& line : lines_) {
    if (line.length > 0) file.Write(BytesOf(Read(line)));
  }
  if (interrupted || any_failed_) {
    for (const std::string& line : EarlierLines(interrupted)) file.Write(BytesOf(line));
  }
  file.Commit();
}

}  // namespace qel::cli
