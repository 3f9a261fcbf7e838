#include "tests/support/module_under_test.h"

#include <dlfcn.h>

#include <map>
#include <stdexcept>

namespace qel::test {
namespace {

template <typename Interface>
SmartPtr<Interface> CreateComponent(const ModuleUnderTest& module, tagREFString name) {
  CreationFunction create = nullptr;
  SmartPtr<Interface> object;
  if (module.create_function(name, &create) == kOk) {
    create(nullptr, kIidOf<Interface>, object.PutVoid());
  }
  if (!object) throw std::runtime_error("the module does not make a component");
  return object;
}

ModuleUnderTest* Load(CpuLevel level) {
  const std::string path = std::string(QEL_TEST_MODULES) + "/QELMaths_" + LevelName(level) + ".so";
  void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) throw std::runtime_error(dlerror());
  auto* const module = new ModuleUnderTest;  // stays as long as the library does
  module->create_function =
      reinterpret_cast<CreateFunctionFunction>(dlsym(library, kCreateFunctionSymbol));
  module->initialize =
      reinterpret_cast<InitializeModuleFunction>(dlsym(library, kInitializeModuleSymbol));
  module->initialize(nullptr, TestHost::Instance().collection());
  module->color = CreateComponent<IQELColorTransform>(*module, RefString(kColorTransformName));
  module->transform = CreateComponent<IQELTransform>(*module, RefString(kTransformName));
  module->deform = CreateComponent<IQELDeform>(*module, RefString(kDeformName));
  module->filter = CreateComponent<IQELFilterTransform>(*module, RefString(kFilterTransformName));
  module->maths = CreateComponent<IQELMaths>(*module, RefString(kMathsName));
  // The first image of a module looks its locator up and keeps it; later calls make images only.
  Rng rng(1);
  const auto image = TestImage::Make(Raster(rng, 1, 1, 8, kModelMono, {}));
  SmartPtr<IQEL> result;
  module->transform->Resample(image.Get(), result.Put(), 1, 1, 0, 0);
  module->filter->Dilate(image.Get(), 1, result.Put());
  module->deform->CircleTransform(image.Get(), 0, 0, 1.0f);
  return module;
}

}  // namespace

std::string LevelName(CpuLevel level) {
  constexpr const char* kNames[] = {"sse2", "avx2", "avx512", "avx512vbmi"};
  return kNames[static_cast<int>(level)];
}

ModuleUnderTest& ModuleUnderTest::ForLevel(CpuLevel level) {
  static auto& loaded = *new std::map<CpuLevel, ModuleUnderTest*>;  // stays for the process
  ModuleUnderTest*& module = loaded[level];
  if (module == nullptr) module = Load(level);
  return *module;
}

void OperationTest::SetUp() {
  if (GetParam() > DetectCpuLevel()) {
    GTEST_SKIP() << "this processor does not run " << LevelName(GetParam());
  }
  TestHost::Instance().Reset();
  module_ = &ModuleUnderTest::ForLevel(GetParam());
}

void OperationTest::ExpectSame(const std::vector<Raster>& inputs, const ModuleCall& call,
                               const OracleCall& oracle) {
  const int live_before = TestHost::Instance().live_objects;
  {
    std::vector<SmartPtr<TestImage>> images;
    std::vector<TestImage*> pointers;
    for (const Raster& input : inputs) {
      images.push_back(TestImage::Make(input));
      pointers.push_back(images.back().Get());
    }
    std::vector<Raster> rasters = inputs;
    Raster expected_result;
    IQEL* raw_result = nullptr;
    const result_t expected = oracle(rasters, expected_result);
    const result_t actual = call(pointers, &raw_result);
    const auto result = SmartPtr<IQEL>::Adopt(raw_result);

    EXPECT_EQ(actual, expected) << "result code";
    for (size_t i = 0; i < images.size(); ++i) {
      EXPECT_EQ(images[i]->raster.Difference(rasters[i]), "") << "image " << i;
      const bool handed_back = static_cast<IQEL*>(images[i].Get()) == raw_result;
      EXPECT_EQ(images[i]->references(), handed_back ? 2u : 1u) << "references of image " << i;
    }
    EXPECT_EQ(raw_result != nullptr, expected_result.bit_count != 0) << "result made";
    if (raw_result != nullptr && expected_result.bit_count != 0) {
      const auto* const made = static_cast<TestImage*>(raw_result);
      EXPECT_EQ(made->raster.Difference(expected_result), "") << "result";
    }
  }
  EXPECT_EQ(TestHost::Instance().live_objects, live_before) << "objects left behind";
}

}  // namespace qel::test
