#include "filter/convolution/convolution_kernels.h"

#include "image/numeric.h"
#include "simd/convert.h"
#include "simd/fetch.h"
#include "simd/window.h"

namespace qel::QEL_LEVEL {
namespace {

/// Outputs that are computed side by side, and those whose sums are kept between two steps.
constexpr size_t kBlock = 64;
constexpr size_t kStretch = 768;
constexpr size_t kMostStep = 4;

inline size_t Smaller(size_t a, size_t b) { return a < b ? a : b; }

inline uint8_t FinishOne(int32_t quotient, int32_t offset) {
  return ClampToByte(WrapAdd(quotient, offset));
}

void Finish32(uint8_t* __restrict dest, const uint32_t* __restrict sums, const Division& division,
              size_t count) {
  const int32_t offset = division.offset;
  if (division.in_single) {
    const float factor = division.single_factor;
    for (size_t i = 0; i < count; ++i) {
      const auto sum = static_cast<float>(static_cast<int32_t>(sums[i]));
      dest[i] = FinishOne(static_cast<int32_t>(sum * factor), offset);
    }
    return;
  }
  const double factor = division.factor;
  for (size_t i = 0; i < count; ++i) {
    // The lowest sum divided by -1 leaves the range and comes back as itself.
    dest[i] = FinishOne(TruncateToInt(static_cast<int32_t>(sums[i]) * factor), offset);
  }
}

void Finish16(uint8_t* __restrict dest, const uint16_t* __restrict sums,
              const ShortDivision& division, size_t count) {
  if (division.multiplier == 0) {
    for (size_t i = 0; i < count; ++i) {
      dest[i] = static_cast<uint8_t>(sums[i] < 255 ? sums[i] : 255);
    }
    return;
  }
  const uint32_t multiplier = division.multiplier;
  const int shift = division.shift;
  for (size_t i = 0; i < count; ++i) {
    const auto high = static_cast<uint16_t>(sums[i] * multiplier >> 16);
    const auto quotient = static_cast<uint16_t>(high >> shift);
    dest[i] = static_cast<uint8_t>(quotient < 255 ? quotient : 255);
  }
}

/// Products of 16-bit lanes in unsigned arithmetic: lanes would be promoted to signed integers.
inline uint16_t Product(uint16_t weight, uint32_t value) {
  return static_cast<uint16_t>(uint32_t{weight} * value);
}

/// sum[i] = weights[0] * rows[0][first + i] + ... for rows of bytes or of sums; 3 or 5 taps at
/// once.
template <size_t kTaps, typename Value>
void SumFew(uint16_t* __restrict sums, const Value* const* rows, const int16_t* weights,
            uint16_t start, size_t count) {
  const Value* const a = rows[0];
  const Value* const b = rows[1];
  const Value* const c = rows[2];
  const Value* const d = rows[kTaps > 3 ? 3 : 0];
  const Value* const e = rows[kTaps > 4 ? 4 : 0];
  const auto w0 = static_cast<uint16_t>(weights[0]);
  const auto w1 = static_cast<uint16_t>(weights[1]);
  const auto w2 = static_cast<uint16_t>(weights[2]);
  const auto w3 = static_cast<uint16_t>(kTaps > 3 ? weights[3] : 0);
  const auto w4 = static_cast<uint16_t>(kTaps > 4 ? weights[4] : 0);
  for (size_t i = 0; i < count; ++i) {
    auto sum =
        static_cast<uint16_t>(start + Product(w0, a[i]) + Product(w1, b[i]) + Product(w2, c[i]));
    if constexpr (kTaps > 3) {
      sum = static_cast<uint16_t>(sum + Product(w3, d[i]) + Product(w4, e[i]));
    }
    sums[i] = sum;
  }
}

template <typename Value>
void Sum(uint16_t* __restrict sums, const Value* const* rows, const int16_t* weights, size_t taps,
         uint16_t start, size_t count) {
  if (taps == 3) return SumFew<3>(sums, rows, weights, start, count);
  if (taps == 5) return SumFew<5>(sums, rows, weights, start, count);
  for (size_t i = 0; i < count; ++i) sums[i] = start;
  size_t tap = 0;
  for (; tap + 2 <= taps; tap += 2) {
    const Value* const a = rows[tap];
    const Value* const b = rows[tap + 1];
    const auto w0 = static_cast<uint16_t>(weights[tap]);
    const auto w1 = static_cast<uint16_t>(weights[tap + 1]);
    for (size_t i = 0; i < count; ++i) {
      sums[i] = static_cast<uint16_t>(sums[i] + Product(w0, a[i]) + Product(w1, b[i]));
    }
  }
  for (; tap < taps; ++tap) {
    const Value* const a = rows[tap];
    const auto w0 = static_cast<uint16_t>(weights[tap]);
    for (size_t i = 0; i < count; ++i) {
      sums[i] = static_cast<uint16_t>(sums[i] + Product(w0, a[i]));
    }
  }
}

/// The sums down the columns, a stretch of a row at a time.
class ColumnSums {
 public:
  ColumnSums(const uint8_t* const* rows, const SplitWeights& weights)
      : rows_(rows), weights_(weights) {}

