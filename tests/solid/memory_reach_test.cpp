#include <fnmatch.h>

#include <algorithm>

#include "host/pixel_slack.h"
#include "tests/support/module_under_test.h"
#include "tests/support/paired_operations.h"
#include "tests/support/sanitized.h"

namespace qel::test {
namespace {

/// The bytes that an operation touches of each row of its images beyond the row itself, as
/// docs/abi.md lists them. Rows of 32-bit words start 4 x (stride / whole bytes per pixel) apart.
struct Reach {
  const char* operations;
  bool (*applies)(const Raster& image);
  int per_pixel;   ///< touches this many times the width of a row
  int behind = 0;  ///< and so many bytes behind that
  int before = 0;  ///< and before the row
  bool words = false;
};

bool BelowEight(const Raster& i) { return i.bit_count < 8; }
bool BelowColor(const Raster& i) { return i.bit_count < 24; }
bool IsSixteen(const Raster& i) { return i.bit_count == 16; }
bool IsEight(const Raster& i) { return i.bit_count == 8; }
bool IsWide(const Raster& i) { return i.bit_count > 24 && i.bit_count != 32; }
bool IsMonoWords(const Raster& i) { return i.model == kModelMono && i.bit_count > 8; }
template <int kBytes>
bool HasBytes(const Raster& i) {
  return i.bit_count / 8 == kBytes;
}

constexpr Reach kReaches[] = {
    {"GrayScale", IsEight, 1, 2},
    {"Threshold", IsEight, 1, 2},  // goes through GrayScale
    {"SetImageAlpha", IsWide, 4},
    {"Rotate180", HasBytes<2>, 2, 0, 2},
    {"Rotate180", HasBytes<3>, 3, 0, 3},
    {"Rotate180", HasBytes<5>, 5, 0, 5},
    {"IncreaseBpp", BelowEight, 1},
    {"Resample*", BelowEight, 1},
    {"Rotate33", BelowEight, 1},
    {"Rotate33", IsSixteen, 3},
    {"RotatePaste", BelowColor, 3},
    {"RotatePaste", IsWide, 4},
    {"Scale8", IsMonoWords, 4, 0, 0, true},
    {"Equal*", IsMonoWords, 4, 0, 0, true},
    {"*Masked", BelowEight, 1},
    {"Scale*", IsEight, 4, 0, 0, true},  // to 32-bit words
    {"AddScale*", IsWide, 4},            // at depths that differ
};

/// What the rows of an image need round its block.
Layout::Reach ReachOf(const std::string& operation, const Raster& image) {
  Layout::Reach most;
  for (const Reach& reach : kReaches) {
    if (fnmatch(reach.operations, operation.c_str(), 0) != 0 || !reach.applies(image)) continue;
    const int64_t bytes = image.bit_count / 8;
    const int64_t step = reach.words ? 4 * (image.stride / bytes) : image.stride;
    const int64_t last_row = image.height - 1;
    const int64_t begin = std::min<int64_t>(0, step * last_row) - reach.before;
    const int64_t end = std::max<int64_t>(0, step * last_row) +
                        int64_t{reach.per_pixel} * image.width + reach.behind;
    const int64_t own_begin = std::min<int64_t>(0, image.stride * last_row);
    const int64_t own_end = std::max<int64_t>(0, image.stride * last_row) + std::abs(image.stride);
    most.before = std::max(most.before, own_begin - begin);
    most.after = std::max(most.after, end - own_end);
  }
  return most;
}

/// The slack that hosts are told to own.
Layout::Reach SlackOfHosts(const Raster& image) {
  const host::PixelSlack slack =
      host::SlackOf(image.width, image.height, image.stride, image.bit_count, image.model);
  return {slack.before, slack.after};
}

class MemoryReach : public OperationTest {
 protected:
  void SetUp() override {
    if (kSanitized) GTEST_SKIP() << "pages without access tell, not the sanitizer";
    OperationTest::SetUp();
  }

