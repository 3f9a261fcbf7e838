#include "filter/convolution/row_pair_kernels.h"

#include "filter/convolution/quotients.h"
#include "filter/prefetch_later.h"

namespace qel::QEL_LEVEL {
namespace {

void Interleave(uint8_t* pairs, const uint8_t* upper, const uint8_t* lower, size_t count) {
  if (count < kVectorBytes) {
    for (size_t i = 0; i < count; ++i) {
      pairs[2 * i] = upper[i];
      pairs[2 * i + 1] = lower[i];
    }
    return;
  }
  ForEachVector(count, [=](size_t k, size_t) {
    const U8 a = HalvesByTurns(LoadU<U8>(upper + k));
    const U8 b = HalvesByTurns(LoadU<U8>(lower + k));
    StoreU(InterleaveLower(a, b), pairs + 2 * k);
    StoreU(InterleaveUpper(a, b), pairs + 2 * k + kVectorBytes);
  });
}

/// Vectors of sums side by side in each row: what is done for each tap is done for all of these.
constexpr size_t kAbreast = 4;
constexpr size_t kOutputs = kAbreast * I16::kLanes;
static_assert(kOutputs <= kMostRowPairBytes);

/// The sums of two rows, in their order.
struct RowPairSums {
  I16 upper[kAbreast];
  I16 lower[kAbreast];
};

/// Goes through the groups of a kernel for the outputs from byte `k` on.
class GroupWalk {
 public:
  QEL_SIMD_INLINE GroupWalk(const RowPairWeights& weights, size_t k)
      : weights_(weights), pairs_(weights.pairs + 2 * k), group_(weights.groups) {}
  /// Sums the next group.
  QEL_SIMD_INLINE void Next(RowPairSums& sums) {
    const RowPairGroup& group = *group_++;
    for (I16& v : sums.upper) v = Set<I16>(group.upper_start);
    for (I16& v : sums.lower) v = Set<I16>(group.lower_start);
    const auto [places, uppers, lowers] = weights_.taps;
    for (; tap_ != group.end; ++tap_) {
      const PairLanes upper = SetPairs(uppers[tap_]), lower = SetPairs(lowers[tap_]);
      const uint8_t* const from = pairs_ + places[tap_];
      for (size_t v = 0; v < kAbreast; ++v) {
        const U8 both = LoadOnce(from + v * kVectorBytes);
        sums.upper[v] += SumPairs(both, upper);
        sums.lower[v] += SumPairs(both, lower);
      }
    }
  }
  QEL_SIMD_INLINE ptrdiff_t Left() const { return weights_.groups + weights_.group_count - group_; }

 private:
  const RowPairWeights& weights_;
  const uint8_t* const pairs_;
  size_t tap_ = 0;
  const RowPairGroup* group_;
};

/// Stores the bytes of a row from byte `k` on: bytes(v) are those of sums `v` and `v + 1`, of each
/// block those of the first, then those of the second.
template <typename Bytes>
QEL_SIMD_INLINE void StoreRow(uint8_t* dest, const RowPairWeights& weights, size_t row, size_t k,
                              size_t count, const Bytes& bytes) {
  for (size_t v = 0; v < kAbreast; v += 2) {
    const size_t at = k + v * I16::kLanes;
    if (at >= count) return;
    U8 in_blocks = bytes(v);
    if (weights.takes_alpha) {
      const auto [place, is_second] = weights.alphas[row];
      const auto words = [is_second = is_second](const uint8_t* from) {
        const U16 both = LoadU<U16>(from);
        return BitCast<I16>(is_second ? ShiftRight<8>(both) : both & Set<U16>(0xFF));
      };
      const uint8_t* const from = weights.pairs + place + 2 * at;
      in_blocks =
          WithFourthBytes(in_blocks, ReorderDemote2To<U8>(words(from), words(from + kVectorBytes)));
    }
    StoreN(LowerThenUpperHalves(in_blocks), dest + at, count - at);
  }
}

/// Calls block(k) for each block of outputs from byte `k` on.
template <typename Block>
QEL_SIMD_INLINE void ForEachBlock(const RowPairOutputs& outputs, size_t count, const Block& block) {
  constexpr size_t kLine = 64;
  for (size_t k = 0; k < count; k += kOutputs) {
    for (const uint8_t* const row : outputs.ahead) {
      for (size_t line = 0; line < kOutputs; line += kLine) PrefetchLater(row + k + line);
    }
    // The last block overlaps the one before it.
    block(k + kOutputs > count && count >= kOutputs ? count - kOutputs : k);
  }
}

template <ShortSums kSums>
void WeighShort(const RowPairOutputs& outputs, const RowPairWeights& weights, size_t count) {
  const ShortQuotients<kSums> quotients(weights.finish);
  ForEachBlock(outputs, count, [&](size_t k) {
    RowPairSums sums;
    GroupWalk(weights, k).Next(sums);
    const auto store = [&](uint8_t* dest, size_t row, const I16* of) {
      StoreRow(dest, weights, row, k, count, [&](size_t v) {
        return quotients({of[v], of[v + 1]});
      });
    };
    store(outputs.lower, 1, sums.lower);
    store(outputs.upper, 0, sums.upper);
  });
}

/// Sums of 32 bits of two groups of a row: those of the lower and of the upper halves of blocks.
QEL_SIMD_INLINE Halves<I32> Widened(I16 a, I16 b) {
  const I16 ones = Set<I16>(1);
  return {WidenMulPairwiseAdd(InterleaveLower(a, b), ones),
          WidenMulPairwiseAdd(InterleaveUpper(a, b), ones)};
}
/// Those of a row side by side.
struct WideSums {
  Halves<I32> at[kAbreast];

