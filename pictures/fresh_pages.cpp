#include "pictures/fresh_pages.h"

#include <sys/mman.h>
#include <unistd.h>

#include <new>

namespace qel::pictures {

FreshPages::~FreshPages() {
  if (data_ != nullptr) munmap(data_, size_);
}

void FreshPages::Resize(size_t size) {
  if (size == size_) return;
  if (size == 0) {
    FreshPages().Swap(*this);
    return;
  }
  constexpr int kProtection = PROT_READ | PROT_WRITE;
  constexpr int kFlags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;
  void* const data = data_ == nullptr ? mmap(nullptr, size, kProtection, kFlags, -1, 0)
                                      : mremap(data_, size_, size, MREMAP_MAYMOVE);
  if (data == MAP_FAILED) throw std::bad_alloc();
  data_ = static_cast<uint8_t*>(data);
  size_ = size;
}

void FreshPages::Discard(size_t at, size_t count) {
  const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const size_t begin = (at + page - 1) / page * page;
  const size_t end = (at + count) / page * page;
  if (begin < end) madvise(data_ + begin, end - begin, MADV_DONTNEED);
}

}  // namespace qel::pictures
