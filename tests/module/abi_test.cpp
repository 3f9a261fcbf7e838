#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "color/color_transform.h"
#include "filter/filter_transform.h"
#include "maths/maths.h"
#include "tests/support/module_under_test.h"
#include "transform/image_deform.h"
#include "transform/image_transform.h"

namespace qel::test {
namespace {

/// The shipped module file, loaded by each test and gone after it.
class Abi : public testing::Test {
 protected:
  void SetUp() override {
    TestHost::Instance().Reset();
    library_ = dlopen(QEL_MODULE, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library_, nullptr) << dlerror();
    initialize_ = reinterpret_cast<InitializeModuleFunction>(dlsym(library_, "InitializeModule"));
    find_ = reinterpret_cast<CreateFunctionFunction>(dlsym(library_, "CreateFunction"));
  }
  void TearDown() override { Unload(); }
  void Unload() {
    if (library_ != nullptr) dlclose(library_);
    library_ = nullptr;
  }

  CreationFunction Find(tagREFString name) const {
    CreationFunction function = nullptr;
    find_(name, &function);
    return function;
  }
  template <typename Interface>
  SmartPtr<Interface> Create(tagREFString name) const {
    SmartPtr<Interface> object;
    Find(name)(nullptr, kIidOf<Interface>, object.PutVoid());
    return object;
  }