  /// Runs an operation on images that end, or begin, where memory does. The first has another depth
  /// than the others, its models are the usual ones or all "MONO". Round rows without padding they
  /// have what is listed, round others the slack of hosts.
  void RunFenced(const OperationCall& operation, int depth, int other_depth, bool mono,
                 int padding) {
    for (const auto fence : {Layout::Fence::kBefore, Layout::Fence::kAfter}) {
      for (const bool bottom_up : {false, true}) {
        for (const auto& [width, height] :
             {std::pair(31, 9), {64, 3}, {67, 5}, {130, 2}, {17, 3}, {1, 1}}) {
          // Such strides lead anywhere: they are divided as unsigned numbers.
          const bool odd_words = other_depth / 8 == 3 || other_depth / 8 == 5;
          if (operation.name == "Scale8" && mono && odd_words && bottom_up) continue;
          Rng rng(11);
          const Layout layout = {.padding = padding,
                                 .bottom_up = bottom_up,
                                 .fence = fence,
                                 .reach = [&](const Raster& image) {
                                   const Layout::Reach listed = ReachOf(operation.name, image);
                                   const Layout::Reach slack = SlackOfHosts(image);
                                   if (listed.before > slack.before || listed.after > slack.after) {
                                     std::fputs("more than the slack of hosts\n", stderr);
                                     std::_Exit(1);
                                   }
                                   return padding == 0 ? listed : slack;
                                 }};
          Raster::NewImageLayout() = layout;
          TestImages given;
          for (int i = 0; i < operation.images; ++i) {
            const int bits = i == 0 ? depth : other_depth;
            const uint32_t model = mono ? kModelMono : UsualModel(bits);
            given.Add(Raster(rng, width, height, bits, model, layout));
          }
          SmartPtr<IQEL> result;
          operation.call(*module_, given.pointers, result.Put());
        }
      }
    }
  }

  void RunAllFenced() {
    for (const OperationCall& operation : AllOperationCalls()) {
      for (const int depth : kAllDepths) {
        for (const int other_depth : kAllDepths) {
          // Differences take the depth of their sources for the destination's.
          const bool one_depth = operation.images == 1 || operation.name.starts_with("Subtract");
          if (one_depth && other_depth != depth) continue;
          for (const bool mono : {false, true}) {
            // The last line of the output names what touched too much.
            std::fprintf(stderr, "%s, %d and %d bits%s\n", operation.name.c_str(), depth,
                         other_depth, mono ? ", all MONO" : "");
            for (const int padding : {0, 3})
              RunFenced(operation, depth, other_depth, mono, padding);
          }
        }
      }
    }
  }
};
QEL_INSTANTIATE_LEVELS(MemoryReach);

TEST_P(MemoryReach, NothingBeyondTheListedReachIsTouchedAndHostsOwnMore) {
  // In a process of its own, which a touch outside would end.
  EXPECT_EXIT((RunAllFenced(), std::_Exit(0)), testing::ExitedWithCode(0), "");
}

/// An image of the shape and stride of `drawn` with that slack, and a fence behind it.
Raster WithSlackOnly(Rng& rng, const Raster& drawn, Layout::Fence fence) {
  const Layout layout = {
      .padding = static_cast<int>(std::abs(drawn.stride) - drawn.RowBytes()),
      .bottom_up = drawn.stride < 0,
      .fence = fence,
      .reach = &SlackOfHosts,
  };
  return Raster(rng, drawn.width, drawn.height, drawn.bit_count, drawn.model, layout, drawn.planes);
}

/// Draws calls of every operation, on images with the slack of the host guide.
void RunDrawnCalls(const ComponentSet& components) {
  constexpr int kCalls = 40;
  for (const PairedOperation& operation : PairedOperations()) {
    for (int i = 0; i < kCalls; ++i) {
      std::fprintf(stderr, "%s, seed %d\n", operation.name.c_str(), i);
      Rng rng(static_cast<uint64_t>(i));
      const auto fence = i % 2 == 0 ? Layout::Fence::kBefore : Layout::Fence::kAfter;
      const PairedCase drawn = operation.draw(rng);
      TestImages<TestImage> given;
      for (const Raster& input : drawn.inputs) {
        given.Add(WithSlackOnly(rng, input, fence));
        given.pointers.back()->raster.palette = input.palette;
      }
      Raster::NewImageLayout() = {.padding = i % 3 == 0 ? rng.Int(1, 40) : 0,
                                  .bottom_up = rng.OneIn(3),
                                  .fence = fence,
                                  .reach = &SlackOfHosts};
      SmartPtr<IQEL> result;
      drawn.call.module(components, given.pointers, result.Put());
    }
  }
}

TEST_P(MemoryReach, TheSlackThatHostsAreToldToOwnIsEnoughForDrawnCalls) {
  EXPECT_EXIT((RunDrawnCalls(*module_), std::_Exit(0)), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace qel::test