  /// Computes the sums that `count` outputs from `first` on need.
  const uint16_t* At(size_t first, size_t count) {
    const uint8_t* here[kMostTaps];
    for (size_t j = 0; j < weights_.rows; ++j) here[j] = rows_[j] + first;
    Sum(sums_, here, weights_.down, weights_.rows, weights_.start,
        count + (weights_.columns - 1) * weights_.step);
    return sums_;
  }

 private:
  const uint8_t* const* const rows_;
  const SplitWeights& weights_;
  // Room for whole vectors, the last of which may lie behind the sums that count.
  alignas(64) uint16_t sums_[kStretch + kMostTaps * kMostStep + kBlock];
};

template <typename Lane>
void RunSums(Lane* __restrict sums, const uint8_t* __restrict entering,
             const uint8_t* __restrict leaving, Lane weight, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    const auto change = static_cast<Lane>(Lane{entering[i]} - Lane{leaving[i]});
    sums[i] = static_cast<Lane>(sums[i] + static_cast<Lane>(uint32_t{weight} * change));
  }
}

/// Widest box whose sums are put together from those of three columns; wider ones are run along.
constexpr size_t kWidestJoined = 32;

/// out[i] = terms[0][i] + ..., added to what is there if `kAdds`.
template <size_t kTerms, bool kAdds, typename Lane>
void AddTerms(Lane* __restrict out, const Lane* const* terms, size_t count) {
  const Lane* from[kTerms];
  for (size_t t = 0; t < kTerms; ++t) from[t] = terms[t];
  for (size_t i = 0; i < count; ++i) {
    Lane sum = kAdds ? out[i] : Lane{0};
    for (size_t t = 0; t < kTerms; ++t) sum = static_cast<Lane>(sum + from[t][i]);
    out[i] = sum;
  }
}

template <typename Lane>
void JoinAcross(Lane* out, const Lane* sums, size_t columns, size_t step, size_t count) {
  Lane triples[kStretch + kWidestJoined * kMostStep];
  const Lane* const three[] = {sums, sums + step, sums + 2 * step};
  AddTerms<3, false>(triples, three, count + (columns - 3) * step);
  const Lane* terms[kWidestJoined];
  size_t size = 0;
  size_t column = 0;
  for (; column + 3 <= columns; column += 3) terms[size++] = triples + column * step;
  for (; column < columns; ++column) terms[size++] = sums + column * step;
  AddTerms<1, false>(out, terms, count);
  size_t done = 1;
  for (; done + 4 <= size; done += 4) AddTerms<4, true>(out, terms + done, count);
  for (; done < size; ++done) AddTerms<1, true>(out, terms + done, count);
}

template <size_t kStep, typename Lane>
void RunAcross(Lane* __restrict out, const Lane* sums, size_t columns, size_t count) {
  Lane running[kStep] = {};
  for (size_t i = 0; i < columns * kStep; ++i) {
    running[i % kStep] = static_cast<Lane>(running[i % kStep] + sums[i]);
  }
  const Lane* const ahead = sums + columns * kStep;
  for (size_t k = 0; k < count; k += kStep) {
    for (size_t c = 0; c < kStep; ++c) {
      out[k + c] = running[c];
      // The last pixel has nothing ahead.
      if (k + kStep < count) {
        running[c] = static_cast<Lane>(running[c] + ahead[k + c] - sums[k + c]);
      }
    }
  }
}

inline void FinishSums(uint8_t* dest, const uint16_t* sums, const ShortDivision& division,
                       size_t count) {
  Finish16(dest, sums, division, count);
}
inline void FinishSums(uint8_t* dest, const uint32_t* sums, const Division& division,
                       size_t count) {
  Finish32(dest, sums, division, count);
}

template <typename Lane, typename Quotient>
void BoxAcross(uint8_t* dest, const Lane* sums, size_t columns, size_t step,
               const Quotient& division, size_t count) {
  Lane out[kStretch];
  for (size_t first = 0; first < count; first += kStretch) {
    const size_t stretch = Smaller(kStretch, count - first);
    if (columns >= 3 && columns <= kWidestJoined) {
      JoinAcross(out, sums + first, columns, step, stretch);
    } else if (step == 4) {
      RunAcross<4>(out, sums + first, columns, stretch);
    } else if (step == 3) {
      RunAcross<3>(out, sums + first, columns, stretch);
    } else {
      RunAcross<1>(out, sums + first, columns, stretch);
    }
    FinishSums(dest + first, out, division, stretch);
  }
}

void Accumulate(uint32_t* __restrict sums, const uint8_t* __restrict row, uint32_t weight,
                size_t count) {
  for (size_t i = 0; i < count; ++i) sums[i] += weight * row[i];
}

void Direct32(uint8_t* dest, const uint8_t* const* rows, const DirectWeights& weights,
              const Division& division, size_t count) {
  for (size_t first = 0; first < count; first += kBlock) {
    const size_t block = count - first < kBlock ? count - first : kBlock;
    uint32_t sums[kBlock] = {};
    for (size_t j = 0; j < weights.rows; ++j) {
      for (size_t i = 0; i < weights.words_per_row; ++i) {
        const auto weight = static_cast<uint32_t>(weights.words[j * weights.stride + i]);
        if (weight == 0) continue;
        const uint8_t* const row = rows[j] + first + i * weights.step;
        for (size_t k = 0; k < kBlock; ++k) sums[k] += weight * row[k];
      }
    }
    Finish32(dest + first, sums, division, block);
  }
}

QEL_SIMD_INLINE U8 LoadOnce(const uint8_t* from) { return KeepInRegister(LoadU<U8>(from)); }

/// Divides, offsets and clamps sums. Narrowing saturates twice, which is the clamp.
template <bool kInSingle>
inline U8 Quotients(const I32 (&sums)[4], const Division& division) {
  const I32 offset = Set<I32>(division.offset);
  I32 out[4];
  for (size_t a = 0; a < 4; ++a) {
    out[a] = (kInSingle ? MulTruncated(sums[a], division.single_factor)
                        : MulTruncated(sums[a], division.factor)) +
             offset;
  }
  return ReorderDemote4To8(out[0], out[1], out[2], out[3]);
}

/// Two neighbours at a time: their bytes are interleaved, widened and summed in pairs. Interleaving
/// within blocks gives the sums the order that narrowing undoes.
template <bool kInSingle>
void PairRows(uint8_t* dest, const uint8_t* const* rows, const DirectWeights& weights,
              const Division& division, size_t count) {
  const U8 zero = Zero<U8>();
  for (size_t k = 0; k < count; k += kVectorBytes) {
    I32 sums[4] = {};
    for (size_t j = 0; j < weights.rows; ++j) {
      const uint8_t* from = rows[j] + k;
      const int32_t* const words = weights.words + j * weights.stride;
      for (size_t i = 0; i < weights.words_per_row; ++i, from += 2 * weights.step) {
        if (words[i] == 0) continue;
        const I16 weight = BitCast<I16>(Set<I32>(words[i]));
        const U8 left = LoadU<U8>(from);
        const U8 right = LoadU<U8>(from + weights.step);
        const U8 lower = InterleaveLower(left, right);
        const U8 upper = InterleaveUpper(left, right);
        const auto weighed = [&](U8 pairs) {
          return WidenMulPairwiseAdd(BitCast<I16>(pairs), weight);
        };
        sums[0] += weighed(InterleaveLower(lower, zero));
        sums[1] += weighed(InterleaveUpper(lower, zero));
        sums[2] += weighed(InterleaveLower(upper, zero));
        sums[3] += weighed(InterleaveUpper(upper, zero));
      }
    }
    StoreN(Quotients<kInSingle>(sums, division), dest + k, count - k);
  }
}

void Direct16(uint8_t* dest, const uint8_t* const* rows, const DirectWeights& weights,
              const Division& division, size_t count) {
  const auto function = division.in_single ? &PairRows<true> : &PairRows<false>;
  function(dest, rows, weights, division, count);
}

/// Calls block(k, place) for vectors of bytes from `k` on. The last one overlaps the one before it
/// where there are enough; `place` counts whole vectors all the same.
template <typename Block>
inline void ForEachVector(size_t count, Block&& block) {
  for (size_t k = 0; k < count; k += kVectorBytes) {
    const bool overlaps = count - k < kVectorBytes && count >= kVectorBytes;
    block(overlaps ? count - kVectorBytes : k, k);
  }
}

/// Bytes from 16-bit sums.
template <ShortSums kSums>
class ShortQuotients {
 public:
  explicit ShortQuotients(const ShortFinish& finish)
      : divides_(finish.division.multiplier != 0),
        negates_(finish.negate),
        shift_(finish.division.shift),
        multiplier_(Set<U16>(static_cast<uint16_t>(finish.division.multiplier))),
        sign_(Set<I16>(finish.negate ? -1 : 0)),
        offset_(Set<I16>(static_cast<int16_t>(finish.offset))) {}

