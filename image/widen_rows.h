#ifndef QEL_IMAGE_WIDEN_ROWS_H_
#define QEL_IMAGE_WIDEN_ROWS_H_

#include "simd/interleaved.h"
#include "simd/row_walk.h"

namespace qel::QEL_LEVEL {
namespace {

// Rows of pixels written with more bytes, for kernel sources. Alpha becomes 255. Rows do not
// overlap.

/// Calls `step(dest, source)` for every vector of pixels of 4 bytes, of which a row has
/// `kDestBytes` or `kSourceBytes`, as long as the row of 3 bytes a pixel has the `kReach` bytes
/// that a step touches there. The next pages are fetched ahead. Pixels that remain are left to the
/// caller.
template <size_t kReach, size_t kDestBytes, size_t kSourceBytes, typename Step>
inline void WalkWithReach(uint8_t*& dest, const uint8_t*& source, size_t& count, const Step& step) {
  constexpr size_t kPixels = U32::kLanes, kRun = 4;
  const auto next = [&] {
    step(dest, source);
    dest += kDestBytes * kPixels;
    source += kSourceBytes * kPixels;
    count -= kPixels;
  };
  while (3 * count >= 3 * kPixels * (kRun - 1) + kReach) {
    PrefetchInSteps<kSourceBytes * kPixels * kRun>(source);
    PrefetchInSteps<kDestBytes * kPixels * kRun>(dest);
    for (size_t i = 0; i < kRun; ++i) next();
  }
  while (3 * count >= kReach) next();
}

inline void GrayTo24(uint8_t* dest, const uint8_t* source, size_t count) {
  WalkBlocks<64>(
      count,
      [](uint8_t* to, const uint8_t* from) {
        for (size_t i = 0; i < 64; i += kVectorBytes)
          StoreRepeated3(LoadU<U8>(from + i), to + 3 * i);
      },
      To<3>{dest}, From<1>{source});
}

inline void GrayTo32(uint8_t* dest, const uint8_t* source, size_t count) {
  constexpr size_t kRun = 64;
  WalkBlocks<kRun>(
      count,
      [](uint8_t* __restrict to, const uint8_t* __restrict from) {
        for (size_t i = 0; i < kRun; ++i) {
          const uint32_t color = from[i] * 0x010101u | 0xFF000000u;
          __builtin_memcpy(to + 4 * i, &color, 4);
        }
      },
      To<4>{dest}, From<1>{source});
}

inline void ColorTo32Singly(uint8_t* dest, const uint8_t* source, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    for (size_t c = 0; c < 3; ++c) dest[4 * i + c] = source[3 * i + c];
    dest[4 * i + 3] = 255;
  }
}
inline void ColorTo32(uint8_t* dest, const uint8_t* source, size_t count) {
  // Pixels are loaded with what is behind them, and stored without being taken apart.
  if constexpr (kHasTableLookupBytes) {
    constexpr size_t kPixels = U32::kLanes;
    constexpr size_t kLoaded = kHasByteLookup ? kVectorBytes : 3 * kPixels + 4;
    static constexpr auto kApart = MakePattern<kVectorBytes>([](size_t i) {
      const size_t pixel = kHasByteLookup ? i / 4 : i % 16 / 4;
      return i % 4 == 3 ? 0x80 : 3 * pixel + i % 4;
    });
    WalkWithReach<kLoaded, 4, 3>(dest, source, count, [](uint8_t* to, const uint8_t* from) {
      const U8 apart = LoadU<U8>(kApart.bytes);
      U8 colors;
      if constexpr (kHasByteLookup) {
        colors = TableLookupLanes(LoadU<U8>(from), apart);
      } else {
        colors = TableLookupBytesOr0(LoadBlocks<U8>(from, 12), apart);
      }
      StoreU(colors | BitCast<U8>(Set<U32>(0xFF000000u)), to);
    });
  } else {
    constexpr size_t kRun = 64;
    for (; count > kRun; count -= kRun, source += 3 * kRun, dest += 4 * kRun) {
      PrefetchInSteps<3 * kRun>(source);
      PrefetchInSteps<4 * kRun>(dest);
      for (size_t i = 0; i < kRun; ++i) {
        uint32_t color;
        __builtin_memcpy(&color, source + 3 * i, 4);
        color |= 0xFF000000u;
        __builtin_memcpy(dest + 4 * i, &color, 4);
      }
    }
  }
  ColorTo32Singly(dest, source, count);
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_IMAGE_WIDEN_ROWS_H_
