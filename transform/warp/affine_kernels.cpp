#include "transform/warp/affine_kernels.h"

#include "simd/convert.h"
#include "simd/prefetch.h"

namespace qel::QEL_LEVEL {
namespace {

constexpr size_t kSide = kSquareSide;
/// A square goes in parts of a vector of bytes, the places of which are four vectors of words.
constexpr size_t kPartRows = U8::kLanes / kSide;
constexpr size_t kParts = kSide / kPartRows;
/// Bytes of each row of the source in which the pixels of a part are looked up.
constexpr int32_t kReach = 16;
/// Squares whose places in the source are found together.
constexpr size_t kSquares = F32::kLanes;

constexpr float AbsOf(float v) { return v < 0 ? -v : v; }

/// The positions of a part along an axis.
struct PartAxis {
  const AffineAxis& axis;
  const float* rows;

  /// How many pixels they may lie in.
  float Pixels() const {
    // More than roundings move positions by.
    constexpr float kSlack = 0.125f;
    return AbsOf(axis.gain) * (kSquareSide - 1) + AbsOf(rows[kPartRows - 1] - rows[0]) +
           (2 + kSlack);
  }
  /// The lowest ones in squares that begin at these columns.
  QEL_SIMD_INLINE I32 Lowest(I32 columns) const {
    if (axis.gain < 0) columns += Set<I32>(kSquareSide - 1);
    const float row = rows[kPartRows - 1] < rows[0] ? rows[kPartRows - 1] : rows[0];
    const F32 along = Set<F32>(axis.gain) * (Set<F32>(axis.start) + ConvertTo<F32>(columns));
    return ConvertTo<I32>(along + Set<F32>(row) + Set<F32>(axis.shift) + Set<F32>(axis.offset));
  }
};

/// The rows' numbers of a square's pixels.
struct PixelRows {
  alignas(64) float of[kSide * kSide];

