#include "pictures/temporary_name.h"

#include <dirent.h>
#include <fcntl.h>
#include <fmt/core.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string_view>

namespace qel::pictures {
namespace {

std::string ContentOf(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// The running system and the space in which its process numbers count; empty when /proc does not
/// tell.
const std::string& System() {
  static const std::string system = [] {
    struct stat numbers {};
    const std::string boot = ContentOf("/proc/sys/kernel/random/boot_id").substr(0, 8);
    if (boot.size() < 8 || stat("/proc/self/ns/pid", &numbers) != 0) return std::string();
    return fmt::format("{}-{}", boot, numbers.st_ino);
  }();
  return system;
}

/// When a process was started, in ticks since the boot; empty when there is none.
std::string StartOf(const std::string& process) {
  const std::string line = ContentOf(fmt::format("/proc/{}/stat", process));
  // The second field is the program's name in parentheses, which may hold anything.
  size_t at = line.rfind(')');
  constexpr int kBlanksBefore = 20;
  for (int i = 0; i < kBlanksBefore && at != line.npos; ++i) at = line.find(' ', at + 1);
  if (at == line.npos) return {};
  return line.substr(at + 1, line.find(' ', at + 1) - at - 1);
}

constexpr std::string_view kPrefix = ".qel-", kSuffix = ".tmp";

/// Takes the digits off that `text` begins with.
std::string_view TakeDigits(std::string_view& text) {
  const std::string_view digits =
      text.substr(0, std::min(text.find_first_not_of("0123456789"), text.size()));
  text.remove_prefix(digits.size());
  return digits;
}

struct Owner {
  std::string process;
  std::string start;
};

/// Whose a temporary file of the running system is, prefix-system-process-start-count.suffix;
/// nothing for other names.
std::optional<Owner> OwnerOf(std::string_view name) {
  const std::string own = fmt::format("{}{}-", kPrefix, System());
  if (!name.starts_with(own)) return {};
  name.remove_prefix(own.size());
  std::string_view numbers[3];
  for (int i = 0; i < 3; ++i) {
    if (i > 0 && !name.starts_with('-')) return {};
    if (i > 0) name.remove_prefix(1);
    numbers[i] = TakeDigits(name);
    if (numbers[i].empty()) return {};
  }
  if (name != kSuffix) return {};
  return Owner{std::string(numbers[0]), std::string(numbers[1])};
}

}  // namespace

std::string TemporaryName() {
  static std::atomic<unsigned> count{0};
  static const std::string own =
      fmt::format("{}{}-{}-{}-", kPrefix, System(), getpid(), StartOf("self"));
  return fmt::format("{}{}{}", own, count++, kSuffix);
}

void RemoveStrays(const std::string& folder) {
  if (System().empty()) return;
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(folder.c_str()), &closedir);
  while (const dirent* const entry = entries != nullptr ? readdir(entries.get()) : nullptr) {
    const std::optional<Owner> owner = OwnerOf(entry->d_name);
    if (!owner || StartOf(owner->process) == owner->start) continue;
    struct stat status {};
    const int directory = dirfd(entries.get());
    if (fstatat(directory, entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) continue;
    const bool own = status.st_uid == geteuid() || geteuid() == 0;
    if (own && S_ISREG(status.st_mode)) unlinkat(directory, entry->d_name, 0);
  }
}

}  // namespace qel::pictures
