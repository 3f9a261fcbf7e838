#include "color/tone_kernels.h"

#ifdef QEL_LEVEL_avx512vbmi
#include <immintrin.h>
#endif

namespace qel::QEL_LEVEL {
namespace {

#ifdef QEL_LEVEL_avx512vbmi

/// A table of 256 bytes in four registers, looked up 64 bytes at a time.
class TableLookup {
 public:
  explicit TableLookup(const uint8_t* table)
      : part0_(_mm512_loadu_si512(table)),
        part1_(_mm512_loadu_si512(table + 64)),
        part2_(_mm512_loadu_si512(table + 128)),
        part3_(_mm512_loadu_si512(table + 192)) {}

  __m512i operator()(__m512i index) const {
    const __m512i low = _mm512_permutex2var_epi8(part0_, index, part1_);
    const __m512i high = _mm512_permutex2var_epi8(part2_, index, part3_);
    return _mm512_mask_blend_epi8(_mm512_movepi8_mask(index), low, high);
  }

 private:
  __m512i part0_, part1_, part2_, part3_;
};

/// Looks up the bytes of a row that are set in every 64-bit group of `lanes`.
void LookUpLanes(uint8_t* row, size_t count, const uint8_t* table, __mmask64 lanes) {
  const TableLookup lookup(table);
  size_t i = 0;
  for (; i + 64 <= count; i += 64) {
    const __m512i old = _mm512_loadu_si512(row + i);
    _mm512_storeu_si512(row + i, _mm512_mask_mov_epi8(old, lanes, lookup(old)));
  }
  if (i < count) {
    const __mmask64 rest = (~__mmask64{0}) >> (64 - (count - i));
    const __m512i old = _mm512_maskz_loadu_epi8(rest, row + i);
    _mm512_mask_storeu_epi8(row + i, rest & lanes, lookup(old));
  }
}

void LutBytes(uint8_t* row, size_t count, const uint8_t* table) {
  LookUpLanes(row, count, table, ~__mmask64{0});
}
void LutPixels(uint8_t* row, size_t count, const uint8_t* table) {
  LookUpLanes(row, 4 * count, table, 0x7777777777777777u);
}

#else

void LutBytes(uint8_t* row, size_t count, const uint8_t* table) {
  for (size_t i = 0; i < count; ++i) row[i] = table[row[i]];
}
void LutPixels(uint8_t* row, size_t count, const uint8_t* table) {
  for (size_t i = 0; i < count; ++i) {
    for (size_t c = 0; c < 3; ++c) row[4 * i + c] = table[row[4 * i + c]];
  }
}

#endif

void InvertBytes(uint8_t* row, size_t count) {
  for (size_t i = 0; i < count; ++i) row[i] = static_cast<uint8_t>(~row[i]);
}
void InvertPixels(uint8_t* row, size_t count) {
  for (size_t i = 0; i < 4 * count; ++i) {
    row[i] = static_cast<uint8_t>(row[i] ^ (i % 4 == 3 ? 0x00 : 0xFF));
  }
}

/// Sums and differences in byte lanes: a wrapped one shows in the comparison with its operand.
inline uint8_t ShiftByte(uint8_t value, uint8_t add, uint8_t subtract) {
  const auto sum = static_cast<uint8_t>(value + add);
  const auto raised = static_cast<uint8_t>(sum < value ? 0xFF : sum);
  const auto difference = static_cast<uint8_t>(raised - subtract);
  return static_cast<uint8_t>(difference > raised ? 0 : difference);
}
void ShiftBytes(uint8_t* __restrict row, size_t count, const uint8_t* __restrict add,
                const uint8_t* __restrict subtract) {
  size_t i = 0;
  for (; i + kShiftPeriod <= count; i += kShiftPeriod) {
    for (size_t k = 0; k < kShiftPeriod; ++k) {
      row[i + k] = ShiftByte(row[i + k], add[k], subtract[k]);
    }
  }
  for (size_t k = 0; i + k < count; ++k) row[i + k] = ShiftByte(row[i + k], add[k], subtract[k]);
}

void MixBytes(uint8_t* __restrict dest, const uint8_t* __restrict source, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    dest[i] = static_cast<uint8_t>(
        (117u * source[i] + 601u * source[i + 1] + 306u * source[i + 2]) >> 10);
  }
}

template <size_t kBytes>
void Mean(uint8_t* __restrict dest, const uint8_t* __restrict source, size_t pixels) {
  for (size_t i = 0; i < pixels; ++i) {
    const uint8_t* const s = source + kBytes * i;
    uint8_t* const d = dest + kBytes * i;
    d[0] = d[1] = d[2] = static_cast<uint8_t>((s[0] + s[1] + s[2]) / 3);
    if constexpr (kBytes == 4) d[3] = s[3];
  }
}

template <size_t kBytes>
void Threshold(uint8_t* row, size_t pixels, int32_t limit) {
  for (size_t i = 0; i < pixels; ++i) {
    uint8_t* const pixel = row + kBytes * i;
    const uint8_t value = pixel[0] + pixel[1] + pixel[2] > limit ? 255 : 0;
    pixel[0] = pixel[1] = pixel[2] = value;
  }
}

}  // namespace

extern const ToneKernels kToneKernels;
constinit const ToneKernels kToneKernels = {
    .lut_bytes = &LutBytes,
    .lut_pixels = &LutPixels,
    .invert_bytes = &InvertBytes,
    .invert_pixels = &InvertPixels,
    .shift_bytes = &ShiftBytes,
    .mix_bytes = &MixBytes,
    .mean3 = &Mean<3>,
    .mean4 = &Mean<4>,
    .threshold3 = &Threshold<3>,
    .threshold4 = &Threshold<4>,
};

}  // namespace qel::QEL_LEVEL
