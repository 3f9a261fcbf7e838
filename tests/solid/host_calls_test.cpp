#include <fnmatch.h>

#include <map>

#include "tests/support/module_under_test.h"

namespace qel::test {
namespace {

/// The host calls of operations on images of some kind, in their order. `F`, `S`, `B`, `C`, `Q`,
/// `A` are GetFormat, GetSize, GetBits, Create, QueryInterface and Assign, each with the number of
/// its image, none for a new one, and "/1" for its second plane. `new` makes an image.
struct StatedCalls {
  const char* operations;
  const char* images;
  const char* calls;
};

// Also what turns out not to be needed is asked for.
constexpr StatedCalls kStatedCalls[] = {
    {"GrayScale", "*", "F0 S0 B0 new C B Q0 A0"},
    {"Threshold", "*", "F0 S0 B0 new C B Q0 A0 S0 B0 F0"},
    {"SetImage*", "*", "F0 S0 B0"},
    {"Colorize", "*", "S0 B0 F0"},
    {"Lut", "*", "S0 B0 F0"},
    {"Light", "*", "S0 B0 F0"},
    {"Gamma", "*", "S0 B0 F0"},
    {"Negative", "*", "S0 B0 F0"},
    {"ShiftRGB", "*", "S0 B0 F0"},

    {"Flip", "*", "F0 S0 B0 new C B"},
    {"Mirror", "*", "F0 S0 B0 new C B"},
    {"Flip*Bits", "*", "F0 S0 B0"},
    {"Rotate*0", "*", "new F0 S0 C B B0 B/1 B0/1"},
    {"Rotate33", "*", "F0 S0 new C B B0 Fill"},
    {"RotatePaste", "*", "F1 S1 F0 S0 B0 B1"},
    {"Skew", "*", "F0 S0 B0 new C B"},
    {"Resample*", "*", "F0 S0 B0 new Q C B"},
    {"IncreaseBpp", "*", "F0 S0 new Q0 C B0 B"},
    {"Quad", "*", "F0 S0 new C B B0"},
    {"Transform", "*empty*", "F0 S0"},
    {"Transform", "16 bits*", "F0 S0 new C Fill"},
    {"Transform", "*", "F0 S0 new C Fill B B0"},
    {"TransformPasteFilled", "24 bits*", "F1 S1 F0 S0 B1 B0 F0 S0 B0"},
    {"TransformPasteFilled", "32 bits*", "F1 S1 F0 S0 B1 B0 F0 S0 B0"},
    {"TransformPaste*", "*", "F1 S1 F0 S0 B1 B0"},

    {"Equal", "*", "S0 F0 B0 B0/1"},
    {"EqualMasked", "*", "S0 F0 B0 B1 B0/1 B1"},
    {"Copy*", "*empty*", "S0 F0 S1 F1"},
    {"Copy*", "*", "S0 F0 S1 F1 B1 B0"},
    {"AddScale", "*", "F1 S1 F2 S2 F0 S0 B1 B2 B0"},
    {"AddScaleMasked", "*", "F1 S1 F2 S2 F0 S0 B1 B2 B0 B3"},
    {"Scale8", "8 bits*", "F1 S1 C0"},
    {"Scale8", "*MONO*", "F1 S1 C0 B1 B0 B1/1 B0/1"},
    {"Scale8", "*", "F1"},
    {"Scale*", "16 bits*", "F1 F0 S1 S0"},
    {"Scale", "8 bits*", "F1 F0 S1 S0 B1 B0"},
    {"ScaleMasked", "8 bits*", "F1 F0 S1 S0 B1 B0 B2"},
    {"Scale*", "*", "F1 F0 S1 S0 B1 B0 B1/1 B0/1"},
    {"Subtract*", "*", "F1 F2 S1 S2 B1 B2 B0 B1/1 B2/1 B0/1"},
    {"Add", "*", "F1 F2 S1 C0 B1 B2 B0 B1/1 B2/1 B0/1"},
    {"CreateDestImage", "*", "new S0 F0 C"},

    {"Circle*", "*", "S0 B0 F0 new C B Q0 A0"},
    // Filters.
    {"*Assigned", "*", "S0 B0 F0 new C B Q0 A0"},
    {"*", "*", "S0 B0 F0 new C B"},
};

const char* StatedFor(const std::string& operation, const std::string& images) {
  for (const StatedCalls& row : kStatedCalls) {
    if (fnmatch(row.operations, operation.c_str(), 0) == 0 &&
        fnmatch(row.images, images.c_str(), 0) == 0) {
      return row.calls;
    }
  }
  return "";
}

/// The calls of the log as `StatedCalls` spells them.
std::string Spell(const std::vector<std::string>& log) {
  const std::map<std::string, std::string> letters = {
      {"GetFormat", "F"},        {"GetSize", "S"},          {"GetBits", "B"},
      {"Create", "C"},           {"QueryInterface", "Q"},   {"Assign", "A"},
      {"CreateInstance", "new"}, {"CreateComponent", "new"}};
  std::string spelled;
  for (const std::string& call : log) {
    const size_t end = std::min(call.find_first_of("0123456789/"), call.size());
    const auto letter = letters.find(call.substr(0, end));
    if (!spelled.empty()) spelled += ' ';
    spelled += (letter != letters.end() ? letter->second : call.substr(0, end)) + call.substr(end);
  }
  return spelled;
}

class HostCalls : public OperationTest {
 protected:
  /// The images that operations are called with: two planes each.
  struct Kind {
    const char* name;
    int bit_count;
    uint32_t model;
    int width;
  };
  static constexpr Kind kKinds[] = {
      {"8 bits", 8, kModelMono, 8},         {"16 bits", 16, 0, 8},
      {"24 bits", 24, kModelBgr, 8},        {"24 bits, empty", 24, kModelBgr, 0},
      {"32 bits", 32, kModelArgb, 8},       {"32 bits, empty", 32, kModelArgb, 0},
      {"32 bits, MONO", 32, kModelMono, 8},
  };

  template <typename Call>
  void Expect(const std::string& operation, const Kind& kind, int count, Call call) {
    TestHost& host = TestHost::Instance();
    Rng rng(1);
    TestImages given;
    for (int i = 0; i < count; ++i) {
      given.Add(Raster(rng, kind.width, 7, kind.bit_count, kind.model, {}, 2));
      given.images.back()->log_name = std::to_string(i);
    }
    SmartPtr<IQEL> result;
    host.Reset();
    host.logging = true;
    call(given.pointers, result.Put());
    EXPECT_EQ(Spell(host.log), StatedFor(operation, kind.name)) << operation << ", " << kind.name;
    host.Reset();
  }
};
INSTANTIATE_TEST_SUITE_P(Active, HostCalls, testing::Values(DetectCpuLevel()), LevelParamName);

TEST_P(HostCalls, StandInTheStatedOrder) {
  for (const Kind& kind : kKinds) {
    for (const OperationCall& operation : AllOperationCalls()) {
      Expect(operation.name, kind, operation.images,
             [&](auto& images, IQEL** result) { operation.call(*module_, images, result); });
    }
    // Reachable by the table of its class alone.
    Expect("Kernel", kind, 1, [&](auto& images, IQEL** result) {
      int16_t taps[9] = {};
      const auto primary = QueryFor<IUnknown>(module_->filter.Get());
      constexpr size_t kKernelSlot = 20;
      CallSlot(primary.Get(), kKernelSlot, static_cast<IQEL*>(images[0]), &taps[0], 3, 1, 0,
               result);
    });
  }
}

}  // namespace
}  // namespace qel::test
