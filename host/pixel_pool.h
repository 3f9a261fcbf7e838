#ifndef QEL_HOST_PIXEL_POOL_H_
#define QEL_HOST_PIXEL_POOL_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

namespace qel::host {

class PixelPool;

/// One block of memory for pixels, aligned to 64 bytes, from a pool that images share: fresh pages
/// cost several times as much as filling them once more. Blocks keep what was in them.
/// Threads: any.
class PixelBlock {
 public:
  PixelBlock() = default;
  /// At least `size` bytes; empty when there is no memory.
  explicit PixelBlock(size_t size);
  PixelBlock(PixelBlock&& other) noexcept { Swap(other); }
  PixelBlock& operator=(PixelBlock&& other) noexcept {
    PixelBlock old;
    old.Swap(*this);
    Swap(other);
    return *this;
  }
  ~PixelBlock();

  uint8_t* data() const { return data_; }
  /// Whether all bytes are 0: pages of the system, which cost nothing until they are touched.
  bool IsZero() const { return zero_; }
  /// Makes `count` bytes of the block 0. Of large blocks whole pages go back to the system: they
  /// cost nothing again until they are touched.
  void Zero(uint8_t* begin, size_t count) const;

 private:
  void Swap(PixelBlock& other) noexcept {
    pool_.swap(other.pool_);
    std::swap(data_, other.data_);
    std::swap(size_, other.size_);
    std::swap(zero_, other.zero_);
  }

  // Images may outlive the statics of the library that made them; they keep the pool alive.
  std::shared_ptr<PixelPool> pool_;
  uint8_t* data_ = nullptr;
  size_t size_ = 0;
  bool zero_ = false;
};

}  // namespace qel::host

#endif  // QEL_HOST_PIXEL_POOL_H_
