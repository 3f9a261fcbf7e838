#include <algorithm>
#include <cmath>
#include <cstring>

#include "tests/support/module_under_test.h"
#include "tests/support/sanitized.h"

namespace qel::test {
namespace {

using Bytes = std::vector<uint8_t>;

class Maths : public OperationTest {
 protected:
  IQELMaths& maths() { return *module_->maths; }
  /// Expects the result code of a call and what it makes of the first image, of one row.
  void Expect(const std::vector<Raster>& images, const PairedCall& call, const Bytes& after,
              result_t code = kOk) {
    Raster::NewImageLayout() = {};
    const TestImages<TestImage> given(images);
    SmartPtr<IQEL> result;
    EXPECT_EQ(call.module(*module_, given.pointers, result.Put()), code) << call.arguments;
    EXPECT_EQ(FirstRow(given.images[0]->raster), after) << call.arguments;
  }
};
QEL_INSTANTIATE_LEVELS(Maths);

using MathsReadings = ReadingTest;

TEST_F(MathsReadings, EqualEveryOperation) { ExpectSameDraws("maths", 700); }

// Bytes of large images go along a line instead of through a table.
TEST_F(MathsReadings, EqualScalingsOfLargeImages) {
  constexpr int kDepths[][2] = {{8, 8}, {8, 24}, {24, 24}, {32, 24}, {32, 32}};
  Rng rng(3);
  for (int round = 0; round < 15; ++round) {
    const auto [from, to] = kDepths[round % 5];
    const std::vector<Raster> images = {RandomRaster(rng, 8209, 9, from),
                                        RandomRaster(rng, 8209, 9, to),
                                        RandomRaster(rng, 8209, 9, 8)};
    ExpectSame(images, CallOn(from == 8 && to == 8 && round % 2 == 0 ? "102" : "10-", "Scale",
                              rng.Float(0.1f, 2.5f), rng.Float(-100, 150)));
  }
}

// Large images of integers are scaled in single precision, by a factor that cuts off alike.
TEST_F(MathsReadings, EqualBytesOfManyIntegers) {
  constexpr double kFactors[] = {0.03, 0.1, 1.0 / 3, 0.25, -0.07, 1e-4, 0.49999999999};
  Rng rng(4);
  Raster integers(rng, 8209, 9, 32, kModelMono, {});
  for (int round = 0; round < 18 && !HasFailure(); ++round) {
    const double factor = round < 14 ? kFactors[round / 2] : rng.Float(-0.5f, 0.5f);
    const int offset = round % 2 == 0 ? 0 : rng.Int(-300, 300);
    const double reach = std::min(600 / std::abs(factor), 2e9);
    for (int i = 0; i < 8209 * 9; ++i) {
      const auto value = static_cast<int32_t>(rng.Float(-1, 1) * reach);
      std::memcpy(integers.Row(i / 8209) + i % 8209 * 4, &value, sizeof(value));
    }
    ExpectSame({Raster(rng, 1, 1, 8, kModelMono, {}), integers},
               CallOn("01", "Scale8", offset, factor));
    ExpectSame({Raster(rng, 8209, 9, 8, kModelMono, {}), integers},
               CallOn("01-", "Scale", factor, offset));
  }
}

// Rows that go past the caches in several parts, unless some of their bytes stay.
TEST_F(MathsReadings, EqualLongRows) {
  Rng rng(5);
  const Raster gray = RandomRaster(rng, 4101, 3, 8), color = RandomRaster(rng, 4101, 3, 24);
  const Raster other = RandomRaster(rng, 4101, 3, 24);
  ExpectSame({gray, color}, CallOn("10-", "Copy", 0, 0));
  ExpectSame({color, other}, CallOn("101", "Copy", 0, 0));
  ExpectSame({color, other, gray}, CallOn("201", "Add", 3.0f));
  ExpectSame({color, other, color}, CallOn("201", "Subtract", 1));
  ExpectSame({color}, CallOn("0-", "Equal", 0x11223344));
}

// The lowest level goes one pixel after the other; vectors must not read what is not yet written.
TEST_P(Maths, GoesPixelByPixelWhereImagesShareMemory) {
  IQELMaths& plain = *ModuleUnderTest::ForLevel(CpuLevel::kSse2).maths;
  for (uint64_t round = 0; round < 300 && !HasFailure(); ++round) {
    Rng rng(round);
    const Raster start(rng, 8192, 1, 8, kModelMono, {});
    const int width = rng.Int(1, 200), height = rng.Int(1, 3), operation = rng.Int(0, 5);
    const bool one_depth = rng.OneIn(2);
    int places[4], strides[4], depths[4];
    for (int i = 0; i < 4; ++i) {
      places[i] = rng.OneIn(2) ? 3000 : 3000 + rng.Int(-80, 80);
      strides[i] = rng.OneIn(2) ? 800 : rng.Int(-800, 800);
      depths[i] =
          i > 0 && one_depth ? depths[0] : kCommonDepths[static_cast<size_t>(rng.Int(0, 2))];
    }
    depths[3] = 8;
    const auto run = [&](IQELMaths& maths) {
      Raster memory = start;
      SmartPtr<TestImage> images[4];
      for (int i = 0; i < 4; ++i) {
        Raster window = memory.Window(places[i], 0, width, height);
        window.stride = strides[i];
        window.bit_count = depths[i];
        window.model = UsualModel(depths[i]);
        images[i] = TestImage::Make(std::move(window));
      }
      IQEL *const dest = images[0].Get(), *const a = images[1].Get(), *const b = images[2].Get();
      IQEL* const mask = images[3].Get();
      if (operation == 0) maths.Copy(dest, a, nullptr, 0, 0);
      if (operation == 1) maths.Copy(dest, a, dest, 0, 0);
      if (operation == 2) maths.Subtract(dest, a, b, 1);
      if (operation == 3)
        maths.AddScale(dest, a, b, width % 2 == 0 ? mask : nullptr, 0.7f, 0.4f, 3);
      if (operation == 4) maths.Scale(dest, a, mask, 0.9f, 5);
      if (operation == 5) maths.Equal(dest, mask, 0x112200);
      return memory;
    };
    EXPECT_EQ(run(maths()).Difference(run(plain)), "") << "operation " << operation;
  }
}

// All pairs of bytes: quotients of every sum, and weights whose products and sums are rounded at
// every place.
TEST_F(MathsReadings, EqualMixturesAndQuotientsOfEveryPairOfBytes) {
  Rng rng(2);
  Raster a(rng, 256, 256, 8, kModelMono, {}), b = a;
  for (int i = 0; i < 65536; ++i) {
    a.Row(i / 256)[i % 256] = static_cast<uint8_t>(i);
    b.Row(i / 256)[i % 256] = static_cast<uint8_t>(i >> 8);
  }
  for (int round = 0; round < (kSanitized ? 7 : 60) && !HasFailure(); ++round) {
    const float share = round <= 10 ? 0.1f * static_cast<float>(round) : rng.Float(-1, 2);
    const float factor = round % 7 == 6 ? 1e-41f : share;
    const float offset = round % 3 != 0 ? 0.0f : rng.Float(-255, 255);
    ExpectSame({a, a, b}, CallOn("012-", "AddScale", factor, 1.0f - share, offset));
  }
  constexpr float kDivisors[] = {1, 3, 7, 0.25f, 254.5f, 509.99f, 510, 511, 0.015625f, 0.0156251f};
  for (int round = 0; round < (kSanitized ? 10 : 100) && !HasFailure(); ++round) {
    const float divisor = round < 10 ? kDivisors[round] : std::exp2(rng.Float(-7, 10));
    ExpectSame({a, a, b}, Call("Add", divisor));
  }
}

TEST_P(Maths, KeepsBytesThatAreNotZeroWhenTheMaskIsTheDestination) {
  const Raster source = RowOf(24, {1, 2, 3, 4, 5, 6}), dest = RowOf(24, {0, 40, 0, 0, 0, 9});
  Expect({dest, source}, CallOn("010", "Copy"), {1, 40, 3, 4, 5, 9});
  Expect({dest, source}, CallOn("011", "Copy"), {1, 2, 3, 4, 5, 6});
}

TEST_P(Maths, KeepsFailureOf16BitSources) {
  const auto expect = [&](uint32_t dest, uint32_t source, const Bytes& after) {
    Expect({RowOf(24, Bytes(6), dest), RowOf(16, {0xFF, 0xFF, 0x1F, 0x00}, source)},
           CallOn("01-", "Copy"), after, kFail);
  };
  expect(kModelBgr, kModelBgr, {248, 252, 248, 248, 0, 0});
  expect(0, kModelBgr, {248, 252, 248, 0, 0, 248});
  expect(kModelMono, kModelBgr, Bytes(6));
  expect(kModelBgr, 0, Bytes(6));
}

TEST_P(Maths, KeepsByteOrdersAndMasksOfFills) {
  const Raster mask = RowOf(8, {0, 1});
  Expect({RowOf(24, Bytes(6)), mask}, Call("Equal", 0x112233),
         {0x11, 0x22, 0x33, 0x11, 0x22, 0x33});
  Expect({RowOf(32, Bytes(8)), mask}, Call("Equal", 0x112233), {0, 0, 0, 0, 0x33, 0x22, 0x11, 0});
  Expect({RowOf(8, {7, 7}), mask}, Call("Equal", 0x1FF), {7, 0xFF});
}

TEST_P(Maths, KeepsDivisorTwoMultiplyingByFour) {
  Expect({RowOf(8, {0, 0}), RowOf(8, {10, 63}), RowOf(8, {20, 1})}, Call("Add", 2), {120, 255});
}

TEST_P(Maths, KeepsAddingThreeBytesPerPixelAt32Bits) {
  Expect({RowOf(32, Bytes(8)), RowOf(32, {1, 2, 3, 4, 5, 6, 7, 8})}, CallOn("011", "Add", 0),
         {2, 4, 6, 8, 10, 12, 0xCD, 0xCD});
}

TEST_P(Maths, KeepsAnyFlagAbsoluteBelow32Bits) {
  const auto expect = [&](int bits, int flags, const Bytes& after, result_t tally) {
    const size_t bytes = static_cast<size_t>(bits) / 8;
    Expect({RowOf(bits, Bytes(bytes)), RowOf(bits, Bytes(bytes, 5)), RowOf(bits, Bytes(bytes, 10))},
           Call("Subtract", flags), after, tally);
  };
  expect(8, 2, {5}, 0);
  expect(24, 2, {5, 5, 5}, 3);
  expect(32, 2, Bytes(4), 0);
  expect(32, 1, {5, 5, 5, 255}, 3);
}

TEST_P(Maths, KeepsFailureOfMaskedMixedDepths) {
  const std::vector<Raster> images = {RowOf(32, {9, 9, 9, 9}), RowOf(24, {10, 20, 30}),
                                      RowOf(32, {1, 2, 3, 4}), RowOf(8, {1})};
  Expect(images, CallOn("012-", "AddScale", 1, 1), {11, 22, 33, 9});
  Expect(images, CallOn("0123", "AddScale", 1, 1), {11, 22, 33, 9}, kFail);
}

TEST_P(Maths, KeepsWrappingAt32BitsAndOnePixelPerRow) {
  const Raster deep = RowOf(32, {200, 1, 2, 100}), color = RowOf(24, {200, 1, 2, 4, 5, 6});
  const PairedCall twice = CallOn("01-", "Scale", 2);
  Expect({RowOf(32, Bytes(4)), deep}, twice, {144, 2, 4, 200});
  Expect({RowOf(24, Bytes(3)), deep}, twice, {255, 2, 4});
  Expect({RowOf(32, Bytes(8, 9)), color}, twice, {144, 2, 4, 9, 9, 9, 9, 9});
}

TEST_P(Maths, KeepsReadingGraysAsIntegers) {
  Raster source = RowOf(8, {1, 1, 0, 0, 0xFE, 0xFF, 0xFF, 0xFF});
  source.width = 2;
  Expect({RowOf(32, Bytes(8, 9), kModelMono), source}, CallOn("01-", "Scale", 1),
         {1, 1, 0, 0, 0, 0, 0, 0});
}

TEST_P(Maths, KeepsEightBitSourcesOfScale8Uncopied) {
  Expect({RowOf(24, {1, 2, 3}), RowOf(8, {1, 2})}, Call("Scale8", 0, 1), {0xCD, 0xCD});
}

TEST_P(Maths, KeepsUnsignedStrideOfScale8) {
  Rng rng(4);
  Raster::NewImageLayout() = {};
  for (const int padding : {0, 3}) {
    Raster source(rng, 1, 2, 32, kModelMono, {.padding = padding, .bottom_up = true});
    // The stride is -4 or -7, of which whole words are -4 and, rounded down, -8.
    const uint8_t word[] = {77, 0, 0, 0};
    std::copy_n(word, 4, source.Row(0) - (padding == 0 ? 4 : 8));
    const auto dest = TestImage::Make({});
    EXPECT_EQ(maths().Scale8(dest.Get(), TestImage::Make(source).Get(), 0, 1.0), kOk);
    EXPECT_EQ(dest->raster.Row(1)[0], 77) << padding;
  }
}

}  // namespace
}  // namespace qel::test
