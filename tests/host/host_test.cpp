#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <thread>

#include "host/host_collection.h"
#include "host/host_image.h"
#include "host/module_library.h"
#include "qel/color_transform.h"
#include "tests/support/build_paths.h"
#include "tests/support/module_under_test.h"

namespace qel::host {
namespace {

using test::CallSlot;

constexpr int kBig = std::numeric_limits<int>::max();

/// Width, height, planes, bit count and model, as an image tells them through its slots.
using Shape = std::array<int64_t, 5>;
constexpr Shape kEmpty{};

Shape ShapeOf(void* image) {
  int width = -1, height = -1, planes = -1, bit_count = -1, reserved = -1;
  uint32_t model = 0;
  EXPECT_EQ(CallSlot(image, 3, &width, &height, &planes), kOk);
  EXPECT_EQ(CallSlot(image, 4, &bit_count, &model, &reserved), kOk);
  EXPECT_EQ(reserved, 0);
  return {width, height, planes, bit_count, model};
}

bool IsFilled(const uint8_t* bytes, int64_t count, uint8_t value) {
  return std::all_of(bytes, bytes + count, [=](uint8_t byte) { return byte == value; });
}

struct LayoutCase {
  ImageOptions options;
  int width, height, planes, bit_count;
  uint32_t model;
  int stride;
};

TEST(HostImage, LaysRowsOutInZeroedGuardZones) {
  const LayoutCase cases[] = {
      {{}, 100, 5, 1, 24, kModelBgr, 320},
      {{}, 64, 3, 1, 8, kModelMono, 64},
      {{}, 65, 3, 2, 8, kModelMono, 128},
      {{.alignment = 1}, 13, 4, 1, 1, 0, 2},
      {{.alignment = 4, .padding = 7}, 9, 2, 3, 4, 0, 12},
      {{.bottom_up = true}, 20, 6, 2, 32, kModelAbgr, -128},
      {{.alignment = 1, .padding = 3, .bottom_up = true}, 5, 3, 1, 25, 7, -19},
      {{.alignment = 0, .padding = -5}, 3, 3, 0, 64, 0, 24},
      {{.clear = true, .clear_byte = 0xCD}, 2000, 3, 2, 1, 0, 256},
  };
  for (int i = 0; i < 2 * static_cast<int>(std::size(cases)); ++i) {
    const LayoutCase& c = cases[i / 2];  // twice: the second image gets the memory of the first
    SCOPED_TRACE(testing::Message() << c.width << " x " << c.bit_count << " bits");
    const auto image = HostImage::Make(c.options);
    ASSERT_EQ(CallSlot(image.Get(), 6, c.width, c.height, c.planes, c.bit_count, c.model), kOk);
    EXPECT_EQ(ShapeOf(image.Get()), (Shape{c.width, c.height, c.planes, c.bit_count, c.model}));

    const int planes = std::max(c.planes, 1);
    const int64_t rows = int64_t{c.height} * std::abs(c.stride);
    const int64_t guard = c.bit_count < 8 ? std::max(64, c.width) : 64;
    std::vector<uint8_t*> lowest;
    uint8_t* bits = nullptr;
    int reserved = -1, stride = 0;
    for (int plane = 0; plane < planes; ++plane) {
      ASSERT_EQ(CallSlot(image.Get(), 5, plane, &reserved, &bits, &stride), kOk);
      EXPECT_EQ(stride, c.stride);
      lowest.push_back(stride < 0 ? bits + (c.height - 1) * stride : bits);
      EXPECT_EQ(reinterpret_cast<uintptr_t>(lowest.back()) % 64, 0u);
      EXPECT_TRUE(!c.options.clear || IsFilled(lowest.back(), rows, c.options.clear_byte));
      std::memset(lowest.back(), plane + 1, static_cast<size_t>(rows));
    }
    for (int plane = 0; plane < planes; ++plane) {
      EXPECT_TRUE(IsFilled(lowest[plane], rows, static_cast<uint8_t>(plane + 1)));
      EXPECT_TRUE(IsFilled(lowest[plane] - guard, guard, 0));
      EXPECT_TRUE(IsFilled(lowest[plane] + rows, guard, 0));
      std::memset(lowest[plane] - guard, 0xEE, static_cast<size_t>(rows + 2 * guard));
    }
    for (const int plane : {-1, planes}) {
      bits = lowest[0];
      EXPECT_EQ(CallSlot(image.Get(), 5, plane, &reserved, &bits, &stride), kInvalidArgument);
      EXPECT_EQ(bits, nullptr);
    }
  }
}

TEST(HostImage, RejectsAbsurdShapesAndIsEmptyThen) {
  const int shapes[][4] = {{8, 8, 1, 0},         {8, 8, 1, -8},      {8, 8, 1, 65},
                           {8, 8, 65, 8},        {kBig, 1, 1, 64},   {kBig, 1, 1, 8},
                           {kBig, kBig, 1, 32},  {1, kBig, kBig, 1}, {100000, 1 << 20, 1, 32},
                           {60000, 60000, 8, 24}};
  const auto image = HostImage::Make();
  for (const auto& [width, height, planes, bit_count] : shapes) {
    ASSERT_EQ(image->Create(4, 4, 1, 8, kModelMono), kOk);
    EXPECT_TRUE(Failed(image->Create(width, height, planes, bit_count, 0))) << width;
    EXPECT_EQ(ShapeOf(image.Get()), kEmpty);
    EXPECT_EQ(image->Bits(), nullptr);
  }
  EXPECT_EQ(image->Create(-3, 7, -1, 24, kModelBgr), kOk);
  EXPECT_EQ(ShapeOf(image.Get()), (Shape{0, 7, 0, 24, kModelBgr}));
  EXPECT_EQ(image->Bits(), nullptr);
  EXPECT_EQ(image->Fill(1), kOk);
  EXPECT_FALSE(HostImage::Make(4, 4, 99, 0));
}

TEST(HostImage, AssignsFromAnyImage) {
  reference::Rng rng(5);
  for (const bool bottom_up : {false, true}) {
    for (const int bit_count : {1, 4, 8, 24, 32, 40}) {
      test::Raster raster(rng, 21, 6, bit_count, 77, {.padding = 5, .bottom_up = !bottom_up}, 3);
      raster.palette = {{1, 2, 3, 0}, {4, 5, 6, 0}};
      const auto source = test::TestImage::Make(raster);
      const auto image = HostImage::Make(
          {.padding = 1, .bottom_up = bottom_up, .clear = true, .clear_byte = 0xCD});
      ASSERT_EQ(CallSlot(image.Get(), 8, static_cast<IQEL*>(source.Get()), 0), kOk);
      ASSERT_EQ(image->Assign(image.Get(), 0), kOk);
      EXPECT_EQ(image->Assign(nullptr, 0), kFail);
      EXPECT_EQ(image->model(), 77u);
      ASSERT_EQ(image->planes(), 3);
      for (int plane = 0; plane < 3; ++plane) {
        for (int y = 0; y < 6; ++y) {
          const int64_t bytes = raster.RowBytes();
          EXPECT_EQ(std::memcmp(image->Row(y, plane), raster.Row(y, plane), bytes), 0);
          EXPECT_EQ(image->Row(y, plane)[bytes], 0xCD) << "padding";
        }
      }
      ASSERT_EQ(image->palette().size(), 2u);
      EXPECT_EQ(image->palette()[1].green, 5);
      EXPECT_EQ(source->references(), 1u);
    }
  }
}

TEST(HostImage, FillsEveryPixelOfEveryPlane) {
  const struct {
    int bit_count;
    uint32_t color;
    std::vector<uint8_t> row;  // of 2 pixels, and one byte of padding
  } cases[] = {
      {1, 0xFFFFFF01, {0xFF, 0xCD}},
      {1, 0xFFFFFF02, {0x00, 0xCD}},
      {4, 0x12345678, {0x88, 0xCD}},
      {8, 0x12345678, {0x78, 0x78, 0xCD}},
      {24, 0x12345678, {0x78, 0x56, 0x34, 0x78, 0x56, 0x34, 0xCD}},
      {32, 0x12345678, {0x78, 0x56, 0x34, 0x12, 0x78, 0x56, 0x34, 0x12, 0xCD}},
  };
  for (const auto& c : cases) {
    const auto image =
        HostImage::Make({.alignment = 1, .padding = 1, .clear = true, .clear_byte = 0xCD});
    ASSERT_EQ(image->Create(2, 3, 2, c.bit_count, 0), kOk);
    ASSERT_EQ(CallSlot(image.Get(), 9, c.color), kOk);
    for (int i = 0; i < 6; ++i) {
      const uint8_t* const row = image->Row(i % 3, i / 3);
      EXPECT_EQ(std::vector<uint8_t>(row, row + c.row.size()), c.row) << c.bit_count << " bits";
    }
  }
}

TEST(HostImage, AnswersThePaletteWhileItHasOne) {
  const auto image = HostImage::Make(4, 4, 8, kModelMono);
  IQELImageDIB* const dib = image.Get();
  EXPECT_FALSE(QueryFor<IQELImagePalette>(dib));
  image->SetPalette(std::vector<RGBQUAD>(3, RGBQUAD{10, 20, 30, 0}));
  {
    const auto palette = QueryFor<IQELImagePalette>(dib);
    ASSERT_TRUE(palette);
    EXPECT_EQ(image->AddRef(), 3u);
    EXPECT_EQ(palette->Release(), 2u);
    RGBQUAD* entries = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(CallSlot(palette.Get(), 4, &entries, &count), kOk);
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(entries[2].red, 30);
    EXPECT_TRUE(IsFilled(&entries[3].blue, 253 * 4, 0));
    EXPECT_EQ(QueryFor<IQELImageDIB>(palette.Get()).Get(), dib);
  }
  ASSERT_EQ(image->Create(4, 4, 1, 8, kModelMono), kOk);
  EXPECT_FALSE(QueryFor<IQELImagePalette>(dib));
}

TEST(HostImage, RecyclesMemoryBetweenImagesAndThreads) {
  const uint8_t* const first = HostImage::Make(300, 300, 32, kModelArgb)->Bits();
  const auto second = HostImage::Make(300, 300, 32, kModelArgb);
  EXPECT_EQ(second->Bits(), first);
  EXPECT_NE(HostImage::Make(300, 300, 32, kModelArgb)->Bits(), first);

  std::vector<std::thread> threads;
  for (unsigned thread = 1; thread <= 4; ++thread) {
    threads.emplace_back([thread] {
      for (int i = 0; i < 200; ++i) {
        const auto image = HostImage::Make(40 + i % 50, 30, 32, kModelArgb);
        image->Fill(thread * 0x01010101u);
        const int64_t bytes = image->RowBytes() - 1;
        EXPECT_TRUE(IsFilled(image->Row(29), bytes, static_cast<uint8_t>(thread)));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(HostImage, KeepsTheMemoryOfASmallerSizeThatIsAskedForAgain) {
  const auto make = [](int height) { return HostImage::Make(1000, height, 32, kModelArgb); };
  const auto large = make(1000), other = make(1000);
  make(800)->Fill(0x01020304);
  EXPECT_TRUE(IsFilled(make(800)->Row(400) + 8, 1, 4));
}

tagREFString Text(std::wstring_view text) { return {text.size(), text.data()}; }

SmartPtr<ICreatableString> Spell(SmartPtr<ICreatableString> string, std::wstring_view text) {
  for (const wchar_t& character : text) {
    EXPECT_EQ(CallSlot(string.Get(), 5, 1, &character), kOk);
  }
  return string;
}

/// `CreateComponent`, by its slot.
template <typename Interface>
SmartPtr<Interface> Component(const SmartPtr<HostCollection>& collection, std::wstring_view name,
                              result_t expected = kOk, const IID* iid = kIidOf<Interface>) {
  SmartPtr<Interface> object;
  EXPECT_EQ(CallSlot(collection.Get(), 16, Text(name), iid, object.PutVoid()), expected);
  EXPECT_EQ(static_cast<bool>(object), expected == kOk);
  return object;
}

/// Finds a component by a string object and makes an instance through its locator, by slots.
SmartPtr<IQELImageDIB> MakeByName(IComponentCollection* collection, IString* name) {
  int index = -1;
  SmartPtr<IUnknown> item;
  SmartPtr<IQELImageDIB> image;
  EXPECT_EQ(CallSlot(collection, 5, name, &index), kOk);
  EXPECT_EQ(CallSlot(collection, 4, index, item.Put()), kOk);
  const auto locator = QueryFor<IComponentString>(item.Get());
  if (locator) CallSlot(locator.Get(), 5, &IID_IQELImageDIB, image.PutVoid());
  return image;
}

// What every host must do, the checker's rules ask of the collection in the shipped library.
TEST(HostCollection, MakesWhatItIsToldTo) {
  const auto collection = HostCollection::MakeWithImages({.padding = 100});
  const auto image = Component<IQELImage>(collection, L"QELImageDIB");
  ASSERT_EQ(image->Create(8, 1, 1, 8, kModelMono), kOk);
  EXPECT_EQ(static_cast<HostImage*>(image.Get())->stride(), 128);
  const auto itself = Component<IComponentCollection>(collection, kCollectionComponentName);
  EXPECT_EQ(itself.Get(), collection.Get());
  Component<IComponentString>(collection, L"QELImage", kFail, nullptr);
  Component<IString>(collection, L"QELImageDIB", kNoInterface);
  EXPECT_EQ(collection->CreateComponent(Text(kStringComponentName), nullptr, nullptr), kNullOutput);
  for (const int index : {-1, 4, kBig}) {
    SmartPtr<IUnknown> item;
    EXPECT_TRUE(Failed(collection->GetItem(index, item.Put())));
    EXPECT_FALSE(item);
  }
  collection->Offer(kImageComponentName, nullptr);
  Component<IQELImage>(collection, L"QELImageDIB", kFail);
  collection->Offer(kImageComponentName, [](const IID&, void**) -> result_t { throw 42; });
  EXPECT_THROW(Component<IQELImage>(collection, L"QELImageDIB"), int);
}

/// Runs with the build folder as working directory, where the modules are found.
class ModulesTest : public testing::Test {
 protected:
  void SetUp() override { std::filesystem::current_path(test::BuildFolder()); }
  void TearDown() override { std::filesystem::current_path(before_); }

  static std::string LoadError(const std::string& path) {
    try {
      const ModuleLibrary library(path);
    } catch (const ModuleError& error) {
      return error.what();
    }
    return {};
  }

 private:
  const std::filesystem::path before_ = std::filesystem::current_path();
};

TEST_F(ModulesTest, TellsWhichStepOfLoadingFailed) {
  Dl_info mathematics{};
  ASSERT_NE(
      dladdr(reinterpret_cast<void*>(static_cast<double (*)(double)>(&std::cbrt)), &mathematics),
      0);
  EXPECT_NE(LoadError("missing.so").find("no module file missing.so"), std::string::npos);
  EXPECT_NE(LoadError("CMakeCache.txt").find("cannot load"), std::string::npos);
  EXPECT_NE(LoadError(mathematics.dli_fname).find("does not export InitializeModule"),
            std::string::npos);

  const ModuleLibrary library("_binLIN64/Collections.so");
  EXPECT_THROW(library.Create<IString>(Text(L"Nothing")), ModuleError);
  EXPECT_THROW(library.Create<IQEL>(RefString(kStringComponentName)), ModuleError);
}

TEST_F(ModulesTest, GivesTheCollectionBackAndUnloads) {
  const auto collection = HostCollection::MakeWithImages();
  const std::string path = "./_binLIN64/QELMaths.so";
  {
    ModuleLibrary library(path);
    library.Initialize(collection.Get());
    const ModuleLibrary moved(std::move(library));
    EXPECT_TRUE(moved.Create<IQELColorTransform>(RefString(kColorTransformName)));
    EXPECT_EQ(collection->AddRef(), 3u);
    EXPECT_EQ(collection->Release(), 2u);
  }
  EXPECT_EQ(collection->AddRef(), 2u);
  EXPECT_EQ(collection->Release(), 1u);
  EXPECT_EQ(dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr);
}

TEST_F(ModulesTest, SiblingsShareTheCollectionHandedOver) {
  const ModuleLibrary library("_binLIN64/CollectionsEx.so");
  const auto get = [&] {
    return library.Create<IComponentCollection>(RefString(kCollectionComponentName));
  };
  const auto own = get();
  EXPECT_EQ(get().Get(), own.Get());
  const auto given = HostCollection::MakeWithImages();
  library.Initialize(given.Get());
  EXPECT_EQ(get().Get(), static_cast<IComponentCollection*>(given.Get()));
  const auto locator = library.Create<IComponentString>(RefString(kLocatorComponentName));
  EXPECT_EQ(given->AddRef(), 4u) << "held by the module and the locator";
  EXPECT_EQ(given->Release(), 3u);
  library.Initialize(nullptr);
  EXPECT_EQ(get().Get(), own.Get());
}

// The way of a program that never hands a collection over.
TEST_F(ModulesTest, MakesImagesThroughSiblingsAlone) {
  const ModuleLibrary library("_binLIN64/CollectionsEx.so");
  const auto locator = library.Create<IComponentString>(RefString(kLocatorComponentName));
  SmartPtr<ICreatableString> string;
  EXPECT_TRUE(Failed(CallSlot(locator.Get(), 5, &IID_ICreatableString, string.PutVoid())));
  ASSERT_EQ(CallSlot(locator.Get(), 6, 4, Text(L"Missing")), kOk);
  ASSERT_EQ(CallSlot(locator.Get(), 6, 1, Text(kStringComponentName)), kOk);
  EXPECT_TRUE(Failed(CallSlot(locator.Get(), 5, &IID_ICreatableString, string.PutVoid())));
  ASSERT_EQ(CallSlot(locator.Get(), 6, 4, Text(L"Collections")), kOk);
  EXPECT_EQ(CallSlot(locator.Get(), 6, 2, Text(L"Other")), kInvalidArgument);
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(CallSlot(locator.Get(), 5, &IID_ICreatableString, string.PutVoid()), kOk);
    const auto collection =
        library.Create<IComponentCollection>(RefString(kCollectionComponentName));
    EXPECT_TRUE(MakeByName(collection.Get(), Spell(string, L"QELImageDIB").Get()));
  }

  const ModuleLibrary module("_binLIN64/QELMaths.so");
  const auto image = HostImage::Make(16, 16, 24, kModelBgr);
  image->Fill(0x00102030);
  const auto color = module.Create<IQELColorTransform>(RefString(kColorTransformName));
  EXPECT_EQ(color->GrayScale(image.Get()), kOk);
  EXPECT_EQ(image->Row(3)[7], 0x20);
}

}  // namespace
}  // namespace qel::host