  QEL_SIMD_INLINE U8 operator()(const Halves<I16>& sums) const {
    return ReorderDemote2To<U8>(Of(sums.lower), Of(sums.upper));
  }

 private:
  QEL_SIMD_INLINE I16 Of(I16 sums) const {
    if constexpr (kSums == ShortSums::kUnsigned) {
      // Narrowing takes signed lanes.
      return BitCast<I16>(Min(Divide(BitCast<U16>(sums)), Set<U16>(255)));
    } else if constexpr (kSums == ShortSums::kCutAtZero) {
      return BitCast<I16>(Divide(BitCast<U16>(Max(sums, Zero<I16>()))));
    } else {
      I16 quotients = sums;
      if (divides_ || negates_) {
        const I16 signs = ShiftRight<15>(sums) ^ sign_;
        quotients = (BitCast<I16>(Divide(BitCast<U16>(Abs(sums)))) ^ signs) - signs;
      }
      return SaturatedAdd(quotients, offset_);
    }
  }
  QEL_SIMD_INLINE U16 Divide(U16 sizes) const {
    return divides_ ? ShiftRightSame(MulHigh(sizes, multiplier_), shift_) : sizes;
  }

  const bool divides_;
  const bool negates_;
  const int shift_;
  const U16 multiplier_;
  const I16 sign_;
  const I16 offset_;
};

/// Calls run(Constant<sums>) with the sums that `finish` takes.
template <ShortSums kSums>
struct Constant {};
template <typename Run>
inline void WithSums(ShortSums sums, Run&& run) {
  switch (sums) {
    case ShortSums::kUnsigned:
      return run(Constant<ShortSums::kUnsigned>());
    case ShortSums::kCutAtZero:
      return run(Constant<ShortSums::kCutAtZero>());
    case ShortSums::kSigned:
      return run(Constant<ShortSums::kSigned>());
  }
}

/// The weighted sums of one vector of outputs.
struct Accumulator : Halves<I16> {
  Accumulator() : Halves<I16>{Zero<I16>(), Zero<I16>()} {}