  QEL_SIMD_INLINE explicit WideSums(int32_t bias) {
    for (Halves<I32>& v : at) v = {Set<I32>(bias), Set<I32>(bias)};
  }
  QEL_SIMD_INLINE void Add(const I16 (&a)[kAbreast], const I16 (&b)[kAbreast]) {
    for (size_t v = 0; v < kAbreast; ++v) {
      const Halves<I32> more = Widened(a[v], b[v]);
      at[v].lower += more.lower;
      at[v].upper += more.upper;
    }
  }
};

/// `kIsLong` where there are more than two groups.
template <bool kIsLong>
void WeighWide(const RowPairOutputs& outputs, const RowPairWeights& weights, size_t count) {
  const I16 offset = Set<I16>(static_cast<int16_t>(weights.division.offset));
  const float factor = weights.division.single_factor;
  ForEachBlock(outputs, count, [&](size_t k) {
    WideSums upper(weights.upper_bias), lower(weights.lower_bias);
    GroupWalk groups(weights, k);
    while (kIsLong && groups.Left() > 2) {
      RowPairSums first, second;
      groups.Next(first);
      groups.Next(second);
      upper.Add(first.upper, second.upper);
      lower.Add(first.lower, second.lower);
    }
    RowPairSums first, second;
    groups.Next(first);
    groups.Next(second);
    const auto store = [&](uint8_t* dest, size_t row, const WideSums& sums, const I16* a,
                           const I16* b) {
      const auto words = [&](size_t v) {
        const Halves<I32> last = Widened(a[v], b[v]);
        // Narrowing to 16 bits may saturate: what is so far away stays there with the offset.
        return SaturatedAdd(
            ReorderDemote2To<I16>(MulTruncated(sums.at[v].lower + last.lower, factor),
                                  MulTruncated(sums.at[v].upper + last.upper, factor)),
            offset);
      };
      StoreRow(dest, weights, row, k, count,
               [&](size_t v) { return ReorderDemote2To<U8>(words(v), words(v + 1)); });
    };
    store(outputs.lower, 1, lower, first.lower, second.lower);
    store(outputs.upper, 0, upper, first.upper, second.upper);
  });
}

void Weigh(const RowPairOutputs& outputs, const RowPairWeights& weights, size_t count) {
  if (!weights.is_short) {
    const auto weigh = weights.group_count > 2 ? &WeighWide<true> : &WeighWide<false>;
    return weigh(outputs, weights, count);
  }
  WithSums(weights.finish.sums,
           [&]<ShortSums kSums>(Constant<kSums>) { WeighShort<kSums>(outputs, weights, count); });
}

}  // namespace

extern const RowPairKernels kRowPairKernels;
constinit const RowPairKernels kRowPairKernels = {
    .interleave = &Interleave,
    .weigh = &Weigh,
};

}  // namespace qel::QEL_LEVEL
