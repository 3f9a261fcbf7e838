#include "transform/resample/separable_doubling_kernels.h"

#include "simd/interleaved.h"
#include "simd/prefetch.h"

namespace qel::QEL_LEVEL {
namespace {

void Widen(float* __restrict values, const uint8_t* __restrict bytes, size_t count) {
  for (size_t i = 0; i < count; ++i) values[i] = bytes[i];
}

constexpr size_t kTaps = kSeparableTaps;

/// Taps weighted in their order and in reverse, added to what sums start from.
struct Weighted {
  F32 forward, reverse;
};
template <bool kStartsAtZero, typename Tap>
QEL_SIMD_INLINE Weighted Weigh(const F32 (&weights)[kTaps], F32 start, const Tap& tap) {
  Weighted sums = {start, start};
  for (size_t k = 0; k < kTaps; ++k) {
    const F32 value = KeepInRegister(tap(k));
    const auto add = [&](F32 weight, F32& sum) {
      sum = kStartsAtZero && k == 0 ? weight * value : MulAdd(weight, value, sum);
    };
    add(weights[k], sums.forward);
    add(weights[kTaps - 1 - k], sums.reverse);
  }
  return sums;
}

void Across(float* __restrict even, float* __restrict odd, const float* __restrict values,
            const float* given, size_t step, size_t count) {
  F32 weights[kTaps];
  for (size_t k = 0; k < kTaps; ++k) weights[k] = Set<F32>(given[k]);
  // As far as whole vectors of bytes are read.
  const size_t end = (count + step + kVectorBytes - 1) / kVectorBytes * kVectorBytes;
  for (size_t i = 0; i < end; i += F32::kLanes) {
    const Weighted sums = Weigh<true>(weights, Zero<F32>(),
                                      [&](size_t k) { return LoadU<F32>(values + i + k * step); });
    StoreU(sums.forward, even + i);
    StoreU(sums.reverse, odd + i - step);
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

/// One vector of bytes as it is defined, from column `i` of the tile on.
[[gnu::noinline]] void SumInOrder(const DoubledRows& rows, size_t row, size_t column, size_t i) {
  // Odd columns begin one column later; odd ones have their weights in reverse.
  const size_t first = i + column * rows.step;
  F32 sums[kVectors] = {};
  for (size_t j = 0; j < kTaps; ++j) {
    const float row_weight = rows.weights[row == 0 ? kTaps - 1 - j : j];
    for (size_t k = 0; k < kTaps; ++k) {
      const float weight = rows.weights[column == 0 ? k : kTaps - 1 - k] * row_weight;
      const float* const values = rows.values[j] + first + k * rows.step;
      for (size_t v = 0; v < kVectors; ++v) {
        sums[v] += Set<F32>(weight) * LoadU<F32>(values + v * F32::kLanes);
      }
    }
  }
  StoreU(BytesOf({WordsOf(sums[0], sums[1]), WordsOf(sums[2], sums[3])}),
         rows.bytes[row][column] + i);
}

/// Bytes cut from sums: from exact ones, or from those in units, to which the tolerance was added.
template <bool kIsExact>
struct CutBytes {
  I16 words[2];
  U16 fractions = Set<U16>(UINT16_MAX);  ///< the lowest ones of all sums

  /// Vectors 2 * `pair` and the next one.
  QEL_SIMD_INLINE void Cut(size_t pair, F32 first, F32 second) {
    if constexpr (kIsExact) {
      words[pair] = WordsOf(first, second);
      return;
    }
    // What is below 1 becomes 0, however far off it is.
    const auto units = [](F32 sum) {
      return Max(ConvertTo<I32>(sum), Set<I32>(static_cast<int32_t>(kUnitsOfOne / 2)));
    };
    const I32 a = units(first), b = units(second);
    words[pair] = ReorderDemote2To<I16>(ShiftRight<16>(a), ShiftRight<16>(b));
    const I32 of_both = (a & Set<I32>(UINT16_MAX)) | ShiftLeft<16>(b);
    fractions = Min(fractions, BitCast<U16>(of_both));
  }
  /// Stores them; false if some may be others, as those below `doubtful`.
  QEL_SIMD_INLINE bool Store(uint8_t* to, U16 doubtful) const {
    StoreU(BytesOf(words), to);
    return kIsExact || AllFalse(BitCast<U8>(SaturatedSub(doubtful, fractions)) != Zero<U8>());
  }
};

template <bool kIsExact>
void DownColumns(const DoubledRows& rows) {
  F32 weights[kTaps];
  for (size_t k = 0; k < kTaps; ++k) {
    weights[k] = Set<F32>(rows.weights[k] * (kIsExact ? 1 : kUnitsOfOne));
  }
  const F32 start = Set<F32>(rows.tolerance);
  const U16 doubtful = Set<U16>(static_cast<uint16_t>(2 * rows.tolerance));
  for (size_t i = 0; i < rows.count; i += kVectorBytes) {
    for (const uint8_t* next : rows.next) {
      for (size_t line = 0; line < 2 * kVectorBytes; line += 64) {
        PrefetchLine<1>(next + 2 * i + line);
      }
    }
    for (size_t column = 0; column < 2; ++column) {
      const auto weigh = [&](size_t v) {
        return Weigh<kIsExact>(weights, start, [&](size_t k) {
          return LoadU<F32>(rows.sums[k][column] + i + v * F32::kLanes);
        });
      };
      CutBytes<kIsExact> odd, even;
      for (size_t pair = 0; pair < kVectors / 2; ++pair) {
        const Weighted first = weigh(2 * pair), second = weigh(2 * pair + 1);
        odd.Cut(pair, first.reverse, second.reverse);
        even.Cut(pair, first.forward, second.forward);
      }
      if (!odd.Store(rows.bytes[0][column] + i, doubtful)) SumInOrder(rows, 0, column, i);
      if (!even.Store(rows.bytes[1][column] + i, doubtful)) SumInOrder(rows, 1, column, i);
    }
  }
}

void Down(const DoubledRows& rows) {
  (rows.tolerance == 0 ? &DownColumns<true> : &DownColumns<false>)(rows);
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
  size_t i = 0;
  if constexpr (kStep != 3) {
    using Pixels = std::conditional_t<kStep == 1, U8, U32>;
    for (; i + kVectorBytes <= count; i += kVectorBytes) {
      const auto a = BitCast<Pixels>(LoadU<U8>(even + i));
      const auto b = BitCast<Pixels>(LoadU<U8>(odd + i));
      StoreBlocks(InterleaveLower(a, b), dest + 2 * i, 32);
      StoreBlocks(InterleaveUpper(a, b), dest + 2 * i + 16, 32);
    }
  } else if constexpr (kHasTableLookupBytes) {
    constexpr size_t kBytes = kVectorBytes / 16 * kEightPixels;
    for (; i + kBytes <= count; i += kBytes) {
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
  }
  for (; i < count; i += kStep) {
    __builtin_memcpy(dest + 2 * i, even + i, kStep);
    __builtin_memcpy(dest + 2 * i + kStep, odd + i, kStep);
  }
}

void Merge(uint8_t* dest, const uint8_t* even, const uint8_t* odd, size_t step, size_t count) {
  const auto merge = step == 1 ? &MergePixels<1> : step == 3 ? &MergePixels<3> : &MergePixels<4>;
  merge(dest, even, odd, count);
}

}  // namespace

extern const SeparableDoublingKernels kSeparableDoublingKernels;
constinit const SeparableDoublingKernels kSeparableDoublingKernels = {
    .widen = &Widen,
    .across = &Across,
    .down = &Down,
    .merge = &Merge,
};

}  // namespace qel::QEL_LEVEL
