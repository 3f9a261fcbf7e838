#ifndef QEL_PICTURES_ATOMIC_FILE_H_
#define QEL_PICTURES_ATOMIC_FILE_H_

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "pictures/byte_sink.h"

namespace qel::pictures {

/// Which files that there are already may be replaced.
enum class Replace { kWritable, kAny };

/// Throws `PictureError` unless `AtomicFile` may replace what stands at `path`, which may be
/// nothing: only regular files, and only with write permission unless `kAny`. A file that nobody
/// may write to is protected from root as well.
void CheckReplaceable(const std::string& path, Replace replace);

/// A file that appears whole or not at all. Content goes to a file without a name in the same
/// folder, which `Commit` syncs and gives its name; without `Commit` the old file stays. Nothing
/// is left behind, however the process ends, but for the moment in which an old file is replaced:
/// then the new one has a temporary name (see `TemporaryName`). File systems that have no files
/// without names get one with a temporary name from the start, which nobody else may read.
///
/// A replaced file passes its permissions on, and its owner and group as far as the process may
/// give them: where the group cannot stay, the new one gets no right that others do not have. A new
/// file follows the umask. A link stays a link: its target is replaced.
/// All members but the destructor throw `PictureError`.
class AtomicFile final : public ByteSink {
 public:
  explicit AtomicFile(const std::string& path, Replace replace = Replace::kWritable);
  ~AtomicFile() override;
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  void Write(std::span<const uint8_t> content) override;
  void WriteAt(uint64_t at, std::span<const uint8_t> content) override;
  /// Reads what has been written, from `at` on, and returns how much of it; 0 at the end.
  size_t ReadAt(uint64_t at, std::span<uint8_t> content) const;
  void Commit();
  /// Removes the temporary name, if there is one, without waiting for whoever writes: for a process
  /// that is about to end.
  void Abandon() const;

 private:
  [[noreturn]] void Fail(const std::string& step) const;
  void Open();
  void OpenTemporary();
  void WriteWaiting() const;
  void WriteOut(std::span<const uint8_t> content) const;
  void FlushParts();
  void TakeOverRights() const;
  void GiveName();
  bool LinkTo(const std::string& name) const;

  std::string path_;    ///< as given, for messages
  std::string target_;  ///< with links resolved
  std::string folder_;
  std::string temporary_;  ///< empty when there is none to rename or remove
  int descriptor_ = -1;
  mutable std::vector<uint8_t> waiting_;  ///< small pieces, to be written together
  mutable uint64_t written_ = 0;
  uint64_t flushed_ = 0;  ///< that are on their way to the disk
};

/// Replaces the file at `path` by `content`.
void WriteFileAtomically(const std::string& path, std::span<const uint8_t> content,
                         Replace replace = Replace::kWritable);

}  // namespace qel::pictures

#endif  // QEL_PICTURES_ATOMIC_FILE_H_
