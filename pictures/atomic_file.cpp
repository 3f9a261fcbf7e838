#include "pictures/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "pictures/picture_error.h"

namespace qel::pictures {
namespace {

[[noreturn]] void Fail(const std::string& path, const std::string& step) {
  throw PictureError(PictureError::Kind::kNotWritable, path,
                     step + " failed: " + std::strerror(errno));
}

std::string FolderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

/// A new file beside `path` that is removed again unless it is renamed.
class Temporary {
 public:
  explicit Temporary(const std::string& path) : path_(path) {
    std::string name = FolderOf(path) + "/.qel-XXXXXX";
    name_.assign(name.begin(), name.end());
    name_.push_back('\0');
    descriptor_ = mkostemp(name_.data(), O_CLOEXEC);
    if (descriptor_ < 0) Fail(path, "making a temporary file in its folder");
  }
  Temporary(const Temporary&) = delete;
  Temporary& operator=(const Temporary&) = delete;
  ~Temporary() {
    if (descriptor_ >= 0) close(descriptor_);
    if (!renamed_) unlink(name_.data());
  }

  void Write(std::span<const uint8_t> content) {
    while (!content.empty()) {
      const ssize_t written = write(descriptor_, content.data(), content.size());
      if (written < 0 && errno == EINTR) continue;
      if (written <= 0) Fail(path_, "writing");
      content = content.subspan(static_cast<size_t>(written));
    }
  }

  void Finish() {
    struct stat old;
    mode_t mode = 0;
    if (stat(path_.c_str(), &old) == 0) {
      mode = old.st_mode & 07777;
    } else {
      const mode_t mask = umask(0);
      umask(mask);
      mode = 0666 & ~mask;
    }
    if (fchmod(descriptor_, mode) != 0) Fail(path_, "setting permissions");
    if (fsync(descriptor_) != 0) Fail(path_, "syncing");
    const int closed = close(descriptor_);
    descriptor_ = -1;
    if (closed != 0) Fail(path_, "closing");
    if (rename(name_.data(), path_.c_str()) != 0) Fail(path_, "renaming the temporary file");
    renamed_ = true;
  }

 private:
  std::string path_;
  std::vector<char> name_;
  int descriptor_ = -1;
  bool renamed_ = false;
};

/// Makes the rename itself durable. Folders that cannot be synced are left as they are.
void SyncFolder(const std::string& folder) {
  const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return;
  fsync(descriptor);
  close(descriptor);
}

}  // namespace

void WriteFileAtomically(const std::string& path, std::span<const uint8_t> content) {
  // A link stays a link: its target is what gets replaced.
  char* const resolved = realpath(path.c_str(), nullptr);
  const std::string target = resolved != nullptr ? resolved : path;
  std::free(resolved);
  Temporary file(target);
  file.Write(content);
  file.Finish();
  SyncFolder(FolderOf(target));
}

}  // namespace qel::pictures