  QEL_SIMD_INLINE void Add(U8 a, U8 b, I8 weights) {
    AddPairs({InterleaveLower(a, b), InterleaveUpper(a, b)}, weights);
  }
  QEL_SIMD_INLINE void AddPairs(const Halves<U8>& pairs, I8 weights) {
    lower += SatWidenMulPairwiseAdd(pairs.lower, weights);
    upper += SatWidenMulPairwiseAdd(pairs.upper, weights);
  }
  QEL_SIMD_INLINE void Add(const Halves<I16>& sums, I16 weight) {
    lower += sums.lower * weight;
    upper += sums.upper * weight;
  }
};

/// Pairs of weights, given as the bytes of an integer.
QEL_SIMD_INLINE I8 SetPairs(int32_t pairs) { return BitCast<I8>(Set<I32>(pairs)); }

/// The pairs of one row. `kPairs` is their number, or 0 where it is only known at run time.
template <ShortSums kSums, size_t kPairs>
void WeighPairs(uint8_t* dest, const uint8_t* const* rows, const PairWeights& weights,
                size_t count) {
  const uint8_t* left[kMostPairs];
  const uint8_t* right[kMostPairs];
  I8 words[kMostPairs];
  const size_t pairs = kPairs != 0 ? kPairs : weights.count;
  for (size_t i = 0; i < pairs; ++i) {
    const TapPair& pair = weights.pairs[i];
    left[i] = rows[pair.rows[0]] + pair.offsets[0];
    right[i] = rows[pair.rows[1]] + pair.offsets[1];
    words[i] = SetPairs(pair.weights);
  }
  const uint8_t* const alphas =
      weights.alpha != nullptr ? rows[weights.alpha->row] + weights.alpha->offset : nullptr;
  const ShortQuotients<kSums> quotients(weights.finish);
  StoreVectors(dest, count, [&](size_t k) {
    FetchAhead<kVectorBytes>(right[pairs - 1] + k);
    Accumulator sums;
    for (size_t i = 0; i < pairs; ++i) {
      sums.Add(LoadOnce(left[i] + k), LoadOnce(right[i] + k), words[i]);
    }
    const U8 bytes = quotients(sums);
    return alphas != nullptr ? WithFourthBytes(bytes, LoadU<U8>(alphas + k)) : bytes;
  });
}

void Pairs(uint8_t* dest, const uint8_t* const* rows, const PairWeights& weights, size_t count) {
  WithSums(weights.finish.sums, [&]<ShortSums kSums>(Constant<kSums>) {
    // Up to 3 x 3 weights stay in registers.
    constexpr decltype(ConvolutionKernels::pairs) kFunctions[] = {
        &WeighPairs<kSums, 0>, &WeighPairs<kSums, 1>, &WeighPairs<kSums, 2>,
        &WeighPairs<kSums, 3>, &WeighPairs<kSums, 4>, &WeighPairs<kSums, 5>};
    kFunctions[weights.count <= 5 ? weights.count : 0](dest, rows, weights, count);
  });
}

/// The bytes of a column, interleaved for sums of pairs.
struct Interleaved {
  QEL_SIMD_INLINE Interleaved(U8 a, U8 b, U8 c)
      : first_two{InterleaveLower(a, b), InterleaveUpper(a, b)},
        third{InterleaveLower(c, Zero<U8>()), InterleaveUpper(c, Zero<U8>())} {}
  Halves<U8> first_two;  ///< rows
  Halves<U8> third;
};
template <size_t kBytes>
QEL_SIMD_INLINE Interleaved ShiftedWindow(Interleaved v, const Interleaved& next) {
  v.first_two = ShiftedWindow<kBytes>(v.first_two, next.first_two);
  v.third = ShiftedWindow<kBytes>(v.third, next.third);
  return v;
}

/// The weights of a column in vectors.
struct ColumnVectors {
  explicit ColumnVectors(const SquareWeights::Column& column)
      : first_two(SetPairs(column.upper)), third(SetPairs(column.lower)) {}
  I8 first_two;
  I8 third;
};
QEL_SIMD_INLINE void AddColumn(Accumulator& sums, const Interleaved& column,
                               const ColumnVectors& weights) {
  sums.AddPairs(column.first_two, weights.first_two);
  sums.AddPairs(column.third, weights.third);
}

template <ShortSums kSums, size_t kStep>
class SquareRow {
 public:
  SquareRow(const uint8_t* const* rows, const SquareWeights& weights)
      : rows_(rows), weights_(weights), quotients_(weights.finish) {}

