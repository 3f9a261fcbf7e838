#ifndef QEL_FILTER_CONVOLUTION_BOX_ROWS_H_
#define QEL_FILTER_CONVOLUTION_BOX_ROWS_H_

#include <iterator>

#include "filter/convolution/quotients.h"

// Rows of equal weights.

namespace qel::QEL_LEVEL {
namespace {

/// Brings the lines of a vector that lie `ahead` of an address.
QEL_SIMD_INLINE void PrefetchVector(const uint8_t* at, ptrdiff_t ahead) {
  constexpr uintptr_t kLine = 64;
  for (uintptr_t i = 0; i < kVectorBytes; i += kLine) {
    // As numbers: the address may lie beyond what `at` belongs to.
    PrefetchLine(reinterpret_cast<const uint8_t*>(reinterpret_cast<uintptr_t>(at) + i +
                                                  static_cast<uintptr_t>(ahead)));
  }
}

/// sums[i] += weight * (entering[i] - leaving[i])
template <typename Sum>
void UpdateRunningSums(Sum* __restrict sums, const uint8_t* __restrict entering,
                       const uint8_t* __restrict leaving, Sum weight, ptrdiff_t, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    const auto change = static_cast<Sum>(Sum{entering[i]} - Sum{leaving[i]});
    sums[i] = static_cast<Sum>(sums[i] + static_cast<Sum>(uint32_t{weight} * change));
  }
}

void UpdateShortSums(uint16_t* __restrict sums, const uint8_t* __restrict entering,
                     const uint8_t* __restrict leaving, uint16_t weight, ptrdiff_t ahead,
                     size_t count) {
  constexpr uint16_t kMostOfByte = INT8_MAX;
  if (!kHasTableLookupBytes || weight > kMostOfByte || count < kVectorBytes) {
    return UpdateRunningSums(sums, entering, leaving, weight, ahead, count);
  }
  const auto signed_weight = static_cast<int8_t>(weight);
  const auto pair = LanesFrom<I8>(
      [=](size_t i) { return static_cast<int8_t>(i % 2 == 0 ? signed_weight : -signed_weight); });
  const auto update = [&](size_t i, U8 in, U8 out) {
    const auto add = [&](size_t at, U8 pairs) {
      const I16 change = SatWidenMulPairwiseAdd(pairs, pair);
      StoreU(LoadU<U16>(sums + at) + BitCast<U16>(change), sums + at);
    };
    in = HalvesByTurns(in);
    out = HalvesByTurns(out);
    add(i, InterleaveLower(in, out));
    add(i + U16::kLanes, InterleaveUpper(in, out));
  };
  size_t i = 0;
  for (; i + kVectorBytes <= count; i += kVectorBytes) {
    PrefetchVector(entering + i, ahead);
    PrefetchVector(leaving + i, ahead);
    update(i, LoadU<U8>(entering + i), LoadU<U8>(leaving + i));
  }
  if (i == count) return;
  // The last vector overlaps the one before it, where nothing changes any more.
  const size_t last = count - kVectorBytes;
  const auto rest = [&](const uint8_t* row) {
    return IfThenElse(FirstN<U8>(i - last), Zero<U8>(), LoadU<U8>(row + last));
  };
  update(last, rest(entering), rest(leaving));
}

/// Widest box whose sums are put together from those of three columns; wider ones have a running
/// sum across as well.
constexpr size_t kWidestJoined = 32;

/// out[i] = terms[0][i] + ..., added to what is there if `kAdds`.
template <size_t kTerms, bool kAdds, typename Sum>
void AddTerms(Sum* __restrict out, const Sum* const* terms, size_t count) {
  const Sum* from[kTerms];
  for (size_t t = 0; t < kTerms; ++t) from[t] = terms[t];
  for (size_t i = 0; i < count; ++i) {
    Sum sum = kAdds ? out[i] : Sum{0};
    for (size_t t = 0; t < kTerms; ++t) sum = static_cast<Sum>(sum + from[t][i]);
    out[i] = sum;
  }
}

/// Most terms that are added at once.
constexpr size_t kTermsAtOnce = 5;

/// Calls add(Terms<count>()) for 1 to `kTermsAtOnce` terms.
template <size_t kCount>
struct Terms {};
template <typename Add>
inline void WithTerms(size_t count, Add&& add) {
  switch (count) {
    case 1:
      return add(Terms<1>());
    case 2:
      return add(Terms<2>());
    case 3:
      return add(Terms<3>());
    case 4:
      return add(Terms<4>());
    default:
      return add(Terms<kTermsAtOnce>());
  }
}

/// dest[i] = the quotient of terms[0][i] + ...
template <size_t kTerms>
void DivideTerms(uint8_t* dest, const uint16_t* const* terms, const ReciprocalDivision& division,
                 const uint8_t* alpha, ptrdiff_t ahead, size_t count) {
  const uint16_t* from[kTerms];
  for (size_t t = 0; t < kTerms; ++t) from[t] = terms[t];
  const U16 multiplier = Set<U16>(division.multiplier);
  const int shift = division.shift;
  const auto run = [=](auto quotients) {
    ForEachVector(count, [=](size_t k, size_t) {
      const auto words = [=](size_t at) {
        U16 sum = LoadU<U16>(from[0] + at);
        for (size_t t = 1; t < kTerms; ++t) sum += LoadU<U16>(from[t] + at);
        return BitCast<I16>(quotients(sum));
      };
      PrefetchVector(dest + k, ahead);
      const U8 bytes = ReorderDemote2To<U8>(words(k), words(k + U16::kLanes));
      const U8 in_order = LowerThenUpperHalves(bytes);
      StoreN(alpha == nullptr ? in_order : WithFourthBytes(in_order, LoadU<U8>(alpha + k)),
             dest + k, count - k);
    });
  };
  // Narrowing takes signed words; quotients by 2 and more are.
  if (division.multiplier == 0) return run([](U16 sum) { return Min(sum, Set<U16>(255)); });
  run([=](U16 sum) { return ShiftRightSame(MulHigh(sum, multiplier), shift); });
}

template <size_t kTerms>
void DivideTerms(uint8_t* dest, const uint32_t* const* terms, const Division& division,
                 const uint8_t* alpha, ptrdiff_t, size_t count) {
  uint32_t sums[kStretch];
  AddTerms<kTerms, false>(sums, terms, count);
  FinishSums(dest, sums, division, alpha, count);
}

/// The bytes of boxes of 3 to `kWidestJoined` columns.
template <typename Sum, typename Quotient>
void JoinAcross(uint8_t* dest, const Sum* sums, size_t columns, size_t step,
                const Quotient& division, const uint8_t* alpha, ptrdiff_t ahead, size_t count) {
  Sum triples[kStretch + kWidestJoined * kMostStep];
  const Sum* const three[] = {sums, sums + step, sums + 2 * step};
  AddTerms<3, false>(triples, three, count + (columns - 3) * step);
  const Sum* terms[kWidestJoined];
  size_t size = 0;
  size_t column = 0;
  for (; column + 3 <= columns; column += 3) terms[size++] = triples + column * step;
  for (; column < columns; ++column) terms[size++] = sums + column * step;
  // The first terms become one, if there are too many.
  Sum joined[kStretch + kVectorBytes];
  size_t done = 0;
  if (size > kTermsAtOnce) {
    AddTerms<kTermsAtOnce, false>(joined, terms, count);
    done = kTermsAtOnce;
    for (; done + kTermsAtOnce <= size; done += 4) AddTerms<4, true>(joined, terms + done, count);
    terms[--done] = joined;
  }
  WithTerms(size - done, [&]<size_t kTerms>(Terms<kTerms>) {
    DivideTerms<kTerms>(dest, terms + done, division, alpha, ahead, count);
  });
}

template <size_t kStep, typename Sum>
void RunningSumsAcross(Sum* __restrict out, const Sum* sums, size_t columns, size_t count) {
  Sum running[kStep] = {};
  for (size_t i = 0; i < columns * kStep; ++i) {
    running[i % kStep] = static_cast<Sum>(running[i % kStep] + sums[i]);
  }
  const Sum* const ahead = sums + columns * kStep;
  for (size_t k = 0; k < count; k += kStep) {
    for (size_t c = 0; c < kStep; ++c) {
      out[k + c] = running[c];
      // The last pixel has nothing ahead.
      if (k + kStep < count) {
        running[c] = static_cast<Sum>(running[c] + ahead[k + c] - sums[k + c]);
      }
    }
  }
}

template <typename Sum, typename Quotient>
void BoxAcross(uint8_t* dest, const Sum* sums, size_t columns, size_t step,
               const Quotient& division, const uint8_t* alpha, ptrdiff_t ahead, size_t count) {
  for (size_t first = 0; first < count; first += kStretch) {
    const size_t stretch = Smaller(kStretch, count - first);
    const uint8_t* const fourths = alpha == nullptr ? nullptr : alpha + first;
    if (columns >= 3 && columns <= kWidestJoined) {
      JoinAcross(dest + first, sums + first, columns, step, division, fourths, ahead, stretch);
      continue;
    }
    Sum out[kStretch];
    const auto across = step == 4   ? &RunningSumsAcross<4, Sum>
                        : step == 3 ? &RunningSumsAcross<3, Sum>
                                    : &RunningSumsAcross<1, Sum>;
    across(out, sums + first, columns, stretch);
    FinishSums(dest + first, out, division, fourths, stretch);
  }
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_FILTER_CONVOLUTION_BOX_ROWS_H_
