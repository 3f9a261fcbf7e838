#ifndef QEL_PICTURES_FRESH_PAGES_H_
#define QEL_PICTURES_FRESH_PAGES_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

namespace qel::pictures {

/// Zeroed memory that costs nothing until it is touched: what a damaged file announces and never
/// delivers takes no room.
class FreshPages {
 public:
  FreshPages() = default;
  /// Throws `std::bad_alloc`.
  explicit FreshPages(size_t size) { Resize(size); }
  FreshPages(FreshPages&& other) noexcept { Swap(other); }
  FreshPages& operator=(FreshPages&& other) noexcept {
    FreshPages old(std::move(other));
    Swap(old);
    return *this;
  }
  ~FreshPages();

  uint8_t* data() const { return data_; }
  size_t size() const { return size_; }
  std::span<const uint8_t> bytes() const { return {data_, size_}; }

  /// Keeps what is there; new bytes are 0. The memory may move. Throws `std::bad_alloc`.
  void Resize(size_t size);
  /// Gives back the pages that lie wholly in a range; their bytes are 0 again.
  void Discard(size_t at, size_t count);

 private:
  void Swap(FreshPages& other) noexcept {
    std::swap(data_, other.data_);
    std::swap(size_, other.size_);
  }

  uint8_t* data_ = nullptr;
  size_t size_ = 0;
};

}  // namespace qel::pictures

#endif  // QEL_PICTURES_FRESH_PAGES_H_
