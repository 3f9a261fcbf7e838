#include "reference/maths.h"

#include <cmath>
#include <limits>

#include "tests/support/module_under_test.h"

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

/// The oracles under the names of the interface, on rasters.
struct OracleMaths {
  result_t Copy(Raster* dest, Raster* source, Raster* mask, int x, int y) {
    return oracle::Copy(*dest, *source, mask, x, y);
  }
  result_t Add(Raster* dest, Raster* a, Raster* b, float divisor) {
    return oracle::Add(*dest, *a, *b, divisor);
  }
  result_t Subtract(Raster* dest, Raster* a, Raster* b, int flags) {
    return oracle::Subtract(*dest, *a, *b, flags);
  }
  result_t AddScale(Raster* dest, Raster* a, Raster* b, Raster* mask, float factor_a,
                    float factor_b, float offset) {
    return oracle::AddScale(*dest, *a, *b, mask, factor_a, factor_b, offset);
  }
  result_t Scale(Raster* dest, Raster* source, Raster* mask, float factor, float offset) {
    return oracle::Scale(*dest, *source, mask, factor, offset);
  }
  result_t Scale8(Raster* dest, Raster* source, int offset, double factor) {
    return oracle::Scale8(*dest, *source, offset, factor);
  }
  result_t Equal(Raster* image, Raster* mask, int value) {
    return oracle::Equal(*image, mask, value);
  }
};

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
  template <typename Image>
  Image* Of(Part part, std::span<Image* const> all) const {
    return index[part] < 0 ? nullptr : all[static_cast<size_t>(index[part])];
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

  template <typename Body>
  void ForEachRound(int rounds, Body body) {
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
      SCOPED_TRACE(round);
      Rng rng(static_cast<uint64_t>(round));
      Raster::NewImageLayout() = RandomLayout(rng);
      body(rng);
    }
  }

  /// Runs a trial by `call(maths, parts)` on the module and on the oracles.
  template <typename Call>
  void Run(const Trial& trial, Call call) {
    const auto on = [&](auto& operations, auto images) {
      const auto part = [&](Trial::Part p) { return trial.Of(p, images); };
      return call(operations, part(Trial::kDest), part(Trial::kA), part(Trial::kB),
                  part(Trial::kMask));
    };
    ExpectSame(
        trial.images,
        [&](std::span<TestImage* const> images, IQEL**) { return on(maths(), images); },
        [&](std::span<Raster> images, Raster&) {
          std::vector<Raster*> rasters;
          for (Raster& raster : images) rasters.push_back(&raster);
          OracleMaths oracles;
          return on(oracles, std::span<Raster* const>(rasters));
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

constexpr int kRounds = 300;

TEST_P(Maths, CopyEqualsItsOracle) {
  ForEachRound(2 * kRounds, [&](Rng& rng) {
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
    Run(trial,
        [&](auto& m, auto dest, auto a, auto, auto mask) { return m.Copy(dest, a, mask, x, y); });
  });
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
  ForEachRound(kRounds, [&](Rng& rng) {
    const Trial trial = TwoSources(rng, CommonDepth(rng), false);
    const float divisor = AnyFloat(rng);
    Run(trial,
        [&](auto& m, auto dest, auto a, auto b, auto) { return m.Add(dest, a, b, divisor); });
  });
}

TEST_P(Maths, SubtractEqualsItsOracle) {
  ForEachRound(kRounds, [&](Rng& rng) {
    const Trial trial = TwoSources(rng, CommonDepth(rng), true);
    const int flags = rng.Int(0, 5);
    Run(trial,
        [&](auto& m, auto dest, auto a, auto b, auto) { return m.Subtract(dest, a, b, flags); });
  });
}

TEST_P(Maths, AddScaleEqualsItsOracle) {
  ForEachRound(2 * kRounds, [&](Rng& rng) {
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
    Run(trial, [&](auto& m, auto dest, auto a, auto b, auto mask) {
      return m.AddScale(dest, a, b, mask, factor_a, factor_b, offset);
    });
  });
}

TEST_P(Maths, ScaleEqualsItsOracle) {
  ForEachRound(3 * kRounds, [&](Rng& rng) {
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
    Run(trial, [&](auto& m, auto dest, auto a, auto, auto mask) {
      return m.Scale(dest, a, mask, factor, offset);
    });
  });
}

TEST_P(Maths, Scale8EqualsItsOracle) {
  ForEachRound(kRounds, [&](Rng& rng) {
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
    Run(trial,
        [&](auto& m, auto dest, auto a, auto, auto) { return m.Scale8(dest, a, offset, factor); });
  });
}

TEST_P(Maths, EqualEqualsItsOracle) {
  ForEachRound(kRounds, [&](Rng& rng) {
    const Shape size = AnySize(rng);
    const int depth = CommonDepth(rng);
    Trial trial;
    trial.Add(Trial::kDest, Image(rng, size.width, size.height, depth, AnyModel(rng, depth),
                                  rng.OneIn(3) ? rng.Int(0, 3) : 1));
    AddMask(rng, trial, size.width, size.height);
    const int value = AnyInt(rng);
    Run(trial,
        [&](auto& m, auto dest, auto, auto, auto mask) { return m.Equal(dest, mask, value); });
  });
}

/// A window into memory that other images use as well.
class Window final : public IQEL {
 public:
  Window(int width, int height, int bit_count, uint8_t* bits, int stride)
      : width_(width), height_(height), bit_count_(bit_count), bits_(bits), stride_(stride) {}
  virtual ~Window() = default;
  result_t QueryInterface(const IID&, void** object) override {
    *object = nullptr;
    return kNoInterface;
  }
  uint32_t AddRef() override { return 1; }
  uint32_t Release() override { return 1; }
  result_t GetSize(int* width, int* height, int* planes) override {
    *width = width_;
    *height = height_;
    *planes = 1;
    return kOk;
  }
  result_t GetFormat(int* bit_count, uint32_t* model, int*) override {
    *bit_count = bit_count_;
    *model = UsualModel(bit_count_);
    return kOk;
  }
  result_t GetBits(int, int*, uint8_t** bits, int* stride) override {
    *bits = bits_;
    *stride = stride_;
    return kOk;
  }
  result_t Create(int, int, int, int, uint32_t) override { return kFail; }

 private:
  int width_, height_, bit_count_;
  uint8_t* bits_;
  int stride_;
};

// The lowest level goes one pixel after the other; vectors must not read what is not yet written.
TEST_P(Maths, GoesPixelByPixelWhereImagesShareMemory) {
  constexpr size_t kBytes = 8192;
  IQELMaths& plain = *ModuleUnderTest::ForLevel(CpuLevel::kSse2).maths;
  ForEachRound(kRounds, [&](Rng& rng) {
    std::vector<uint8_t> start(kBytes);
    for (uint8_t& byte : start) byte = static_cast<uint8_t>(rng.OneIn(3) ? 0 : rng.Next());
    const int width = rng.Int(1, 200), height = rng.Int(1, 3), operation = rng.Int(0, 5);
    const int depths[] = {CommonDepth(rng), CommonDepth(rng), CommonDepth(rng)};
    const bool one_depth = rng.OneIn(2);
    int64_t places[4];
    int strides[4];
    for (int i = 0; i < 4; ++i) {
      places[i] = rng.OneIn(2) ? 3000 : 3000 + rng.Int(-80, 80);
      strides[i] = rng.OneIn(2) ? 800 : rng.Int(-800, 800);
    }
    const auto run = [&](IQELMaths& maths) {
      std::vector<uint8_t> memory = start;
      const auto window = [&](int i, int bits) {
        return Window(width, height, bits, memory.data() + places[i], strides[i]);
      };
      Window dest = window(0, depths[0]);
      Window a = window(1, one_depth ? depths[0] : depths[1]);
      Window b = window(2, one_depth ? depths[0] : depths[2]);
      Window mask = window(3, 8);
      if (operation == 0) maths.Copy(&dest, &a, nullptr, 0, 0);
      if (operation == 1) maths.Copy(&dest, &a, &dest, 0, 0);
      if (operation == 2) maths.Subtract(&dest, &a, &b, 1);
      if (operation == 3)
        maths.AddScale(&dest, &a, &b, width % 2 == 0 ? &mask : nullptr, 0.7f, 0.4f, 3);
      if (operation == 4) maths.Scale(&dest, &a, &mask, 0.9f, 5);
      if (operation == 5) maths.Equal(&dest, &mask, 0x112200);
      return memory;
    };
    EXPECT_EQ(run(maths()), run(plain)) << "operation " << operation;
  });
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

/// Expects what `call` makes of an image.
template <typename Call>
void Gives(const char* what, Call call, const SmartPtr<TestImage>& dest, const Bytes& after,
           result_t result = kOk) {
  EXPECT_EQ(call(dest.Get()), result) << what;
  EXPECT_EQ(Content(dest), after) << what;
}

TEST_P(Maths, GivesTheValuesOfRoundExamples) {
  const auto a = RowOf(8, {200, 10, 5, 255}), b = RowOf(8, {100, 10, 10, 254});
  const auto wide = RowOf(24, {255, 255, 254, 1, 1, 0}), words = WordsOf({101, -100, 100000});
  const auto greys = RowOf(8, {5, 100, 200});
  const auto nearly = RowOf(24, {255, 254, 254, 1, 1, 2});
  Raster::NewImageLayout() = {};
  const auto fresh = [] { return RowOf(8, {0, 0, 0, 0}); };
  const auto add = [&](float divisor) {
    return [=, this](auto d) { return maths().Add(d, a.Get(), b.Get(), divisor); };
  };
  const auto paste = [&](IQEL* source, int x) {
    return [=, this](auto d) { return maths().Copy(d, source, nullptr, x, 0); };
  };
  Gives("sum", add(0), fresh(), {255, 20, 15, 255});
  Gives("divided", add(3), fresh(), {100, 6, 5, 169});
  Gives("negative divisor", add(-1), fresh(), {0, 0, 0, 0});
  Gives("overflowing quotient", add(1e-30f), fresh(), {0, 0, 0, 0});
  Gives("difference", [&](auto d) { return maths().Subtract(d, b.Get(), a.Get(), 0); }, fresh(),
        {0, 0, 5, 0});
  Gives(
      "tally", [&](auto d) { return maths().Subtract(d, wide.Get(), nearly.Get(), 1); },
      RowOf(24, Bytes(6)), {0, 1, 0, 0, 0, 2}, 1);
  Gives(
      "clipped samples are not counted",
      [&](auto d) { return maths().Subtract(d, wide.Get(), nearly.Get(), 0); }, RowOf(24, Bytes(6)),
      {0, 1, 0, 0, 0, 0}, 0);
  Gives("half and half",
        [&](auto d) { return maths().AddScale(d, a.Get(), b.Get(), nullptr, 0.5f, 0.5f, 0); },
        fresh(), {150, 10, 7, 254});
  Gives("no number",
        [&](auto d) { return maths().AddScale(d, a.Get(), b.Get(), nullptr, kNan, 0.5f, 0); },
        fresh(), {0, 0, 0, 0});
  Gives("pasted greys", paste(wide.Get(), 0), RowOf(8, Bytes(2)), {254, 0});
  Gives("pasted last column", paste(wide.Get(), 1), RowOf(8, {7, 7}), {7, 254});
  Gives("outside", paste(wide.Get(), 2), RowOf(8, {7, 7}), {7, 7}, kFail);
  Gives("opaque", paste(wide.Get(), 0), RowOf(32, Bytes(4)), {255, 255, 254, 255});
  Gives("scaled", [&](auto d) { return maths().Scale(d, greys.Get(), nullptr, 2, -10); },
        RowOf(8, Bytes(3)), {0, 190, 255});
  Gives(
      "scaled integers", [&](auto d) { return maths().Scale(d, words.Get(), nullptr, 1, 0); },
      WordsOf({9, 9, 9}), Content(WordsOf({101, 0, 100000})));
  Gives("scaled to 8 bits", [&](auto d) { return maths().Scale8(d, words.Get(), 10, 0.5); },
        fresh(), {60, 0, 255});
  Gives(
      "colour is not scaled to 8 bits",
      [&](auto d) { return maths().Scale8(d, wide.Get(), 10, 0.5); }, fresh(), {0, 0, 0, 0},
      kNotMono);
  Gives("16 bits are not filled", [&](auto d) { return maths().Equal(d, nullptr, 0); },
        RowOf(16, {1, 2}), {1, 2});
}

TEST_P(Maths, RefusesNullArguments) {
  const auto image = RowOf(8, {1, 2, 3});
  IQELImage* const i = image.Get();
  IQEL* out = i;
  TestHost::Instance().Reset();
  EXPECT_EQ(maths().CreateDestImage(&out, nullptr, 0, 0), kInvalidArgument);
  EXPECT_EQ(maths().CreateDestImage(nullptr, i, 0, 0), kNullOutput);
  EXPECT_EQ(maths().Equal(nullptr, i, 0), kOk);
  EXPECT_EQ(maths().Scale8(nullptr, i, 0, 1), kFail);
  EXPECT_EQ(maths().Scale8(i, nullptr, 0, 1), kFail);
  for (int null = 0; null < 3; ++null) {
    IQELImage* const dest = null == 0 ? nullptr : i;
    IQELImage* const a = null == 1 ? nullptr : i;
    IQELImage* const b = null == 2 ? nullptr : i;
    EXPECT_EQ(maths().Add(dest, a, b, 0), kFail);
    EXPECT_EQ(maths().Subtract(dest, a, b, 0), kInvalidArgument);
    EXPECT_EQ(maths().AddScale(dest, a, b, nullptr, 1, 1, 0), kFail);
    if (null == 2) continue;
    EXPECT_EQ(maths().Copy(dest, a, nullptr, 0, 0), kFail);
    EXPECT_EQ(maths().Scale(dest, a, nullptr, 1, 0), kFail);
  }
  EXPECT_EQ(TestHost::Instance().calls, 0) << "nothing is touched";
  EXPECT_EQ(out, i);
  TestHost::Instance().refuses_images = true;
  EXPECT_EQ(maths().CreateDestImage(&out, i, 0, 0), kFail);
  EXPECT_EQ(out, nullptr);
}

TEST_P(Maths, KeepsBytesThatAreNotZeroWhenTheMaskIsTheDestination) {
  const auto source = RowOf(24, {1, 2, 3, 4, 5, 6});
  Gives("mask is the destination", [&](auto d) { return maths().Copy(d, source.Get(), d, 0, 0); },
        RowOf(24, {0, 40, 0, 0, 0, 9}), {1, 40, 3, 4, 5, 9});
  Gives("other mask", [&](auto d) { return maths().Copy(d, source.Get(), source.Get(), 0, 0); },
        RowOf(24, {0, 40, 0, 0, 0, 9}), {1, 2, 3, 4, 5, 6});
}

TEST_P(Maths, KeepsFailureOf16BitSources) {
  const auto source = RowOf(16, {0xFF, 0xFF, 0x1F, 0x00}, kModelBgr);
  const auto unnamed = RowOf(16, {0xFF, 0xFF, 0x1F, 0x00}, 0);
  const auto paste = [&](IQEL* from) {
    return [=, this](auto d) { return maths().Copy(d, from, nullptr, 0, 0); };
  };
  Gives("blue first", paste(source.Get()), RowOf(24, Bytes(6)), {248, 252, 248, 248, 0, 0}, kFail);
  Gives("red first", paste(source.Get()), RowOf(24, Bytes(6), 0), {248, 252, 248, 0, 0, 248},
        kFail);
  Gives("other model", paste(source.Get()), RowOf(24, Bytes(6), kModelMono), Bytes(6), kFail);
  Gives("other source", paste(unnamed.Get()), RowOf(24, Bytes(6)), Bytes(6), kFail);
}

TEST_P(Maths, KeepsByteOrdersAndMasksOfFills) {
  const auto mask = RowOf(8, {0, 1});
  const auto fill = [&](IQEL* selection, int value) {
    return [=, this](auto d) { return maths().Equal(d, selection, value); };
  };
  Gives("24 bits, mask ignored", fill(mask.Get(), 0x112233), RowOf(24, Bytes(6)),
        {0x11, 0x22, 0x33, 0x11, 0x22, 0x33});
  Gives("32 bits", fill(mask.Get(), 0x112233), RowOf(32, Bytes(8)),
        {0, 0, 0, 0, 0x33, 0x22, 0x11, 0});
  Gives("8 bits", fill(mask.Get(), 0x1FF), RowOf(8, {7, 7}), {7, 0xFF});
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
  Gives("divisor 2", [&](auto d) { return maths().Add(d, a.Get(), b.Get(), 2); }, RowOf(8, {0, 0}),
        {120, 255});
}

TEST_P(Maths, KeepsAddingThreeBytesPerPixelAt32Bits) {
  const auto a = RowOf(32, {1, 2, 3, 4, 5, 6, 7, 8});
  Raster::NewImageLayout() = {};
  Gives("packed", [&](auto d) { return maths().Add(d, a.Get(), a.Get(), 0); }, RowOf(32, Bytes(8)),
        {2, 4, 6, 8, 10, 12, 0xCD, 0xCD});
}

TEST_P(Maths, KeepsAnyFlagAbsoluteBelow32Bits) {
  const auto five = RowOf(8, {5}), ten = RowOf(8, {10});
  const auto colour5 = RowOf(24, {5, 5, 5}), colour10 = RowOf(24, {10, 10, 10});
  const auto deep5 = RowOf(32, {5, 5, 5, 1}), deep10 = RowOf(32, {10, 10, 10, 9});
  const auto subtract = [&](IQEL* a, IQEL* b, int flags) {
    return [=, this](auto d) { return maths().Subtract(d, a, b, flags); };
  };
  const auto deep = [&](int flags) { return subtract(deep5.Get(), deep10.Get(), flags); };
  Gives("8 bits", subtract(five.Get(), ten.Get(), 2), RowOf(8, {0}), {5});
  Gives("24 bits", subtract(colour5.Get(), colour10.Get(), 2), RowOf(24, Bytes(3)), {5, 5, 5}, 3);
  Gives("32 bits, bit 1", deep(2), RowOf(32, Bytes(4)), {0, 0, 0, 0});
  Gives("32 bits, bit 0", deep(1), RowOf(32, Bytes(4)), {5, 5, 5, 255}, 3);
}

TEST_P(Maths, KeepsFailureOfMaskedMixedDepths) {
  const auto a = RowOf(24, {10, 20, 30}), b = RowOf(32, {1, 2, 3, 4}), mask = RowOf(8, {1});
  const auto mix = [&](IQEL* selection) {
    return [=, &a, &b, this](auto d) {
      return maths().AddScale(d, a.Get(), b.Get(), selection, 1, 1, 0);
    };
  };
  Gives("no mask", mix(nullptr), RowOf(32, {9, 9, 9, 9}), {11, 22, 33, 9});
  Gives("mask", mix(mask.Get()), RowOf(32, {9, 9, 9, 9}), {11, 22, 33, 9}, kFail);
}

TEST_P(Maths, KeepsWrappingAt32BitsAndOnePixelPerRow) {
  const auto deep = RowOf(32, {200, 1, 2, 100}), colour = RowOf(24, {200, 1, 2, 4, 5, 6});
  const auto twice = [&](const SmartPtr<TestImage>& source) {
    return [this, from = source.Get()](auto d) { return maths().Scale(d, from, nullptr, 2, 0); };
  };
  Gives("32 bits", twice(deep), RowOf(32, Bytes(4)), {144, 2, 4, 200});
  Gives("32 to 24 bits", twice(deep), RowOf(24, Bytes(3)), {255, 2, 4});
  Gives("24 to 32 bits", twice(colour), RowOf(32, Bytes(8, 9)), {144, 2, 4, 9, 9, 9, 9, 9});
}

TEST_P(Maths, KeepsReadingGreysAsIntegers) {
  const auto source = RowOf(8, {1, 1, 0, 0, 0xFE, 0xFF, 0xFF, 0xFF});
  source->raster.width = 2;
  Gives(
      "integers", [&](auto d) { return maths().Scale(d, source.Get(), nullptr, 1, 0); },
      WordsOf({9, 9}), Content(WordsOf({257, 0})));
}

TEST_P(Maths, KeepsEightBitSourcesOfScale8Uncopied) {
  const auto source = RowOf(8, {1, 2});
  Gives("8 bits", [&](auto d) { return maths().Scale8(d, source.Get(), 0, 1); },
        RowOf(24, {1, 2, 3}), {0xCD, 0xCD});
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
