#include "cli/batch/manifest.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "cli/batch/sha256.h"
#include "cli/terminal/console.h"
#include "cli/terminal/json.h"
#include "operations/errors.h"
#include "pictures/atomic_file.h"
#include "pictures/temporary_name.h"

namespace qel::cli {
namespace {

constexpr std::string_view kInputHash = ", \"input_sha256\": ";

std::span<const uint8_t> BytesOf(std::string_view text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

/// The start of every line of an item.
JsonObject Describe(const BatchItem& item, const std::string& recipe, std::string_view status) {
  JsonObject line;
  line.Text("input", item.input).Text("output", item.output);
  line.Text("recipe", recipe).Text("status", status);
  return line;
}

/// The hash by which a line is found again: of all that stands before the hash of the input, the
/// last member. Lines of failed items have none and are found by nothing.
std::string KeyOf(std::string_view line) {
  return Sha256(BytesOf(line.substr(0, line.rfind(kInputHash))));
}

}  // namespace

Manifest::Manifest(const std::string& path, const std::string& recipe, size_t items, bool resume)
    : path_(path), recipe_(recipe), lines_(items) {
  struct stat status {};
  if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
    throw Failure(kNoOutput, path + ": not a regular file");
  }
  file_.descriptor = open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
  if (file_.descriptor < 0) throw Failure(kNoOutput, path + ": " + std::strerror(errno));
  if (flock(file_.descriptor, LOCK_EX | LOCK_NB) != 0) {
    throw Failure(kNoOutput, path + ": another run is writing this manifest");
  }
  pictures::RemoveStrays(std::filesystem::path(path).parent_path() / ".");
  if (resume) ReadEarlierLines();
  // What follows must not become part of a line that was cut off.
  CutToSize();
}

void Manifest::ReadEarlierLines() {
  std::ifstream file(path_, std::ios::binary);
  for (std::string line; std::getline(file, line) && !file.eof(); size_ += line.size() + 1) {
    earlier_[KeyOf(line)] = {size_, static_cast<uint32_t>(line.size() + 1)};
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

bool Manifest::TakeOver(size_t index, const BatchItem& item, const std::string& input_hash,
                        const std::string& output_hash) {
  JsonObject line = Describe(item, recipe_, "done");
  line.Text("output_sha256", output_hash).Text("input_sha256", input_hash);
  const auto found = earlier_.find(KeyOf(line.Line()));
  if (found == earlier_.end()) return false;
  if (!input_hash.empty() && Read(found->second) != line.Line()) return false;
  const std::lock_guard lock(mutex_);
  lines_[index] = found->second;
  return true;
}

bool Manifest::Append(size_t index, const std::string& line) {
  const std::lock_guard lock(mutex_);
  if (!WriteAll(file_.descriptor, line)) {
    CutToSize();
    lines_[index] = {};
    return false;
  }
  lines_[index] = {size_, static_cast<uint32_t>(line.size())};
  size_ += line.size();
  return true;
}

void Manifest::RecordDone(size_t index, const BatchItem& item, const std::string& input_hash,
                          const std::string& output_hash) {
  JsonObject line = Describe(item, recipe_, "done");
  line.Text("output_sha256", output_hash).Text("input_sha256", input_hash);
  if (!Append(index, line.Line())) throw Failure(kNoOutput, path_ + ": no room for another line");
}

void Manifest::RecordFailed(size_t index, const BatchItem& item, const std::string& reason) {
  Append(index, Describe(item, recipe_, "failed").Text("error", reason).Line());
}

void Manifest::Finish() {
  // Opened for writing it was at the start.
  pictures::AtomicFile file(path_, pictures::Replace::kAny);
  for (const Line& line : lines_) {
    if (line.length > 0) file.Write(BytesOf(Read(line)));
  }
  file.Commit();
}

}  // namespace qel::cli
