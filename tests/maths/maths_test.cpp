#include <cmath>
#include <limits>

#include "tests/support/module_under_test.h"
#include "tests/support/oracle_maths.h"

namespace qel::test {
namespace {

constexpr float kFloatInfinity = std::numeric_limits<float>::infinity();
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

float AnyFloat(Rng& rng) {
  constexpr float kSpecial[] = {
      0.0f,   -0.0f, 1.0f,           -1.0f,           0.5f,  2.0f, 3.0f, 1e30f, -1e30f,
      1e-40f, kNan,  kFloatInfinity, -kFloatInfinity, 255.0f};
  if (rng.OneIn(3)) return kSpecial[rng.Int(0, 13)];
  return rng.OneIn(2) ? rng.Float(-2.0f, 3.0f) : rng.Float(-300.0f, 300.0f);
}
int AnyInt(Rng& rng) {
  constexpr int kSpecial[] = {INT32_MIN, INT32_MAX, 0, -1, 1, 0x1FF, 0x112233};
  return rng.OneIn(2) ? kSpecial[rng.Int(0, 6)] : rng.Int(-1000, 1000);
}
int AnyDepth(Rng& rng) { return kAllDepths[static_cast<size_t>(rng.Int(0, 7))]; }
int CommonDepth(Rng& rng) {
  return rng.OneIn(8) ? AnyDepth(rng) : kCommonDepths[static_cast<size_t>(rng.Int(0, 2))];
}
uint32_t AnyModel(Rng& rng, int bit_count) {
  constexpr uint32_t kModels[] = {kModelMono, kModelBgr, kModelAbgr, 0};
  return rng.OneIn(2) ? UsualModel(bit_count) : kModels[rng.Int(0, 3)];
}

/// Images of one call, by their part in it. Parts may share an image.
struct Trial {
  enum Part { kDest, kA, kB, kMask, kParts };
  std::vector<Raster> images;
  int index[kParts] = {-1, -1, -1, -1};

  /// Adds an image for a part.
  Raster& Add(Part part, Raster raster) {
    index[part] = static_cast<int>(images.size());
    return images.emplace_back(std::move(raster));
  }
  void Share(Part part, Part with) { index[part] = index[with]; }
  template <typename Images>
  auto* Of(Part part, Images& all) const {
    using Element = std::remove_reference_t<decltype(*&all[0])>;
    return index[part] < 0 ? static_cast<Element*>(nullptr)
                           : &all[static_cast<size_t>(index[part])];
  }
};

/// Sizes round the vector lengths; sometimes empty.
Shape AnySize(Rng& rng) { return kSizes[rng.Int(0, std::size(kSizes) - 1)]; }
/// A size near another one: smaller, equal or larger.
int Near(Rng& rng, int size) { return std::max(0, size + (rng.OneIn(2) ? 0 : rng.Int(-3, 70))); }

Raster Image(Rng& rng, int width, int height, int bit_count, uint32_t model, int planes = 1) {
  return Raster(rng, width, height, bit_count, model, RandomLayout(rng), planes);
}

class Maths : public OperationTest {
 protected:
  IQELMaths& maths() { return *module_->maths; }

  /// Runs a trial by `call(dest, a, b, mask)` and the oracle on the same parts.
  template <typename Call, typename Oracle>
  void Run(const Trial& trial, Call call, Oracle oracle) {
    ExpectSame(
        trial.images,
        [&](std::span<TestImage* const> images, IQEL**) {
          const auto part = [&](Trial::Part p) {
            TestImage* const* const image = trial.Of(p, images);
            return image != nullptr ? *image : nullptr;
          };
          return call(part(Trial::kDest), part(Trial::kA), part(Trial::kB), part(Trial::kMask));
        },
        [&](std::span<Raster> images, Raster&) {
          return oracle(trial.Of(Trial::kDest, images), trial.Of(Trial::kA, images),
                        trial.Of(Trial::kB, images), trial.Of(Trial::kMask, images));
        });
  }

  /// Two sources of one format, a mask or none, and a destination that may be one of the sources.
  Trial TwoSources(Rng& rng, int bit_count, bool dest_exists) {
    const Shape size = AnySize(rng);
    const int planes = rng.OneIn(3) ? rng.Int(0, 3) : 1;
    const uint32_t model = AnyModel(rng, bit_count);
    Trial trial;
    trial.Add(Trial::kA, Image(rng, size.width, size.height, bit_count, model, planes));
    // What the operations trust: the second source and the destination are large enough.
    trial.Add(Trial::kB, Image(rng, size.width + (rng.OneIn(2) ? 0 : rng.Int(1, 9)),
                               size.height + rng.Int(0, 1), rng.OneIn(9) ? 24 : bit_count,
                               rng.OneIn(9) ? AnyModel(rng, bit_count) : model, planes));
    if (rng.OneIn(4)) {
      trial.Share(Trial::kDest, dest_exists || rng.OneIn(2) ? Trial::kA : Trial::kB);
    } else {
      trial.Add(Trial::kDest, Image(rng, size.width, size.height, bit_count, model, planes));
    }
    return trial;
  }

