#ifndef QEL_TRANSFORM_FETCH_H_
#define QEL_TRANSFORM_FETCH_H_

#include <cstdint>

namespace qel {

// Orders to the memory to bring what is soon read or written. The processor itself foresees little
// more than walks through one row after the other. Internal linkage: kernel sources use them.

/// Brings the line of the cache at an address, which need not be valid; for writing with 1.
template <int kWrite = 0>
static inline void FetchLine(const uint8_t* at) {
  __builtin_prefetch(at, kWrite);
  // GCC drops calls of functions that do nothing but fetch.
  asm volatile("");
}

/// Brings a run of bytes.
template <int kWrite = 0>
static inline void Fetch(const uint8_t* first, int64_t bytes) {
  for (int64_t at = 0; at < bytes; at += 64) FetchLine<kWrite>(first + at);
  FetchLine<kWrite>(first + bytes - 1);
}

}  // namespace qel

#endif  // QEL_TRANSFORM_FETCH_H_
