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

/// The bytes of `set` where `test` is not 0, of `clear` elsewhere.
inline Vector ChooseByTest(Vector test, Vector clear, Vector set) {
#ifdef QEL_LEVEL_avx2
  return _mm256_blendv_epi8(set, clear, _mm256_cmpeq_epi8(test, FillBytes(0)));
#else
  return _mm512_mask_blend_epi8(_mm512_test_epi8_mask(test, test), clear, set);
#endif
}

// Whole vectors are stored again: storing single bytes by masks is slow.

void FillZeros(uint8_t* dest, const uint8_t* source, size_t count) {
  WalkBlocks<kVectorBytes>(
      count,
      [](uint8_t* to, const uint8_t* from) {
        const Vector old = Load(to);
        Store(to, ChooseByTest(old, Load(from), old));
      },
      To<1>{dest}, From<1, 0, false>{source});
}
void FillBytesWhere(uint8_t* dest, const uint8_t* mask, size_t count, uint8_t value) {
  const Vector values = FillBytes(value);
  WalkBlocks<kVectorBytes>(
      count,
      [&](uint8_t* to, const uint8_t* from) {
        Store(to, ChooseByTest(Load(from), Load(to), values));
      },
      To<1>{dest}, From<1, 0, false>{mask});
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

void FillZeros(uint8_t* dest, const uint8_t* source, size_t count) {
  for (size_t i = 0; i < count; ++i) dest[i] = dest[i] == 0 ? source[i] : dest[i];
}
void FillBytesWhere(uint8_t* dest, const uint8_t* mask, size_t count, uint8_t value) {
  for (size_t i = 0; i < count; ++i) dest[i] = mask[i] != 0 ? value : dest[i];
}

#endif

void Fill(uint8_t* dest, size_t bytes, const uint8_t* pattern) {
  for (; bytes >= kFillPeriod; bytes -= kFillPeriod, dest += kFillPeriod) {
    __builtin_memcpy(dest, pattern, kFillPeriod);
  }
  __builtin_memcpy(dest, pattern, bytes);
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