  void* library_ = nullptr;
  InitializeModuleFunction initialize_ = nullptr;
  CreateFunctionFunction find_ = nullptr;
};

struct Component {
  const wchar_t* name;
  uint64_t length;
  const char* interface_name;
};
constexpr Component kComponents[] = {{L"QELFilterTransform", 18, "IQELFilterTransform"},
                                     {L"QELDeform", 9, "IQELDeform"},
                                     {L"QELTransform", 12, "IQELTransform"},
                                     {L"QELMaths", 8, "IQELMaths"},
                                     {L"QELColorTransform", 17, "IQELColorTransform"}};

TEST_F(Abi, FindsComponentsByTheirExactNameOnly) {
  const auto unwritten = reinterpret_cast<CreationFunction>(&find_);
  const auto finds = [&](const wchar_t* text, uint64_t length) {
    CreationFunction function = unwritten;
    const result_t result = find_({length, text}, &function);
    EXPECT_EQ(function != unwritten, result == kOk) << "written on success only";
    EXPECT_TRUE(result == kOk || result == kFail);
    return result == kOk;
  };
  for (const Component& component : kComponents) {
    std::wstring name = component.name;
    name += L"X";  // what follows a counted text is not looked at
    const wchar_t* const text = name.c_str();
    EXPECT_TRUE(finds(text, component.length)) << component.interface_name;
    EXPECT_TRUE(finds(text, component.length | uint64_t{7} << 32)) << "low 32 bits count";
    EXPECT_FALSE(finds(text, component.length - 1));
    EXPECT_FALSE(finds(text, component.length + 1));
    name[3] = static_cast<wchar_t>(name[3] + 32);
    EXPECT_FALSE(finds(text, component.length)) << "lower case";
  }
  EXPECT_FALSE(finds(L"", 0));
  EXPECT_FALSE(finds(nullptr, 0));
  EXPECT_FALSE(finds(nullptr, 0xFFFFFFFFu)) << "a negative length has no characters";
}

// The object by position: 32 bytes, primary table at 0, count at 8, IObjectInfo at 16, own at 24.
TEST_F(Abi, LaysObjectsOutAndAnswersFromEveryInterface) {
  for (const Component& component : kComponents) {
    SCOPED_TRACE(component.interface_name);
    const CreationFunction create = Find({component.length, component.name});
    const IID own = __IIDOfc(component.interface_name);
    const struct {
      IID iid;
      size_t offset;
    } answers[] = {{IID_IUnknown, 0}, {IID_IObjectInfo, 16}, {own, 24}};
    for (const auto& [created_as, created_offset] : answers) {
      uint8_t* pointer = nullptr;
      ASSERT_EQ(create(nullptr, &created_as, reinterpret_cast<void**>(&pointer)), kOk);
      uint8_t* const object = pointer - created_offset;
      const auto count = [&] {
        uint32_t value;
        std::memcpy(&value, object + 8, sizeof(value));
        return value;
      };
      EXPECT_EQ(count(), 1u);
      for (const auto& [through, through_offset] : answers) {
        auto* const unknown = reinterpret_cast<IUnknown*>(object + through_offset);
        EXPECT_EQ(unknown->AddRef(), 2u);
        EXPECT_EQ(unknown->Release(), 1u);
        for (const auto& [wanted, wanted_offset] : answers) {
          void* found = nullptr;
          EXPECT_EQ(CallSlot(unknown, 0, &wanted, &found), kOk);
          EXPECT_EQ(found, object + wanted_offset);
          EXPECT_EQ(count(), 2u);
          unknown->Release();
        }
        for (const Component& other : kComponents) {
          if (other.name == component.name) continue;
          void* found = object;
          EXPECT_EQ(unknown->QueryInterface(__IIDOfc(other.interface_name), &found), kNoInterface);
          EXPECT_EQ(found, nullptr);
        }
      }
      for (const int index : {0, -1, 77}) {
        tagREFString name{};
        EXPECT_EQ(CallSlot(object + 16, 3, index, &name), kOk);
        EXPECT_EQ(std::wstring(name.text, name.length), component.name);
      }
      EXPECT_EQ(CallSlot(object, 3), kOk) << "the first hook";
      for (const size_t hook : {4, 5, 6}) CallSlot(object, hook);
      EXPECT_EQ(CallSlot(pointer, 2), 0) << "the last reference";
    }
    for (const IID& unknown : {IID_NULL, IID_IQEL}) {
      void* object = this;
      EXPECT_EQ(create(nullptr, &unknown, &object), kNoInterface);
      EXPECT_EQ(object, nullptr);
    }
  }
}

/// Expects virtual functions, given in order, to stand in consecutive slots from `first`.
template <typename... Methods>
void ExpectSlots(size_t first, Methods... methods) {
  const auto slot_of = [](auto method) {
    static_assert(sizeof(method) == 16);
    uintptr_t parts[2];  // 1 + the offset in the table, and the offset of the table
    std::memcpy(parts, &method, sizeof(parts));
    EXPECT_EQ(parts[1], 0u);
    return (parts[0] - 1) / sizeof(void*);
  };
  const size_t slots[] = {slot_of(methods)...};
  for (size_t i = 0; i < std::size(slots); ++i) EXPECT_EQ(slots[i], first + i);
}

template <typename T>
void ExpectColorOrder(size_t first) {
  ExpectSlots(first, &T::Colorize, &T::Lut, &T::Negative, &T::GrayScale, &T::ShiftRGB, &T::Gamma,
              &T::Light, &T::SetImageAlpha, &T::SetImageAlphaTransparency,
              &T::SetImageTransparentPixel, &T::Threshold);
}
template <typename T>
void ExpectTransformOrder(size_t first) {
  ExpectSlots(first, &T::Flip, &T::Mirror, &T::Rotate, &T::Skew, &T::Resample, &T::IncreaseBpp,
              &T::RotatePaste, &T::FlipBits, &T::Quad, &T::Transform, &T::TransformPaste,
              &T::FlipImageAndBits);
}
template <typename T>
void ExpectMathsOrder(size_t first) {
  ExpectSlots(first, &T::Equal, &T::Copy, &T::AddScale, &T::Scale, &T::Subtract,
              &T::CreateDestImage, &T::Add, &T::Scale8);
}

// Interfaces begin with the three slots of IUnknown, class tables with four hooks more.
TEST(AbiSlots, StandInTheBindingOrder) {
  ExpectSlots(0, &IUnknown::QueryInterface, &IUnknown::AddRef, &IUnknown::Release);
  ExpectSlots(3, &IObjectInfo::GetName);
  ExpectColorOrder<IQELColorTransform>(3);
  ExpectColorOrder<CQELColorTransform>(7);
  ExpectSlots(3, &IQELDeform::CircleTransform);
  ExpectSlots(7, &CQELImageDeform::CircleTransform);
  ExpectTransformOrder<IQELTransform>(3);
  ExpectTransformOrder<CQELImageTransform>(7);
  ExpectMathsOrder<IQELMaths>(3);
  ExpectMathsOrder<CQELMaths>(7);
  using F = IQELFilterTransform;
  ExpectSlots(3, &F::Erode, &F::Edge, &F::Dilate, &F::Filter, &F::Contour, &F::Jitter, &F::Noise,
              &F::Median, &F::Emboss, &F::Blur, &F::Soften, &F::Sharpen, &F::GaussianBlur);
  using C = CQELFilterTransform;
  ExpectSlots(7, &C::GaussianBlur, &C::Sharpen, &C::Soften, &C::Blur, &C::Emboss, &C::Median,
              &C::Noise, &C::Jitter, &C::Contour, &C::Filter, &C::Dilate, &C::Edge, &C::Erode,
              &C::Kernel);
}

TEST(AbiSlots, OfTheHostStandWhereModulesCallThem) {
  ExpectSlots(4, &IComponentCollection::GetItem, &IComponentCollection::FindItem);
  ExpectSlots(16, &IComponentCollection::CreateComponent);
  ExpectSlots(5, &IComponentString::CreateInstance, &IComponentString::SetPart);
  ExpectSlots(5, &ICreatableString::AppendChars);
  ExpectSlots(3, &IQEL::GetSize, &IQEL::GetFormat, &IQEL::GetBits, &IQEL::Create);
  ExpectSlots(8, &IQELImage::Assign);
  ExpectSlots(9, &IQELImageDIB::Fill);
  ExpectSlots(4, &IQELImagePalette::GetPalette);
  ExpectSlots(3, &ITransform::TransformPoint);
}

// The tables of the module file itself: one operation by both of its tables.
TEST_F(Abi, CallsOperationsThroughBothTables) {
  const auto own = Create<IQELColorTransform>(RefString(kColorTransformName));
  Rng rng(1);
  const auto image = TestImage::Make(Raster(rng, 1, 1, 8, kModelMono, {}));
  uint8_t& pixel = *image->raster.Row(0);
  uint8_t table[256] = {};
  const auto primary = QueryFor<IUnknown>(own.Get());
  for (const auto& [object, first] : {std::pair<void*, size_t>(own.Get(), 3), {primary.Get(), 7}}) {
    IQEL* const argument = image.Get();
    pixel = 100;
    EXPECT_EQ(CallSlot(object, first + 2, argument), kOk);
    EXPECT_EQ(pixel, 155) << "Negative";
    EXPECT_EQ(CallSlot(object, first + 4, argument, 5, 5, 5), kOk);
    EXPECT_EQ(pixel, 160) << "ShiftRGB";
    EXPECT_EQ(CallSlot(object, first + 6, argument, 10, 0), kOk);
    EXPECT_EQ(pixel, 170) << "Light";
    EXPECT_EQ(CallSlot(object, first + 1, argument, &table[0]), kOk);
    EXPECT_EQ(pixel, 0) << "Lut";
  }
}

/// The primary table of an object, replaced by a copy in which one slot counts its calls.
class CountedSlot {
 public:
  static constexpr result_t kCode = static_cast<result_t>(0x80045678u);

