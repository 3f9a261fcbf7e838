#include "tests/simd/primitives.h"

#include <algorithm>

#include "tests/support/module_under_test.h"
#include "tests/support/rasters.h"

namespace qel::test {
namespace {

class Simd : public testing::TestWithParam<CpuLevel> {
 protected:
  void SetUp() override {
    if (GetParam() > DetectCpuLevel()) {
      GTEST_SKIP() << "this processor does not run " << LevelName(GetParam());
    }
  }
  const Primitives& primitives_ = PrimitivesFor(GetParam());
};
QEL_INSTANTIATE_LEVELS(Simd);

// Lanes of all bits, of few values so that they are often equal, and at the ends of their ranges.
TEST_P(Simd, EveryPrimitiveIsWhatItsLanesSay) {
  Rng rng(1);
  for (size_t k = 0; k < primitives_.count; ++k) {
    const Primitive& primitive = primitives_.all[k];
    for (int round = 0; round < 60; ++round) {
      alignas(64) uint8_t in[4 * 64];
      for (uint8_t& byte : in) {
        constexpr uint8_t kEnds[] = {0x00, 0x01, 0x7F, 0x80, 0xFF};
        byte = static_cast<uint8_t>(round % 3 == 0   ? rng.Next()
                                    : round % 3 == 1 ? rng.Int(0, 2)
                                                     : kEnds[rng.Int(0, 4)]);
      }
      uint8_t expected[64] = {};
      uint8_t actual[64] = {};
      const size_t bytes = primitive.lanes(in, expected);
      ASSERT_EQ(primitive.vectors(in, actual), bytes) << primitive.name;
      for (size_t i = 0; i < bytes; ++i) {
        ASSERT_EQ(actual[i], expected[i]) << primitive.name << ", byte " << i;
      }
    }
  }
}

// Behind the bytes memory ends; those before them stay.
TEST_P(Simd, MaskedMemoryIsAllThatIsTouched) {
  constexpr size_t kBefore = 64;
  for (size_t count = 0; count <= primitives_.vector_bytes; ++count) {
    Block from(kBefore + count, Layout::Fence::kAfter);
    for (uint8_t value = 0; uint8_t & byte : from) byte = ++value;
    Block to(kBefore + count, Layout::Fence::kAfter), expected = to;
    std::copy(from.begin() + kBefore, from.end(), expected.begin() + kBefore);
    primitives_.copy_masked(from.begin() + kBefore, to.begin() + kBefore, count);
    EXPECT_TRUE(std::equal(to.begin(), to.end(), expected.begin())) << count << " bytes";
  }
}

}  // namespace
}  // namespace qel::test
