#ifndef QEL_TRANSFORM_ROTATE_SAMPLE_OFFSETS_H_
#define QEL_TRANSFORM_ROTATE_SAMPLE_OFFSETS_H_

#include "transform/rotate/rotate_kernels.h"
#include "transform/word_vectors.h"

// What kernels of rotations share. Everything has internal linkage.

namespace qel::QEL_LEVEL {
namespace {

/// Points that are weighed and summed together: two vectors, as additions of one fill the waits of
/// the other.
constexpr size_t kGroup = 2 * F32::kLanes;
static_assert(kSampleGroup % kGroup == 0);

constexpr size_t RoundUp(size_t count) { return (count + kGroup - 1) / kGroup * kGroup; }

/// Offsets of the pixels at the truncated positions, moved by `move` pixels to the left and up.
template <int kBytes>
void PixelOffsets(int32_t* __restrict offsets, const SampleSource& source,
                  const SamplePoints& points, size_t count, float offset, int32_t move) {
  const int32_t stride = source.stride;
  for (size_t i = 0; i < count; ++i) {
    const int32_t column = static_cast<int32_t>(points.x[i] + offset) - move;
    const int32_t row = static_cast<int32_t>(points.y[i] + offset) - move;
    offsets[i] = row * stride + column * kBytes;
  }
}

/// Sums of the weighted channels of pixels of 1, 3 or 4 bytes as colors.
template <int kBytes>
QEL_SIMD_INLINE I32 ColorsOf(const F32 (&sums)[kBytes]) {
  I32 packed = PackColors(sums);
  if constexpr (kBytes == 1) packed *= Set<I32>(0x010101);
  if constexpr (kBytes == 4) packed |= ShiftLeft<24>(BytesOf(sums[3]));
  return packed;
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_TRANSFORM_ROTATE_SAMPLE_OFFSETS_H_
