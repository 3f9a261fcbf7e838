#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "color/color_transform.h"
#include "filter/filter_transform.h"
#include "maths/maths.h"
#include "tests/support/build_paths.h"
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
    library_ = dlopen(ModulePath().c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library_, nullptr) << dlerror();
    initialize_ = reinterpret_cast<InitializeModuleFunction>(dlsym(library_, "InitializeModule"));
    find_ = reinterpret_cast<CreateFunctionFunction>(dlsym(library_, "CreateFunction"));
  }
  void TearDown() override {
    if (library_ != nullptr) dlclose(library_);
  }
  template <typename Interface>
  SmartPtr<Interface> Create(tagREFString name) const {
    CreationFunction create = nullptr;
    find_(name, &create);
    SmartPtr<Interface> object;
    create(nullptr, kIidOf<Interface>, object.PutVoid());
    return object;
  }

  void* library_ = nullptr;
  InitializeModuleFunction initialize_ = nullptr;
  CreateFunctionFunction find_ = nullptr;
};

/// Expects virtual functions, given in order, to stand in consecutive slots of a class's table,
/// behind the three of IUnknown and four hooks. What hosts see is checked by the tool's rules.
template <typename... Methods>
void ExpectOrder(Methods... methods) {
  const auto slot_of = [](auto method) {
    static_assert(sizeof(method) == 16);
    uintptr_t parts[2];  // 1 + the offset in the table, and the offset of the table
    std::memcpy(parts, &method, sizeof(parts));
    EXPECT_EQ(parts[1], 0u);
    return (parts[0] - 1) / sizeof(void*);
  };
  const size_t slots[] = {slot_of(methods)...};
  for (size_t i = 0; i < std::size(slots); ++i) EXPECT_EQ(slots[i], 7 + i);
}

TEST(AbiSlots, OfClassesStandInTheBindingOrder) {
  using A = CQELColorTransform;
  ExpectOrder(&A::Colorize, &A::Lut, &A::Negative, &A::GrayScale, &A::ShiftRGB, &A::Gamma,
              &A::Light, &A::SetImageAlpha, &A::SetImageAlphaTransparency,
              &A::SetImageTransparentPixel, &A::Threshold);
  ExpectOrder(&CQELImageDeform::CircleTransform);
  using T = CQELImageTransform;
  ExpectOrder(&T::Flip, &T::Mirror, &T::Rotate, &T::Skew, &T::Resample, &T::IncreaseBpp,
              &T::RotatePaste, &T::FlipBits, &T::Quad, &T::Transform, &T::TransformPaste,
              &T::FlipImageAndBits, &T::Rotate4, &T::FillVoids);
  using M = CQELMaths;
  ExpectOrder(&M::Equal, &M::Copy, &M::AddScale, &M::Scale, &M::Subtract, &M::CreateDestImage,
              &M::Add, &M::Scale8);
  using F = CQELFilterTransform;
  ExpectOrder(&F::GaussianBlur, &F::Sharpen, &F::Soften, &F::Blur, &F::Emboss, &F::Median,
              &F::Noise, &F::Jitter, &F::Contour, &F::Filter, &F::Dilate, &F::Edge, &F::Erode,
              &F::Kernel);
}

// The count is the third word of an object; the first of the hooks answers.
TEST_F(Abi, ObjectsHaveTheirCountAndHooks) {
  const auto object = Create<IUnknown>(RefString(kMathsName));
  const auto count = [&] {
    uint32_t value;
    std::memcpy(&value, reinterpret_cast<const uint8_t*>(object.Get()) + 8, sizeof(value));
    return value;
  };
  EXPECT_EQ(count(), 1u);
  EXPECT_EQ(object->AddRef(), 2u);
  EXPECT_EQ(count(), 2u);
  object->Release();
  EXPECT_EQ(CallSlot(object.Get(), 3), kOk);
  for (const size_t hook : {4, 5, 6}) CallSlot(object.Get(), hook);
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
