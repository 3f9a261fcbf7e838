// Runs every operation on builds of the module and compares what they leave behind: result codes
// and every byte of every image. Usage: same_bytes [--step N] FOLDER... Each folder holds one build
// for each processor level; all of them must agree with the first. With
// --reference, drawn calls on each build are compared with the plain readings instead. `same_bytes
// --levels` tells which levels this build runs on this processor.

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/support/module_under_test.h"
#include "tests/support/paired_operations.h"

namespace qel::test {
namespace {

constexpr int kLargestWidth = 130;
constexpr int kDrawsOfArguments = 3 * kLargestWidth;

/// Fresh images round a call, and what the call leaves of them, as a hash.
template <typename Image, typename Call>
uint64_t Outcome(const std::vector<Raster>& inputs, Call&& call) {
  const TestImages<Image> given(inputs);
  SmartPtr<IQEL> result;
  std::srand(1);
  std::string left = std::to_string(call(given.pointers, result.Put()));
  const auto add = [&](const Raster& raster) {
    left.append(raster.Memory().begin(), raster.Memory().end());
  };
  for (const auto& image : given.images) add(image->raster);
  if (result) add(static_cast<TestImage*>(result.Get())->raster);
  return std::hash<std::string>()(left);
}

/// One thing to compare, and the outcome on a build of the module.
struct Case {
  std::string name;
  std::function<uint64_t(const ComponentSet&)> run;
};

/// Every operation with fixed arguments at every width and depth, and with drawn arguments.
std::vector<Case> Cases(int step) {
  std::vector<Case> cases;
  for (const OperationCall& operation : AllOperationCalls()) {
    for (const int depth : kAllDepths) {
      // The first width differs, so that coarse steps still meet all of them.
      for (int width = 1 + static_cast<int>(cases.size()) % step; width <= kLargestWidth;
           width += step) {
        const std::string name = operation.name + " at " + std::to_string(depth) + " bits, width " +
                                 std::to_string(width);
        cases.push_back({name, [=, &operation](const ComponentSet& components) {
                           Rng rng(static_cast<uint64_t>(width * 100 + depth));
                           std::vector<Raster> inputs;
                           const int height = rng.Int(1, 7);
                           // Some operations tell 32-bit words by the colour model.
                           const bool of_words = width % 3 == 0;
                           for (int i = 0; i < operation.images; ++i) {
                             Layout layout = RandomLayout(rng);
                             layout.bottom_up &= !of_words;
                             inputs.push_back(Raster(rng, width, height, depth,
                                                     of_words ? kModelMono : UsualModel(depth),
                                                     layout));
                           }
                           Raster::NewImageLayout() = RandomLayout(rng);
                           return Outcome<IQELImage>(inputs, [&](auto images, IQEL** result) {
                             return operation.call(components, images, result);
                           });
                         }});
      }
    }
  }
  for (const PairedOperation& operation : PairedOperations()) {
    for (int i = 0; i < kDrawsOfArguments; i += step) {
      cases.push_back({operation.name + ", draw " + std::to_string(i),
                       [=, &operation](const ComponentSet& components) {
                         Rng rng(static_cast<uint64_t>(i));
                         const PairedCase drawn = operation.draw(rng);
                         return Outcome<TestImage>(drawn.inputs, [&](auto images, IQEL** result) {
                           return drawn.call.module(components, images, result);
                         });
                       }});
    }
  }
  return cases;
}

/// Drawn calls on every build in `folder` beside the plain readings of the operations.
int CompareWithReference(const std::string& folder, int step) {
  size_t calls = 0;
  size_t differences = 0;
  for (int level = 0; level <= static_cast<int>(DetectCpuLevel()); ++level) {
    const auto module = ModuleUnderTest::Load(folder, static_cast<CpuLevel>(level));
    for (const PairedOperation& operation : PairedOperations()) {
      for (int i = 0; i < kDrawsOfArguments; i += step, ++calls) {
        Rng rng(static_cast<uint64_t>(i));
        const PairedCase drawn = operation.draw(rng);
        const std::string difference = PlainOutcome(drawn).Difference(*module);
        if (difference.empty()) continue;
        ++differences;
        std::printf("%s, draw %d: %s\n", operation.name.c_str(), i, difference.c_str());
      }
    }
  }
  std::printf("%zu calls, %zu differences from the plain readings\n", calls, differences);
  return differences == 0 && calls > 0 ? 0 : 1;
}

void PrintLevels() {
  for (int level = 0; level < kCpuLevelCount; ++level) {
#ifdef QEL_EMULATED_AVX512
    const bool native = level < static_cast<int>(CpuLevel::kAvx512);
#else
    const bool native = true;
#endif
    const bool runs = level <= static_cast<int>(DetectCpuLevel());
    std::printf("%s %s\n", LevelName(static_cast<CpuLevel>(level)).c_str(),
                !runs    ? "does not run"
                : native ? "runs"
                         : "runs emulated");
  }
}

int Main(std::vector<std::string> words) {
  if (words == std::vector<std::string>{"--levels"}) {
    PrintLevels();
    return 0;
  }
  int step = 1;
  if (words.size() > 2 && words[0] == "--step") {
    step = std::atoi(words[1].c_str());
    words.erase(words.begin(), words.begin() + 2);
  }
  if (words.empty() || step < 1) {
    std::fprintf(stderr, "usage: same_bytes [--step N] [--reference] FOLDER... | --levels\n");
    return 2;
  }
  if (words.size() == 2 && words[0] == "--reference") return CompareWithReference(words[1], step);
  const std::vector<Case> cases = Cases(step);
  std::vector<uint64_t> expected;
  size_t differences = 0;
  int builds = 0;
  for (const std::string& folder : words) {
    for (int level = 0; level <= static_cast<int>(DetectCpuLevel()); ++level, ++builds) {
      const auto module = ModuleUnderTest::Load(folder, static_cast<CpuLevel>(level));
      for (size_t i = 0; i < cases.size(); ++i) {
        const uint64_t outcome = cases[i].run(*module);
        if (builds == 0) {
          expected.push_back(outcome);
        } else if (outcome != expected[i]) {
          ++differences;
          std::printf("%s, %s: %s differs\n", folder.c_str(),
                      LevelName(static_cast<CpuLevel>(level)).c_str(), cases[i].name.c_str());
        }
      }
    }
  }
  std::printf("%zu calls on %d builds of the module, %zu differences\n", cases.size(), builds,
              differences);
  return differences == 0 && builds > 1 ? 0 : 1;
}

}  // namespace
}  // namespace qel::test

int main(int argc, char** argv) { return qel::test::Main({argv + 1, argv + argc}); }
