#ifndef QEL_HOST_PIXEL_POOL_H_
#define QEL_HOST_PIXEL_POOL_H_

#include <cstddef>
#include <cstdint>
#include <utility>

namespace qel::host {

/// One block of memory for pixels, aligned to 64 bytes, from a pool that images share: fresh pages
/// cost several times as much as filling them once more. Blocks keep what was in them.
/// Threads: any.
class PixelBlock {
 public:
  PixelBlock() = default;
  /// At least `size` bytes; empty when there is no memory.
  explicit PixelBlock(size_t size);
  PixelBlock(PixelBlock&& other) noexcept
      : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {}
  PixelBlock& operator=(PixelBlock&& other) noexcept {
    std::swap(data_, other.data_);
    std::swap(size_, other.size_);
    return *this;
  }
  ~PixelBlock();

  uint8_t* data() const { return data_; }

 private:
  uint8_t* data_ = nullptr;
  size_t size_ = 0;
};

}  // namespace qel::host

#endif  // QEL_HOST_PIXEL_POOL_H_