  /// Sums down each column once, then across.
  void WeighProduct(uint8_t* dest, size_t count) const {
    const ColumnVectors down(weights_.columns[0]);
    const I8 middle = SetPairs(weights_.middle);
    const I16 across[] = {Set<I16>(static_cast<int16_t>(weights_.across[0])),
                          Set<I16>(static_cast<int16_t>(weights_.across[1])),
                          Set<I16>(static_cast<int16_t>(weights_.across[2]))};
    const bool has_middle = weights_.middle != 0;
    StoreWindows<3, kStep>(
        dest, count,
        [&](size_t k) -> Halves<I16> {
          Accumulator sums;
          AddColumn(sums, At(k), down);
          return sums;
        },
        [&](size_t k, const Halves<I16>& left, const Halves<I16>& centre,
            const Halves<I16>& right) {
          Accumulator sums;
          sums.Add(left, across[0]);
          sums.Add(centre, across[1]);
          sums.Add(right, across[2]);
          if (has_middle) sums.Add(LoadOnce(rows_[1] + k + kStep), Zero<U8>(), middle);
          return Finish(k, sums);
        });
  }

  /// Columns of different weights.
  void WeighColumns(uint8_t* dest, size_t count) const {
    const ColumnVectors left(weights_.columns[0]), centre(weights_.columns[1]),
        right(weights_.columns[2]);
    StoreWindows<3, kStep>(
        dest, count, [&](size_t k) { return At(k); },
        [&](size_t k, const Interleaved& a, const Interleaved& b, const Interleaved& c) {
          Accumulator sums;
          AddColumn(sums, a, left);
          AddColumn(sums, b, centre);
          AddColumn(sums, c, right);
          return Finish(k, sums);
        });
  }

