#include "transform/warp/warp_kernels.h"

#include "image/numeric.h"
#include "simd/convert.h"
#include "simd/prefetch.h"
#include "transform/warp/blend_pixel.h"
#include "transform/word_vectors.h"

namespace qel::QEL_LEVEL {
namespace {

/// How scattered pixels of `kFrom` bytes are written.
template <int kFromBytes, bool kMakeOpaque>
struct Depths {
  static constexpr int kFrom = kFromBytes;
  static constexpr int kTo = kMakeOpaque ? 4 : kFrom;
  /// Pixels of 3 bytes are loaded with the byte behind them.
  static constexpr int kLoaded = kFrom == 3 ? 4 : kFrom;

  static uint32_t Convert(uint32_t pixel) {
    constexpr uint32_t kAlpha = 0xFF000000u;
    constexpr uint32_t kMarker = uint32_t{kKeptAlpha} << 24;
    if (!kMakeOpaque || (kFrom == 4 && (pixel & kAlpha) == kMarker)) return pixel;
    return (kFrom == 1 ? pixel * 0x010101u : pixel) | kAlpha;
  }
};

/// The pixel at an offset, in the low bytes of a word.
template <typename Depth>
uint32_t PixelAt(const uint8_t* source, int32_t offset, uint32_t outside) {
  uint32_t pixel = 0;
  if (offset >= -kLargestOffset) [[likely]] {
    __builtin_memcpy(&pixel, source + offset, Depth::kLoaded);
  } else if (Depth::kFrom != 3 || offset == kOutsideOffset) {
    return outside;
  } else {
    __builtin_memcpy(&pixel, source + (int64_t{offset} + kNarrow), 3);
  }
  return Depth::Convert(pixel);
}

template <typename Depth>
void CopySingly(uint8_t* dest, size_t count, const uint8_t* source, const int32_t* offsets,
                uint32_t outside) {
  constexpr int kTo = Depth::kTo;
  // Four bytes are stored for three: the next pixel overwrites the last one.
  constexpr size_t kStored = kTo == 3 ? 4 : kTo;
  for (; count > 1; --count, ++offsets, dest += kTo) {
    const uint32_t pixel = PixelAt<Depth>(source, *offsets, outside);
    __builtin_memcpy(dest, &pixel, kStored);
  }
  if (count == 0) return;
  const uint32_t pixel = PixelAt<Depth>(source, *offsets, outside);
  __builtin_memcpy(dest, &pixel, kTo);
}

template <int kFrom>
QEL_SIMD_INLINE U32 MakeOpaque(U32 words) {
  const U32 alpha = Set<U32>(0xFF000000u);
  if constexpr (kFrom == 4) {
    const Mask<U32> marked = (words & alpha) == Set<U32>(uint32_t{kKeptAlpha} << 24);
    return IfThenElse(marked, words, words | alpha);
  }
  if constexpr (kFrom == 1) words = words * Set<U32>(0x010101);
  return words | alpha;
}

constexpr size_t kOffsetsAtOnce = 16;

/// False when `is_other` is true for some of a group of offsets.
template <typename IsOther>
QEL_SIMD_INLINE bool NoneIs(const int32_t* offsets, const IsOther& is_other) {
  Mask<I32> others = is_other(LoadU<I32>(offsets));
  for (size_t i = I32::kLanes; i < kOffsetsAtOnce; i += I32::kLanes) {
    others = others | is_other(LoadU<I32>(offsets + i));
  }
  return AllFalse(others);
}
/// True when all of a group of offsets are those of whole words inside.
QEL_SIMD_INLINE bool AllPlain(const int32_t* offsets) {
  return NoneIs(offsets, [](I32 v) { return v < Set<I32>(-kLargestOffset); });
}
/// True when all of a group of positions are outside.
QEL_SIMD_INLINE bool AllOutside(const int32_t* offsets) {
  return NoneIs(offsets, [](I32 v) { return v != Set<I32>(kOutsideOffset); });
}

template <int kFrom, bool kOpaque>
void Copy(uint8_t* dest, size_t count, const uint8_t* source, const int32_t* offsets,
          uint32_t outside) {
  using Depth = Depths<kFrom, kOpaque>;
  for (; count > kOffsetsAtOnce;
       count -= kOffsetsAtOnce, offsets += kOffsetsAtOnce, dest += kOffsetsAtOnce * Depth::kTo) {
    if (!AllPlain(offsets)) {
      if (AllOutside(offsets)) {
        CopyScatteredPixels<Depth::kTo, true>(dest, kOffsetsAtOnce,
                                              [=](size_t) { return outside; });
      } else {
        CopySingly<Depth>(dest, kOffsetsAtOnce, source, offsets, outside);
      }
    } else if constexpr (kHasByteLookup && (kFrom > 1 || kOpaque)) {
      U32 words = GatherWords<Depth::kLoaded>(source, offsets);
      if constexpr (kOpaque) words = MakeOpaque<kFrom>(words);
      StoreWords<Depth::kTo>(words, dest);
    } else {
      CopyScatteredPixels<Depth::kTo, true>(dest, kOffsetsAtOnce, [&](size_t i) {
        uint32_t pixel = source[offsets[i]];
        if constexpr (Depth::kLoaded == 4) __builtin_memcpy(&pixel, source + offsets[i], 4);
        return Depth::Convert(pixel);
      });
    }
  }
  CopySingly<Depth>(dest, count, source, offsets, outside);
}

template <int kBytes>
bool OffsetsOf(int32_t* __restrict offsets, const int32_t* __restrict sx,
               const int32_t* __restrict sy, size_t count, const OffsetRule r) {
  uint32_t all_inside = 1;
  for (size_t i = 0; i < count; ++i) {
    const uint32_t column = static_cast<uint32_t>(sx[i]) - static_cast<uint32_t>(r.left);
    const uint32_t row = static_cast<uint32_t>(sy[i]) - static_cast<uint32_t>(r.top);
    const bool inside =
        (column < static_cast<uint32_t>(r.columns)) & (row < static_cast<uint32_t>(r.rows));
    const int32_t offset = WrapAdd(WrapMultiply(sy[i], r.stride), WrapMultiply(sx[i], kBytes));
    const bool is_narrow = kBytes == 3 && sx[i] == r.narrow_column;
    const int32_t lowered = is_narrow ? WrapSubtract(offset, kNarrow) : offset;
    offsets[i] = inside ? lowered : kOutsideOffset;
    all_inside &= inside;
  }
  return all_inside != 0;
}

bool Offsets(int32_t* offsets, const int32_t* sx, const int32_t* sy, size_t count,
             const OffsetRule& rule) {
  const auto of = rule.pixel_bytes == 1   ? &OffsetsOf<1>
                  : rule.pixel_bytes == 3 ? &OffsetsOf<3>
                                          : &OffsetsOf<4>;
  return of(offsets, sx, sy, count, rule);
}

template <int32_t kRows>
size_t CopyCloseRows(uint8_t* dest, const int32_t* sx, const int32_t* sy, size_t count,
                     const uint8_t* source, const OffsetRule& rule, const CloseRows& close) {
  constexpr size_t kBlocks = kVectorBytes / 16;
  // Rows relative to the first one may be negative, but not what is narrowed to bytes.
  constexpr int32_t kBias = 100;
  // Rows beyond those that are read, up to which the memory brings what the next rows of the
  // destination are going to read.
  constexpr int64_t kRowsAhead = 3;
  const int64_t stride = close.stride;
  const int32_t row_step = close.stride == rule.stride ? 1 : -1;
  U8 numbers[kRows];
  for (int32_t r = 0; r < kRows; ++r) {
    numbers[r] = Set<U8>(static_cast<uint8_t>(kBias + r * row_step));
  }
  const int32_t left = rule.left;
  const int32_t top = row_step > 0 ? rule.top : rule.top + kRows - 1;
  const auto columns_to_begin = static_cast<uint32_t>(rule.columns > 15 ? rule.columns - 15 : 0);
  const auto rows_to_begin = static_cast<uint32_t>(rule.rows >= kRows ? rule.rows - kRows + 1 : 0);
  const int64_t source_stride = rule.stride;
  size_t i = 0;
  for (; i + U8::kLanes <= count; i += U8::kLanes) {
    bool all_inside = true;
    for (size_t b = 0; b < kBlocks; ++b) {
      const auto first_column = static_cast<uint32_t>(WrapSubtract(sx[i + 16 * b], left));
      const auto first_row = static_cast<uint32_t>(WrapSubtract(sy[i + 16 * b], top));
      all_inside &= (first_column < columns_to_begin) & (first_row < rows_to_begin);
    }
    if (!all_inside) break;
    const uint8_t* from[kBlocks];
    for (size_t b = 0; b < kBlocks; ++b) {
      from[b] = source + (sy[i + 16 * b] * source_stride + sx[i + 16 * b]);
      PrefetchLine(from[b] - kRowsAhead * stride);
      PrefetchLine(from[b] + (kRows - 1 + kRowsAhead) * stride);
    }
    I32 column[4];
    I32 row[4];
    for (size_t v = 0; v < 4; ++v) {
      const size_t at = i + v * I32::kLanes;
      const size_t first = at / 16 * 16;
      column[v] = LoadU<I32>(sx + at) - Set<I32>(sx[first]);
      row[v] = LoadU<I32>(sy + at) - Set<I32>(sy[first] - kBias);
    }
    const I32 any_column = (column[0] | column[1]) | (column[2] | column[3]);
    const U8 places = OrderedDemote4To8(column[0], column[1], column[2], column[3]);
    const U8 biased_rows = OrderedDemote4To8(row[0], row[1], row[2], row[3]);
    U8 found = Zero<U8>();
    U8 known = Zero<U8>();
    for (int32_t r = 0; r < kRows; ++r) {
      const U8 bytes = GatherBlocks<U8>([&](size_t b) { return from[b] + r * stride; });
      const U8 is_row = VecFromMask(biased_rows == numbers[r]);
      found |= TableLookupBytesOr0(bytes, places) & is_row;
      known |= is_row;
    }
    const Mask<U8> unknown = known == Zero<U8>();
    const Mask<I32> far = (any_column & Set<I32>(~15)) != Zero<I32>();
    if (!AllFalse(unknown) || !AllFalse(far)) break;
    StoreU(found, dest + i);
  }
  return i;
}

size_t CopyClose1(uint8_t* dest, const int32_t* sx, const int32_t* sy, size_t count,
                  const uint8_t* source, const OffsetRule& rule, const CloseRows& close) {
  static_assert(kMostCloseRows == 4);
  const auto copy = close.rows <= 2   ? &CopyCloseRows<2>
                    : close.rows == 3 ? &CopyCloseRows<3>
                                      : &CopyCloseRows<4>;
  return copy(dest, sx, sy, count, source, rule, close);
}

struct Pixels {
  I32 x, y;
};

QEL_SIMD_INLINE Pixels PixelsOf(const ShearRow& row, I32 numbers) {
  const I32 x = numbers + Set<I32>(row.first_x);
  const F32 shift_y = ConvertTo<F32>(x - Set<I32>(row.pivot_x)) * Set<F32>(row.gain_y);
  return {ConvertTo<I32>(ConvertTo<F32>(x) + Set<F32>(row.shift_x)),
          ConvertTo<I32>(Set<F32>(row.y) + shift_y)};
}
QEL_SIMD_INLINE Pixels PixelsOf(const FixedWalk& walk, I32 numbers) {
  constexpr uint32_t kHalf = 1u << 15;
  const auto k = BitCast<U32>(numbers);
  const U32 x = Set<U32>(walk.x + kHalf) + k * Set<U32>(walk.step_x);
  const U32 y = Set<U32>(walk.y + kHalf) + k * Set<U32>(walk.step_y);
  return {ShiftRight<16>(BitCast<I32>(x)), ShiftRight<16>(BitCast<I32>(y))};
}

void Shear(int32_t* sx, int32_t* sy, size_t count, const ShearRow& on) {
  const ShearRow row = on;
  for (size_t i = 0; i < count; i += I32::kLanes) {
    const Pixels at = PixelsOf(row, Iota<I32>(static_cast<int32_t>(i)));
    StoreU(at.x, sx + i);
    StoreU(at.y, sy + i);
  }
}

void Walk(int32_t* __restrict sx, int32_t* __restrict sy, size_t count, const FixedWalk& walk) {
  const FixedWalk w = walk;
  constexpr uint32_t kHalf = 1u << 15;
  for (size_t i = 0; i < count; ++i) {
    const auto k = static_cast<uint32_t>(i);
    sx[i] = static_cast<int32_t>(w.x + kHalf + k * w.step_x) >> 16;
    sy[i] = static_cast<int32_t>(w.y + kHalf + k * w.step_y) >> 16;
  }
}

/// `Way` is a `ShearRow` or a `FixedWalk`.
template <int kBytes, typename Way>
void CopyAlong(uint8_t* dest, size_t count, const uint8_t* source, int32_t stride, const Way& along,
               const Way& later) {
  const auto offsets_of = [stride](const Way& way) {
    return [way, stride](I32 numbers) {
      const Pixels at = PixelsOf(way, numbers);
      return at.y * Set<I32>(stride) + at.x * Set<I32>(kBytes);
    };
  };
  CopyLinePixels<kBytes>(dest, source, 0, count, offsets_of(along), offsets_of(later),
                         [](uint32_t pixel) { return pixel; });
}

template <size_t kBytes>
void BlendOneByOne(uint8_t* dest, size_t first, size_t count, const FixedWalk& walk,
                   const uint8_t* source, int32_t stride) {
  for (size_t i = first; i < count; ++i) {
    const uint32_t x = walk.x + static_cast<uint32_t>(i) * walk.step_x;
    const uint32_t y = walk.y + static_cast<uint32_t>(i) * walk.step_y;
    const int32_t offset = (static_cast<int32_t>(y) >> 16) * stride +
                           (static_cast<int32_t>(x) >> 16) * static_cast<int32_t>(kBytes);
    BlendPixel(dest + kBytes * i, source + offset, stride, kBytes, x & 0xFFFF, y & 0xFFFF);
  }
}

// One block per pixel: first the eight bytes of the upper and of the lower row, then for every
// channel its four bytes, then for every channel a sum of 32 bits.

template <size_t kBytes>
constexpr auto kByChannelOfSquare = MakePattern<16>([](size_t i) {
  const size_t channel = i / 4;
  const size_t corner = i % 4;
  return channel < kBytes ? channel + (corner % 2) * kBytes + (corner / 2) * 8 : 0x80;
});

/// The blend of one pixel per block. With d as the difference of right and left pixels, e as that
/// of lower and upper ones and s as the sum of all, the weighted sum is 65536 s + (fx - 32768) d +
/// (fy - 32768) e; `weights_x` and `weights_y` hold these factors twice in every channel.
QEL_SIMD_INLINE I32 BlendSquares(U8 squares, I16 weights_x, I16 weights_y) {
  const I8 left_to_right = BitCast<I8>(Set<U32>(0x01FF01FFu));
  const I8 top_to_bottom = BitCast<I8>(Set<U32>(0x0101FFFFu));
  const I32 sum = WidenMulPairwiseAdd(SatWidenMulPairwiseAdd(squares, Set<I8>(1)), Set<I16>(1));
  const I32 d = WidenMulPairwiseAdd(SatWidenMulPairwiseAdd(squares, left_to_right), weights_x);
  const I32 e = WidenMulPairwiseAdd(SatWidenMulPairwiseAdd(squares, top_to_bottom), weights_y);
  const I32 rounded = ShiftLeft<16>(sum) + Set<I32>(1 << 17);
  return BitCast<I32>(ShiftRight<18>(BitCast<U32>(rounded + (d + e))));
}

/// Blends a vector of 4-byte pixels, or of 3-byte ones with room for a fourth.
template <size_t kBytes>
QEL_SIMD_INLINE U8 BlendPixels(const int32_t* offsets, const int32_t* weights_x,
                               const int32_t* weights_y, const uint8_t* source, int32_t stride) {
  constexpr size_t kBlocks = kVectorBytes / 16;
  const U32 spread = ShiftRight<2>(Iota<U32>(0));
  const U8 by_channel = LoadDup128<U8>(kByChannelOfSquare<kBytes>.bytes);
  const auto blend = [&](size_t first) {
    const U64 squares = LanesFrom<U64>([&](size_t i) {
      uint64_t row;
      const uint8_t* const top = source + offsets[first + i / 2];
      __builtin_memcpy(&row, i % 2 == 0 ? top : top + stride, sizeof(row));
      return row;
    });
    const auto weights = [&](const int32_t* of) {
      if constexpr (kBlocks == 1) return BitCast<I16>(Set<I32>(of[first]));
      return BitCast<I16>(TableLookupLanes(LoadU<U32>(of + first), spread));
    };
    return BlendSquares(TableLookupBytesOr0(BitCast<U8>(squares), by_channel), weights(weights_x),
                        weights(weights_y));
  };
  return OrderedDemote4To8(blend(0), blend(kBlocks), blend(2 * kBlocks), blend(3 * kBlocks));
}

template <size_t kBytes>
void Blend(uint8_t* dest, size_t count, const FixedWalk& walk, const uint8_t* source,
           int32_t stride) {
  if constexpr (!kHasTableLookupBytes) {
    return BlendOneByOne<kBytes>(dest, 0, count, walk, source, stride);
  }
  // Weights are loaded by whole vectors.
  int32_t offsets[kWarpTile];
  int32_t weights_x[kWarpTile + U32::kLanes];
  int32_t weights_y[kWarpTile + U32::kLanes];
  const FixedWalk w = walk;
  const auto twice = [](uint32_t fraction) {
    return static_cast<int32_t>(((fraction & 0xFFFF) ^ 0x8000) * 0x10001u);
  };
  for (size_t i = 0; i < count; ++i) {
    const uint32_t x = w.x + static_cast<uint32_t>(i) * w.step_x;
    const uint32_t y = w.y + static_cast<uint32_t>(i) * w.step_y;
    offsets[i] = (static_cast<int32_t>(y) >> 16) * stride +
                 (static_cast<int32_t>(x) >> 16) * static_cast<int32_t>(kBytes);
    weights_x[i] = twice(x);
    weights_y[i] = twice(y);
  }
  constexpr size_t kPixels = U32::kLanes;
  const auto blend = [&](size_t i, uint8_t* to) {
    U8 pixels = BlendPixels<kBytes>(offsets + i, weights_x + i, weights_y + i, source, stride);
    if constexpr (kBytes == 4) return StoreU(pixels, to);
    static constexpr auto kCloseUp =
        MakePattern<16>([](size_t k) { return k < 12 ? k / 3 * 4 + k % 3 : 0x80; });
    StoreBlocks(ShuffleBlocks(pixels, kCloseUp), to, 12);
  };
  if (count < kPixels) return BlendOneByOne<kBytes>(dest, 0, count, walk, source, stride);
  const auto blend_copy = [&](size_t i) {
    alignas(64) uint8_t pixels[kVectorBytes];
    blend(i, pixels);
    __builtin_memcpy(dest + kBytes * i, pixels, kBytes * kPixels);
  };
  // Of 3-byte pixels more bytes are stored than they have: the last ones go through a copy.
  constexpr size_t kStored = kBytes == 4 ? kPixels : kPixels + 2;
  size_t i = 0;
  for (; i + kStored <= count; i += kPixels) blend(i, dest + kBytes * i);
  if (i < count) blend_copy(i + kPixels <= count ? i : count - kPixels);
  if (i + kPixels < count) blend_copy(count - kPixels);
}

}  // namespace

extern const WarpKernels kWarpKernels;
constinit const WarpKernels kWarpKernels = {
    .copy1 = &Copy<1, false>,
    .copy3 = &Copy<3, false>,
    .copy4 = &Copy<4, false>,
    .copy1_opaque = &Copy<1, true>,
    .copy3_opaque = &Copy<3, true>,
    .copy4_opaque = &Copy<4, true>,
    .copy_close1 = kHasTableLookupBytes ? &CopyClose1 : nullptr,
    .offsets = &Offsets,
    .shear = &Shear,
    .walk = &Walk,
    .copy_sheared3 = &CopyAlong<3, ShearRow>,
    .copy_sheared4 = &CopyAlong<4, ShearRow>,
    .copy_walked3 = &CopyAlong<3, FixedWalk>,
    .copy_walked4 = &CopyAlong<4, FixedWalk>,
    .blend3 = &Blend<3>,
    .blend4 = &Blend<4>,
};

}  // namespace qel::QEL_LEVEL
