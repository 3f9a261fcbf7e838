#ifndef QEL_FILTER_EACH_BYTE_H_
#define QEL_FILTER_EACH_BYTE_H_

#include <cstddef>
#include <cstdint>

namespace qel {
// Kernel sources are compiled once per processor level: each copy has its own.
namespace {

/// dest[i] = value(i, dest[i]) in blocks that the compiler turns into vectors. Bytes after the last
/// whole block are taken together with some before them again, so `value` must not mind being
/// applied twice.
template <typename Value>
inline void ForEachByte(uint8_t* dest, size_t count, Value value) {
  constexpr size_t kBlock = 64;
  size_t k = 0;
  for (; k + kBlock <= count; k += kBlock) {
#pragma GCC ivdep
    for (size_t i = k; i < k + kBlock; ++i) dest[i] = value(i, dest[i]);
  }
  if (k == count) return;
  if (count < kBlock) {
    for (; k < count; ++k) dest[k] = value(k, dest[k]);
    return;
  }
#pragma GCC ivdep
  for (size_t i = count - kBlock; i < count; ++i) dest[i] = value(i, dest[i]);
}

}  // namespace
}  // namespace qel

#endif  // QEL_FILTER_EACH_BYTE_H_
