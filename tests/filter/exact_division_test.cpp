#include "filter/convolution/exact_division.h"

#include <gtest/gtest.h>

#include "image/numeric.h"
#include "image/reciprocal_division.h"
#include "tests/support/rasters.h"
#include "tests/support/sanitized.h"

namespace qel::test {
namespace {

constexpr int kStep = kSanitized ? 40 : 1;

TEST(ExactDivision, ShortFormIsExactForEverySumUpToItsBound) {
  constexpr int64_t kBounds[] = {255, 2295, 13260, 57375, 65535};
  int found_forms = 0;
  for (const int64_t largest : kBounds) {
    for (int32_t divisor = 2; divisor <= 65535; divisor += kStep) {
      ReciprocalDivision form;
      if (!FindReciprocalDivision(divisor, largest, form)) continue;
      ++found_forms;
      // A wrong multiplier shows first where the quotient steps, and at the bound itself.
      for (int64_t step = 0; step <= largest + divisor; step += divisor) {
        for (const int64_t sum : {step - 1, step, largest}) {
          if (sum < 0 || sum > largest) continue;
          ASSERT_EQ((sum * form.multiplier >> 16) >> form.shift, sum / divisor)
              << sum << " / " << divisor;
        }
      }
    }
  }
  EXPECT_GT(found_forms, 100000 / kStep);
  ReciprocalDivision form;
  EXPECT_TRUE(FindReciprocalDivision(9, 255 * 9, form)) << "the usual boxes have one";
  EXPECT_TRUE(FindReciprocalDivision(225, 255 * 225, form));
  EXPECT_FALSE(FindReciprocalDivision(9, 65536, form));
  EXPECT_FALSE(FindReciprocalDivision(-9, 255, form));
}

/// The quotient as the kernels compute it, without the offset.
int32_t Divide(const Division& division, int32_t sum) {
  return division.in_single ? static_cast<int32_t>(static_cast<float>(sum) * division.single_factor)
                            : TruncateToInt(sum * division.factor);
}

TEST(ExactDivision, FactorsAreExactWhereTheQuotientSteps) {
  for (int32_t divisor = 1; divisor <= 1200; divisor += kStep) {
    const Division positive = DivisionBy(divisor, 0, kSingleRange - 1);
    const Division negative = DivisionBy(-divisor, 0, kSingleRange - 1);
    ASSERT_TRUE(positive.in_single);
    for (int32_t step = 0; step < kSingleRange; step += divisor) {
      for (const int32_t sum : {step - 1, step, 1 - step}) {
        ASSERT_EQ(Divide(positive, sum), sum / divisor) << sum << " / " << divisor;
        ASSERT_EQ(Divide(negative, sum), sum / -divisor) << sum << " / -" << divisor;
      }
    }
  }
}

TEST(ExactDivision, DoubleFactorsAreExactForEverySum) {
  Rng rng(1);
  for (int round = 0; round < 2'000'000; round += kStep) {
    const int bits = rng.Int(0, 31);
    const auto divisor = static_cast<int32_t>(rng.Next() | 0x80000000u) >> bits;
    const auto near = static_cast<int32_t>(rng.Next()) >> rng.Int(0, 31);
    const int32_t multiple = near - static_cast<int32_t>(int64_t{near} % divisor);
    const Division division = DivisionBy(divisor, 0, kSingleRange);
    ASSERT_FALSE(division.in_single);
    for (const int32_t sum :
         {multiple, WrapAdd(multiple, 1), WrapAdd(multiple, -1), near, INT32_MIN, INT32_MAX}) {
      ASSERT_EQ(Divide(division, sum), WrapDivide(sum, divisor)) << sum << " / " << divisor;
    }
  }
}

}  // namespace
}  // namespace qel::test
