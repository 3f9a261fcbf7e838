#include "pictures/atomic_file.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <utility>

#include "pictures/picture_error.h"
#include "pictures/temporary_name.h"

namespace qel::pictures {
namespace {

std::string ResolveLinks(const std::string& path) {
  char* const resolved = realpath(path.c_str(), nullptr);
  const std::string target = resolved != nullptr ? resolved : path;
  std::free(resolved);
  return target;
}

std::string FolderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

/// Makes a rename itself durable. Some file systems cannot sync folders; nothing is lost then but
/// that promise.
void SyncFolder(const std::string& folder) {
  const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return;
  fsync(descriptor);
  close(descriptor);
}

/// The mode of a new file. The umask of the process is read where that does not change it.
mode_t ModeOfNewFile() {
  constexpr mode_t kAll = 0666;
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    if (word != "Umask:") continue;
    unsigned mask = 0;
    status >> std::oct >> mask;
    return kAll & ~mask;
  }
  const mode_t mask = umask(077);
  umask(mask);
  return kAll & ~mask;
}

}  // namespace

void CheckReplaceable(const std::string& path, Replace replace) {
  const std::string target = ResolveLinks(path);
  struct stat old;
  if (stat(target.c_str(), &old) != 0) return;
  const auto refuse = [&](const char* what) {
    throw PictureError(PictureError::Kind::kNotWritable, path, what);
  };
  // A rename would replace a device or a pipe instead of writing to it.
  if (!S_ISREG(old.st_mode)) refuse("is not a regular file; give the path of a file");
  const bool writable =
      (old.st_mode & 0222) != 0 && faccessat(AT_FDCWD, target.c_str(), W_OK, AT_EACCESS) == 0;
  if (replace == Replace::kWritable && !writable) {
    refuse("has no write permission; give it that first if it shall be replaced");
  }
}

AtomicFile::AtomicFile(const std::string& path, Replace replace)
    : path_(path), target_(ResolveLinks(path)), folder_(FolderOf(target_)) {
  CheckReplaceable(path, replace);
  Open();
}

AtomicFile::~AtomicFile() {
  if (descriptor_ >= 0) close(descriptor_);
  if (!temporary_.empty()) unlink(temporary_.c_str());
}

void AtomicFile::Write(std::span<const uint8_t> content) {
  constexpr size_t kSmall = size_t{1} << 16;
  if (waiting_.size() + content.size() > kSmall) WriteWaiting();
  if (content.size() < kSmall) {
    waiting_.insert(waiting_.end(), content.begin(), content.end());
  } else {
    WriteOut(content);
  }
  FlushParts();
}

void AtomicFile::WriteWaiting() const {
  WriteOut(waiting_);
  waiting_.clear();
}

void AtomicFile::WriteOut(std::span<const uint8_t> content) const {
  while (!content.empty()) {
    const ssize_t written = write(descriptor_, content.data(), content.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) Fail("writing");
    content = content.subspan(static_cast<size_t>(written));
    written_ += static_cast<uint64_t>(written);
  }
}

/// Has large files on their way to the disk while more is calculated, so that `Commit` does not
/// take long.
void AtomicFile::FlushParts() {
  constexpr uint64_t kPart = uint64_t{16} << 20;
  while (written_ - flushed_ >= kPart) {
    const auto at = static_cast<off64_t>(flushed_);
    // The part before is waited for: otherwise a slow disk would have the memory full of them.
    if (flushed_ >= kPart) {
      sync_file_range(
          descriptor_, at - static_cast<off64_t>(kPart), kPart,
          SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER);
    }
    sync_file_range(descriptor_, at, kPart, SYNC_FILE_RANGE_WRITE);
    flushed_ += kPart;
  }
}

void AtomicFile::WriteAt(uint64_t at, std::span<const uint8_t> content) {
  WriteWaiting();
  while (!content.empty()) {
    const ssize_t written =
        pwrite(descriptor_, content.data(), content.size(), static_cast<off_t>(at));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) Fail("writing");
    content = content.subspan(static_cast<size_t>(written));
    at += static_cast<uint64_t>(written);
  }
}