  CountedSlot(IUnknown* object, size_t slot)
      : object_(QueryFor<IUnknown>(object)),
        table_(*reinterpret_cast<void***>(object_.Get())),
        copy_(table_ - kTypeSlots, table_ + slot + 1) {
    calls = 0;
    copy_[kTypeSlots + slot] = reinterpret_cast<void*>(&Count);
    *reinterpret_cast<void***>(object_.Get()) = copy_.data() + kTypeSlots;
  }
  ~CountedSlot() { *reinterpret_cast<void***>(object_.Get()) = table_; }

  static int calls;

 private:
  static constexpr size_t kTypeSlots = 2;  // what describes the type stands before the first slot
  static result_t Count(void* /*object*/) {
    ++calls;
    return kCode;
  }

  SmartPtr<IUnknown> object_;
  void** table_;
  std::vector<void*> copy_;
};
int CountedSlot::calls = 0;

// Whoever replaces an operation in the table of an object changes those that build on it as well.
TEST_F(Abi, OperationsCallEachOtherThroughTheTable) {
  initialize_(nullptr, TestHost::Instance().collection());
  Rng rng(1);
  const auto image = TestImage::Make(Raster(rng, 9, 9, 24, kModelBgr, {}));
  IQEL* const i = image.Get();
  SmartPtr<IQEL> out;
  const auto color = Create<IQELColorTransform>(RefString(kColorTransformName));
  const auto transform = Create<IQELTransform>(RefString(kTransformName));
  const auto filter = Create<IQELFilterTransform>(RefString(kFilterTransformName));
  struct Stay final : ITransform {
    result_t QueryInterface(const IID&, void**) override { return kNoInterface; }
    uint32_t AddRef() override { return 1; }
    uint32_t Release() override { return 1; }
    result_t TransformPoint(double*, double*, double*) override { return kOk; }
  } stay;
  constexpr size_t kLut = 8, kGrayScale = 10, kRotate4 = 19, kFillVoids = 20, kFilter = 16;
  constexpr result_t kPassedOn = CountedSlot::kCode;
  const struct {
    const char* caller;
    IUnknown* object;
    size_t callee;
    result_t code;
    std::function<result_t()> call;
  } cases[] = {
      {"Light", color.Get(), kLut, kPassedOn, [&] { return color->Light(i, 9, 9); }},
      {"Gamma", color.Get(), kLut, kPassedOn, [&] { return color->Gamma(i, 2); }},
      {"Threshold", color.Get(), kGrayScale, kOk, [&] { return color->Threshold(i, 9); }},
      {"Rotate", transform.Get(), kRotate4, kPassedOn,
       [&] { return transform->Rotate(i, out.Put(), 90, 0, 0, 0); }},
      {"TransformPaste", transform.Get(), kFillVoids, kOk,
       [&] { return transform->TransformPaste(&stay, i, i, 0, 0, 1, 0); }},
      {"Emboss", filter.Get(), kFilter, kPassedOn, [&] { return filter->Emboss(i, out.Put()); }},
      {"Blur", filter.Get(), kFilter, kPassedOn, [&] { return filter->Blur(i, out.Put()); }},
      {"Soften", filter.Get(), kFilter, kPassedOn, [&] { return filter->Soften(i, out.Put()); }},
      {"Sharpen", filter.Get(), kFilter, kPassedOn, [&] { return filter->Sharpen(i, out.Put()); }},
      {"GaussianBlur", filter.Get(), kFilter, kPassedOn,
       [&] { return filter->GaussianBlur(i, 1, out.Put()); }},
  };
  for (const auto& c : cases) {
    const CountedSlot slot(c.object, c.callee);
    EXPECT_EQ(c.call(), c.code) << c.caller;
    EXPECT_EQ(CountedSlot::calls, 1) << c.caller;
  }
}

TEST_F(Abi, HoldsOneReferenceToTheCollectionAndGivesItBack) {
  IComponentCollection* const collection = TestHost::Instance().collection();
  const auto references = [&] {
    collection->AddRef();
    return collection->Release();
  };
  const uint32_t before = references();
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(initialize_(nullptr, collection), kOk);
    EXPECT_EQ(references(), before + 1);
  }
  EXPECT_EQ(initialize_(this, nullptr), kOk);
  EXPECT_EQ(references(), before);
  EXPECT_EQ(initialize_(nullptr, nullptr), kOk);
}

// Images made on both roads leave the module with the locators it looked up; unloading gives all
// of them back.
TEST_F(Abi, UnloadsCompletely) {
  TestHost& host = TestHost::Instance();
  IComponentCollection* const collection = host.collection();
  collection->AddRef();
  const uint32_t before = collection->Release();
  const int live = host.live_objects;
  initialize_(nullptr, collection);
  {
    Rng rng(1);
    const auto image = TestImage::Make(Raster(rng, 2, 2, 24, kModelBgr, {}));
    SmartPtr<IQEL> result;
    Create<IQELColorTransform>(RefString(kColorTransformName))->GrayScale(image.Get());
    Create<IQELFilterTransform>(RefString(kFilterTransformName))
        ->Dilate(image.Get(), 3, result.Put());
  }
  Unload();
  EXPECT_EQ(dlopen(QEL_MODULE, RTLD_NOW | RTLD_NOLOAD), nullptr);
  collection->AddRef();
  EXPECT_EQ(collection->Release(), before);
  EXPECT_EQ(host.live_objects, live);
}

IID Bytes(std::initializer_list<uint8_t> first) {
  IID iid{};
  std::copy(first.begin(), first.end(), iid.bytes);
  return iid;
}

TEST(Identifiers, AreFiveBitCodesOfTheFirst25Characters) {
  EXPECT_EQ(__IIDOfc(""), IID_NULL);
  EXPECT_EQ(__IIDOfc("A"), Bytes({0x01}));
  EXPECT_EQ(__IIDOfc("AB"), Bytes({0x41}));
  EXPECT_EQ(__IIDOfc("_"), Bytes({0x1B}));
  for (const char* const other : {"5", "9", "\x80", "\xFF", " "}) {
    EXPECT_EQ(__IIDOfc(other), Bytes({0x1B})) << other;
  }
  EXPECT_EQ(__IIDOfc("03"), Bytes({0xFC, 0x03}));  // 28 | 31 << 5
  EXPECT_EQ(__IIDOfc("iobjectinfo"), IID_IObjectInfo);
  const std::string name = "abcdefghijklmnopqrstuvwxy";  // 1 to 25
  EXPECT_EQ(__IIDOfc(name.c_str()), __IIDOfc((name + "z4").c_str()));
  EXPECT_NE(__IIDOfc(name.c_str()), __IIDOfc(name.substr(1).c_str()));
  EXPECT_EQ(__IIDOfc(name.c_str()).bytes[15], 25 << (24 * 5 - 15 * 8) & 255);
  EXPECT_EQ(IID_IUnknown, (IID{{0, 0, 0, 0, 0, 0, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46}}));
}

TEST(Identifiers, KeepsSixBitCodeOfFour) {
  EXPECT_EQ(__IIDOfc("4A"), Bytes({0x20}));
  EXPECT_EQ(__IIDOfc("4"), Bytes({0x20}));
  EXPECT_EQ(__IIDOfc("4B"), Bytes({0x60}));
}

}  // namespace
}  // namespace qel::test
