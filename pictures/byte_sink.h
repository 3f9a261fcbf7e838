#ifndef QEL_PICTURES_BYTE_SINK_H_
#define QEL_PICTURES_BYTE_SINK_H_

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

namespace qel::pictures {

/// Where the bytes of a file go. Threads: one at a time.
class ByteSink {
 public:
  virtual ~ByteSink() = default;
  /// Appends bytes. Throws `PictureError` when they find no room.
  virtual void Write(std::span<const uint8_t> bytes) = 0;
  /// Puts bytes to a position, in the place of others or behind the end, with zeros between:
  /// what a header says that is known only at the end, rows from the bottom up. `Write` is not to
  /// be called any more once this went past the end. Throws as `Write`.
  virtual void WriteAt(uint64_t at, std::span<const uint8_t> bytes) = 0;
};

/// A file in memory.
class MemorySink final : public ByteSink {
 public:
  void Write(std::span<const uint8_t> bytes) override {
    file.insert(file.end(), bytes.begin(), bytes.end());
  }
  void WriteAt(uint64_t at, std::span<const uint8_t> bytes) override {
    file.resize(std::max<size_t>(file.size(), at + bytes.size()));
    std::ranges::copy(bytes, file.begin() + static_cast<ptrdiff_t>(at));
  }

  std::vector<uint8_t> file;
};

}  // namespace qel::pictures

#endif  // QEL_PICTURES_BYTE_SINK_H_
