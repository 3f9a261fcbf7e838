#ifndef QEL_SIMD_STREAM_H_
#define QEL_SIMD_STREAM_H_

#include <cstddef>
#include <cstdint>

namespace qel {

/// From how many bytes on results are stored past the caches: larger ones leave the caches of most
/// processors before anybody reads them.
int64_t LeastStreamedBytes();

/// Copies bytes past the caches, where the processor can: what is written is not read first, and
/// displaces nothing.
void StreamBytes(uint8_t* dest, const uint8_t* source, size_t count);

/// Has what was streamed come before all later stores, as other threads see them.
void FinishStream();

}  // namespace qel

#endif  // QEL_SIMD_STREAM_H_
