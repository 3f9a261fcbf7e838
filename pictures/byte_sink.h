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
  /// Replaces bytes that were written, all of them: what a header says that is known only at the
  /// end. Throws as `Write`.
  virtual void WriteAt(uint64_t at, std::span<const uint8_t> bytes) = 0;
};

/// A file in memory.
class MemorySink final : public ByteSink {
 public:
  void Write(std::span<const uint8_t> bytes) override {
    file.insert(file.end(), bytes.begin(), bytes.end());
  }
  void WriteAt(uint64_t at, std::span<const uint8_t> bytes) override {
    std::ranges::copy(bytes, file.begin() + static_cast<ptrdiff_t>(at));
  }

  std::vector<uint8_t> file;
};

}  // namespace qel::pictures

#endif  // QEL_PICTURES_BYTE_SINK_H_
