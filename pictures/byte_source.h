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
  /// The same into `out`, without keeping it; returns how many bytes there were.
  size_t Copy(size_t at, std::span<uint8_t> out);
  /// Gives back the memory of bytes outside of [begin, end), a little of it excepted. Those of a
  /// regular file can be loaded again. A pipe has lost what stands before `begin`, which must not
  /// be asked for any more, and keeps the rest.
  void KeepOnly(size_t begin, size_t end = SIZE_MAX);
  /// Whether what was given back can be loaded again.
  bool CanReadAgain() const { return seekable_ || IsMemory(); }
  /// Whether this is a file that was in memory from the start.
  bool IsMemory() const { return descriptor_ < 0; }
  /// False for a pipe whose end has not been met.
  bool KnowsSize() const { return known_size_; }

 private:
  [[noreturn]] void FailReading(int error) const;
  void CheckHeld(size_t bytes) const;
  void ReadTo(size_t end);
  void LoadBlocks(size_t begin, size_t end);
  size_t MissingIn(size_t first, size_t last) const;
  size_t ReadAt(size_t at, uint8_t* out, size_t count);
  void ReadFully(size_t at, std::span<uint8_t> out);
  void DropBlocks(size_t begin, size_t end);

  std::string path_;
  Limits limits_;
  int descriptor_ = -1;
  bool owns_descriptor_ = false;
  bool seekable_ = false;
  bool known_size_ = true;
  Bytes memory_;
  FreshPages pages_;
  std::vector<bool> blocks_;       ///< which blocks of a seekable file are there
  size_t begin_block_ = SIZE_MAX;  ///< no blocks before this one are there
  size_t end_block_ = 0;           ///< nor from this one on
  size_t lost_ = 0;                ///< bytes at the beginning of a pipe that are gone
  size_t size_ = 0;                ///< of a pipe, as far as known
  size_t held_ = 0;                ///< bytes that are there
};

}  // namespace qel::pictures

#endif  // QEL_PICTURES_BYTE_SOURCE_H_
