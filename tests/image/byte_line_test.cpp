#include "image/byte_line.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "tests/support/rasters.h"

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

TEST(ByteCurve, GivesEveryValueOfNearlyEverySmoothTable) {
  Rng rng(1);
  Found curves, bent;
  const auto look = [](const uint8_t(&table)[256], Found& found) {
    ++found.tables;
    const auto curve = FindByteCurve(table);
    if (!curve) return;
    ++found.lines;
    for (int i = 0; i < 256; ++i) {
      const int rise = i % 16 * curve->slope[i / 16] >> 4;
      const int above = curve->above[i % 32] >> (i / 32) & 1;
      const int start = i < 32 ? curve->start[i] : 0;
      ASSERT_EQ((curve->base[i / 16] + rise + above + start) & 255, table[i]) << "byte " << i;
    }
  };
  for (int round = 0; round < 2000 && !testing::Test::HasFailure(); ++round) {
    const double exponent = std::exp2(rng.Float(-1.5f, 1.5f)), most = rng.Float(100, 255);
    uint8_t table[256];
    for (int i = 0; i < 256; ++i) {
      const double power = std::pow(i / 255.0, exponent);
      const double bow = std::sin(power * std::acos(0.0));
      table[i] = static_cast<uint8_t>(most * (round % 3 == 0 ? bow : power) + 0.5);
      if (round % 2 == 0) table[i] = static_cast<uint8_t>(255 - table[i]);
    }
    look(table, curves);
    std::shuffle(table + 16 * rng.Int(0, 15), std::end(table), std::minstd_rand(rng.Int(1, 99)));
    look(table, bent);
  }
  EXPECT_GT(curves.lines, curves.tables * 9 / 10);
  EXPECT_LT(bent.lines, bent.tables / 2);
}

}  // namespace
}  // namespace qel::test