  explicit PixelRows(const float* rows) {
    for (size_t i = 0; i < kSide * kSide; ++i) of[i] = rows[i / kSide];
  }
};

/// Rows that are looked up at once, and the most of them.
constexpr int32_t kRowsAtOnce = kHasByteLookup ? 12 : 2;
constexpr int32_t kMostRows = kHasByteLookup ? 12 : 16;
/// Rows that the memory is asked for with every part. Squares side by side ask for the same ones,
/// each of which may go on in another line of the cache.
constexpr int32_t kFetchedRows = kParts == 1 ? 12 : 8;

/// Looks up pixels in the rows from `first` on by their places: 16 times the row, and the column.
QEL_SIMD_INLINE U8 LookUp(const uint8_t* first, int32_t stride, int32_t rows, U8 places) {
  if constexpr (kHasByteLookup) {
    const auto four_rows = [=](ptrdiff_t r) { return LoadBlocks<U8>(first + r * stride, stride); };
    return IfNegativeThenElse(places, TableLookupLanes(four_rows(8), places),
                              TwoTablesLookupLanes(four_rows(0), four_rows(4), places));
  }
  U8 found = Zero<U8>();
  for (; rows > 0; rows -= kRowsAtOnce, first += int64_t{kRowsAtOnce} * stride) {
    // Places in other rows become 128 and more, which finds 0.
    const U8 next = places - Set<U8>(16);
    found |= TableLookupBytesOr0(LoadDup128<U8>(first), SaturatedAdd(places, Set<U8>(0x70))) |
             TableLookupBytesOr0(LoadDup128<U8>(first + stride), SaturatedAdd(next, Set<U8>(0x70)));
    places = next - Set<U8>(16);
  }
  return found;
}

/// How many pixels of a source the positions of any part may lie in.
float MostPixels(const AffineAxis& axis) {
  float most = 0;
  for (size_t p = 0; p < kParts; ++p) {
    const float pixels = PartAxis{axis, axis.rows + p * kPartRows}.Pixels();
    // What is not a number stays.
    most = pixels <= most || most != most ? most : pixels;
  }
  return most;
}

/// Stores the rows of a part.
QEL_SIMD_INLINE void StoreRows(U8 part, uint8_t* to, int64_t stride) {
  [&]<size_t... b>(std::index_sequence<b...>) __attribute__((always_inline)) {
    const auto store_two = [&](Block<U64> rows) __attribute__((always_inline)) {
      for (size_t r = 0; r < 2; ++r, to += stride) {
        const uint64_t row = rows.raw[r];
        __builtin_memcpy(to, &row, kSide);
      }
    };
    (store_two(ExtractBlock<b>(BitCast<U64>(part))), ...);
  }
  (std::make_index_sequence<kVectorBytes / 16>());
}

size_t CopySquares1(uint8_t* dest, int64_t stride, const AffineSource& from,
                    const AffineAxis& along_x, const AffineAxis& along_y, int32_t first,
                    size_t count) {
  const AffineSource source = from;
  const AffineAxis x = along_x;
  const AffineAxis y = along_y;
  const float most_rows = MostPixels(y);
  // False for what is not a number, too.
  const bool fits = MostPixels(x) < kReach + 1 && most_rows < kMostRows + 1;
  if (!fits) return 0;
  const int32_t rows =
      (static_cast<int32_t>(most_rows) + kRowsAtOnce - 1) / kRowsAtOnce * kRowsAtOnce;
  const int32_t last_left = source.columns - kReach;
  const int32_t last_top = source.rows - rows;
  const PixelRows rows_x(x.rows);
  const PixelRows rows_y(y.rows);
  // Pixels of the result for whose source the memory is asked in advance.
  constexpr float kPixelsAhead = 64;
  const int64_t ahead = int64_t{static_cast<int32_t>(y.gain * kPixelsAhead)} * source.stride +
                        static_cast<int32_t>(x.gain * kPixelsAhead);
  const size_t squares = count / kSide;
  for (size_t done = 0; done < squares; done += kSquares) {
    int32_t corners[kParts][kSquares];
    int32_t origins[kParts][kSquares];
    Mask<I32> outside = Zero<I32>() != Zero<I32>();
    const int32_t begin = first + static_cast<int32_t>(done * kSide);
    const I32 columns = ShiftLeft<3>(Iota<I32>(0)) + Set<I32>(begin);
    for (size_t p = 0; p < kParts; ++p) {
      const I32 left = PartAxis{x, x.rows + p * kPartRows}.Lowest(columns);
      const I32 top = PartAxis{y, y.rows + p * kPartRows}.Lowest(columns);
      outside = outside | (left < Zero<I32>()) | (left > Set<I32>(last_left)) |
                (top < Zero<I32>()) | (top > Set<I32>(last_top));
      StoreU(top * Set<I32>(source.stride) + left, corners[p]);
      StoreU(ShiftLeft<4>(top) + left, origins[p]);
    }
    const size_t rest = squares - done;
    const size_t some = rest < kSquares ? rest : kSquares;
    const uint64_t end = BitsFromMask(outside) | uint64_t{1} << some;
    const auto inside = static_cast<size_t>(__builtin_ctzll(end));
    for (size_t k = 0; k < inside; ++k) {
      const int32_t column = begin + static_cast<int32_t>(k * kSide);
      for (size_t p = 0; p < kParts; ++p) {
        I32 places[4];
        for (size_t v = 0; v < 4; ++v) {
          const size_t pixel = p * U8::kLanes + v * F32::kLanes;
          const I32 pixels = (Iota<I32>(pixel % kSide) & Set<I32>(kSide - 1)) + Set<I32>(column);
          const auto position = [&](const AffineAxis& axis, const PixelRows& of_rows) {
            const F32 along = Set<F32>(axis.gain) * (Set<F32>(axis.start) + ConvertTo<F32>(pixels));
            return ConvertTo<I32>(along + LoadU<F32>(of_rows.of + pixel) + Set<F32>(axis.shift) +
                                  Set<F32>(axis.offset));
          };
          places[v] =
              ShiftLeft<4>(position(y, rows_y)) + (position(x, rows_x) - Set<I32>(origins[p][k]));
        }
        const uint8_t* const corner = source.bits + corners[p][k];
        const uint8_t* next = corner + ahead;
        for (int32_t r = 0; r < kFetchedRows; ++r, next += source.stride) PrefetchLine(next);
        const U8 part = LookUp(corner, source.stride, rows,
                               OrderedDemote4To8(places[0], places[1], places[2], places[3]));
        StoreRows(part, dest + static_cast<int64_t>(p * kPartRows) * stride + column, stride);
      }
    }
    if (inside < some) return (done + inside) * kSide;
  }
  return squares * kSide;
}

}  // namespace

extern const AffineKernels kAffineKernels;
constinit const AffineKernels kAffineKernels = {
    .copy_squares1 = kHasTableLookupBytes ? &CopySquares1 : nullptr,
};

}  // namespace qel::QEL_LEVEL
