#ifndef QEL_PICTURES_ATOMIC_FILE_H_
#define QEL_PICTURES_ATOMIC_FILE_H_

#include <cstdint>
#include <span>
#include <string>

namespace qel::pictures {

/// A file that appears whole or not at all. Content goes to a temporary file in the same folder,
/// which `Commit` syncs and renames; without `Commit` the old file stays and the temporary one is
/// removed. A replaced file passes its permissions on, a new one follows the umask. A link stays a
/// link: its target is replaced. All members but the destructor throw `PictureError`.
class AtomicFile {
 public:
  explicit AtomicFile(const std::string& path);
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  void Write(std::span<const uint8_t> content);
  void Commit();

 private:
  [[noreturn]] void Fail(const std::string& step) const;
  void OpenTemporary();
  void TakeOverMode() const;

  std::string path_;    ///< as given, for messages
  std::string target_;  ///< with links resolved
  std::string folder_;
  std::string temporary_;  ///< empty when there is none to remove
  int descriptor_ = -1;
};

/// Replaces the file at `path` by `content`.
void WriteFileAtomically(const std::string& path, std::span<const uint8_t> content);

}  // namespace qel::pictures

#endif  // QEL_PICTURES_ATOMIC_FILE_H_
