#include "simd/stream.h"

#include <algorithm>
#include <cstring>

#include "simd/prefetch.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace qel {

#ifdef __SSE2__

void StreamBytes(uint8_t* dest, const uint8_t* source, size_t count) {
  constexpr size_t kLine = 64;
  const size_t to_line = (kLine - reinterpret_cast<uintptr_t>(dest) % kLine) % kLine;
  const size_t before = std::min(to_line, count);
  std::memcpy(dest, source, before);
  size_t i = before;
  for (; i + kLine <= count; i += kLine) {
    const auto* const from = reinterpret_cast<const __m128i*>(source + i);
    auto* const to = reinterpret_cast<__m128i*>(dest + i);
    PrefetchAhead<kLine>(source + i);
    const __m128i a = _mm_loadu_si128(from), b = _mm_loadu_si128(from + 1);
    const __m128i c = _mm_loadu_si128(from + 2), d = _mm_loadu_si128(from + 3);
    // Whole lines leave the processor at once.
    _mm_stream_si128(to, a);
    _mm_stream_si128(to + 1, b);
    _mm_stream_si128(to + 2, c);
    _mm_stream_si128(to + 3, d);
  }
  std::memcpy(dest + i, source + i, count - i);
}

void FinishStream() { _mm_sfence(); }

#else

void StreamBytes(uint8_t* dest, const uint8_t* source, size_t count) {
  std::memcpy(dest, source, count);
}

void FinishStream() {}

#endif

}  // namespace qel
