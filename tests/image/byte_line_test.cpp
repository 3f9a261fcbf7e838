#include "image/byte_line.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "reference/rng.h"

namespace qel::test {
namespace {

struct Found {
  int lines = 0;
  int tables = 0;
};

/// Looks for the line of these values, and has it give every one of them.
void Look(const int32_t (&values)[256], bool wraps, Found& found) {
  ++found.tables;
  const auto line = FindByteLine(values, wraps);
  if (!line) return;
  ++found.lines;
  for (int i = 0; i < 256; ++i) {
    const int sum = std::clamp((i * line->slope >> 8) + line->offset, 0, 65535) >> line->shift;
    ASSERT_EQ(wraps ? sum : std::min(sum, 255), values[i]) << "byte " << i;
  }
}

TEST(ByteLine, GivesEveryValueOfNearlyEveryLine) {
  Rng rng(1);
  Found lines, bent;
  for (int round = 0; round < 6000 && !testing::Test::HasFailure(); ++round) {
    const bool wraps = round % 3 == 0;
    const float factor = rng.Float(0.2f, 3), offset = rng.Float(-100, 200);
    int32_t values[256];
    for (int i = 0; i < 256; ++i) {
      const int value = static_cast<int>(static_cast<float>(i) * factor + offset);
      values[i] = std::clamp(value, 0, wraps ? INT32_MAX : 255);
    }
    Look(values, wraps, lines);
    values[rng.Int(100, 150)] += rng.OneIn(2) ? 1 : -1;
    Look(values, wraps, bent);
  }
  EXPECT_GT(lines.lines, lines.tables * 9 / 10);
  EXPECT_LT(bent.lines, bent.tables / 2);
}

TEST(ByteLine, LeavesOutWhatIsNoLine) {
  int32_t values[256];
  const auto fill = [&](auto value) {
    for (int i = 0; i < 256; ++i) values[i] = value(i);
  };
  fill([](int i) { return i * i / 255; });
  EXPECT_FALSE(FindByteLine(values, false));
  fill([](int i) { return 255 - i; });
  EXPECT_FALSE(FindByteLine(values, false));
  fill([](int) { return INT32_MIN; });
  EXPECT_FALSE(FindByteLine(values, true));
  fill([](int i) { return i * (INT32_MAX / 255); });
  EXPECT_FALSE(FindByteLine(values, true));
}

}  // namespace
}  // namespace qel::test
