#include <cstring>

#include "maths/arithmetic_kernels.h"
#include "maths/conversion_kernels.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/module_under_test.h"

namespace qel::test {
namespace {

struct Arguments {
  explicit Arguments(Rng& rng) {
    for (uint8_t& entry : table) entry = static_cast<uint8_t>(rng.Next());
    for (uint8_t& entry : map.table) entry = static_cast<uint8_t>(rng.Next());
    weights = {rng.Float(-1, 2), rng.OneIn(3) ? 1 - weights.factor_a : rng.Float(-2e6f, 2e6f),
               rng.OneIn(3) ? 0.0f : rng.Float(-99, 99)};
    map.factor = rng.OneIn(3) ? rng.Float(-1e5f, 1e5f) : rng.Float(-1, 1) * 0x1p-20f;
    map.offset = rng.Float(-300, 300);
    factor = static_cast<double>(map.factor) * rng.Float(-1, 1);
    offset = rng.OneIn(4) ? (rng.OneIn(2) ? INT32_MIN : INT32_MAX) : rng.Int(-300, 300);
  }

  uint8_t table[512];
  ScaleMap map;
  MixWeights weights;
  double factor;
  int32_t offset;
};

/// The rows of one call; each ends where memory ends.
struct Row {
  uint8_t* dest;
  const uint8_t *a, *b, *mask;
  size_t count;
};
using Run = std::function<uint64_t(CpuLevel, const Row&, const Arguments&)>;

/// One kernel with the bytes of a unit in each of its rows.
struct Kernel {
  std::string name;
  size_t dest, a, b, mask;
  Run run;
};

std::vector<Kernel> AllKernels() {
  using A = ArithmeticKernels;
  using C = ConversionKernels;
  std::vector<Kernel> kernels;
  const auto add = [&](const char* name, size_t dest, size_t a, size_t b, size_t mask, auto run) {
    kernels.push_back({name, dest, a, b, mask, [run](CpuLevel l, const Row& r, const Arguments& x) {
                         if constexpr (std::is_same_v<decltype(run(l, r, x)), void>) {
                           run(l, r, x);
                           return uint64_t{0};
                         } else {
                           return run(l, r, x);
                         }
                       }});
  };
  const auto copies = [&](const char* name, size_t dest, size_t source, C::CopyRow C::*row) {
    add(name, dest, source, 0, 0, [=](CpuLevel l, const Row& r, const Arguments&) {
      (ConversionKernelsFor(l).*row)(r.dest, r.a, r.count);
    });
  };
  copies("one_to_3", 3, 1, &C::one_to_3);
  copies("one_to_4", 4, 1, &C::one_to_4);
  copies("three_to_4", 4, 3, &C::three_to_4);
  copies("four_to_3", 3, 4, &C::four_to_3);
  copies("mean_of_3", 1, 3, &C::mean_of_3);
  copies("mean_of_4", 1, 4, &C::mean_of_4);
  copies("fill_zeros", 1, 1, &C::fill_zeros);
  add("fill", 1, 0, 0, 0, [](CpuLevel l, const Row& r, const Arguments& x) {
    ConversionKernelsFor(l).fill(r.dest, r.count, x.table);
  });
  add("fill_bytes", 1, 0, 0, 1, [](CpuLevel l, const Row& r, const Arguments& x) {
    ConversionKernelsFor(l).fill_bytes(r.dest, r.mask, r.count, x.table[0]);
  });
  add("fill_words", 4, 0, 0, 1, [](CpuLevel l, const Row& r, const Arguments& x) {
    ConversionKernelsFor(l).fill_words(r.dest, r.mask, r.count, static_cast<uint32_t>(x.offset));
  });

  add("add", 1, 1, 1, 0, [](CpuLevel l, const Row& r, const Arguments&) {
    ArithmeticKernelsFor(l).add(r.dest, r.a, r.b, r.count);
  });
  add("add_scaled", 1, 1, 1, 0, [](CpuLevel l, const Row& r, const Arguments& x) {
    const auto factor = static_cast<uint16_t>(x.table[0] << 8 | x.table[1]);
    ArithmeticKernelsFor(l).add_scaled(r.dest, r.a, r.b, r.count, {factor, x.table[2] % 10});
  });
  add("add_by_table", 1, 1, 1, 0, [](CpuLevel l, const Row& r, const Arguments& x) {
    ArithmeticKernelsFor(l).add_by_table(r.dest, r.a, r.b, r.count, x.table);
  });
  const auto differences = [&](const char* name, size_t bytes, A::DifferenceRow A::*row) {
    add(name, bytes, bytes, bytes, 0, [=](CpuLevel l, const Row& r, const Arguments& x) {
      return (ArithmeticKernelsFor(l).*row)(r.dest, r.a, r.b, r.count, x.table[0]);
    });
  };
  differences("subtract_bytes", 1, &A::subtract_bytes);
  differences("difference_bytes", 1, &A::difference_bytes);
  differences("subtract_pixels", 4, &A::subtract_pixels);
  differences("difference_pixels", 4, &A::difference_pixels);
  add("mix", 1, 1, 1, 0, [](CpuLevel l, const Row& r, const Arguments& x) {
    ArithmeticKernelsFor(l).mix(r.dest, r.a, r.b, r.count, x.weights);
  });
  for (size_t i = 0; i < std::size(ArithmeticKernelsFor(CpuLevel::kSse2).mix_pixels); ++i) {
    const auto& sizes = ArithmeticKernelsFor(CpuLevel::kSse2).mix_pixels[i];
    const auto size = [](int bytes) { return static_cast<size_t>(bytes); };
    for (const size_t mask : {size_t{0}, size_t{1}}) {
      if (mask == 0 && sizes.computed == sizes.dest_bytes && i < 3) continue;
      add("mix_pixels", size(sizes.dest_bytes), size(sizes.a_bytes), size(sizes.b_bytes), mask,
          [=](CpuLevel l, const Row& r, const Arguments& x) {
            ArithmeticKernelsFor(l).mix_pixels[i].row(r.dest, r.a, r.b, mask ? r.mask : nullptr,
                                                      r.count, x.weights);
          });
    }
  }
  const auto scales = [&](const char* name, size_t dest, size_t source, A::ScaleRow A::*row) {
    add(name, dest, source, 0, 0, [=](CpuLevel l, const Row& r, const Arguments& x) {
      (ArithmeticKernelsFor(l).*row)(r.dest, r.a, r.count, x.map);
    });
  };
  scales("map_bytes", 1, 1, &A::map_bytes);
  scales("map_to_3", 3, 1, &A::map_to_3);
  scales("map_4_to_3", 3, 4, &A::map_4_to_3);
  scales("grey_of_3", 1, 3, &A::grey_of_3);
  scales("grey_of_4", 1, 4, &A::grey_of_4);
  scales("words_to_1", 1, 4, &A::words_to_1);
  scales("words_to_3", 3, 4, &A::words_to_3);
  scales("words_to_4", 4, 4, &A::words_to_4);
  scales("words_to_words", 4, 4, &A::words_to_words);
  add("map_bytes_where", 1, 1, 0, 1, [](CpuLevel l, const Row& r, const Arguments& x) {
    ArithmeticKernelsFor(l).map_bytes_where(r.dest, r.a, r.mask, r.count, x.map);
  });
  add("scale8", 1, 4, 0, 0, [](CpuLevel l, const Row& r, const Arguments& x) {
    ArithmeticKernelsFor(l).scale8(r.dest, r.a, r.count, x.factor, x.offset);
  });
  return kernels;
}

class MathsKernels : public testing::TestWithParam<CpuLevel> {
 protected:
  void SetUp() override {
    if (GetParam() > DetectCpuLevel()) {
      GTEST_SKIP() << "this processor does not run " << LevelName(GetParam());
    }
  }
};
INSTANTIATE_TEST_SUITE_P(Levels, MathsKernels,
                         testing::Values(CpuLevel::kAvx2, CpuLevel::kAvx512, CpuLevel::kAvx512Vbmi),
                         LevelParamName);

void FillWithNoise(Rng& rng, const GuardedMemory& memory, size_t size) {
  const int kind = rng.Int(0, 3);
  for (size_t i = 0; i < size; ++i) {
    const int byte = kind == 0 ? rng.Int(0, 3) : rng.Int(0, 255);
    // Bytes of 0 for masks; words near 0 with their upper bytes alike.
    memory.data()[i] = static_cast<uint8_t>(kind == 1 && i % 4 > 1 ? 0 : rng.OneIn(4) ? 0 : byte);
  }
}

// Every count from nothing to more than two blocks; rows that end where memory ends.
TEST_P(MathsKernels, EqualThePlainLoopsAndStayWithinTheRow) {
  EXPECT_NE(ArithmeticKernelsFor(GetParam()).mix, ArithmeticKernelsFor(CpuLevel::kSse2).mix);
  EXPECT_NE(ConversionKernelsFor(GetParam()).fill, ConversionKernelsFor(CpuLevel::kSse2).fill);
  Rng rng(1);
  for (const Kernel& kernel : AllKernels()) {
    for (size_t count = 0; count <= 2 * kFillPeriod / kernel.dest + 3; ++count) {
      const Arguments arguments(rng);
      const size_t size = count * kernel.dest;
      const GuardedMemory a(count * kernel.a), b(count * kernel.b), mask(count * kernel.mask);
      const GuardedMemory expected(size), actual(size);
      FillWithNoise(rng, a, count * kernel.a);
      FillWithNoise(rng, b, count * kernel.b);
      FillWithNoise(rng, mask, count * kernel.mask);
      expected.Fill(0xA5);
      actual.Fill(0xA5);
      FillWithNoise(rng, expected, size);
      std::memcpy(actual.data(), expected.data(), size);
      const Row rows[] = {{expected.data(), a.data(), b.data(), mask.data(), count},
                          {actual.data(), a.data(), b.data(), mask.data(), count}};
      ASSERT_EQ(kernel.run(GetParam(), rows[1], arguments),
                kernel.run(CpuLevel::kSse2, rows[0], arguments))
          << kernel.name << ", " << count << " units";
      ASSERT_EQ(std::memcmp(expected.data(), actual.data(), size), 0)
          << kernel.name << ", " << count << " units";
      ASSERT_TRUE(actual.Untouched(0xA5)) << kernel.name << ", " << count << " units";
    }
  }
}

// All pairs of bytes, with weights whose products and sums are rounded at every place.
TEST_P(MathsKernels, MixEveryPairOfBytes) {
  std::vector<uint8_t> a(65536), b(65536), expected(65536), actual(65536);
  for (size_t i = 0; i < a.size(); ++i) {
    a[i] = static_cast<uint8_t>(i);
    b[i] = static_cast<uint8_t>(i >> 8);
  }
  Rng rng(2);
  for (int round = 0; round < 60; ++round) {
    const float share = round <= 10 ? 0.1f * static_cast<float>(round) : rng.Float(-1, 2);
    const MixWeights weights = {round % 7 == 6 ? 1e-41f : share, 1.0f - share,
                                round % 3 != 0 ? 0.0f : rng.Float(-255, 255)};
    ArithmeticKernelsFor(CpuLevel::kSse2).mix(expected.data(), a.data(), b.data(), 65536, weights);
    ArithmeticKernelsFor(GetParam()).mix(actual.data(), a.data(), b.data(), 65536, weights);
    ASSERT_EQ(actual, expected) << weights.factor_a << ", " << weights.offset;
  }
}

}  // namespace
}  // namespace qel::test
