#include "tests/support/module_under_test.h"

namespace qel::test {
namespace {

/// How far an operation reads outside the rows of its images, as docs/abi.md lists it.
struct Reach {
  const char* operation;
  int depth;
  int before;
  int after;
};
constexpr Reach kReaches[] = {
    {"GrayScale", 8, 0, 2},   // mixes each byte with the two after it
    {"Threshold", 8, 0, 2},   // goes through GrayScale
    {"Rotate180", 24, 3, 0},  // takes pixels one place to the left
    // Takes targets of 24 bits and less as three bytes a pixel: twice the largest width below.
    {"RotatePaste", 8, 0, 2 * 67},
};

Layout FencedLayout(const OperationCall& operation, int depth, Layout::Fence fence,
                    bool bottom_up) {
  Layout layout{.bottom_up = bottom_up, .fence = fence};
  for (const Reach& reach : kReaches) {
    if (operation.name != reach.operation || depth != reach.depth) continue;
    layout.reach_before = reach.before;
    layout.reach_after = reach.after;
  }
  return layout;
}

class MemoryReach : public OperationTest {
 protected:
  /// Runs an operation on images that end, or begin, where memory does.
  void RunFenced(const OperationCall& operation, int depth) {
    for (const auto fence : {Layout::Fence::kBefore, Layout::Fence::kAfter}) {
      for (const bool bottom_up : {false, true}) {
        for (const auto& [width, height] : {std::pair(31, 21), {64, 9}, {67, 5}, {1, 1}}) {
          Rng rng(11);
          const Layout layout = FencedLayout(operation, depth, fence, bottom_up);
          Raster::NewImageLayout() = layout;
          std::vector<SmartPtr<TestImage>> images;
          std::vector<IQELImage*> pointers;
          for (int i = 0; i < operation.images; ++i) {
            images.push_back(
                TestImage::Make(Raster(rng, width, height, depth, UsualModel(depth), layout)));
            pointers.push_back(images.back().Get());
          }
          SmartPtr<IQEL> result;
          operation.call(*module_, pointers, result.Put());
        }
      }
    }
  }
};
QEL_INSTANTIATE_LEVELS(MemoryReach);

TEST_P(MemoryReach, NothingBeyondTheListedReachIsTouched) {
  for (const OperationCall& operation : AllOperationCalls()) {
    for (const int depth : kCommonDepths) {
      // In a process of its own, which a touch outside would end.
      EXPECT_EXIT((RunFenced(operation, depth), std::_Exit(0)), testing::ExitedWithCode(0), "")
          << operation.name << " at " << depth << " bits";
    }
  }
}

}  // namespace
}  // namespace qel::test