 private:
  QEL_SIMD_INLINE Interleaved At(size_t k) const {
    FetchAhead<kVectorBytes>(rows_[2] + k);
    return {LoadOnce(rows_[0] + k), LoadOnce(rows_[1] + k), LoadOnce(rows_[2] + k)};
  }
  QEL_SIMD_INLINE U8 Finish(size_t k, const Halves<I16>& sums) const {
    const U8 bytes = quotients_(sums);
    return kStep == 4 ? WithFourthBytes(bytes, LoadU<U8>(rows_[2] + k + 2 * kStep)) : bytes;
  }

  const uint8_t* const* const rows_;
  const SquareWeights& weights_;
  const ShortQuotients<kSums> quotients_;
};

template <ShortSums kSums, size_t kStep>
void WeighSquare(uint8_t* dest, const uint8_t* const* rows, const SquareWeights& weights,
                 size_t count) {
  // Copies, so that the stores cannot change them.
  const uint8_t* const here[] = {rows[0], rows[1], rows[2]};
  const SquareRow<kSums, kStep> row(here, weights);
  if (weights.is_product) {
    row.WeighProduct(dest, count);
  } else {
    row.WeighColumns(dest, count);
  }
}

void Square(uint8_t* dest, const uint8_t* const* rows, const SquareWeights& weights, size_t count) {
  WithSums(weights.finish.sums, [&]<ShortSums kSums>(Constant<kSums>) {
    const auto function = weights.step == 4   ? &WeighSquare<kSums, 4>
                          : weights.step == 3 ? &WeighSquare<kSums, 3>
                                              : &WeighSquare<kSums, 1>;
    function(dest, rows, weights, count);
  });
}

/// Sums of each vector of bytes in the order of interleaving, low halves first.
void Across16(uint16_t* sums, const uint8_t* row, const SplitWeights& weights, size_t count) {
  int32_t pairs[(kMostTaps + 1) / 2];
  const size_t pair_count = (weights.columns + 1) / 2;
  for (size_t i = 0; i < pair_count; ++i) {
    const int left = weights.across[2 * i];
    const int right = 2 * i + 1 < weights.columns ? weights.across[2 * i + 1] : 0;
    pairs[i] = (right << 8 | left) * 0x10001;
  }
  const bool odd = weights.columns % 2 != 0;
  ForEachVector(count, [&](size_t k, size_t place) {
    Accumulator sum;
    const uint8_t* from = row + k;
    for (size_t i = 0; i < pair_count; ++i, from += 2 * weights.step) {
      // An odd tap has no partner: reading one would lead beyond the row.
      const uint8_t* const right = odd && i + 1 == pair_count ? from : from + weights.step;
      sum.Add(LoadOnce(from), LoadOnce(right), SetPairs(pairs[i]));
    }
    StoreU(sum.lower, sums + place);
    StoreU(sum.upper, sums + place + I16::kLanes);
  });
}

template <bool kWeighs>
void SumDown(uint8_t* dest, const uint16_t* const* sums, const SplitWeights& weights,
             const ShortFinish& finish, size_t count) {
  const ShortQuotients<ShortSums::kUnsigned> quotients(finish);
  ForEachVector(count, [&](size_t k, size_t place) {
    Accumulator sum;
    for (size_t j = 0; j < weights.rows; ++j) {
      I16 lower = LoadU<I16>(sums[j] + place);
      I16 upper = LoadU<I16>(sums[j] + place + I16::kLanes);
      if constexpr (kWeighs) {
        const I16 weight = Set<I16>(weights.down[j]);
        lower *= weight;
        upper *= weight;
      }
      sum.lower += lower;
      sum.upper += upper;
    }
    StoreN(quotients(sum), dest + k, count - k);
  });
}

void Down16(uint8_t* dest, const uint16_t* const* sums, const SplitWeights& weights,
            const ShortDivision& division, size_t count) {
  bool ones = true;
  for (size_t j = 0; j < weights.rows; ++j) ones = ones && weights.down[j] == 1;
  const ShortFinish finish{ShortSums::kUnsigned, division, false, 0};
  const auto function = ones ? &SumDown<false> : &SumDown<true>;
  function(dest, sums, weights, finish, count);
}

/// Two sums side by side at a time. Interleaving within blocks puts the outputs of the first vector
/// of sums into the lower half of each block and those of the second into the upper half.
template <bool kInSingle>
void SplitRows(uint8_t* dest, const uint8_t* const* rows, const SplitWeights& weights,
               const Division& division, size_t count) {
  ColumnSums columns(rows, weights);
  int32_t pairs[(kMostTaps + 1) / 2];
  const size_t pair_count = (weights.columns + 1) / 2;
  const I32 balance = Set<I32>(static_cast<int32_t>(weights.balance));
  for (size_t i = 0; i < pair_count; ++i) {
    const auto left = static_cast<uint16_t>(weights.across[2 * i]);
    const bool odd = 2 * i + 1 == weights.columns;
    const auto right = static_cast<uint16_t>(odd ? 0 : weights.across[2 * i + 1]);
    pairs[i] = static_cast<int32_t>(left | uint32_t{right} << 16);
  }
  for (size_t first = 0; first < count; first += kStretch) {
    const size_t stretch = Smaller(kStretch, count - first);
    const uint16_t* const down = columns.At(first, stretch);
    for (size_t k = 0; k < stretch; k += kVectorBytes) {
      I32 sums[4] = {balance, balance, balance, balance};
      const uint16_t* from = down + k;
      for (size_t i = 0; i < pair_count; ++i, from += 2 * weights.step) {
        const I16 weight = BitCast<I16>(Set<I32>(pairs[i]));
        for (size_t half = 0; half < 2; ++half) {
          const I16 left = LoadU<I16>(from + half * I16::kLanes);
          const I16 right = LoadU<I16>(from + half * I16::kLanes + weights.step);
          sums[2 * half] += WidenMulPairwiseAdd(InterleaveLower(left, right), weight);
          sums[2 * half + 1] += WidenMulPairwiseAdd(InterleaveUpper(left, right), weight);
        }
      }
      const U8 bytes = LowerThenUpperHalves(Quotients<kInSingle>(sums, division));
      StoreN(bytes, dest + first + k, stretch - k);
    }
  }
}

void Split32(uint8_t* dest, const uint8_t* const* rows, const SplitWeights& weights,
             const Division& division, size_t count) {
  const auto function = division.in_single ? &SplitRows<true> : &SplitRows<false>;
  function(dest, rows, weights, division, count);
}

/// Four neighbours at a time: a shuffle lays them side by side for the dot product. Lane i of block
/// p of accumulator a is output 16 * p + 4 * a + i, which is the order that narrowing undoes; its
/// neighbours lie in the same block as itself.
template <bool kInSingle>
void QuadRows(uint8_t* dest, const uint8_t* const* rows, const DirectWeights& weights,
              const Division& division, size_t count) {
  alignas(64) uint8_t places[kVectorBytes];
  for (size_t i = 0; i < kVectorBytes; ++i) {
    places[i] = static_cast<uint8_t>(i / 4 % 4 + i % 4 * weights.step);
  }
  const U8 order = LoadU<U8>(places);
  for (size_t k = 0; k < count; k += kVectorBytes) {
    I32 sums[4] = {};
    for (size_t j = 0; j < weights.rows; ++j) {
      const uint8_t* from = rows[j] + k;
      const int32_t* const words = weights.words + j * weights.stride;
      for (size_t i = 0; i < weights.words_per_row; ++i, from += 4 * weights.step) {
        if (words[i] == 0) continue;
        const I8 weight = SetPairs(words[i]);
        for (size_t a = 0; a < 4; ++a) {
          const U8 quads = TableLookupBytesOr0(LoadU<U8>(from + 4 * a), order);
          sums[a] = SumOfMulQuadAccumulate(quads, weight, sums[a]);
        }
      }
    }
    StoreN(Quotients<kInSingle>(sums, division), dest + k, count - k);
  }
}

void Direct8(uint8_t* dest, const uint8_t* const* rows, const DirectWeights& weights,
             const Division& division, size_t count) {
  const auto function = division.in_single ? &QuadRows<true> : &QuadRows<false>;
  function(dest, rows, weights, division, count);
}

}  // namespace

extern const ConvolutionKernels kConvolutionKernels;
constinit const ConvolutionKernels kConvolutionKernels = {
    .direct32 = &Direct32,
    .direct16 = &Direct16,
    .direct8 = kHasDotProducts ? &Direct8 : nullptr,
    .pairs = &Pairs,
    .square = &Square,
    .across16 = &Across16,
    .down16 = &Down16,
    .split32 = &Split32,
    .box16 = {.slide = &RunSums<uint16_t>, .across = &BoxAcross<uint16_t, ShortDivision>},
    .box32 = {.slide = &RunSums<uint32_t>, .across = &BoxAcross<uint32_t, Division>},
    .accumulate = &Accumulate,
    .finish = &Finish32,
};

}  // namespace qel::QEL_LEVEL
