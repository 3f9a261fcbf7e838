#include "pictures/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "pictures/picture_error.h"

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

}  // namespace

AtomicFile::AtomicFile(const std::string& path)
    : path_(path), target_(ResolveLinks(path)), folder_(FolderOf(target_)) {
  struct stat old;
  // A rename would replace a device or a pipe instead of writing to it.
  if (stat(target_.c_str(), &old) == 0 && !S_ISREG(old.st_mode)) {
    throw PictureError(PictureError::Kind::kNotWritable, path_,
                       "is not a regular file; give the path of a file");
  }
  OpenTemporary();
}

AtomicFile::~AtomicFile() {
  if (descriptor_ >= 0) close(descriptor_);
  if (!temporary_.empty()) unlink(temporary_.c_str());
}

void AtomicFile::Write(std::span<const uint8_t> content) {
  while (!content.empty()) {
    const ssize_t written = write(descriptor_, content.data(), content.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) Fail("writing");
    content = content.subspan(static_cast<size_t>(written));
  }
}

void AtomicFile::Commit() {
  TakeOverMode();
  if (fsync(descriptor_) != 0) Fail("syncing");
  const int closed = close(std::exchange(descriptor_, -1));
  if (closed != 0) Fail("closing");
  if (rename(temporary_.c_str(), target_.c_str()) != 0) Fail("renaming the temporary file");
  temporary_.clear();
  SyncFolder(folder_);
}

void AtomicFile::Fail(const std::string& step) const {
  throw PictureError(PictureError::Kind::kNotWritable, path_,
                     step + " failed: " + std::strerror(errno));
}

void AtomicFile::OpenTemporary() {
  static std::atomic<unsigned> count{0};
  constexpr int kAttempts = 1000;
  std::string name;
  for (int i = 0; i < kAttempts && descriptor_ < 0; ++i) {
    name = folder_ + "/.qel-" + std::to_string(getpid()) + "-" + std::to_string(count++) + ".tmp";
    descriptor_ = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (descriptor_ < 0 && errno != EEXIST) break;
  }
  if (descriptor_ < 0) Fail("making a temporary file in the folder " + folder_);
  temporary_ = name;
}

void AtomicFile::TakeOverMode() const {
  struct stat old;
  if (stat(target_.c_str(), &old) != 0) return;
  if (fchmod(descriptor_, old.st_mode & 0777) != 0) Fail("setting permissions");
}

void WriteFileAtomically(const std::string& path, std::span<const uint8_t> content) {
  AtomicFile file(path);
  file.Write(content);
  file.Commit();
}

}  // namespace qel::pictures
