#include <cstring>

#include "color/pixel_kernels.h"
#include "color/tone_kernels.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/module_under_test.h"

namespace qel::test {
namespace {

struct Arguments {
  explicit Arguments(Rng& rng) {
    for (uint8_t& b : table) b = static_cast<uint8_t>(rng.Next());
    for (uint8_t& b : add) b = static_cast<uint8_t>(rng.OneIn(2) ? 0 : rng.Next());
    for (uint8_t& b : subtract) b = static_cast<uint8_t>(rng.OneIn(2) ? 0 : rng.Next());
    for (auto& channel : tint.color) {
      for (uint8_t& b : channel) b = static_cast<uint8_t>(rng.Next());
    }
    tint.weight = rng.OneIn(3) ? 256 : rng.OneIn(3) ? 255 : rng.Int(1, 254);
    limit = rng.OneIn(4) ? (rng.OneIn(2) ? INT32_MIN : INT32_MAX) : rng.Int(-2, 766);
    key = rng.Next() & 0x00FFFFFFu;
  }

  uint8_t table[256];
  uint8_t add[kShiftPeriod], subtract[kShiftPeriod];
  Tint tint;
  int32_t limit;
  uint32_t key;
};

/// One kernel: `count` units of `unit` bytes, from `source`, `ahead` bytes longer, to `dest`. In
/// place the two hold the same bytes and only `dest` is used.
struct Kernel {
  const char* name;
  size_t unit;
  size_t ahead;
  void (*run)(CpuLevel level, uint8_t* dest, const uint8_t* source, size_t count,
              const Arguments& a);
};

constexpr Kernel kKernels[] = {
    {"lut_bytes", 1, 0,
     [](CpuLevel l, uint8_t* d, const uint8_t*, size_t n, const Arguments& a) {
       ToneKernelsFor(l).lut_bytes(d, n, a.table);
     }},
    {"lut_pixels", 4, 0,
     [](CpuLevel l, uint8_t* d, const uint8_t*, size_t n, const Arguments& a) {
       ToneKernelsFor(l).lut_pixels(d, n, a.table);
     }},
    {"invert_bytes", 1, 0,
     [](CpuLevel l, uint8_t* d, const uint8_t*, size_t n, const Arguments&) {
       ToneKernelsFor(l).invert_bytes(d, n);
     }},
    {"invert_pixels", 4, 0,
     [](CpuLevel l, uint8_t* d, const uint8_t*, size_t n, const Arguments&) {
       ToneKernelsFor(l).invert_pixels(d, n);
     }},
    {"shift_bytes", 1, 0,
     [](CpuLevel l, uint8_t* d, const uint8_t*, size_t n, const Arguments& a) {
       ToneKernelsFor(l).shift_bytes(d, n, a.add, a.subtract);
     }},
    {"mix_bytes", 1, 2,
     [](CpuLevel l, uint8_t* d, const uint8_t* s, size_t n, const Arguments&) {
       ToneKernelsFor(l).mix_bytes(d, s, n);
     }},
    {"mean3", 3, 0,
     [](CpuLevel l, uint8_t* d, const uint8_t* s, size_t n, const Arguments&) {
       ToneKernelsFor(l).mean3(d, s, n);
     }},
    {"mean4", 4, 0,
     [](CpuLevel l, uint8_t* d, const uint8_t* s, size_t n, const Arguments&) {
       ToneKernelsFor(l).mean4(d, s, n);
     }},
    {"threshold3", 3, 0,
     [](CpuLevel l, uint8_t* d, const uint8_t*, size_t n, const Arguments& a) {
       ToneKernelsFor(l).threshold3(d, n, a.limit);
     }},
    {"threshold4", 4, 0,
     [](CpuLevel l, uint8_t* d, const uint8_t*, size_t n, const Arguments& a) {
       ToneKernelsFor(l).threshold4(d, n, a.limit);
     }},
    {"set_alpha", 4, 0,
     [](CpuLevel l, uint8_t* d, const uint8_t*, size_t n, const Arguments& a) {
       PixelKernelsFor(l).set_alpha(d, n, a.table[0]);
     }},
    {"clear_key", 4, 0,
     [](CpuLevel l, uint8_t* d, const uint8_t*, size_t n, const Arguments& a) {
       PixelKernelsFor(l).clear_key(d, n, a.key);
     }},
    {"set_alpha_but_key", 4, 0,
     [](CpuLevel l, uint8_t* d, const uint8_t*, size_t n, const Arguments& a) {
       PixelKernelsFor(l).set_alpha_but_key(d, n, a.table[0], a.key);
     }},
    {"tint3", 3, 0,
     [](CpuLevel l, uint8_t* d, const uint8_t*, size_t n, const Arguments& a) {
       PixelKernelsFor(l).tint3(d, n, a.tint);
     }},
    {"tint4", 4, 0,
     [](CpuLevel l, uint8_t* d, const uint8_t*, size_t n, const Arguments& a) {
       PixelKernelsFor(l).tint4(d, n, a.tint);
     }},
};

class ColorKernels : public testing::TestWithParam<CpuLevel> {
 protected:
  void SetUp() override {
    if (GetParam() > DetectCpuLevel()) {
      GTEST_SKIP() << "this processor does not run " << LevelName(GetParam());
    }
  }
};
INSTANTIATE_TEST_SUITE_P(Levels, ColorKernels,
                         testing::Values(CpuLevel::kAvx2, CpuLevel::kAvx512, CpuLevel::kAvx512Vbmi),
                         LevelParamName);

// Every count from nothing to more than two blocks; rows that end where memory ends.
TEST_P(ColorKernels, EqualThePlainLoopsAndStayWithinTheRow) {
  EXPECT_NE(ToneKernelsFor(GetParam()).lut_bytes, ToneKernelsFor(CpuLevel::kSse2).lut_bytes);
  EXPECT_NE(PixelKernelsFor(GetParam()).tint3, PixelKernelsFor(CpuLevel::kSse2).tint3);
  Rng rng(1);
  for (const Kernel& kernel : kKernels) {
    for (size_t count = 0; count <= 2 * kShiftPeriod / kernel.unit + 3; ++count) {
      Arguments arguments(rng);
      const size_t size = count * kernel.unit;
      const GuardedMemory source(size + kernel.ahead), expected(size), actual(size);
      const int low = rng.Int(0, 255);
      const int high = rng.OneIn(2) ? 255 : rng.Int(low, 255);
      for (size_t i = 0; i < size + kernel.ahead; ++i) {
        source.data()[i] = static_cast<uint8_t>(rng.Int(low, high));
      }
      if (kernel.unit == 4 && count > 0) {
        std::memcpy(&arguments.key, source.data(), 4);
        arguments.key &= 0x00FFFFFFu;
      }
      expected.Fill(0xA5);
      actual.Fill(0xA5);
      std::memcpy(expected.data(), source.data(), size);
      std::memcpy(actual.data(), source.data(), size);
      kernel.run(CpuLevel::kSse2, expected.data(), source.data(), count, arguments);
      kernel.run(GetParam(), actual.data(), source.data(), count, arguments);
      ASSERT_EQ(std::memcmp(expected.data(), actual.data(), size), 0)
          << kernel.name << ", " << count << " units";
      ASSERT_TRUE(actual.Untouched(0xA5)) << kernel.name << ", " << count << " units";
    }
  }
}

}  // namespace
}  // namespace qel::test
