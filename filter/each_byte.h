#ifndef QEL_FILTER_EACH_BYTE_H_
#define QEL_FILTER_EACH_BYTE_H_

#include <cstddef>
#include <cstdint>

namespace qel {
// Kernel sources are compiled once per processor level: each copy has its own.
namespace {

constexpr size_t kByteBlock = 64;

/// One block. Its bytes do not depend on each other.
template <typename Value>
inline void TakeBlock(uint8_t* dest, size_t first, const Value& value) {
#ifdef __clang__
#pragma clang loop vectorize(assume_safety)
#else
#pragma GCC ivdep
#endif
  for (size_t i = first; i < first + kByteBlock; ++i) dest[i] = value(i, dest[i]);
}

/// dest[i] = value(i, dest[i]) in blocks that the compiler turns into vectors. Bytes after the last
/// whole block are taken together with some before them again, so `value` must not mind being
/// applied twice.
template <typename Value>
inline void ForEachByte(uint8_t* dest, size_t count, const Value& value) {
  size_t k = 0;
  for (; k + kByteBlock <= count; k += kByteBlock) TakeBlock(dest, k, value);
  if (k == count) return;
  if (count >= kByteBlock) {
    TakeBlock(dest, count - kByteBlock, value);
    return;
  }
  for (; k < count; ++k) dest[k] = value(k, dest[k]);
}

}  // namespace
}  // namespace qel

#endif  // QEL_FILTER_EACH_BYTE_H_
