#ifndef QEL_MATHS_ONE_BY_ONE_H_
#define QEL_MATHS_ONE_BY_ONE_H_

#include "maths/arithmetic_kernels.h"
#include "maths/conversion_kernels.h"
#include "maths/scale_kernels.h"
#include "simd/simd.h"

// The kernels of this folder one pixel after the other, whatever rows share memory and however
// large sums become, and the choice between them and vectors. Internal linkage, for kernel sources.

namespace qel::QEL_LEVEL {
namespace {
namespace one_by_one {

inline void Add(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t count) {
  for (size_t i = 0; i < count; ++i) dest[i] = ClampToByte(a[i] + b[i]);
}
inline void AddScaled(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t count,
                      const SumFactor& scale) {
  for (size_t i = 0; i < count; ++i) dest[i] = scale(a[i] + b[i]);
}
inline void AddByTable(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t count,
                       const uint8_t* table) {
  for (size_t i = 0; i < count; ++i) dest[i] = table[a[i] + b[i]];
}

template <bool kAbsolute, size_t kBytes>
uint64_t Subtract(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t count, uint8_t alpha) {
  uint64_t tally = 0;
  for (size_t i = 0; i < kBytes * count; ++i) {
    if (kBytes == 4 && i % 4 == 3) {
      dest[i] = alpha;
      continue;
    }
    int d = a[i] - b[i];
    if (d < 0) d = kAbsolute ? -d : 0;
    tally += d >= 2;
    dest[i] = static_cast<uint8_t>(d);
  }
  return tally;
}

inline void Mix(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t count,
                const MixWeights& weights) {
  for (size_t i = 0; i < count; ++i) dest[i] = weights(a[i], b[i]);
}
template <size_t kDest, size_t kA, size_t kB, size_t kComputed = 3>
void MixColors(uint8_t* dest, const uint8_t* a, const uint8_t* b, const uint8_t* mask,
               size_t pixels, const MixWeights& weights) {
  for (size_t i = 0; i < pixels; ++i) {
    if (mask != nullptr && mask[i] == 0) continue;
    for (size_t c = 0; c < kComputed; ++c) {
      dest[kDest * i + c] = weights(a[kA * i + c], b[kB * i + c]);
    }
  }
}
template <size_t kBytes>
constexpr auto MixWhere = MixColors<kBytes, kBytes, kBytes, kBytes>;

inline void MapBytes(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  for (size_t i = 0; i < count; ++i) dest[i] = map.table[source[i]];
}
inline void MapTo3(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  for (size_t i = 0; i < count; ++i) {
    dest[3 * i] = dest[3 * i + 1] = dest[3 * i + 2] = map.table[source[i]];
  }
}
inline void Map4To3(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  for (size_t i = 0; i < count; ++i) {
    for (size_t c = 0; c < 3; ++c) dest[3 * i + c] = map.table[source[4 * i + c]];
  }
}
inline void MapBytesWhere(uint8_t* dest, const uint8_t* source, const uint8_t* mask, size_t count,
                          const ScaleMap& map) {
  for (size_t i = 0; i < count; ++i) {
    if (mask[i] != 0) dest[i] = map.table[source[i]];
  }
}

template <size_t kBytes>
void GrayOf(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  for (size_t i = 0; i < count; ++i) {
    const uint8_t* const pixel = source + kBytes * i;
    dest[i] = TruncateToByte(map(static_cast<float>(pixel[0] + pixel[1] + pixel[2])));
  }
}

/// Grays into pixels of 3 bytes, or of 4, opaque.
template <size_t kBytes>
void WidenGray(uint8_t* dest, const uint8_t* source, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    for (size_t c = 0; c < 3; ++c) dest[kBytes * i + c] = source[i];
    if (kBytes == 4) dest[4 * i + 3] = 255;
  }
}
inline void FourTo3(uint8_t* dest, const uint8_t* source, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    for (size_t c = 0; c < 3; ++c) dest[3 * i + c] = source[4 * i + c];
  }
}
template <size_t kBytes>
void MeanOf(uint8_t* dest, const uint8_t* source, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    const uint8_t* const pixel = source + kBytes * i;
    dest[i] = static_cast<uint8_t>((pixel[0] + pixel[1] + pixel[2]) / 3);
  }
}
inline void FillZeros(uint8_t* dest, const uint8_t* source, size_t count) {
  for (size_t i = 0; i < count; ++i) dest[i] = dest[i] == 0 ? source[i] : dest[i];
}
inline void FillBytesWhere(uint8_t* dest, const uint8_t* mask, size_t count, uint8_t value) {
  for (size_t i = 0; i < count; ++i) dest[i] = mask[i] != 0 ? value : dest[i];
}

inline int32_t WordAt(const uint8_t* row, size_t i) {
  int32_t word;
  __builtin_memcpy(&word, row + 4 * i, sizeof(word));
  return word;
}
/// The byte of an integer into the first `kCopies` of `kBytes`.
template <size_t kBytes, size_t kCopies>
void WordsTo(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  for (size_t i = 0; i < count; ++i) {
    const uint8_t byte = TruncateToByte(map(static_cast<float>(WordAt(source, i))));
    for (size_t c = 0; c < kCopies; ++c) dest[kBytes * i + c] = byte;
  }
}
constexpr auto WordsTo1 = WordsTo<1, 1>;
constexpr auto WordsTo3 = WordsTo<3, 3>;
constexpr auto WordsTo4 = WordsTo<4, 3>;
inline void WordsToWords(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  for (size_t i = 0; i < count; ++i) {
    const int32_t word = TruncateFromZero(map(static_cast<float>(WordAt(source, i))));
    __builtin_memcpy(dest + 4 * i, &word, sizeof(word));
  }
}

template <typename Factor>
void Scale8(uint8_t* dest, const uint8_t* source, size_t count, Factor factor, int32_t offset) {
  for (size_t i = 0; i < count; ++i) {
    const int32_t product = TruncateToInt(static_cast<Factor>(WordAt(source, i)) * factor);
    dest[i] = ClampToByte(WrapAdd(product, offset));
  }
}

}  // namespace one_by_one

constexpr bool kGoesByVectors = kVectorBytes > 16 || kHasSaturated16;

template <bool kByVectors, typename Row>
constexpr Row Choose(Row vectors, Row singly) {
  return kByVectors ? vectors : singly;
}
/// For what shuffles bytes or looks them up.
template <bool kByVectors, typename Row>
constexpr Row ChooseShuffled(Row vectors, Row singly) {
  return kByVectors && kHasTableLookupBytes ? vectors : singly;
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_MATHS_ONE_BY_ONE_H_
