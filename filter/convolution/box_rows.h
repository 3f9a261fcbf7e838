#ifndef QEL_FILTER_CONVOLUTION_BOX_ROWS_H_
#define QEL_FILTER_CONVOLUTION_BOX_ROWS_H_

#include <iterator>

#include "filter/convolution/quotients.h"

// Rows of equal weights.

namespace qel::QEL_LEVEL {
namespace {

/// sums[i] += weight * (entering[i] - leaving[i])
template <typename Sum>
void UpdateRunningSums(Sum* __restrict sums, const uint8_t* __restrict entering,
                       const uint8_t* __restrict leaving, Sum weight, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    const auto change = static_cast<Sum>(Sum{entering[i]} - Sum{leaving[i]});
    sums[i] = static_cast<Sum>(sums[i] + static_cast<Sum>(uint32_t{weight} * change));
  }
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

template <typename Sum>
void JoinAcross(Sum* out, const Sum* sums, size_t columns, size_t step, size_t count) {
  Sum triples[kStretch + kWidestJoined * kMostStep];
  const Sum* const three[] = {sums, sums + step, sums + 2 * step};
  AddTerms<3, false>(triples, three, count + (columns - 3) * step);
  const Sum* terms[kWidestJoined];
  size_t size = 0;
  size_t column = 0;
  for (; column + 3 <= columns; column += 3) terms[size++] = triples + column * step;
  for (; column < columns; ++column) terms[size++] = sums + column * step;
  constexpr decltype(&AddTerms<1, false, Sum>) kFirst[] = {
      &AddTerms<1, false, Sum>, &AddTerms<2, false, Sum>, &AddTerms<3, false, Sum>,
      &AddTerms<4, false, Sum>, &AddTerms<5, false, Sum>};
  size_t done = Smaller(size, std::size(kFirst));
  kFirst[done - 1](out, terms, count);
  for (; done + 4 <= size; done += 4) AddTerms<4, true>(out, terms + done, count);
  for (; done < size; ++done) AddTerms<1, true>(out, terms + done, count);
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

inline void FinishSums(uint8_t* dest, const uint16_t* sums, const ReciprocalDivision& division,
                       size_t count) {
  Finish16(dest, sums, division, count);
}
inline void FinishSums(uint8_t* dest, const uint32_t* sums, const Division& division,
                       size_t count) {
  Finish32(dest, sums, division, count);
}

template <typename Sum, typename Quotient>
void BoxAcross(uint8_t* dest, const Sum* sums, size_t columns, size_t step,
               const Quotient& division, size_t count) {
  Sum out[kStretch];
  for (size_t first = 0; first < count; first += kStretch) {
    const size_t stretch = Smaller(kStretch, count - first);
    if (columns >= 3 && columns <= kWidestJoined) {
      JoinAcross(out, sums + first, columns, step, stretch);
    } else if (step == 4) {
      RunningSumsAcross<4>(out, sums + first, columns, stretch);
    } else if (step == 3) {
      RunningSumsAcross<3>(out, sums + first, columns, stretch);
    } else {
      RunningSumsAcross<1>(out, sums + first, columns, stretch);
    }
    FinishSums(dest + first, out, division, stretch);
  }
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_FILTER_CONVOLUTION_BOX_ROWS_H_