  void AddMask(Rng& rng, Trial& trial, int width, int height) {
    const int kind = rng.Int(0, 3);
    if (kind == 0) return;
    // Operations that trust the mask's size read it by bytes.
    if (kind == 1) return trial.Share(Trial::kMask, Trial::kDest);
    trial.Add(Trial::kMask, Image(rng, std::max(width, 1), std::max(height, 1),
                                  rng.OneIn(4) ? 24 : 8, kModelMono));
  }
};
QEL_INSTANTIATE_LEVELS(Maths);

constexpr int kRounds = 400;

TEST_P(Maths, CopyEqualsItsOracle) {
  for (int round = 0; round < 2 * kRounds && !HasFailure(); ++round) {
    Rng rng(static_cast<uint64_t>(round));
    const Shape size = AnySize(rng);
    const int from = CommonDepth(rng);
    const int to = rng.OneIn(3) ? from : CommonDepth(rng);
    Trial trial;
    trial.Add(Trial::kDest, Image(rng, size.width, size.height, to, AnyModel(rng, to)));
    if (rng.OneIn(8)) {
      trial.Share(Trial::kA, Trial::kDest);
    } else {
      trial.Add(Trial::kA, Image(rng, Near(rng, size.width), Near(rng, size.height), from,
                                 AnyModel(rng, from)));
    }
    AddMask(rng, trial, 1, 1);
    const int x = rng.OneIn(2) ? 0 : rng.Int(-1, size.width);
    const int y = rng.OneIn(2) ? 0 : rng.Int(-1, size.height);
    SCOPED_TRACE(testing::Message() << "round " << round);
    Run(
        trial,
        [&](IQEL* dest, IQEL* a, IQEL*, IQEL* mask) { return maths().Copy(dest, a, mask, x, y); },
        [&](Raster* dest, Raster* a, Raster*, Raster* mask) {
          return oracle::Copy(*dest, *a, mask, x, y);
        });
  }
}

TEST_P(Maths, CreateDestImageEqualsItsOracle) {
  ForEachRaster(1, kAllDepths, [&](const Raster& raster, Rng& rng) {
    const int bit_count = rng.OneIn(2) ? 0 : AnyDepth(rng);
    const int model = rng.OneIn(2) ? 0 : static_cast<int>(kModelMono);
    ExpectSame(
        {raster},
        [&](auto images, IQEL** result) {
          return maths().CreateDestImage(result, images[0], bit_count, model);
        },
        [&](auto images, Raster& result) {
          return oracle::CreateDestImage(images[0], bit_count, model, result);
        });
  });
}

TEST_P(Maths, AddEqualsItsOracle) {
  for (int round = 0; round < kRounds && !HasFailure(); ++round) {
    Rng rng(static_cast<uint64_t>(round));
    Raster::NewImageLayout() = RandomLayout(rng);
    const Trial trial = TwoSources(rng, CommonDepth(rng), false);
    const float divisor = AnyFloat(rng);
    SCOPED_TRACE(testing::Message() << "round " << round << ", divisor " << divisor);
    Run(
        trial,
        [&](TestImage* dest, IQEL* a, IQEL* b, IQEL*) { return maths().Add(dest, a, b, divisor); },
        [&](Raster* dest, Raster* a, Raster* b, Raster*) {
          return oracle::Add(*dest, *a, *b, divisor);
        });
  }
}

TEST_P(Maths, SubtractEqualsItsOracle) {
  for (int round = 0; round < kRounds && !HasFailure(); ++round) {
    Rng rng(static_cast<uint64_t>(round));
    const Trial trial = TwoSources(rng, CommonDepth(rng), true);
    const int flags = rng.Int(0, 5);
    SCOPED_TRACE(testing::Message() << "round " << round << ", flags " << flags);
    Run(
        trial,
        [&](IQEL* dest, IQEL* a, IQEL* b, IQEL*) { return maths().Subtract(dest, a, b, flags); },
        [&](Raster* dest, Raster* a, Raster* b, Raster*) {
          return oracle::Subtract(*dest, *a, *b, flags);
        });
  }
}

TEST_P(Maths, AddScaleEqualsItsOracle) {
  for (int round = 0; round < 2 * kRounds && !HasFailure(); ++round) {
    Rng rng(static_cast<uint64_t>(round));
    Trial trial;
    const Shape size = AnySize(rng);
    const int depth = CommonDepth(rng);
    const bool mixed = rng.OneIn(2);
    for (const auto part : {Trial::kDest, Trial::kA, Trial::kB}) {
      const int bits = mixed ? rng.OneIn(9) ? AnyDepth(rng) : rng.OneIn(2) ? 24 : 32 : depth;
      trial.Add(part, Image(rng, Near(rng, size.width), Near(rng, size.height), bits, 0));
    }
    if (rng.OneIn(4)) trial.Share(Trial::kA, Trial::kDest);
    if (rng.OneIn(4)) trial.Share(Trial::kB, Trial::kDest);
    AddMask(rng, trial, size.width + 70, size.height + 70);
    const float factor_a = AnyFloat(rng), factor_b = AnyFloat(rng), offset = AnyFloat(rng);
    SCOPED_TRACE(testing::Message()
                 << "round " << round << ": " << factor_a << ", " << factor_b << ", " << offset);
    Run(
        trial,
        [&](IQEL* dest, IQEL* a, IQEL* b, IQEL* mask) {
          return maths().AddScale(dest, a, b, mask, factor_a, factor_b, offset);
        },
        [&](Raster* dest, Raster* a, Raster* b, Raster* mask) {
          return oracle::AddScale(*dest, *a, *b, mask, factor_a, factor_b, offset);
        });
  }
}

TEST_P(Maths, ScaleEqualsItsOracle) {
  for (int round = 0; round < 3 * kRounds && !HasFailure(); ++round) {
    Rng rng(static_cast<uint64_t>(round));
    const Shape size = AnySize(rng);
    const int from = CommonDepth(rng), to = CommonDepth(rng);
    const int planes = rng.OneIn(3) ? rng.Int(0, 3) : 1;
    Trial trial;
    trial.Add(Trial::kDest, Image(rng, size.width, size.height, to, AnyModel(rng, to), planes));
    if (rng.OneIn(5)) {
      trial.Share(Trial::kA, Trial::kDest);
    } else {
      trial.Add(Trial::kA, Image(rng, Near(rng, size.width), Near(rng, size.height), from,
                                 AnyModel(rng, from), planes));
    }
    AddMask(rng, trial, size.width, size.height);
    const float factor = AnyFloat(rng), offset = AnyFloat(rng);
    SCOPED_TRACE(testing::Message() << "round " << round << ": " << factor << ", " << offset);
    Run(
        trial,
        [&](IQEL* dest, IQEL* a, IQEL*, IQEL* mask) {
          return maths().Scale(dest, a, mask, factor, offset);
        },
        [&](Raster* dest, Raster* a, Raster*, Raster* mask) {
          return oracle::Scale(*dest, *a, mask, factor, offset);
        });
  }
}

TEST_P(Maths, Scale8EqualsItsOracle) {
  for (int round = 0; round < kRounds && !HasFailure(); ++round) {
    Rng rng(static_cast<uint64_t>(round));
    Raster::NewImageLayout() = RandomLayout(rng);
    const Shape size = AnySize(rng);
    const int depth = rng.OneIn(2) ? 32 : AnyDepth(rng);
    Layout layout = RandomLayout(rng);
    // A negative stride survives the unsigned division only where the divisor is a power of two.
    if (depth == 24 || depth == 25 || depth == 40) {
      layout.bottom_up = Raster::NewImageLayout().bottom_up = false;
    }
    Trial trial;
    trial.Add(Trial::kA, Raster(rng, size.width, size.height, depth,
                                rng.OneIn(9) ? kModelAbgr : kModelMono, layout, rng.Int(0, 2)));
    if (rng.OneIn(8)) {
      trial.Share(Trial::kDest, Trial::kA);
    } else {
      trial.Add(Trial::kDest, Image(rng, 3, 3, 24, 0));
    }
    const double factor =
        rng.OneIn(2) ? static_cast<double>(AnyFloat(rng)) : rng.Float(-1, 1) * 1e-7;
    const int offset = AnyInt(rng);
    SCOPED_TRACE(testing::Message() << "round " << round << ": " << factor << ", " << offset);
    Run(
        trial,
        [&](TestImage* dest, IQEL* a, IQEL*, IQEL*) {
          return maths().Scale8(dest, a, offset, factor);
        },
        [&](Raster* dest, Raster* a, Raster*, Raster*) {
          return oracle::Scale8(*dest, *a, offset, factor);
        });
  }
}

TEST_P(Maths, EqualEqualsItsOracle) {
  for (int round = 0; round < kRounds && !HasFailure(); ++round) {
    Rng rng(static_cast<uint64_t>(round));
    const Shape size = AnySize(rng);
    const int depth = CommonDepth(rng);
    Trial trial;
    trial.Add(Trial::kDest, Image(rng, size.width, size.height, depth, AnyModel(rng, depth),
                                  rng.OneIn(3) ? rng.Int(0, 3) : 1));
    AddMask(rng, trial, size.width, size.height);
    const int value = AnyInt(rng);
    SCOPED_TRACE(testing::Message() << "round " << round << ", value " << value);
    Run(
        trial,
        [&](IQEL* dest, IQEL*, IQEL*, IQEL* mask) { return maths().Equal(dest, mask, value); },
        [&](Raster* dest, Raster*, Raster*, Raster* mask) {
          return oracle::Equal(*dest, mask, value);
        });
  }
}

}  // namespace
}  // namespace qel::test