size_t AtomicFile::ReadAt(uint64_t at, std::span<uint8_t> content) const {
  WriteWaiting();
  while (true) {
    const ssize_t got = pread(descriptor_, content.data(), content.size(), static_cast<off_t>(at));
    if (got >= 0) return static_cast<size_t>(got);
    if (errno != EINTR) Fail("reading");
  }
}

void AtomicFile::Abandon() const {
  if (!temporary_.empty()) unlink(temporary_.c_str());
}

void AtomicFile::Commit() {
  WriteWaiting();
  TakeOverRights();
  if (fsync(descriptor_) != 0) Fail("syncing");
  if (temporary_.empty()) GiveName();
  const int closed = close(std::exchange(descriptor_, -1));
  if (!temporary_.empty()) {
    if (closed != 0) Fail("closing");
    if (rename(temporary_.c_str(), target_.c_str()) != 0) Fail("renaming the temporary file");
    temporary_.clear();
  }
  SyncFolder(folder_);
}

void AtomicFile::Fail(const std::string& step) const {
  throw PictureError(PictureError::Kind::kNotWritable, path_,
                     fmt::format("{} failed: {}", step, std::strerror(errno)));
}

void AtomicFile::Open() {
  // The umask and the folder's defaults apply; without a name nobody can come at the file.
  descriptor_ = open(folder_.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0666);
  if (descriptor_ >= 0 && access("/proc/self/fd", X_OK) == 0) return;
  if (descriptor_ >= 0) close(std::exchange(descriptor_, -1));
  OpenTemporary();
}

void AtomicFile::OpenTemporary() {
  constexpr int kAttempts = 1000;
  std::string name;
  for (int i = 0; i < kAttempts && descriptor_ < 0; ++i) {
    name = fmt::format("{}/{}", folder_, TemporaryName());
    descriptor_ = open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (descriptor_ < 0 && errno != EEXIST) break;
  }
  if (descriptor_ < 0) Fail(fmt::format("making a temporary file in the folder {}", folder_));
  temporary_ = name;
}

void AtomicFile::TakeOverRights() const {
  struct stat old, made;
  if (fstat(descriptor_, &made) != 0) Fail("looking at the temporary file");
  if (stat(target_.c_str(), &old) != 0) {
    if (!temporary_.empty() && fchmod(descriptor_, ModeOfNewFile()) != 0) {
      Fail("setting permissions");
    }
    return;
  }
  mode_t mode = old.st_mode & 0777;
  const bool same = old.st_uid == made.st_uid && old.st_gid == made.st_gid;
  if (!same && fchown(descriptor_, old.st_uid, old.st_gid) != 0) {
    if (geteuid() == 0) Fail("keeping the owner and the group");
    const bool keeps_group = fchown(descriptor_, static_cast<uid_t>(-1), old.st_gid) == 0;
    // Nobody may gain by belonging to another group.
    if (!keeps_group) mode &= ~070u | (mode & 07u) << 3;
  }
  if (fchmod(descriptor_, mode) != 0) Fail("setting permissions");
}

bool AtomicFile::LinkTo(const std::string& name) const {
  const std::string self = fmt::format("/proc/self/fd/{}", descriptor_);
  return linkat(AT_FDCWD, self.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

/// Gives the file the name of the target, or a temporary one when that has been taken.
void AtomicFile::GiveName() {
  if (access(target_.c_str(), F_OK) != 0 && LinkTo(target_)) return;
  do {
    temporary_ = fmt::format("{}/{}", folder_, TemporaryName());
    if (LinkTo(temporary_)) return;
  } while (errno == EEXIST);
  temporary_.clear();
  Fail("naming the file");
}

void WriteFileAtomically(const std::string& path, std::span<const uint8_t> content,
                         Replace replace) {
  AtomicFile file(path, replace);
  file.Write(content);
  file.Commit();
}

}  // namespace qel::pictures
