#include "filter/convolution/convolution_kernels.h"

#include "image/numeric.h"
#include "image/slide.h"

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
void Slide(Lane* __restrict sums, const uint8_t* __restrict entering,
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

#ifndef QEL_HAS_COLOUR_VECTORS

constexpr ConvolutionKernels::Direct kDirect16 = nullptr;
constexpr ConvolutionKernels::Direct kDirect8 = nullptr;
constexpr auto kPairs = decltype(ConvolutionKernels::pairs){nullptr};
constexpr auto kSquare = decltype(ConvolutionKernels::square){nullptr};

void Across16(uint16_t* sums, const uint8_t* row, const SplitWeights& weights, size_t count) {
  const uint8_t* shifted[kMostTaps];
  for (size_t i = 0; i < weights.columns; ++i) shifted[i] = row + i * weights.step;
  Sum(sums, shifted, weights.across, weights.columns, 0, count);
}

void Down16(uint8_t* dest, const uint16_t* const* sums, const SplitWeights& weights,
            const ShortDivision& division, size_t count) {
  uint16_t stretch[kStretch];
  for (size_t first = 0; first < count; first += kStretch) {
    const size_t length = Smaller(kStretch, count - first);
    const uint16_t* here[kMostTaps];
    for (size_t j = 0; j < weights.rows; ++j) here[j] = sums[j] + first;
    Sum(stretch, here, weights.down, weights.rows, 0, length);
    Finish16(dest + first, stretch, division, length);
  }
}

void Split32(uint8_t* dest, const uint8_t* const* rows, const SplitWeights& weights,
             const Division& division, size_t count) {
  ColumnSums columns(rows, weights);
  uint32_t sums[kStretch];
  for (size_t first = 0; first < count; first += kStretch) {
    const size_t stretch = Smaller(kStretch, count - first);
    const uint16_t* const down = columns.At(first, stretch);
    for (size_t k = 0; k < stretch; ++k) sums[k] = weights.balance;
    for (size_t i = 0; i < weights.columns; ++i) {
      const int32_t weight = weights.across[i];
      const uint16_t* const from = down + i * weights.step;
      for (size_t k = 0; k < stretch; ++k) {
        sums[k] += static_cast<uint32_t>(weight * static_cast<int16_t>(from[k]));
      }
    }
    Finish32(dest + first, sums, division, stretch);
  }
}

#else

constexpr size_t kVector = kVectorBytes;

inline Vector SetDwords(int32_t dword) { return FillDwords(static_cast<uint32_t>(dword)); }

/// Divides, offsets and clamps sums. Packing saturates twice, which is the clamp.
template <bool kInSingle>
inline Vector Quotients(const Vector (&sums)[4], const Division& division) {
  const Vector offset = SetDwords(division.offset);
  Vector out[4];
  for (size_t a = 0; a < 4; ++a) {
    const Vector quotient = kInSingle ? ScaleInSingle(sums[a], division.single_factor)
                                      : ScaleInDouble(sums[a], division.factor);
    out[a] = AddDwords(quotient, offset);
  }
  return PackWords(PackDwords(out[0], out[1]), PackDwords(out[2], out[3]));
}

/// Stores the first `count` bytes, at most a vector.
inline void StoreBytes(uint8_t* dest, Vector bytes, size_t count) {
  if (count >= kVector) {
    Store(dest, bytes);
  } else {
    StoreFirst(dest, bytes, count);
  }
}

/// Two neighbours at a time: their bytes are interleaved, widened and summed in pairs. Interleaving
/// within 128-bit parts gives the sums the order that packing undoes.
template <bool kInSingle>
void PairRows(uint8_t* dest, const uint8_t* const* rows, const DirectWeights& weights,
              const Division& division, size_t count) {
  const Vector zero = FillBytes(0);
  for (size_t k = 0; k < count; k += kVector) {
    Vector sums[4] = {zero, zero, zero, zero};
    for (size_t j = 0; j < weights.rows; ++j) {
      const uint8_t* from = rows[j] + k;
      const int32_t* const words = weights.words + j * weights.stride;
      for (size_t i = 0; i < weights.words_per_row; ++i, from += 2 * weights.step) {
        if (words[i] == 0) continue;
        const Vector weight = SetDwords(words[i]);
        const Vector left = Load(from);
        const Vector right = Load(from + weights.step);
        const Vector low = PairLow(left, right);
        const Vector high = PairHigh(left, right);
        sums[0] = AddDwords(sums[0], SumWordPairs(PairLow(low, zero), weight));
        sums[1] = AddDwords(sums[1], SumWordPairs(PairHigh(low, zero), weight));
        sums[2] = AddDwords(sums[2], SumWordPairs(PairLow(high, zero), weight));
        sums[3] = AddDwords(sums[3], SumWordPairs(PairHigh(high, zero), weight));
      }
    }
    StoreBytes(dest + k, Quotients<kInSingle>(sums, division), count - k);
  }
}

void Direct16(uint8_t* dest, const uint8_t* const* rows, const DirectWeights& weights,
              const Division& division, size_t count) {
  const auto function = division.in_single ? &PairRows<true> : &PairRows<false>;
  function(dest, rows, weights, division, count);
}
constexpr ConvolutionKernels::Direct kDirect16 = &Direct16;

/// Calls block(k, place) for vectors of bytes from `k` on. The last one overlaps the one before it
/// where there are enough; `place` counts whole vectors all the same.
template <typename Block>
inline void ForEachVector(size_t count, Block&& block) {
  for (size_t k = 0; k < count; k += kVector) {
    const bool overlaps = count - k < kVector && count >= kVector;
    block(overlaps ? count - kVector : k, k);
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
        multiplier_(FillWords(finish.division.multiplier)),
        sign_(FillWords(finish.negate ? -1 : 0)),
        offset_(FillWords(finish.offset)) {}

  Vector operator()(const Words& sums) const { return PackWords(Of(sums.low), Of(sums.high)); }

 private:
  Vector Of(Vector sums) const {
    if constexpr (kSums == ShortSums::kUnsigned) {
      // Packing takes signed lanes.
      return MinUnsignedWords(Divide(sums), FillWords(255));
    } else if constexpr (kSums == ShortSums::kCutAtZero) {
      return Divide(MaxWords(sums, FillBytes(0)));
    } else {
      Vector quotients = sums;
      if (divides_ || negates_) {
        const Vector signs = SignsOfWords(sums) ^ sign_;
        quotients = SubtractWords(Divide(SizesOfWords(sums)) ^ signs, signs);
      }
      return AddWordsSaturated(quotients, offset_);
    }
  }
  Vector Divide(Vector sizes) const {
    return divides_ ? ShiftWordsRight(HighProducts(sizes, multiplier_), shift_) : sizes;
  }

  const bool divides_;
  const bool negates_;
  const int shift_;
  const Vector multiplier_;
  const Vector sign_;
  const Vector offset_;
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
struct Accumulator : Words {
  Accumulator() : Words{FillBytes(0), FillBytes(0)} {}

  void Add(Vector a, Vector b, Vector weights) {
    AddPairs({PairLow(a, b), PairHigh(a, b)}, weights);
  }
  void AddPairs(const Words& pairs, Vector weights) {
    low = AddWords(low, SumPairs(pairs.low, weights));
    high = AddWords(high, SumPairs(pairs.high, weights));
  }
  void Add(const Words& words, Vector weight) {
    low = AddWords(low, Products(words.low, weight));
    high = AddWords(high, Products(words.high, weight));
  }
};

/// The pairs of one row. `kPairs` is their number, or 0 where it is only known at run time.
template <ShortSums kSums, size_t kPairs>
void WeighPairs(uint8_t* dest, const uint8_t* const* rows, const PairWeights& weights,
                size_t count) {
  const uint8_t* left[kMostPairs];
  const uint8_t* right[kMostPairs];
  Vector words[kMostPairs];
  const size_t pairs = kPairs != 0 ? kPairs : weights.count;
  for (size_t i = 0; i < pairs; ++i) {
    const TapPair& pair = weights.pairs[i];
    left[i] = rows[pair.rows[0]] + pair.offsets[0];
    right[i] = rows[pair.rows[1]] + pair.offsets[1];
    words[i] = SetDwords(pair.weights);
  }
  const uint8_t* const alphas =
      weights.alpha != nullptr ? rows[weights.alpha->row] + weights.alpha->offset : nullptr;
  const ShortQuotients<kSums> quotients(weights.finish);
  StoreVectors(dest, count, [&](size_t k) {
    FetchAhead<kVector>(right[pairs - 1] + k);
    Accumulator sums;
    for (size_t i = 0; i < pairs; ++i) {
      sums.Add(Once(Load(left[i] + k)), Once(Load(right[i] + k)), words[i]);
    }
    const Vector bytes = quotients(sums);
    return alphas != nullptr ? JoinAlpha(bytes, Load(alphas + k)) : bytes;
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
constexpr auto kPairs = decltype(ConvolutionKernels::pairs){&Pairs};

/// The bytes of a column, interleaved for sums of pairs.
struct Interleaved {
  Interleaved(Vector a, Vector b, Vector c)
      : upper{PairLow(a, b), PairHigh(a, b)},
        lower{PairLow(c, FillBytes(0)), PairHigh(c, FillBytes(0))} {}
  Words upper;  ///< of the first two rows
  Words lower;  ///< of the third one
};
template <size_t kBytes>
Interleaved Shifted(Interleaved v, const Interleaved& next) {
  v.upper = Shifted<kBytes>(v.upper, next.upper);
  v.lower = Shifted<kBytes>(v.lower, next.lower);
  return v;
}

/// The weights of a column in vectors.
struct ColumnVectors {
  explicit ColumnVectors(const SquareWeights::Column& column)
      : upper(SetDwords(column.upper)), lower(SetDwords(column.lower)) {}
  Vector upper;
  Vector lower;
};

template <ShortSums kSums, size_t kStep>
class SquareRow {
 public:
  SquareRow(const uint8_t* const* rows, const SquareWeights& weights)
      : rows_(rows), weights_(weights), quotients_(weights.finish) {}

  /// Sums down each column once, then across.
  void WeighProduct(uint8_t* dest, size_t count) const {
    const ColumnVectors down(weights_.columns[0]);
    const Vector middle = SetDwords(weights_.middle);
    const Vector across[] = {FillWords(weights_.across[0]), FillWords(weights_.across[1]),
                             FillWords(weights_.across[2])};
    const bool has_middle = weights_.middle != 0;
    Slide<3, kStep>(
        dest, count,
        [&](size_t k) -> Words {
          const Interleaved column = At(k);
          Accumulator sums;
          sums.AddPairs(column.upper, down.upper);
          sums.AddPairs(column.lower, down.lower);
          return sums;
        },
        [&](size_t k, const Words& left, const Words& centre, const Words& right) {
          Accumulator sums;
          sums.Add(left, across[0]);
          sums.Add(centre, across[1]);
          sums.Add(right, across[2]);
          if (has_middle) sums.Add(Once(Load(rows_[1] + k + kStep)), FillBytes(0), middle);
          return Finish(k, sums);
        });
  }

  /// Columns of different weights.
  void WeighColumns(uint8_t* dest, size_t count) const {
    const ColumnVectors left(weights_.columns[0]), centre(weights_.columns[1]),
        right(weights_.columns[2]);
    Slide<3, kStep>(
        dest, count, [&](size_t k) { return At(k); },
        [&](size_t k, const Interleaved& a, const Interleaved& b, const Interleaved& c) {
          Accumulator sums;
          sums.AddPairs(a.upper, left.upper);
          sums.AddPairs(a.lower, left.lower);
          sums.AddPairs(b.upper, centre.upper);
          sums.AddPairs(b.lower, centre.lower);
          sums.AddPairs(c.upper, right.upper);
          sums.AddPairs(c.lower, right.lower);
          return Finish(k, sums);
        });
  }

 private:
  Interleaved At(size_t k) const {
    FetchAhead<kVector>(rows_[2] + k);
    return {Once(Load(rows_[0] + k)), Once(Load(rows_[1] + k)), Once(Load(rows_[2] + k))};
  }
  Vector Finish(size_t k, const Words& sums) const {
    const Vector bytes = quotients_(sums);
    return kStep == 4 ? JoinAlpha(bytes, Load(rows_[2] + k + 2 * kStep)) : bytes;
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
constexpr auto kSquare = decltype(ConvolutionKernels::square){&Square};

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
      sum.Add(Once(Load(from)), Once(Load(right)), SetDwords(pairs[i]));
    }
    Store(sums + place, sum.low);
    Store(sums + place + kVector / 2, sum.high);
  });
}

template <bool kWeighs>
void SumDown(uint8_t* dest, const uint16_t* const* sums, const SplitWeights& weights,
             const ShortFinish& finish, size_t count) {
  const ShortQuotients<ShortSums::kUnsigned> quotients(finish);
  ForEachVector(count, [&](size_t k, size_t place) {
    Accumulator sum;
    for (size_t j = 0; j < weights.rows; ++j) {
      Vector low = Load(sums[j] + place);
      Vector high = Load(sums[j] + place + kVector / 2);
      if constexpr (kWeighs) {
        const Vector weight = FillWords(weights.down[j]);
        low = Products(low, weight);
        high = Products(high, weight);
      }
      sum.low = AddWords(sum.low, low);
      sum.high = AddWords(sum.high, high);
    }
    StoreBytes(dest + k, quotients(sum), count - k);
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

/// Two sums side by side at a time. Interleaving within 128-bit parts puts the outputs of the first
/// vector of sums into the low half of each part and those of the second into the high half.
template <bool kInSingle>
void SplitRows(uint8_t* dest, const uint8_t* const* rows, const SplitWeights& weights,
               const Division& division, size_t count) {
  ColumnSums columns(rows, weights);
  int32_t pairs[(kMostTaps + 1) / 2];
  const size_t pair_count = (weights.columns + 1) / 2;
  const Vector balance = SetDwords(static_cast<int32_t>(weights.balance));
  for (size_t i = 0; i < pair_count; ++i) {
    const auto left = static_cast<uint16_t>(weights.across[2 * i]);
    const bool odd = 2 * i + 1 == weights.columns;
    const auto right = static_cast<uint16_t>(odd ? 0 : weights.across[2 * i + 1]);
    pairs[i] = static_cast<int32_t>(left | uint32_t{right} << 16);
  }
  for (size_t first = 0; first < count; first += kStretch) {
    const size_t stretch = Smaller(kStretch, count - first);
    const uint16_t* const down = columns.At(first, stretch);
    for (size_t k = 0; k < stretch; k += kVector) {
      Vector sums[4] = {balance, balance, balance, balance};
      const uint16_t* from = down + k;
      for (size_t i = 0; i < pair_count; ++i, from += 2 * weights.step) {
        const Vector weight = SetDwords(pairs[i]);
        for (size_t half = 0; half < 2; ++half) {
          const Vector left = Load(from + half * (kVector / 2));
          const Vector right = Load(from + half * (kVector / 2) + weights.step);
          Vector& low = sums[2 * half];
          Vector& high = sums[2 * half + 1];
          low = AddDwords(low, SumWordPairs(PairWordsLow(left, right), weight));
          high = AddDwords(high, SumWordPairs(PairWordsHigh(left, right), weight));
        }
      }
      const Vector bytes = JoinHalves(Quotients<kInSingle>(sums, division));
      StoreBytes(dest + first + k, bytes, stretch - k);
    }
  }
}

void Split32(uint8_t* dest, const uint8_t* const* rows, const SplitWeights& weights,
             const Division& division, size_t count) {
  const auto function = division.in_single ? &SplitRows<true> : &SplitRows<false>;
  function(dest, rows, weights, division, count);
}

#ifdef QEL_LEVEL_avx512vbmi

/// Four neighbours at a time: a shuffle lays them side by side for the dot product. Lane i of part
/// p of accumulator a is output 16 * p + 4 * a + i, which is the order that packing undoes; its
/// neighbours lie in the same 128 bits as itself.
template <bool kInSingle>
void QuadRows(uint8_t* dest, const uint8_t* const* rows, const DirectWeights& weights,
              const Division& division, size_t count) {
  alignas(64) uint8_t places[kVector];
  for (size_t i = 0; i < kVector; ++i) {
    places[i] = static_cast<uint8_t>(i / 4 % 4 + i % 4 * weights.step);
  }
  const Vector order = _mm512_load_si512(places);
  for (size_t k = 0; k < count; k += kVector) {
    Vector sums[4] = {FillBytes(0), FillBytes(0), FillBytes(0), FillBytes(0)};
    for (size_t j = 0; j < weights.rows; ++j) {
      const uint8_t* from = rows[j] + k;
      const int32_t* const words = weights.words + j * weights.stride;
      for (size_t i = 0; i < weights.words_per_row; ++i, from += 4 * weights.step) {
        if (words[i] == 0) continue;
        const Vector weight = SetDwords(words[i]);
        for (size_t a = 0; a < 4; ++a) {
          const Vector quads = _mm512_shuffle_epi8(Load(from + 4 * a), order);
          sums[a] = _mm512_dpbusd_epi32(sums[a], quads, weight);
        }
      }
    }
    StoreBytes(dest + k, Quotients<kInSingle>(sums, division), count - k);
  }
}

void Direct8(uint8_t* dest, const uint8_t* const* rows, const DirectWeights& weights,
             const Division& division, size_t count) {
  const auto function = division.in_single ? &QuadRows<true> : &QuadRows<false>;
  function(dest, rows, weights, division, count);
}
constexpr ConvolutionKernels::Direct kDirect8 = &Direct8;

#else

constexpr ConvolutionKernels::Direct kDirect8 = nullptr;

#endif
#endif

}  // namespace

extern const ConvolutionKernels kConvolutionKernels;
constinit const ConvolutionKernels kConvolutionKernels = {
    .direct32 = &Direct32,
    .direct16 = kDirect16,
    .direct8 = kDirect8,
    .pairs = kPairs,
    .square = kSquare,
    .across16 = &Across16,
    .down16 = &Down16,
    .split32 = &Split32,
    .box16 = {.slide = &Slide<uint16_t>, .across = &BoxAcross<uint16_t, ShortDivision>},
    .box32 = {.slide = &Slide<uint32_t>, .across = &BoxAcross<uint32_t, Division>},
    .accumulate = &Accumulate,
    .finish = &Finish32,
};

}  // namespace qel::QEL_LEVEL
