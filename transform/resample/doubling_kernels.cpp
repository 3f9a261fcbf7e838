#include "transform/resample/doubling_kernels.h"

#include <type_traits>
#include <utility>

#include "simd/interleaved.h"
#include "simd/prefetch.h"

namespace qel::QEL_LEVEL {
namespace {

template <size_t kTaps>
using Tile = DoublingTile<kTaps>;

/// Bytes of a row, and those that odd columns need, up to whole vectors.
template <size_t kTaps>
size_t SummedBytes(const Tile<kTaps>& tile) {
  return (tile.count + tile.step + kVectorBytes - 1) / kVectorBytes * kVectorBytes;
}

/// Those that are needed for sums.
template <size_t kTaps>
size_t ReadBytes(const Tile<kTaps>& tile) {
  return SummedBytes(tile) + kTaps * tile.step;
}

template <size_t kTaps>
void Widen(const Tile<kTaps>& tile, typename Tile<kTaps>::Values& of_row, const uint8_t* bytes) {
  const size_t count = ReadBytes(tile);
  float* const __restrict values = of_row;
  for (size_t i = 0; i < count; ++i) values[i] = bytes[i];
}

/// Four taps have none.
template <size_t kTaps>
void Range(Tile<kTaps>& tile, size_t row, const uint8_t* bytes) {
  if constexpr (!Tile<kTaps>::kHasRanges) return;
  uint8_t(&range)[2][sizeof(tile.ranges[0][0])] = tile.ranges[row / tile.kRows % tile.kGroups];
  const bool is_first = row % tile.kRows == 0;
  for (size_t i = 0; i < ReadBytes(tile); i += kVectorBytes) {
    const U8 value = LoadU<U8>(bytes + i);
    StoreU(is_first ? value : Min(LoadU<U8>(range[0] + i), value), range[0] + i);
    StoreU(is_first ? ~value : Min(LoadU<U8>(range[1] + i), ~value), range[1] + i);
  }
}

/// Tolerances of four taps stay as they are.
template <size_t kTaps>
void Tolerate(Tile<kTaps>& tile) {
  if constexpr (!Tile<kTaps>::kHasRanges) return;
  const size_t count = SummedBytes(tile), end = ReadBytes(tile);
  alignas(64) uint8_t ranges[2][sizeof(tile.ranges[0][0])] = {};
  for (size_t side = 0; side < 2; ++side) {
    uint8_t* const range = ranges[side];
    for (size_t i = 0; i < end; i += kVectorBytes) {
      U8 least = LoadU<U8>(tile.ranges[0][side] + i);
      for (size_t group = 1; group < tile.kGroups; ++group) {
        least = Min(least, LoadU<U8>(tile.ranges[group][side] + i));
      }
      StoreU(least, range + i);
    }
    // An even and an odd column have one tap more.
    for (size_t width = 1, more; width < kTaps + 1; width += more) {
      more = width < kTaps + 1 - width ? width : kTaps + 1 - width;
      for (size_t i = 0; i < end; i += kVectorBytes) {
        StoreU(Min(LoadU<U8>(range + i), LoadU<U8>(range + i + more * tile.step)), range + i);
      }
    }
  }
  int32_t units[Tile<kTaps>::kBytes];
  for (size_t i = 0; i < count; ++i) {
    units[i] = tile.tolerance.Units(ranges[0][i], UINT8_MAX - ranges[1][i]);
  }
  for (size_t i = 0; i < count; i += 2 * F32::kLanes) {
    const I32 first = LoadU<I32>(units + i), second = LoadU<I32>(units + i + F32::kLanes);
    StoreU(ConvertTo<F32>(first), tile.tolerances + i);
    StoreU(ConvertTo<F32>(second), tile.tolerances + i + F32::kLanes);
    StoreU(BitCast<U16>(ShiftLeft<1>(first) | ShiftLeft<17>(second)), tile.doubtful + i);
  }
}

/// Taps of some vectors weighted in their order and in reverse, added to what sums start from.
template <size_t kVectors>
struct Weighted {
  F32 forward[kVectors], reverse[kVectors];
};
template <bool kStartsAtZero, size_t kVectors, size_t kTaps, typename Tap>
QEL_SIMD_INLINE Weighted<kVectors> Weigh(const F32 (&weights)[kTaps], const float* start,
                                         const Tap& tap) {
  Weighted<kVectors> sums;
  const auto add = [&](size_t i) __attribute__((always_inline)) {
    // Taps that have the same two weights follow one another.
    const size_t k = i % 2 == 0 ? i / 2 : kTaps - 1 - i / 2;
    const F32 weight = weights[k], mirrored = weights[kTaps - 1 - k];
    for (size_t v = 0; v < kVectors; ++v) {
      const F32 value = KeepInRegister(tap(k, v));
      if (kStartsAtZero && i == 0) {
        sums.forward[v] = weight * value;
        sums.reverse[v] = mirrored * value;
      } else {
        if (i == 0) sums.forward[v] = sums.reverse[v] = LoadU<F32>(start + v * F32::kLanes);
        sums.forward[v] = MulAdd(weight, value, sums.forward[v]);
        sums.reverse[v] = MulAdd(mirrored, value, sums.reverse[v]);
      }
    }
  };
  // The compiler would leave a loop over twelve taps, and sums in memory.
  [&]<size_t... i>(std::index_sequence<i...>) __attribute__((always_inline)) { (add(i), ...); }
  (std::make_index_sequence<kTaps>());
  return sums;
}

/// Vectors that are summed together.
constexpr size_t kPair = 2;

template <size_t kTaps>
void Across(const Tile<kTaps>& tile, typename Tile<kTaps>::Sums& sums_of_row,
            const typename Tile<kTaps>::Values& of_row) {
  F32 weights[kTaps];
  for (size_t k = 0; k < kTaps; ++k) weights[k] = Set<F32>(tile.weights[k]);
  const size_t step = tile.step, end = SummedBytes(tile);
  const float* const __restrict values = of_row;
  float* const __restrict even = sums_of_row[0];
  float* const __restrict odd = sums_of_row[1] + tile.kEarly - step;
  for (size_t i = 0; i < end; i += kPair * F32::kLanes) {
    const auto sums = Weigh<true, kPair>(weights, nullptr, [&](size_t k, size_t v) {
      return LoadU<F32>(values + i + v * F32::kLanes + k * step);
    });
    for (size_t v = 0; v < kPair; ++v) {
      StoreU(sums.forward[v], even + i + v * F32::kLanes);
      StoreU(sums.reverse[v], odd + i + v * F32::kLanes);
    }
  }
}

/// The vectors that make one of bytes.
constexpr size_t kVectors = 4;

/// Bytes of the words of four vectors in their order.
QEL_SIMD_INLINE U8 BytesOf(const I16 (&words)[kVectors / 2]) {
  constexpr size_t kBlocks = kVectorBytes / 16;
  const auto fours = BitCast<U32>(ReorderDemote2To<U8>(words[0], words[1]));
  return BitCast<U8>(
      Shuffled<U32>(fours, fours, [](size_t i) { return i % kBlocks * 4 + i / kBlocks; }));
}
/// Words of sums, which are far from leaving the range of integers. Narrowing clamps.
QEL_SIMD_INLINE I16 WordsOf(F32 first, F32 second) {
  return ReorderDemote2To<I16>(ConvertTo<I32>(first), ConvertTo<I32>(second));
}

template <size_t kTaps>
[[gnu::noinline]] void Settle(Tile<kTaps>& tile) {
  static_assert(Tile<kTaps>::kTogether == kVectors);
  const size_t count = tile.doubt_count;
  if (count == 0) return;
  for (size_t d = count; d < kVectors; ++d) tile.doubts[d] = tile.doubts[0];
  F32 sums[kVectors] = {};
  for (size_t j = 0; j < kTaps; ++j) {
    const float *values[kVectors], *products[kVectors];
    for (size_t d = 0; d < kVectors; ++d) {
      const auto& doubt = tile.doubts[d];
      values[d] = *tile.values_of[(doubt.row + j) % tile.kKept] + doubt.value;
      products[d] = doubt.products[j];
    }
    for (size_t k = 0; k < kTaps; ++k) {
      for (size_t d = 0; d < kVectors; ++d) {
        sums[d] += Set<F32>(products[d][k]) * LoadU<F32>(values[d] + k * tile.step);
      }
    }
  }
  const LanesOf bytes(BytesOf({WordsOf(sums[0], sums[1]), WordsOf(sums[2], sums[3])}));
  for (size_t d = 0; d < count; ++d) {
    __builtin_memcpy(tile.doubts[d].bytes, bytes.at + d * F32::kLanes, F32::kLanes);
  }
  tile.doubt_count = 0;
}

/// Bytes cut from sums: from exact ones, or from those in units, to which the tolerance was added.
template <bool kIsExact>
struct CutBytes {
  I16 words[kVectors / kPair];
  U16 fractions[kVectors / kPair];  ///< of the first and the second vector of each by turns

