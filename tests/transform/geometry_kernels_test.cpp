#include <cstring>

#include "tests/support/guarded_memory.h"
#include "tests/support/module_under_test.h"
#include "transform/layout/depth_kernels.h"
#include "transform/layout/orientation_kernels.h"
#include "transform/resample/box_kernels.h"
#include "transform/resample/resample_kernels.h"
#include "transform/rotate/rotate_kernels.h"

namespace qel::test {
namespace {

struct Arguments {
  explicit Arguments(Rng& rng) {
    for (auto& channel : palette.channels) {
      for (uint8_t& b : channel) b = static_cast<uint8_t>(rng.Next());
    }
    for (size_t i = 0; i < kSampleChunk; ++i) colours[i] = rng.Next();
  }
  PaletteTables palette;
  uint32_t colours[kSampleChunk];
};

/// One kernel: `count` pixels from `source` to `dest`, which starts with bytes of its own.
struct Kernel {
  const char* name;
  size_t dest_bytes;
  size_t source_bytes;
  void (*run)(CpuLevel level, uint8_t* dest, const uint8_t* source, size_t count,
              const Arguments& a);
};

#define QEL_ROW(table, kernel, dest_bytes, source_bytes, ...)                                     \
  {                                                                                               \
#kernel, dest_bytes, source_bytes,                                                            \
        []([[maybe_unused]] CpuLevel l, uint8_t * d, [[maybe_unused]] const uint8_t* s, size_t n, \
           [[maybe_unused]] const Arguments& a) { table##KernelsFor(l).kernel(__VA_ARGS__); }     \
  }
constexpr Kernel kKernels[] = {
    QEL_ROW(Orientation, reverse1, 1, 1, d, s, n),
    QEL_ROW(Orientation, reverse3, 3, 3, d, s, n),
    QEL_ROW(Orientation, reverse4, 4, 4, d, s, n),
    QEL_ROW(Orientation, swap_ends3, 3, 0, d, n),
    QEL_ROW(Orientation, swap_ends4, 4, 0, d, n),
    QEL_ROW(Orientation, exchange3, 6, 0, d, d + 3 * n, n),
    QEL_ROW(Orientation, exchange4, 8, 0, d, d + 4 * n, n),
    QEL_ROW(Depth, grey_to_24, 3, 1, d, s, n),
    QEL_ROW(Depth, grey_to_32, 4, 1, d, s, n),
    QEL_ROW(Depth, color_to_32, 4, 3, d, s, n),
    QEL_ROW(Depth, palette_to_24, 3, 1, d, s, n, a.palette),
    QEL_ROW(Depth, palette_to_32, 4, 1, d, s, n, a.palette),
    QEL_ROW(Resample, make_opaque, 4, 0, d, n),
};
constexpr Kernel kStores[] = {
    QEL_ROW(Rotate, store1, 1, 0, d, a.colours, n),
    QEL_ROW(Rotate, store3, 3, 0, d, a.colours, n),
    QEL_ROW(Rotate, store4, 4, 0, d, a.colours, n),
};
#undef QEL_ROW

void Randomise(Rng& rng, uint8_t* bytes, size_t size) {
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(rng.Next());
}

class GeometryKernels : public testing::TestWithParam<CpuLevel> {
 protected:
  void SetUp() override {
    if (GetParam() > DetectCpuLevel()) {
      GTEST_SKIP() << "this processor does not run " << LevelName(GetParam());
    }
  }
  void ExpectLikePlainLoops(const Kernel& kernel, size_t most) {
    Rng rng(1);
    for (size_t count = 1; count <= most; ++count) {
      const Arguments arguments(rng);
      const size_t size = count * kernel.dest_bytes;
      const GuardedMemory source(count * kernel.source_bytes), expected(size), actual(size);
      Randomise(rng, source.data(), count * kernel.source_bytes);
      expected.Fill(0xA5);
      actual.Fill(0xA5);
      Randomise(rng, expected.data(), size);
      std::memcpy(actual.data(), expected.data(), size);
      kernel.run(CpuLevel::kSse2, expected.data(), source.data(), count, arguments);
      kernel.run(GetParam(), actual.data(), source.data(), count, arguments);
      ASSERT_EQ(std::memcmp(expected.data(), actual.data(), size), 0)
          << kernel.name << ", " << count << " pixels";
      ASSERT_TRUE(actual.Untouched(0xA5)) << kernel.name << ", " << count << " pixels";
    }
  }
};
INSTANTIATE_TEST_SUITE_P(Levels, GeometryKernels,
                         testing::Values(CpuLevel::kAvx2, CpuLevel::kAvx512, CpuLevel::kAvx512Vbmi),
                         LevelParamName);

// Every count up to more than two vectors of pixels; rows that end where memory ends.
TEST_P(GeometryKernels, EqualThePlainLoopsAndStayWithinTheRow) {
  EXPECT_NE(OrientationKernelsFor(GetParam()).reverse3,
            OrientationKernelsFor(CpuLevel::kSse2).reverse3);
  EXPECT_NE(DepthKernelsFor(GetParam()).color_to_32,
            DepthKernelsFor(CpuLevel::kSse2).color_to_32);
  EXPECT_NE(ResampleKernelsFor(GetParam()).blend_pair,
            ResampleKernelsFor(CpuLevel::kSse2).blend_pair);
  EXPECT_NE(RotateKernelsFor(GetParam()).store3, RotateKernelsFor(CpuLevel::kSse2).store3);
  for (const Kernel& kernel : kKernels) ExpectLikePlainLoops(kernel, 197);
  for (const Kernel& kernel : kStores) ExpectLikePlainLoops(kernel, kSampleChunk);
}

TEST_P(GeometryKernels, TransposesStayWithinTheRectangle) {
  Rng rng(2);
  for (const size_t bytes : {1, 3, 4}) {
    const auto transpose = [&](CpuLevel level) {
      const OrientationKernels& kernels = OrientationKernelsFor(level);
      return bytes == 1 ? kernels.transpose1 : bytes == 3 ? kernels.transpose3 : kernels.transpose4;
    };
    for (int round = 0; round < 60; ++round) {
      const int columns = rng.Int(1, 40);
      const int rows = rng.Int(1, 90);
      const size_t size = static_cast<size_t>(columns * rows) * bytes;
      const GuardedMemory source(size), dest(size);
      Randomise(rng, source.data(), size);
      dest.Fill(0xA5);
      const auto stride = [&](int pixels) { return pixels * static_cast<int64_t>(bytes); };
      transpose(GetParam())(dest.data(), stride(rows), source.data(), stride(columns), columns,
                            rows);
      for (int i = 0; i < columns * rows; ++i) {
        const uint8_t* const from = source.data() + stride(i % rows * columns + i / rows);
        ASSERT_EQ(std::memcmp(dest.data() + stride(i), from, bytes), 0)
            << bytes << " bytes, " << columns << " x " << rows << ", pixel " << i;
      }
      ASSERT_TRUE(dest.Untouched(0xA5));
    }
  }
}

// The reciprocals of all areas, for all sums that boxes of bytes can have.
TEST(BoxDivision, IsExactForEverySum) {
  for (uint32_t area = 2; area <= kLargestSmallBox; ++area) {
    uint32_t shift = 0;
    while ((2u << shift) < area) ++shift;
    const uint32_t factor = ((65536u << shift) + area - 1) / area;
    ASSERT_LT(factor, 65536u);
    for (uint32_t sum = 0; sum <= 255 * area; ++sum) {
      ASSERT_EQ(sum * factor >> 16 >> shift, sum / area) << sum << " / " << area;
    }
  }
}

}  // namespace
}  // namespace qel::test
