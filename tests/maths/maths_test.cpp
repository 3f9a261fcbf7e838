#include <cmath>

#include "tests/support/module_under_test.h"

namespace qel::test {
namespace {

class Maths : public OperationTest {
 protected:
  IQELMaths& maths() { return *module_->maths; }
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

// All pairs of bytes, with weights whose products and sums are rounded at every place.
TEST_F(MathsReadings, EqualMixturesOfEveryPairOfBytes) {
  Rng rng(2);
  Raster a(rng, 256, 256, 8, kModelMono, {}), b = a;
  for (int i = 0; i < 65536; ++i) {
    a.Row(i / 256)[i % 256] = static_cast<uint8_t>(i);
    b.Row(i / 256)[i % 256] = static_cast<uint8_t>(i >> 8);
  }
  for (int round = 0; round < 60 && !HasFailure(); ++round) {
    const float share = round <= 10 ? 0.1f * static_cast<float>(round) : rng.Float(-1, 2);
    const float factor = round % 7 == 6 ? 1e-41f : share;
    const float offset = round % 3 != 0 ? 0.0f : rng.Float(-255, 255);
    ExpectSame({a, a, b}, CallOn("012-", "AddScale", factor, 1.0f - share, offset));
  }
}

using Bytes = std::vector<uint8_t>;

/// An image of one row that holds `bytes`.
SmartPtr<TestImage> RowOf(int bit_count, const Bytes& bytes, uint32_t model) {
  Rng rng(1);
  const int width = static_cast<int>(bytes.size()) * 8 / bit_count;
  auto image = TestImage::Make(Raster(rng, width, 1, bit_count, model, {.padding = 64}));
  std::copy(bytes.begin(), bytes.end(), image->raster.Row(0));
  return image;
}
SmartPtr<TestImage> RowOf(int bit_count, const Bytes& bytes) {
  return RowOf(bit_count, bytes, UsualModel(bit_count));
}
/// An image of one row of 32-bit integers.
SmartPtr<TestImage> WordsOf(const std::vector<int>& words) {
  Bytes bytes;
  for (const int word : words) {
    for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<uint8_t>(word >> (8 * i)));
  }
  return RowOf(32, bytes, kModelMono);
}
Bytes Content(const SmartPtr<TestImage>& image) {
  const Raster& raster = image->raster;
  return {raster.Row(0), raster.Row(0) + raster.RowBytes()};
}

/// Expects the result code of an operation with `dest`, and what it makes of it.
template <typename... P, typename... Arguments>
void Gives(const char* what, IQELMaths& maths, const SmartPtr<TestImage>& dest, const Bytes& after,
           result_t code, result_t (IQELMaths::*method)(P...), const Arguments&... arguments) {
  const auto raw = [](const auto& argument) {
    if constexpr (std::is_same_v<decltype(argument), const SmartPtr<TestImage>&>) {
      return argument.Get();
    } else {
      return argument;
    }
  };
  EXPECT_EQ((maths.*method)(dest.Get(), raw(arguments)...), code) << what;
  EXPECT_EQ(Content(dest), after) << what;
}
using M = IQELMaths;

TEST_P(Maths, GivesTheValuesOfRoundExamples) {
  const auto a = RowOf(8, {200, 10, 5, 255}), b = RowOf(8, {100, 10, 10, 254});
  const auto wide = RowOf(24, {255, 255, 254, 1, 1, 0}), words = WordsOf({101, -100, 100000});
  const auto grays = RowOf(8, {5, 100, 200});
  const auto nearly = RowOf(24, {255, 254, 254, 1, 1, 2});
  Raster::NewImageLayout() = {};
  M& m = maths();
  const auto fresh = [] { return RowOf(8, {0, 0, 0, 0}); };
  Gives("sum", m, fresh(), {255, 20, 15, 255}, kOk, &M::Add, a, b, 0.0f);
  Gives("divided", m, fresh(), {100, 6, 5, 169}, kOk, &M::Add, a, b, 3.0f);
  Gives("negative divisor", m, fresh(), {0, 0, 0, 0}, kOk, &M::Add, a, b, -1.0f);
  Gives("overflowing quotient", m, fresh(), {0, 0, 0, 0}, kOk, &M::Add, a, b, 1e-30f);
  Gives("difference", m, fresh(), {0, 0, 5, 0}, kOk, &M::Subtract, b, a, 0);
  Gives("tally", m, RowOf(24, Bytes(6)), {0, 1, 0, 0, 0, 2}, 1, &M::Subtract, wide, nearly, 1);
  Gives("clipped samples are not counted", m, RowOf(24, Bytes(6)), {0, 1, 0, 0, 0, 0}, 0,
        &M::Subtract, wide, nearly, 0);
  Gives("half and half", m, fresh(), {150, 10, 7, 254}, kOk, &M::AddScale, a, b, nullptr, 0.5f,
        0.5f, 0.0f);
  Gives("no number", m, fresh(), {0, 0, 0, 0}, kOk, &M::AddScale, a, b, nullptr, NAN, 0.5f, 0.0f);
  Gives("pasted greys", m, RowOf(8, Bytes(2)), {254, 0}, kOk, &M::Copy, wide, nullptr, 0, 0);
  Gives("pasted last column", m, RowOf(8, {7, 7}), {7, 254}, kOk, &M::Copy, wide, nullptr, 1, 0);
  Gives("outside", m, RowOf(8, {7, 7}), {7, 7}, kFail, &M::Copy, wide, nullptr, 2, 0);
  Gives("opaque", m, RowOf(32, Bytes(4)), {255, 255, 254, 255}, kOk, &M::Copy, wide, nullptr, 0, 0);
  Gives("scaled", m, RowOf(8, Bytes(3)), {0, 190, 255}, kOk, &M::Scale, grays, nullptr, 2.0f,
        -10.0f);
  Gives("scaled integers", m, WordsOf({9, 9, 9}), Content(WordsOf({101, 0, 100000})), kOk,
        &M::Scale, words, nullptr, 1.0f, 0.0f);
  Gives("scaled to 8 bits", m, fresh(), {60, 0, 255}, kOk, &M::Scale8, words, 10, 0.5);
  Gives("colour is not scaled to 8 bits", m, fresh(), {0, 0, 0, 0}, kNotMono, &M::Scale8, wide, 10,
        0.5);
  Gives("16 bits are not filled", m, RowOf(16, {1, 2}), {1, 2}, kOk, &M::Equal, nullptr, 0);
}

TEST_P(Maths, KeepsBytesThatAreNotZeroWhenTheMaskIsTheDestination) {
  const auto source = RowOf(24, {1, 2, 3, 4, 5, 6});
  const auto dest = RowOf(24, {0, 40, 0, 0, 0, 9}), other = RowOf(24, {0, 40, 0, 0, 0, 9});
  Gives("mask is the destination", maths(), dest, {1, 40, 3, 4, 5, 9}, kOk, &M::Copy, source, dest,
        0, 0);
  Gives("other mask", maths(), other, {1, 2, 3, 4, 5, 6}, kOk, &M::Copy, source, source, 0, 0);
}

TEST_P(Maths, KeepsFailureOf16BitSources) {
  const auto source = RowOf(16, {0xFF, 0xFF, 0x1F, 0x00}, kModelBgr);
  const auto unnamed = RowOf(16, {0xFF, 0xFF, 0x1F, 0x00}, 0);
  const auto expect = [&](const char* what, uint32_t model, const Bytes& after, auto& from) {
    Gives(what, maths(), RowOf(24, Bytes(6), model), after, kFail, &M::Copy, from, nullptr, 0, 0);
  };
  expect("blue first", kModelBgr, {248, 252, 248, 248, 0, 0}, source);
  expect("red first", 0, {248, 252, 248, 0, 0, 248}, source);
  expect("other model", kModelMono, Bytes(6), source);
  expect("other source", kModelBgr, Bytes(6), unnamed);
}

TEST_P(Maths, KeepsByteOrdersAndMasksOfFills) {
  const auto mask = RowOf(8, {0, 1});
  Gives("24 bits, mask ignored", maths(), RowOf(24, Bytes(6)), {0x11, 0x22, 0x33, 0x11, 0x22, 0x33},
        kOk, &M::Equal, mask, 0x112233);
  Gives("32 bits", maths(), RowOf(32, Bytes(8)), {0, 0, 0, 0, 0x33, 0x22, 0x11, 0}, kOk, &M::Equal,
        mask, 0x112233);
  Gives("8 bits", maths(), RowOf(8, {7, 7}), {7, 0xFF}, kOk, &M::Equal, mask, 0x1FF);
}

TEST_P(Maths, AddDividesEverySum) {
  Raster::NewImageLayout() = {};
  constexpr size_t kSums = 2 * 255 + 1;
  Bytes lower(kSums), upper(kSums);
  for (size_t sum = 0; sum < kSums; ++sum) {
    lower[sum] = static_cast<uint8_t>(std::min<size_t>(sum, 255));
    upper[sum] = static_cast<uint8_t>(sum - lower[sum]);
  }
  const auto a = RowOf(8, lower), b = RowOf(8, upper);
  std::vector<float> divisors = {1, 3, 7, 0.25f, 254.5f, 509.99f, 510, 511, 0.015625f, 0.0156251f};
  Rng rng(1);
  for (int i = 0; i < 200; ++i) divisors.push_back(std::exp2(rng.Float(-7, 10)));
  for (const float divisor : divisors) {
    Bytes quotients(kSums);
    for (size_t sum = 0; sum < kSums; ++sum) {
      quotients[sum] = static_cast<uint8_t>(std::min(static_cast<float>(sum) / divisor, 255.0f));
    }
    const auto dest = RowOf(8, Bytes(kSums));
    EXPECT_EQ(maths().Add(dest.Get(), a.Get(), b.Get(), divisor), kOk);
    EXPECT_EQ(Content(dest), quotients) << "divisor " << divisor;
  }
}

TEST_P(Maths, KeepsDivisorTwoMultiplyingByFour) {
  const auto a = RowOf(8, {10, 63}), b = RowOf(8, {20, 1});
  Raster::NewImageLayout() = {};
  Gives("divisor 2", maths(), RowOf(8, {0, 0}), {120, 255}, kOk, &M::Add, a, b, 2.0f);
}

TEST_P(Maths, KeepsAddingThreeBytesPerPixelAt32Bits) {
  const auto a = RowOf(32, {1, 2, 3, 4, 5, 6, 7, 8});
  Raster::NewImageLayout() = {};
  Gives("packed", maths(), RowOf(32, Bytes(8)), {2, 4, 6, 8, 10, 12, 0xCD, 0xCD}, kOk, &M::Add, a,
        a, 0.0f);
}

TEST_P(Maths, KeepsAnyFlagAbsoluteBelow32Bits) {
  const auto five = RowOf(8, {5}), ten = RowOf(8, {10});
  const auto color5 = RowOf(24, {5, 5, 5}), color10 = RowOf(24, {10, 10, 10});
  const auto deep5 = RowOf(32, {5, 5, 5, 1}), deep10 = RowOf(32, {10, 10, 10, 9});
  M& m = maths();
  Gives("8 bits", m, RowOf(8, {0}), {5}, kOk, &M::Subtract, five, ten, 2);
  Gives("24 bits", m, RowOf(24, Bytes(3)), {5, 5, 5}, 3, &M::Subtract, color5, color10, 2);
  Gives("32 bits, bit 1", m, RowOf(32, Bytes(4)), Bytes(4), kOk, &M::Subtract, deep5, deep10, 2);
  Gives("32 bits, bit 0", m, RowOf(32, Bytes(4)), {5, 5, 5, 255}, 3, &M::Subtract, deep5, deep10,
        1);
}

TEST_P(Maths, KeepsFailureOfMaskedMixedDepths) {
  const auto a = RowOf(24, {10, 20, 30}), b = RowOf(32, {1, 2, 3, 4}), mask = RowOf(8, {1});
  Gives("no mask", maths(), RowOf(32, {9, 9, 9, 9}), {11, 22, 33, 9}, kOk, &M::AddScale, a, b,
        nullptr, 1.0f, 1.0f, 0.0f);
  Gives("mask", maths(), RowOf(32, {9, 9, 9, 9}), {11, 22, 33, 9}, kFail, &M::AddScale, a, b, mask,
        1.0f, 1.0f, 0.0f);
}

TEST_P(Maths, KeepsWrappingAt32BitsAndOnePixelPerRow) {
  const auto deep = RowOf(32, {200, 1, 2, 100}), color = RowOf(24, {200, 1, 2, 4, 5, 6});
  const auto twice = [&](const char* what, const auto& dest, const Bytes& after, auto& source) {
    Gives(what, maths(), dest, after, kOk, &M::Scale, source, nullptr, 2.0f, 0.0f);
  };
  twice("32 bits", RowOf(32, Bytes(4)), {144, 2, 4, 200}, deep);
  twice("32 to 24 bits", RowOf(24, Bytes(3)), {255, 2, 4}, deep);
  twice("24 to 32 bits", RowOf(32, Bytes(8, 9)), {144, 2, 4, 9, 9, 9, 9, 9}, color);
}

TEST_P(Maths, KeepsReadingGraysAsIntegers) {
  const auto source = RowOf(8, {1, 1, 0, 0, 0xFE, 0xFF, 0xFF, 0xFF});
  source->raster.width = 2;
  Gives("integers", maths(), WordsOf({9, 9}), Content(WordsOf({257, 0})), kOk, &M::Scale, source,
        nullptr, 1.0f, 0.0f);
}

TEST_P(Maths, KeepsEightBitSourcesOfScale8Uncopied) {
  Gives("8 bits", maths(), RowOf(24, {1, 2, 3}), {0xCD, 0xCD}, kOk, &M::Scale8, RowOf(8, {1, 2}), 0,
        1.0);
}

TEST_P(Maths, KeepsUnsignedStrideOfScale8) {
  Rng rng(4);
  const auto dest = TestImage::Make({});
  Raster::NewImageLayout() = {};
  for (const int padding : {0, 3}) {
    const auto source =
        TestImage::Make(Raster(rng, 1, 2, 32, kModelMono, {.padding = padding, .bottom_up = true}));
    // The stride is -4 or -7, of which whole words are -4 and, rounded down, -8.
    uint8_t* const second = source->raster.Row(0) - (padding == 0 ? 4 : 8);
    const uint8_t word[] = {77, 0, 0, 0};
    std::copy_n(word, 4, second);
    EXPECT_EQ(maths().Scale8(dest.Get(), source.Get(), 0, 1.0), kOk);
    EXPECT_EQ(dest->raster.Row(1)[0], 77) << padding;
  }
}

}  // namespace
}  // namespace qel::test
