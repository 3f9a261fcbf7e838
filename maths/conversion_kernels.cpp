#include "maths/conversion_kernels.h"

#include "image/channel_sums.h"
#include "image/packed_pixels.h"
#include "image/widen_rows.h"
#include "maths/one_by_one.h"
#include "simd/convert.h"

namespace qel::QEL_LEVEL {
namespace {

void Copy(uint8_t* dest, const uint8_t* source, size_t bytes) {
  ForEachBlock<1, 64>(dest, source, bytes, [](uint8_t* to, const uint8_t* from) {
    for (size_t i = 0; i < 64; i += kVectorBytes) StoreU(LoadU<U8>(from + i), to + i);
  });
}

void FourTo3(uint8_t* dest, const uint8_t* source, size_t count) {
  // Pixels are stored with bytes behind them, which the next ones overwrite.
  if constexpr (kHasTableLookupBytes) {
    constexpr size_t kPixels = U32::kLanes;
    constexpr size_t kStored = kHasByteLookup ? kVectorBytes : 3 * kPixels + 4;
    static constexpr auto kCloseUp = MakePattern<kVectorBytes>([](size_t i) {
      const size_t byte = kHasByteLookup ? i : i % 16;
      return byte < (kHasByteLookup ? 3 * kPixels : 12) ? byte / 3 * 4 + byte % 3 : 0x80;
    });
    WalkWithReach<kStored, 3, 4>(dest, source, count, [](uint8_t* to, const uint8_t* from) {
      const U8 pixels = LoadU<U8>(from), close_up = LoadU<U8>(kCloseUp.bytes);
      if constexpr (kHasByteLookup) {
        StoreU(TableLookupLanes(pixels, close_up), to);
      } else {
        StoreBlocks(TableLookupBytesOr0(pixels, close_up), to, 12);
      }
    });
  } else {
    constexpr size_t kRun = 64;
    for (; count >= kRun; count -= kRun, source += 4 * kRun, dest += 3 * kRun) {
      PrefetchInSteps<4 * kRun>(source);
      PrefetchInSteps<3 * kRun>(dest);
      for (size_t i = 0; i < kRun; i += 4) {
        uint32_t pixels[4];
        __builtin_memcpy(pixels, source + 4 * i, sizeof(pixels));
        StoreFourOf3(pixels[0], pixels[1], pixels[2], pixels[3], dest + 3 * i);
      }
    }
  }
  one_by_one::FourTo3(dest, source, count);
}

template <size_t kBytes>
void MeanOf(uint8_t* dest, const uint8_t* source, size_t count) {
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
  WalkBlocks<64>(
      count,
      [](uint8_t* to, const uint8_t* from) {
        for (size_t i = 0; i < 64; i += kVectorBytes) {
          const U8 old = LoadU<U8>(to + i);
          StoreU(IfThenElse(old == Zero<U8>(), LoadU<U8>(from + i), old), to + i);
        }
      },
      To<1>{dest}, From<1>{source});
}
void FillBytesWhere(uint8_t* dest, const uint8_t* mask, size_t count, uint8_t value) {
  WalkBlocks<64>(
      count,
      [=](uint8_t* to, const uint8_t* from) {
        for (size_t i = 0; i < 64; i += kVectorBytes) {
          const Mask<U8> others = LoadU<U8>(from + i) == Zero<U8>();
          StoreU(IfThenElse(others, LoadU<U8>(to + i), Set<U8>(value)), to + i);
        }
      },
      To<1>{dest}, From<1>{mask});
}

void Fill(uint8_t* dest, size_t bytes, const uint8_t* pattern, bool ahead) {
  for (; bytes >= kFillPeriod; bytes -= kFillPeriod, dest += kFillPeriod) {
    if (ahead) PrefetchInSteps<kFillPeriod>(dest);
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
    PrefetchInSteps<4 * kRun>(dest);
    PrefetchInSteps<kRun>(mask);
    fill(dest, mask, kRun);
  }
  fill(dest, mask, count);
}

template <bool k>
constexpr ConversionKernels MakeConversionKernels() {
  return {
      .copy = &Copy,
      .one_to_3 = Choose<k>(&GrayTo24, &one_by_one::WidenGray<3>),
      .one_to_4 = Choose<k>(&GrayTo32, &one_by_one::WidenGray<4>),
      .three_to_4 = Choose<k>(&ColorTo32, &ColorTo32Singly),
      .four_to_3 = Choose<k>(&FourTo3, &one_by_one::FourTo3),
      .mean_of_3 = Choose<k>(&MeanOf<3>, &one_by_one::MeanOf<3>),
      .mean_of_4 = Choose<k>(&MeanOf<4>, &one_by_one::MeanOf<4>),
      .fill_zeros = Choose<k>(&FillZeros, &one_by_one::FillZeros),
      .fill = &Fill,
      .fill_bytes = Choose<k>(&FillBytesWhere, &one_by_one::FillBytesWhere),
      .fill_words = &FillWordsWhere,
  };
}

}  // namespace

extern const ConversionKernels kConversionKernels;
constinit const ConversionKernels kConversionKernels = MakeConversionKernels<kGoesByVectors>();
// Of these, the lowest level's are asked for.
extern const ConversionKernels kConversionsOneByOne;
constinit const ConversionKernels kConversionsOneByOne =
    MakeConversionKernels<(kVectorBytes > 16)>();

}  // namespace qel::QEL_LEVEL
