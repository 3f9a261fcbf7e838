#ifndef QEL_TRANSFORM_FETCH_H_
#define QEL_TRANSFORM_FETCH_H_

#include <cstdint>

namespace qel {

/// Has the memory bring bytes that are soon read: the processor foresees little more than walks
/// through one row after the other.
inline void Fetch(const uint8_t* first, int64_t bytes) {
  for (int64_t at = 0; at < bytes; at += 64) __builtin_prefetch(first + at);
  __builtin_prefetch(first + bytes - 1);
}

/// The same for bytes that are soon written.
inline void FetchForWriting(const uint8_t* first, int64_t bytes) {
  for (int64_t at = 0; at < bytes; at += 64) __builtin_prefetch(first + at, 1);
  __builtin_prefetch(first + bytes - 1, 1);
}

}  // namespace qel

#endif  // QEL_TRANSFORM_FETCH_H_
