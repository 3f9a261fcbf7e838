#include "host/pixel_pool.h"

#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <mutex>
#include <new>

namespace qel::host {
namespace {

constexpr std::align_val_t kAlignment{64};
constexpr size_t kGranularity = 4096;
constexpr size_t kKeptBlocks = 8;
constexpr size_t kKeptBytes = size_t{256} << 20;

/// Larger blocks are pages of their own, which come zeroed.
constexpr size_t kOwnPages = size_t{1} << 20;

struct FreeBlock {
  uint8_t* data = nullptr;
  size_t size = 0;
};

FreeBlock Allocate(size_t size) {
  if (size < kOwnPages) {
    return {static_cast<uint8_t*>(operator new(size, kAlignment, std::nothrow)), size};
  }
  void* const pages = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                           MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  return {pages != MAP_FAILED ? static_cast<uint8_t*>(pages) : nullptr, size};
}

void Free(FreeBlock block) {
  if (block.size < kOwnPages) {
    operator delete(block.data, kAlignment);
  } else {
    munmap(block.data, block.size);
  }
}

}  // namespace

/// Blocks that wait for their next image, the most recently used last.
class PixelPool {
 public:
  PixelPool() = default;
  PixelPool(const PixelPool&) = delete;
  PixelPool& operator=(const PixelPool&) = delete;
  ~PixelPool() {
    while (count_ > 0) Free(Remove(0));
  }

  /// A waiting block of at least `size` bytes that is not much larger, or an empty one.
  FreeBlock Take(size_t size) {
    const std::lock_guard lock(mutex_);
    for (size_t i = count_; i-- > 0;) {
      if (free_[i].size >= size && free_[i].size / 2 <= size) return Remove(i);
    }
    return {};
  }

  /// Frees a waiting block that `size` is a little too much for: a larger one takes its place.
  /// Where none waits, the next one that is given back goes, unless one is asked for anew first.
  void MakeRoomFor(size_t size) {
    const std::lock_guard lock(mutex_);
    for (size_t i = 0; i < count_; ++i) {
      if (IsOutgrown(free_[i].size, size)) {
        Free(Remove(i));
        return;
      }
    }
    if (size > grown_size_ || IsOutgrown(size, grown_size_)) grown_ = 0;
    grown_size_ = std::max(grown_size_, size);
    if (size == grown_size_) ++grown_;
  }

  /// Keeps `block`, at the cost of those that have waited longest.
  void Give(FreeBlock block) {
    const std::lock_guard lock(mutex_);
    if (grown_ > 0 && IsOutgrown(block.size, grown_size_)) {
      --grown_;
      Free(block);
      return;
    }
    while (count_ == kKeptBlocks || (count_ > 0 && kept_bytes_ + block.size > kKeptBytes)) {
      Free(Remove(0));
    }
    if (block.size > kKeptBytes) {
      Free(block);
      return;
    }
    free_[count_++] = block;
    kept_bytes_ += block.size;
  }

 private:
  static bool IsOutgrown(size_t block, size_t size) { return block < size && block >= size / 2; }

  FreeBlock Remove(size_t index) {
    const FreeBlock block = free_[index];
    std::copy(free_.begin() + index + 1, free_.begin() + count_, free_.begin() + index);
    --count_;
    kept_bytes_ -= block.size;
    return block;
  }

  std::mutex mutex_;
  std::array<FreeBlock, kKeptBlocks> free_;
  size_t count_ = 0;
  size_t kept_bytes_ = 0;
  size_t grown_size_ = 0;  ///< of the largest blocks that were made
  size_t grown_ = 0;       ///< how many of them replace smaller ones that were in use
};

PixelBlock::PixelBlock(size_t size) {
  static const auto shared_pool = std::make_shared<PixelPool>();
  const size_t rounded = (size + kGranularity - 1) / kGranularity * kGranularity;
  FreeBlock block = shared_pool->Take(rounded);
  if (block.data == nullptr) {
    shared_pool->MakeRoomFor(rounded);
    block = Allocate(rounded);
    zero_ = rounded >= kOwnPages;
  }
  if (block.data == nullptr) return;
  pool_ = shared_pool;
  data_ = block.data;
  size_ = block.size;
}

void PixelBlock::Zero(uint8_t* begin, size_t count) const {
  uint8_t* const end = begin + count;
  const auto offset = static_cast<size_t>(begin - data_);
  uint8_t* const first = data_ + (offset + kGranularity - 1) / kGranularity * kGranularity;
  uint8_t* const last = data_ + (offset + count) / kGranularity * kGranularity;
  const bool gives_back = size_ >= kOwnPages && first < last &&
                          madvise(first, static_cast<size_t>(last - first), MADV_DONTNEED) == 0;
  if (!gives_back) {
    std::memset(begin, 0, count);
    return;
  }
  std::memset(begin, 0, static_cast<size_t>(first - begin));
  std::memset(last, 0, static_cast<size_t>(end - last));
}

PixelBlock::~PixelBlock() {
  if (data_ != nullptr) pool_->Give({data_, size_});
}

}  // namespace qel::host
