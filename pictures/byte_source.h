#ifndef QEL_PICTURES_BYTE_SOURCE_H_
#define QEL_PICTURES_BYTE_SOURCE_H_

#include <string>
#include <vector>

#include "pictures/byte_reader.h"
#include "pictures/fresh_pages.h"
#include "pictures/limits.h"

namespace qel::pictures {

/// The bytes of a file, read when they are asked for. No more of them than `limits.max_memory` are
/// held at a time. Threads: one at a time.
class ByteSource {
 public:
  /// A file that is in memory, which must outlive this object.
  explicit ByteSource(Bytes memory) : memory_(memory), size_(memory.size()), held_(size_) {}
  /// Opens a file, regular or a pipe; "-" is standard input. Throws `PictureError` (kNotReadable).
  ByteSource(const std::string& path, const Limits& limits);
  ByteSource(const ByteSource&) = delete;
  ByteSource& operator=(const ByteSource&) = delete;
  ~ByteSource();

  /// Bytes of the whole file. A pipe is read to its end first.
  size_t size();
  /// `count` bytes from `at` on, or as many as the file has there. They stay where they are until
  /// the next call. Throws `PictureError`: kNotReadable, or kTooLarge beyond the limit, before any
  /// of them are read from a regular file.
  Bytes Load(size_t at, size_t count);
  Bytes All() { return Load(0, SIZE_MAX); }
  /// Gives back the memory of bytes before `end`, some of the last ones perhaps not. Of a regular
  /// file they can be loaded again; those of a pipe are gone and must not be asked for.
  void Drop(size_t end);
  /// False for a pipe whose end has not been met.
  bool KnowsSize() const { return known_size_; }
  /// Whether the whole file is in memory.
  bool InMemory() const { return known_size_ && held_ == size_; }

 private:
  [[noreturn]] void FailReading(int error) const;
  void CheckHeld(size_t bytes) const;
  void ReadTo(size_t end);
  void LoadBlocks(size_t begin, size_t end);
  size_t MissingIn(size_t first, size_t last) const;
  size_t ReadAt(size_t at, size_t count);

  std::string path_;
  Limits limits_;
  int descriptor_ = -1;
  bool owns_descriptor_ = false;
  bool seekable_ = false;
  bool known_size_ = true;
  Bytes memory_;
  FreshPages pages_;
  std::vector<bool> blocks_;  ///< which blocks of a seekable file are there
  size_t lowest_ = 0;         ///< no bytes before this block are there
  size_t size_ = 0;           ///< of a pipe, as far as known
  size_t held_ = 0;           ///< bytes that are there
};

}  // namespace qel::pictures

#endif  // QEL_PICTURES_BYTE_SOURCE_H_
