#include "maths/conversion_kernels.h"

#include "image/widen_rows.h"

namespace qel::QEL_LEVEL {
namespace {

#ifdef QEL_HAS_COLOUR_VECTORS

void FourTo3(uint8_t* dest, const uint8_t* source, size_t count) {
  WalkBlocks<kVectorBytes>(
      count,
      [](uint8_t* to, const uint8_t* from) {
        Vector channels[4];
        LoadPixels<4>(from, channels);
        StorePixels<3>(to, channels);
      },
      To<3>{dest}, From<4>{source});
}

template <size_t kBytes>
void Mean(uint8_t* dest, const uint8_t* source, size_t count) {
  const Vector third = FillWords(kThird);
  WalkBlocks<kVectorBytes>(
      count,
      [&](uint8_t* to, const uint8_t* from) {
        Vector channels[kBytes];
        LoadPixels<kBytes>(from, channels);
        const ChannelSums sums(channels);
        Store(to, PackWords(HighProducts(sums.low, third), HighProducts(sums.high, third)));
      },
      To<1>{dest}, From<kBytes>{source});
}

#else

void FourTo3(uint8_t* dest, const uint8_t* source, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    for (size_t c = 0; c < 3; ++c) dest[3 * i + c] = source[4 * i + c];
  }
}
template <size_t kBytes>
void Mean(uint8_t* dest, const uint8_t* source, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    const uint8_t* const pixel = source + kBytes * i;
    dest[i] = static_cast<uint8_t>((pixel[0] + pixel[1] + pixel[2]) / 3);
  }
}

#endif

void FillZeros(uint8_t* dest, const uint8_t* source, size_t count) {
  for (size_t i = 0; i < count; ++i) dest[i] = dest[i] == 0 ? source[i] : dest[i];
}

void Fill(uint8_t* dest, size_t bytes, const uint8_t* pattern) {
  for (; bytes >= kFillPeriod; bytes -= kFillPeriod, dest += kFillPeriod) {
    __builtin_memcpy(dest, pattern, kFillPeriod);
  }
  __builtin_memcpy(dest, pattern, bytes);
}
void FillBytesWhere(uint8_t* dest, const uint8_t* mask, size_t count, uint8_t value) {
  for (size_t i = 0; i < count; ++i) dest[i] = mask[i] != 0 ? value : dest[i];
}
void FillWordsWhere(uint8_t* dest, const uint8_t* mask, size_t count, uint32_t value) {
  for (size_t i = 0; i < count; ++i) {
    uint32_t word;
    __builtin_memcpy(&word, dest + 4 * i, sizeof(word));
    word = mask[i] != 0 ? value : word;
    __builtin_memcpy(dest + 4 * i, &word, sizeof(word));
  }
}

}  // namespace

extern const ConversionKernels kConversionKernels;
constinit const ConversionKernels kConversionKernels = {
    .one_to_3 = &GreyTo24,
    .one_to_4 = &GreyTo32,
    .three_to_4 = &ColourTo32,
    .four_to_3 = &FourTo3,
    .mean_of_3 = &Mean<3>,
    .mean_of_4 = &Mean<4>,
    .fill_zeros = &FillZeros,
    .fill = &Fill,
    .fill_bytes = &FillBytesWhere,
    .fill_words = &FillWordsWhere,
};

}  // namespace qel::QEL_LEVEL
