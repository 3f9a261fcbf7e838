#ifndef QEL_FILTER_PREFETCH_LATER_H_
#define QEL_FILTER_PREFETCH_LATER_H_

#include <cstdint>

namespace qel {

/// Brings a line to the second cache: what is needed after whole rows should not displace what is
/// needed now. Internal linkage: kernel sources use it.
static inline void PrefetchLater(const uint8_t* at) {
  __builtin_prefetch(at, 0, 2);
  // GCC drops calls of functions that do nothing but prefetch.
  asm volatile("");
}

}  // namespace qel

#endif  // QEL_FILTER_PREFETCH_LATER_H_