  /// Vectors 2 * `pair` and the next one.
  QEL_SIMD_INLINE void Cut(size_t pair, const F32 (&sums)[kPair]) {
    if constexpr (kIsExact) {
      words[pair] = WordsOf(sums[0], sums[1]);
      return;
    }
    // What is below 1 becomes 0, however far off it is.
    const auto units = [](F32 sum) { return Max(ConvertTo<I32>(sum), Set<I32>(kUnitsOfOne / 2)); };
    const I32 a = units(sums[0]), b = units(sums[1]);
    words[pair] = ReorderDemote2To<I16>(ShiftRight<16>(a), ShiftRight<16>(b));
    fractions[pair] = BitCast<U16>((a & Set<I32>(UINT16_MAX)) | ShiftLeft<16>(b));
  }
};

/// Notes those of four vectors of sums where words of their pairs, by turns, are not 0; `all` is
/// the first one.
template <size_t kTaps>
[[gnu::noinline]] void NoteDoubts(Tile<kTaps>& tile, const typename Tile<kTaps>::Doubt& all,
                                  U16 first_pair, U16 second_pair) {
  for (size_t v = 0; v < kVectors; ++v) {
    const auto of_pair = BitCast<U32>(v < kPair ? first_pair : second_pair);
    const U32 of_vector = v % kPair == 0 ? ShiftLeft<16>(of_pair) : ShiftRight<16>(of_pair);
    if (AllFalse(BitCast<U8>(of_vector) != Zero<U8>())) continue;
    auto& doubt = tile.doubts[tile.doubt_count++] = all;
    doubt.value += v * F32::kLanes;
    doubt.bytes += v * F32::kLanes;
    if (tile.doubt_count == tile.kTogether) Settle(tile);
  }
}

template <size_t kTaps, bool kIsExact>
void SumDown(Tile<kTaps>& tile, size_t row, size_t pair_row, const uint8_t* const (&next)[2]) {
  F32 weights[kTaps];
  const float* taps[kTaps];
  for (size_t k = 0; k < kTaps; ++k) {
    weights[k] = Set<F32>(tile.weights[k] * (kIsExact ? 1.0f : float{kUnitsOfOne}));
    taps[k] = (*tile.sums_of[(row + k) % kTaps])[0];
  }
  for (size_t i = 0; i < tile.count; i += kVectorBytes) {
    for (const uint8_t* later : next) {
      for (size_t line = 0; line < 2 * kVectorBytes; line += 64) {
        PrefetchLine<1>(later + 2 * i + line);
      }
    }
    U16 doubtful[kVectors / kPair];
    for (size_t pair = 0; pair < kVectors / kPair; ++pair) {
      doubtful[pair] = LoadU<U16>(tile.doubtful + i + pair * U16::kLanes);
    }
    for (size_t odd_column = 0; odd_column < 2; ++odd_column) {
      const size_t at = i + odd_column * (tile.kSums + tile.kEarly);
      CutBytes<kIsExact> odd, even;
      for (size_t pair = 0; pair < kVectors / kPair; ++pair) {
        const auto sums = Weigh<kIsExact, kPair>(
            weights, tile.tolerances + i + kPair * pair * F32::kLanes, [&](size_t k, size_t v) {
              return LoadU<F32>(taps[k] + at + (kPair * pair + v) * F32::kLanes);
            });
        odd.Cut(pair, sums.reverse);
        even.Cut(pair, sums.forward);
      }
      const auto store = [&](const CutBytes<kIsExact>& cut, size_t even_row) {
        uint8_t* const to = tile.bytes[pair_row][even_row][odd_column] + i;
        StoreU(BytesOf(cut.words), to);
        if constexpr (!kIsExact) {
          const U16 first = SaturatedSub(doubtful[0], cut.fractions[0]);
          const U16 second = SaturatedSub(doubtful[1], cut.fractions[1]);
          if (AllFalse(BitCast<U8>(first | second) != Zero<U8>())) [[likely]]
            return;
          // Odd columns begin one column later.
          NoteDoubts(tile,
                     {.row = row,
                      .value = i + odd_column * tile.step,
                      .products = tile.products[even_row][odd_column],
                      .bytes = to},
                     first, second);
        }
      };
      store(odd, 0);
      store(even, 1);
    }
  }
}

template <size_t kTaps>
void Down(Tile<kTaps>& tile, size_t row, size_t pair, const uint8_t* const (&next)[2]) {
  (tile.is_exact ? &SumDown<kTaps, true> : &SumDown<kTaps, false>)(tile, row, pair, next);
}

// Of 8 pixels of 3 bytes of each row three blocks are made.
[[maybe_unused]] constexpr size_t kEightPixels = 24;
/// What block `kBlock` takes of a row: whether it looks its bytes up in the last 16 of them, else
/// in the first, and where they lie there.
template <size_t kBlock, size_t kRow>
struct ByTurns {
  static constexpr bool kLast = kBlock == 2 || (kBlock == 1 && kRow == 0);
  static constexpr auto kPlaces = MakePattern<16>([](size_t i) {
    const size_t at = 16 * kBlock + i, pixel = at / 3;
    return pixel % 2 == kRow ? pixel / 2 * 3 + at % 3 - (kLast ? 8 : 0) : 128;
  });
};

/// Pixels of `kStep` bytes from rows by turns.
template <size_t kStep>
void MergePixels(uint8_t* dest, const uint8_t* even, const uint8_t* odd, size_t count) {
  constexpr size_t kBytes = kStep == 3 ? kVectorBytes / 16 * kEightPixels : kVectorBytes;
  const auto merge = [&](size_t i) {
    if constexpr (kStep != 3) {
      using Pixels = std::conditional_t<kStep == 1, U8, U32>;
      const auto a = BitCast<Pixels>(LoadU<U8>(even + i));
      const auto b = BitCast<Pixels>(LoadU<U8>(odd + i));
      StoreBlocks(InterleaveLower(a, b), dest + 2 * i, 32);
      StoreBlocks(InterleaveUpper(a, b), dest + 2 * i + 16, 32);
    } else if constexpr (kHasTableLookupBytes) {
      const auto bytes = [&]<size_t kBlock, size_t kRow>(const uint8_t* row) {
        using Turns = ByTurns<kBlock, kRow>;
        const uint8_t* const from = row + i + (Turns::kLast ? 8 : 0);
        return ShuffleBlocks(LoadBlocks<U8>(from, kEightPixels), Turns::kPlaces);
      };
      const auto store = [&]<size_t kBlock>() {
        const U8 block =
            bytes.template operator()<kBlock, 0>(even) | bytes.template operator()<kBlock, 1>(odd);
        StoreBlocks(block, dest + 2 * i + 16 * kBlock, 2 * kEightPixels);
      };
      store.template operator()<0>();
      store.template operator()<1>();
      store.template operator()<2>();
    }
  };
  if ((kStep != 3 || kHasTableLookupBytes) && count >= kBytes) {
    for (size_t i = 0; i + kBytes < count; i += kBytes) merge(i);
    // Some pixels once more.
    return merge(count - kBytes);
  }
  for (size_t i = 0; i < count; i += kStep) {
    __builtin_memcpy(dest + 2 * i, even + i, kStep);
    __builtin_memcpy(dest + 2 * i + kStep, odd + i, kStep);
  }
}

void Merge(uint8_t* dest, const uint8_t* even, const uint8_t* odd, size_t step, size_t count) {
  const auto merge = step == 1 ? &MergePixels<1> : step == 3 ? &MergePixels<3> : &MergePixels<4>;
  merge(dest, even, odd, count);
}

template <size_t kTaps>
constexpr TapDoublingKernels<kTaps> kTapKernels = {
    .widen = &Widen<kTaps>,
    .range = &Range<kTaps>,
    .tolerate = &Tolerate<kTaps>,
    .across = &Across<kTaps>,
    .down = &Down<kTaps>,
    .settle = &Settle<kTaps>,
};

}  // namespace

extern const DoublingKernels kDoublingKernels;
constinit const DoublingKernels kDoublingKernels = {
    .of4 = kTapKernels<4>,
    .of12 = kTapKernels<12>,
    .merge = &Merge,
};

}  // namespace qel::QEL_LEVEL
