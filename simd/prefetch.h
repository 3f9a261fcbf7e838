#ifndef QEL_SIMD_PREFETCH_H_
#define QEL_SIMD_PREFETCH_H_

#include <cstdint>

namespace qel {

// Orders to the memory to bring what is soon read or written. The processor itself foresees little
// more than walks through one row after the other. Internal linkage: kernel sources use them.

/// Brings the line of the cache at an address, which need not be valid; for writing with 1.
template <int kWrite = 0>
static inline void PrefetchLine(const uint8_t* at) {
  __builtin_prefetch(at, kWrite);
  // GCC drops calls of functions that do nothing but prefetch.
  asm volatile("");
}

/// Brings a run of bytes.
template <int kWrite = 0>
static inline void PrefetchRun(const uint8_t* first, int64_t bytes) {
  for (int64_t at = 0; at < bytes; at += 64) PrefetchLine<kWrite>(first + at);
  PrefetchLine<kWrite>(first + bytes - 1);
}

/// Brings the `kBytes` bytes that come a page after `at`: processors follow one row by themselves,
/// but not into the next page.
template <int64_t kBytes>
static inline void PrefetchAhead(const uint8_t* at) {
  constexpr uintptr_t kPage = 4096;
  for (int64_t i = 0; i < kBytes; i += 64) {
    // As numbers: the address may lie beyond what `at` belongs to.
    PrefetchLine(reinterpret_cast<const uint8_t*>(reinterpret_cast<uintptr_t>(at + i) + kPage));
  }
}

/// The same in two steps, for what takes no longer than the memory: the nearest cache waits for few
/// lines at a time, so the second one waits for the memory, and hands them on a little later.
template <int64_t kBytes>
static inline void PrefetchInSteps(const uint8_t* at) {
  constexpr uintptr_t kPage = 4096, kNear = 1024;
  constexpr int kSecondCache = 2, kNearestCache = 3;
  const auto first = reinterpret_cast<uintptr_t>(at);
  for (uintptr_t i = 0; i < kBytes; i += 64) {
    __builtin_prefetch(reinterpret_cast<const uint8_t*>(first + i + kPage), 0, kSecondCache);
    __builtin_prefetch(reinterpret_cast<const uint8_t*>(first + i + kNear), 0, kNearestCache);
  }
  asm volatile("");
}

}  // namespace qel

#endif  // QEL_SIMD_PREFETCH_H_
