#include "tests/support/module_under_test.h"

#include <dlfcn.h>

#include <map>

#include "host/module_library.h"
#include "operations/components.h"
#include "tests/support/build_paths.h"
#include "tests/support/paired_operations.h"
#include "tests/support/sanitized.h"

namespace qel::test {

std::unique_ptr<ModuleUnderTest> ModuleUnderTest::Load(const std::string& folder, CpuLevel level) {
  const std::string path = folder + "/QELMaths_" + LevelName(level) + ".so";
  host::ModuleLibrary library(path);
  library.Initialize(TestHost::Instance().collection());
  auto module = std::make_unique<ModuleUnderTest>();
  static_cast<ComponentSet&>(*module) = operations::MakeComponents(library);
  module->level = level;
  module->create_function = library.create_function();
  module->initialize = library.initialize();
  void* const loaded = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
  module->plans = static_cast<const ForcedPlans*>(dlsym(loaded, kForcedPlansSymbol));
  std::move(library).KeepLoaded();
  // The first image of a module looks its locator up and keeps it; later calls make images only.
  Rng rng(1);
  const auto image = TestImage::Make(Raster(rng, 1, 1, 8, kModelMono, {}));
  SmartPtr<IQEL> result;
  module->transform->Resample(image.Get(), result.Put(), 1, 1, 0, 0);
  module->filter->Dilate(image.Get(), 1, result.Put());
  module->deform->CircleTransform(image.Get(), 0, 0, 1.0f);
  return module;
}

std::string LevelName(CpuLevel level) {
  constexpr const char* kNames[] = {"sse2", "avx2", "avx512", "avx512vbmi"};
  return kNames[static_cast<int>(level)];
}

ModuleUnderTest& ModuleUnderTest::ForLevel(CpuLevel level) {
  static auto& loaded = *new std::map<CpuLevel, ModuleUnderTest*>;  // stays for the process
  ModuleUnderTest*& module = loaded[level];
  if (module == nullptr) {
    module = Load(Built("tests/modules"), level).release();
    *module->plans->least_streamed_bytes = 1000;  // drawn results are smaller and larger
  }
  return *module;
}

Raster RowOf(int bit_count, const std::vector<uint8_t>& bytes, std::optional<uint32_t> model) {
  Rng rng(1);
  const int width = static_cast<int>(bytes.size()) * 8 / bit_count;
  Raster image(rng, width, 1, bit_count, model.value_or(UsualModel(bit_count)), {.padding = 64});
  std::copy(bytes.begin(), bytes.end(), image.Row(0));
  return image;
}

std::vector<uint8_t> FirstRow(const Raster& image) {
  return {image.Row(0), image.Row(0) + image.RowBytes()};
}

void OperationTest::SetUp() {
  if (GetParam() > DetectCpuLevel()) {
    GTEST_SKIP() << "this processor does not run " << LevelName(GetParam());
  }
  TestHost::Instance().Reset();
  module_ = &ModuleUnderTest::ForLevel(GetParam());
}

Raster OperationTest::ResultOf(const Raster& source, const PairedCall& call) const {
  const auto image = TestImage::Make(source);
  TestImage* const given[] = {image.Get()};
  SmartPtr<IQEL> result;
  EXPECT_EQ(call.module(*module_, given, result.Put()), kOk) << call.arguments;
  return result ? static_cast<TestImage*>(result.Get())->raster : image->raster;
}

void ReadingTest::SetUp() {
  TestHost::Instance().Reset();
  for (int level = 0; level <= static_cast<int>(DetectCpuLevel()); ++level) {
    modules_.push_back(&ModuleUnderTest::ForLevel(static_cast<CpuLevel>(level)));
  }
}

std::string ReadingTest::Difference(const PairedCase& paired) {
  const int live_before = TestHost::Instance().live_objects;
  const PlainOutcome plain(paired);
  for (const ModuleUnderTest* const module : modules_) {
    std::string difference;
    const int64_t depth = stack_.Depth([&] { difference = plain.Difference(*module); });
    constexpr int kOwnFrames = 512;
    if (depth > 64 * 1024 + kOwnFrames) {
      difference += std::to_string(depth) + " bytes of stack (" + paired.inputs[0].Describe() +
                    ": " + paired.call.arguments + ")";
    }
    if (difference.empty()) difference = plain.DifferenceByMethods(*module->plans, run_);
    if (!difference.empty()) return LevelName(module->level) + ": " + difference;
  }
  return TestHost::Instance().live_objects == live_before ? "" : "objects left behind";
}

void ReadingTest::ExpectSame(const std::vector<Raster>& inputs, const PairedCall& call) {
  EXPECT_EQ(Difference({inputs, call}), "");
}

void ReadingTest::ExpectSameDraws(const std::string& component, int draws) {
  if (kSanitized) draws /= 8;
  for (const PairedOperation& operation : PairedOperations()) {
    std::string difference;
    for (int i = 0; i < draws && operation.component == component && difference.empty(); ++i) {
      Rng rng(static_cast<uint64_t>(i));
      difference = Difference(operation.draw(rng));
      EXPECT_EQ(difference, "") << operation.name << ", seed " << i;
    }
  }
}

}  // namespace qel::test
