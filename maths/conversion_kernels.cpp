#include "maths/conversion_kernels.h"

#include "image/channel_sums.h"
#include "image/widen_rows.h"
#include "simd/convert.h"

namespace qel::QEL_LEVEL {
namespace {

// The lowest level goes one pixel after the other, whatever rows share memory.

void Copy(uint8_t* dest, const uint8_t* source, size_t bytes) {
  ForEachBlock<1, 64>(dest, source, bytes, [](uint8_t* to, const uint8_t* from) {
    for (size_t i = 0; i < 64; i += kVectorBytes) StoreU(LoadU<U8>(from + i), to + i);
  });
}

void FourTo3Singly(uint8_t* dest, const uint8_t* source, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    for (size_t c = 0; c < 3; ++c) dest[3 * i + c] = source[4 * i + c];
  }
}
void FourTo3(uint8_t* dest, const uint8_t* source, size_t count) {
  if constexpr (kVectorBytes == 16) return FourTo3Singly(dest, source, count);
  // Pixels are stored with bytes behind them, which the next ones overwrite.
  constexpr size_t kPixels = U32::kLanes;
  constexpr size_t kStored = kHasByteLookup ? kVectorBytes : 3 * kPixels + 4;
  static constexpr auto kCloseUp = MakePattern<kVectorBytes>([](size_t i) {
    const size_t byte = kHasByteLookup ? i : i % 16;
    return byte < (kHasByteLookup ? 3 * kPixels : 12) ? byte / 3 * 4 + byte % 3 : 0x80;
  });
  for (; 3 * count >= kStored; count -= kPixels, source += 4 * kPixels, dest += 3 * kPixels) {
    PrefetchAhead<4 * kPixels>(source);
    PrefetchAhead<3 * kPixels>(dest);
    const U8 pixels = LoadU<U8>(source), close_up = LoadU<U8>(kCloseUp.bytes);
    if constexpr (kHasByteLookup) {
      StoreU(TableLookupLanes(pixels, close_up), dest);
    } else {
      StoreBlocks(TableLookupBytesOr0(pixels, close_up), dest, 12);
    }
  }
  FourTo3Singly(dest, source, count);
}

template <size_t kBytes>
void MeanOf(uint8_t* dest, const uint8_t* source, size_t count) {
  if constexpr (kVectorBytes == 16) {
    for (size_t i = 0; i < count; ++i) {
      const uint8_t* const pixel = source + kBytes * i;
      dest[i] = static_cast<uint8_t>((pixel[0] + pixel[1] + pixel[2]) / 3);
    }
    return;
  }
  WalkBlocks<kVectorBytes>(
      count,
      [](uint8_t* to, const uint8_t* from) {
        if constexpr (kBytes == 4) {
          const auto means = [=](size_t k) {
            const I32 sums = SumsOf3In4(LoadU<U32>(from + k * kVectorBytes));
            return BitCast<I32>(Third(BitCast<I16>(sums)));
          };
          StoreU(OrderedDemote4To8(means(0), means(1), means(2), means(3)), to);
        } else {
          U8 channels[kBytes];
          LoadInterleaved<kBytes>(from, channels);
          StoreU(Mean(ChannelSums(channels)), to);
        }
      },
      To<1>{dest}, From<kBytes>{source});
}

// Whole vectors are stored again: storing single bytes by masks is slow.

void FillZeros(uint8_t* dest, const uint8_t* source, size_t count) {
  if constexpr (kVectorBytes == 16) {
    for (size_t i = 0; i < count; ++i) dest[i] = dest[i] == 0 ? source[i] : dest[i];
    return;
  }
  WalkBlocks<kVectorBytes>(
      count,
      [](uint8_t* to, const uint8_t* from) {
        const U8 old = LoadU<U8>(to);
        StoreU(IfThenElse(old == Zero<U8>(), LoadU<U8>(from), old), to);
      },
      To<1>{dest}, From<1>{source});
}
void FillBytesWhere(uint8_t* dest, const uint8_t* mask, size_t count, uint8_t value) {
  if constexpr (kVectorBytes == 16) {
    for (size_t i = 0; i < count; ++i) dest[i] = mask[i] != 0 ? value : dest[i];
    return;
  }
  WalkBlocks<kVectorBytes>(
      count,
      [=](uint8_t* to, const uint8_t* from) {
        const Mask<U8> others = LoadU<U8>(from) == Zero<U8>();
        StoreU(IfThenElse(others, LoadU<U8>(to), Set<U8>(value)), to);
      },
      To<1>{dest}, From<1>{mask});
}

void Fill(uint8_t* dest, size_t bytes, const uint8_t* pattern, bool ahead) {
  for (; bytes >= kFillPeriod; bytes -= kFillPeriod, dest += kFillPeriod) {
    if (ahead) PrefetchAhead<kFillPeriod>(dest);
    __builtin_memcpy(dest, pattern, kFillPeriod);
  }
  __builtin_memcpy(dest, pattern, bytes);
}
void FillWordsWhere(uint8_t* dest, const uint8_t* mask, size_t count, uint32_t value) {
  const auto fill = [value](uint8_t* to, const uint8_t* selected, size_t words) {
    for (size_t i = 0; i < words; ++i) {
      uint32_t word;
      __builtin_memcpy(&word, to + 4 * i, sizeof(word));
      word = selected[i] != 0 ? value : word;
      __builtin_memcpy(to + 4 * i, &word, sizeof(word));
    }
  };
  constexpr size_t kRun = 64;
  for (; count >= kRun; count -= kRun, dest += 4 * kRun, mask += kRun) {
    PrefetchAhead<4 * kRun>(dest);
    PrefetchAhead<kRun>(mask);
    fill(dest, mask, kRun);
  }
  fill(dest, mask, count);
}

}  // namespace

extern const ConversionKernels kConversionKernels;
constinit const ConversionKernels kConversionKernels = {
    .copy = &Copy,
    .one_to_3 = &GrayTo24,
    .one_to_4 = &GrayTo32,
    .three_to_4 = &ColorTo32,
    .four_to_3 = &FourTo3,
    .mean_of_3 = &MeanOf<3>,
    .mean_of_4 = &MeanOf<4>,
    .fill_zeros = &FillZeros,
    .fill = &Fill,
    .fill_bytes = &FillBytesWhere,
    .fill_words = &FillWordsWhere,
};

}  // namespace qel::QEL_LEVEL
