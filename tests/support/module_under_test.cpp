#include "tests/support/module_under_test.h"

#include <dlfcn.h>

#include <map>
#include <stdexcept>

#include "tests/support/paired_operations.h"

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

}  // namespace

std::unique_ptr<ModuleUnderTest> ModuleUnderTest::Load(const std::string& folder, CpuLevel level) {
  const std::string path = folder + "/QELMaths_" + LevelName(level) + ".so";
  void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) throw std::runtime_error(dlerror());
  auto module = std::make_unique<ModuleUnderTest>();
  module->create_function =
      reinterpret_cast<CreateFunctionFunction>(dlsym(library, kCreateFunctionSymbol));
  module->initialize =
      reinterpret_cast<InitializeModuleFunction>(dlsym(library, kInitializeModuleSymbol));
  module->plans = static_cast<const ForcedPlans*>(dlsym(library, kForcedPlansSymbol));
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

namespace {

ImageView ViewOf(const Raster& raster) {
  ImageView view;
  static_cast<ImageShape&>(view) = {raster.width, raster.height, raster.planes, raster.bit_count,
                                    raster.model};
  view.bits = const_cast<uint8_t*>(raster.Bits());
  view.stride = raster.stride;
  return view;
}

}  // namespace

void OperationTest::ExpectSameByMethods(const Raster& source, const Raster& expected,
                                        std::span<const MethodText> methods,
                                        const MethodCall& call) {
  const ImageView shape = ViewOf(expected);
  const int bits = shape.bit_count;
  if (!shape.HasPixels() || (bits < 24 && bits != 8 && bits != 4 && bits != 1)) return;
  for (size_t method = 0; method < methods.size(); ++method) {
    Raster result;
    result.Create(shape.width, shape.height, shape.planes, bits, shape.model);
    if (!call(method, ViewOf(source), ViewOf(result))) continue;
    methods_run_.insert(methods[method].name);
    EXPECT_EQ(result.Difference(expected), "") << "by " << methods[method].name;
  }
}

std::string LevelName(CpuLevel level) {
  constexpr const char* kNames[] = {"sse2", "avx2", "avx512", "avx512vbmi"};
  return kNames[static_cast<int>(level)];
}

ModuleUnderTest& ModuleUnderTest::ForLevel(CpuLevel level) {
  static auto& loaded = *new std::map<CpuLevel, ModuleUnderTest*>;  // stays for the process
  ModuleUnderTest*& module = loaded[level];
  if (module == nullptr) module = Load(QEL_TEST_MODULES, level).release();
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
  const PairedCase paired{
      inputs, [&](const ComponentSet&, auto images, IQEL** result) { return call(images, result); },
      oracle};
  EXPECT_EQ(CompareCase(paired, *module_), "");
  EXPECT_EQ(TestHost::Instance().live_objects, live_before) << "objects left behind";
}

}  // namespace qel::test
