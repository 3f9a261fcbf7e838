#include "host/pixel_pool.h"

#include <mutex>
#include <new>
#include <vector>

namespace qel::host {
namespace {

constexpr std::align_val_t kAlignment{64};
constexpr size_t kGranularity = 4096;
constexpr size_t kKeptBlocks = 8;
constexpr size_t kKeptBytes = size_t{256} << 20;

struct FreeBlock {
  uint8_t* data;
  size_t size;
};

/// Blocks that wait for their next image, the most recently used last.
class Pool {
 public:
  ~Pool() {
    for (const FreeBlock& block : free_) operator delete(block.data, kAlignment);
  }

  /// A waiting block of at least `size` bytes that is not much larger, or an empty one.
  FreeBlock Take(size_t size) {
    const std::lock_guard lock(mutex_);
    for (size_t i = free_.size(); i-- > 0;) {
      const FreeBlock block = free_[i];
      if (block.size < size || block.size / 2 > size) continue;
      free_.erase(free_.begin() + static_cast<std::ptrdiff_t>(i));
      kept_bytes_ -= block.size;
      return block;
    }
    return {nullptr, 0};
  }

  void Give(FreeBlock block) {
    const std::lock_guard lock(mutex_);
    if (block.size <= kKeptBytes) {
      free_.push_back(block);
      kept_bytes_ += block.size;
    } else {
      operator delete(block.data, kAlignment);
    }
    while (free_.size() > kKeptBlocks || kept_bytes_ > kKeptBytes) {
      kept_bytes_ -= free_.front().size;
      operator delete(free_.front().data, kAlignment);
      free_.erase(free_.begin());
    }
  }

 private:
  std::mutex mutex_;
  std::vector<FreeBlock> free_;
  size_t kept_bytes_ = 0;
};

Pool& SharedPool() {
  static Pool pool;
  return pool;
}

}  // namespace

PixelBlock::PixelBlock(size_t size) {
  const size_t rounded = (size + kGranularity - 1) / kGranularity * kGranularity;
  if (rounded < size) return;
  FreeBlock block = SharedPool().Take(rounded);
  if (block.data == nullptr) {
    block = {static_cast<uint8_t*>(operator new(rounded, kAlignment, std::nothrow)), rounded};
  }
  if (block.data == nullptr) return;
  data_ = block.data;
  size_ = block.size;
}

PixelBlock::~PixelBlock() {
  if (data_ != nullptr) SharedPool().Give({data_, size_});
}

}  // namespace qel::host
