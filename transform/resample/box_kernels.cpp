#include "transform/resample/box_kernels.h"

#include "image/slide.h"
#include "simd/fetch.h"

namespace qel::QEL_LEVEL {
namespace {

/// means[i] = (a[i] + b[i]) / area, or a[i] / area without `b`.
void Divide(uint8_t* __restrict means, const uint16_t* a, const uint16_t* b, size_t count,
            const SmallBox& box) {
  const uint32_t factor = box.factor;
  const int shift = box.shift;
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
      FetchLine(source + static_cast<int64_t>(r) * stride + ahead + i);
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

#ifdef QEL_HAS_COLOUR_VECTORS

/// Boxes of 2 x 2 at once, for `count` first bytes.
template <size_t kBytes>
void SquareMeans(uint8_t* means, const uint8_t* source, int64_t stride, int64_t ahead,
                 size_t count) {
  const Vector ones = FillBytes(1);
  Slide<2, kBytes>(
      means, count,
      [=](size_t k) -> Words {
        FetchLine(source + ahead + k);
        FetchLine(source + stride + ahead + k);
        const Vector a = Once(Load(source + k));
        const Vector b = Once(Load(source + stride + static_cast<int64_t>(k)));
        return {SumPairs(PairLow(a, b), ones), SumPairs(PairHigh(a, b), ones)};
      },
      [](size_t, const Words& left, const Words& right) {
        return PackWords(ShiftWords<2>(AddWords(left.low, right.low)),
                         ShiftWords<2>(AddWords(left.high, right.high)));
      });
}

#endif

void BoxMeans(uint8_t* means, const uint8_t* source, int64_t stride, int64_t ahead, size_t count,
              const SmallBox& box, uint16_t* scratch) {
#ifdef QEL_HAS_COLOUR_VECTORS
  const size_t squares = count - box.pixel_bytes;
  if (box.columns == 2 && box.rows == 2 && squares >= kVectorBytes) {
    const auto function = box.pixel_bytes == 4   ? &SquareMeans<4>
                          : box.pixel_bytes == 3 ? &SquareMeans<3>
                                                 : &SquareMeans<1>;
    return function(means, source, stride, ahead, squares);
  }
#endif
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
    .box_means = &BoxMeans,
    .sum_rows = &SumRows,
};

}  // namespace qel::QEL_LEVEL
