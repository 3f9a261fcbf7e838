#include "transform/resample/box_kernels.h"

#include "simd/convert.h"
#include "simd/interleaved.h"
#include "simd/prefetch.h"
#include "simd/window.h"

namespace qel::QEL_LEVEL {
namespace {

/// means[i] = (a[i] + b[i]) / area, or a[i] / area without `b`.
void Divide(uint8_t* __restrict means, const uint16_t* a, const uint16_t* b, size_t count,
            const SmallBox& box) {
  const uint32_t factor = box.mean.multiplier;
  const int shift = box.mean.shift;
  if (b == nullptr) {
    for (size_t i = 0; i < count; ++i) {
      const auto high = static_cast<uint16_t>((a[i] * factor) >> 16);
      means[i] = static_cast<uint8_t>(high >> shift);
    }
    return;
  }
  for (size_t i = 0; i < count; ++i) {
    const auto sum = static_cast<uint16_t>(a[i] + b[i]);
    const auto high = static_cast<uint16_t>((sum * factor) >> 16);
    means[i] = static_cast<uint8_t>(high >> shift);
  }
}

/// Column sums of the rows of a box, `ahead` bytes before those of the next one.
void SumBoxRows(uint16_t* __restrict sums, const uint8_t* __restrict source, int64_t stride,
                int64_t ahead, size_t count, size_t rows) {
  constexpr size_t kBlock = 64;
  const auto add_rows = [&](size_t from, size_t length) {
    const uint8_t* row = source + from;
    uint16_t* const block = sums + from;
    size_t left = rows;
    if (rows % 2 == 0) {
      const uint8_t* const next = row + stride;
      for (size_t i = 0; i < length; ++i) block[i] = static_cast<uint16_t>(row[i] + next[i]);
      left -= 2;
    } else {
      for (size_t i = 0; i < length; ++i) block[i] = row[i];
      left -= 1;
    }
    for (; left > 0; left -= 2) {
      row = source + from + static_cast<int64_t>(rows - left) * stride;
      const uint8_t* const next = row + stride;
      for (size_t i = 0; i < length; ++i) {
        block[i] = static_cast<uint16_t>(block[i] + row[i] + next[i]);
      }
    }
  };
  size_t i = 0;
  for (; i + kBlock <= count; i += kBlock) {
    for (size_t r = 0; r < rows; ++r) {
      PrefetchLine(source + static_cast<int64_t>(r) * stride + ahead + i);
    }
    add_rows(i, kBlock);
  }
  add_rows(i, count - i);
}

/// The highest power of two that is not above `value`.
constexpr size_t HighestBit(size_t value) {
  size_t bit = 1;
  while (bit * 2 <= value) bit *= 2;
  return bit;
}

/// sums[i] = a[i] + b[i].
void AddWindows(uint16_t* __restrict sums, const uint16_t* a, const uint16_t* b, size_t count) {
  for (size_t i = 0; i < count; ++i) sums[i] = static_cast<uint16_t>(a[i] + b[i]);
}

/// Boxes of 2 x 2 at once, for `count` first bytes.
template <size_t kBytes>
void SquareMeans(uint8_t* means, const uint8_t* source, int64_t stride, int64_t ahead,
                 size_t count) {
  const I8 ones = Set<I8>(1);
  StoreWindows<2, kBytes>(
      means, count,
      [=](size_t k) -> Halves<I16> {
        PrefetchLine(source + ahead + k);
        PrefetchLine(source + stride + ahead + k);
        const U8 a = KeepInRegister(LoadU<U8>(source + k));
        const U8 b = KeepInRegister(LoadU<U8>(source + stride + static_cast<int64_t>(k)));
        return {SatWidenMulPairwiseAdd(InterleaveLower(a, b), ones),
                SatWidenMulPairwiseAdd(InterleaveUpper(a, b), ones)};
      },
      [](size_t, const Halves<I16>& left, const Halves<I16>& right) {
        return ReorderDemote2To<U8>(ShiftRight<2>(left.lower + right.lower),
                                    ShiftRight<2>(left.upper + right.upper));
      });
}

// Boxes of 2 x 2 side by side.

template <size_t kBytes>
void HalveSingly(uint8_t* __restrict dest, const uint8_t* __restrict source, int64_t stride,
                 size_t first, size_t count) {
  const uint8_t* const below = source + stride;
  for (size_t i = first * kBytes; i < count * kBytes; i += kBytes) {
    for (size_t c = 0; c < kBytes && c < 3; ++c) {
      const size_t left = 2 * i + c;
      const size_t right = left + kBytes;
      const int sum = source[left] + source[right] + below[left] + below[right];
      dest[i + c] = static_cast<uint8_t>(sum / 4);
    }
  }
}

/// Bytes of a row that a block holds as whole pairs of pixels.
template <size_t kBytes>
constexpr size_t kPairedBytes = kBytes == 3 ? 12 : 16;

/// The sums of every two neighbours: in each block, the bytes of four pixels give those of two.
/// Of 3 bytes every other block is taken, and those between come with the next vector.
template <size_t kBytes>
QEL_SIMD_INLINE I16 PairSums(const uint8_t* row) {
  U8 v;
  if constexpr (kBytes != 3) {
    v = LoadU<U8>(row);
  } else if constexpr (kVectorBytes == 64) {
    // To join four blocks takes longer.
    const auto* const words = reinterpret_cast<const uint32_t*>(row);
    v = BitCast<U8>(Shuffled<U32>(LoadU<U32>(words), LoadU<U32>(words + 8), [](size_t i) {
      const size_t word = i / 4 * 6 + i % 4;
      return word < 16 ? word : word + 8;
    }));
  } else {
    v = LoadBlocks<U8>(row, 2 * kPairedBytes<3>);
  }
  if constexpr (kBytes > 1) {
    static constexpr auto kBesideNeighbours = MakePattern<16>([](size_t i) {
      const size_t pair = i / (2 * kBytes);
      const size_t channel = i / 2 % kBytes;
      return i < kPairedBytes<kBytes> ? pair * 2 * kBytes + channel + i % 2 * kBytes : 0x80;
    });
    v = ShuffleBlocks(v, kBesideNeighbours);
  }
  return SatWidenMulPairwiseAdd(v, Set<I8>(1));
}

template <size_t kBytes>
void Halve(uint8_t* dest, const uint8_t* source, int64_t stride, int64_t ahead, size_t count) {
  constexpr size_t kRead = 2 * kVectorBytes / 16 * kPairedBytes<kBytes>;
  constexpr size_t kPixels = kRead / 2 / kBytes;
  // Pixels of 3 bytes are read and written with four bytes behind them.
  constexpr size_t kBehind = kBytes == 3 ? 2 : 0;
  size_t i = 0;
  for (; kHasTableLookupBytes && i + kPixels + kBehind <= count; i += kPixels) {
    const uint8_t* const from = source + 2 * kBytes * i;
    uint8_t* const to = dest + kBytes * i;
    PrefetchRun(from + ahead, kRead);
    PrefetchRun(from + stride + ahead, kRead);
    const auto means = [=](size_t at) {
      return ShiftRight<2>(PairSums<kBytes>(from + at) + PairSums<kBytes>(from + stride + at));
    };
    constexpr size_t kNext = kBytes == 3 ? kPairedBytes<3> : kVectorBytes;
    const U8 halved = ReorderDemote2To<U8>(means(0), means(kNext));
    if constexpr (kBytes == 3) {
      static constexpr auto kCloseUp =
          MakePattern<16>([](size_t k) { return k < 12 ? k / 6 * 8 + k % 6 : 0x80; });
      StoreBlocks(ShuffleBlocks(halved, kCloseUp), to, 12);
    } else {
      const U8 pixels = LowerThenUpperHalves(halved);
      StoreU(kBytes == 4 ? WithFourthBytes(pixels, LoadU<U8>(to)) : pixels, to);
    }
  }
  HalveSingly<kBytes>(dest, source, stride, i, count);
}

void BoxMeans(uint8_t* means, const uint8_t* source, int64_t stride, int64_t ahead, size_t count,
              const SmallBox& box, uint16_t* scratch) {
  const size_t squares = count - box.pixel_bytes;
  if (box.columns == 2 && box.rows == 2 && squares >= kVectorBytes) {
    const auto function = box.pixel_bytes == 4   ? &SquareMeans<4>
                          : box.pixel_bytes == 3 ? &SquareMeans<3>
                                                 : &SquareMeans<1>;
    return function(means, source, stride, ahead, squares);
  }
  uint16_t* const columns = scratch;
  uint16_t* spare[2] = {scratch + count, scratch + 2 * count};
  SumBoxRows(columns, source, stride, ahead, count, box.rows);
  // Windows grow by doubling, and by one column where the next bit of their final length is set.
  // The last sum goes straight into the division.
  const uint16_t* windows = columns;
  const uint16_t* added = nullptr;
  size_t turn = 0;
  const auto settle = [&] {
    if (added == nullptr) return;
    uint16_t* const sums = spare[turn++ % 2];
    AddWindows(sums, windows, added, count);
    windows = sums;
    added = nullptr;
  };
  size_t length = 1;
  for (size_t bit = HighestBit(box.columns) / 2; bit > 0; bit /= 2) {
    settle();
    added = windows + length * box.pixel_bytes;
    count -= length * box.pixel_bytes;
    length *= 2;
    if ((box.columns & bit) == 0) continue;
    settle();
    added = windows + box.pixel_bytes;
    windows = columns;
    count -= box.pixel_bytes;
    ++length;
  }
  Divide(means, windows, added, count, box);
}

void SumRows(uint32_t* __restrict sums, const uint8_t* __restrict source, int64_t stride,
             size_t count, size_t rows) {
  for (size_t i = 0; i < count; ++i) sums[i] = source[i];
  for (size_t r = 1; r < rows; ++r) {
    const uint8_t* const row = source + static_cast<int64_t>(r) * stride;
    for (size_t i = 0; i < count; ++i) sums[i] += row[i];
  }
}

}  // namespace

extern const BoxMeanKernels kBoxMeanKernels;
constinit const BoxMeanKernels kBoxMeanKernels = {
    .halve1 = &Halve<1>,
    .halve3 = &Halve<3>,
    .halve4 = &Halve<4>,
    .box_means = &BoxMeans,
    .sum_rows = &SumRows,
};

}  // namespace qel::QEL_LEVEL
