#ifndef QEL_TESTS_SUPPORT_GUARDED_MEMORY_H_
#define QEL_TESTS_SUPPORT_GUARDED_MEMORY_H_

#include <sys/mman.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace qel::test {

/// Bytes that end where a page without access begins: one read or write too far ends the test. The
/// bytes before them, as many as fill their pages, are there to be compared.
class GuardedMemory {
 public:
  explicit GuardedMemory(size_t size)
      : size_(size),
        block_((size + 2 * kPage - 1) / kPage * kPage),
        start_(static_cast<uint8_t*>(mmap(nullptr, block_ + kPage, PROT_READ | PROT_WRITE,
                                          MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {
    mprotect(start_ + block_, kPage, PROT_NONE);
  }
  GuardedMemory(const GuardedMemory&) = delete;
  GuardedMemory& operator=(const GuardedMemory&) = delete;
  ~GuardedMemory() { munmap(start_, block_ + kPage); }

  uint8_t* data() const { return start_ + block_ - size_; }
  /// Sets the bytes before `data` as well as its own.
  void Fill(uint8_t value) const { std::fill_n(start_, block_, value); }
  /// True when the bytes before `data` still are what `Fill` made them.
  bool Untouched(uint8_t value) const {
    return std::all_of(start_, start_ + (block_ - size_), [=](uint8_t b) { return b == value; });
  }

 private:
  static constexpr size_t kPage = 4096;

  size_t size_;
  size_t block_;
  uint8_t* start_;
};

}  // namespace qel::test

#endif  // QEL_TESTS_SUPPORT_GUARDED_MEMORY_H_
