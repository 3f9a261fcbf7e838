#include <fnmatch.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "cli/terminal/errors.h"
#include "tests/support/sanitized.h"
#include "tests/support/tool.h"

// The tool when the system fails it, and when it is killed.

namespace qel::cli {
namespace {

using test::Outcome;
using test::ReadFile;
using test::WriteFile;
namespace fs = std::filesystem;

constexpr int kKilled = 128 + 9;

class Faults : public test::ToolTest {
 protected:
  /// Two inputs; the output of the first is there already.
  void SetUp() override {
    for (const auto& entry : fs::directory_iterator(folder_.path())) fs::remove_all(entry.path());
    fs::create_directory(folder_ / "in");
    fs::create_directory(folder_ / "out");
    WriteFile(folder_ / "in/1.pgm", Gray(1));
    WriteFile(folder_ / "in/2.pgm", Gray(2));
    WriteFile(folder_ / "out/1.pgm", kOld);
    fs::permissions(folder_ / "out/1.pgm", fs::perms(0600));
  }

  Outcome Run(const std::string& environment, const std::string& options = "") {
    return Shell(environment + " " + Tool() +
                 " run 'in/*.pgm' -o 'out/{stem}.pgm' --jobs 1 negative --json m.json " + options);
  }

  /// Every output is as it was or whole. Counts the whole ones, and the leftovers elsewhere.
  void Look() {
    whole_ = leftovers_ = 0;
    for (const auto& entry : fs::recursive_directory_iterator(folder_.path())) {
      const std::string name = fs::relative(entry.path(), folder_.path()).string();
      const std::string content = entry.is_regular_file() ? ReadFile(entry.path()) : "";
      if (name == "out/1.pgm" || name == "out/2.pgm") {
        const bool is_new = content == Gray(name == "out/1.pgm" ? 254 : 253);
        EXPECT_TRUE(is_new || (name == "out/1.pgm" && content == kOld)) << name;
        whole_ += is_new;
      } else if (name.ends_with(".tmp")) {
        ++leftovers_;
        const bool is_private = content.find(Gray(254).back()) != content.npos;
        const auto others = fs::perms(077) & entry.status().permissions();
        EXPECT_TRUE(!is_private || others == fs::perms::none) << name;
      }
    }
    EXPECT_TRUE(fs::exists(folder_ / "out/1.pgm"));
  }

  /// The environment in which calls go wrong.
  static std::string Preload() {
    return "ASAN_OPTIONS=verify_asan_link_order=0:detect_leaks=0 LD_PRELOAD=" +
           test::Built("tests/libfaulty_io.so ");
  }
  /// Whatever happened before, the next run brings everything about.
  void ExpectResumes() {
    const Outcome outcome = Run("", "--resume");
    EXPECT_EQ(outcome.exit_code, kDone) << outcome.errors;
    Look();
    EXPECT_EQ(whole_, 2);
    EXPECT_EQ(leftovers_, 0) << "those of the killed run are removed";
  }

  static constexpr char kOld[] = "old";
  int whole_ = 0;
  int leftovers_ = 0;
};

/// With and without files that have no names while they are written.
class CallFaults : public Faults, public testing::WithParamInterface<bool> {
 protected:
  static std::string Preload() {
    return Faults::Preload() + "QEL_NAMELESS=" + (GetParam() ? "yes " : "no ");
  }
};
INSTANTIATE_TEST_SUITE_P(NamelessOrNot, CallFaults, testing::Bool());

TEST_P(CallFaults, EveryCallThatMakesFilesMayFailOrBeTheLast) {
  const std::string preload = Preload();
  ASSERT_EQ(Run(preload + "QEL_CALLS=calls").exit_code, kDone);
  const std::string calls = ReadFile(folder_ / "calls");
  // Rights are set, the file synced, named (closed), renamed where one is replaced, and its folder
  // synced: a picture that is replaced, one that is new, and the manifest.
  const char* const expected =
      GetParam() ? "*owwmslcrsc*owwslcsc*owmslcrsc*" : "*owwmscrsc*owwmscrsc*owmscrsc*";
  EXPECT_EQ(fnmatch(expected, calls.c_str(), 0), 0) << calls;
  int failed = 0;
  for (size_t k = 0; k < calls.size(); ++k) {
    for (const std::string fault : {"fail", "short", "kill"}) {
      if (fault == "short" && calls[k] != 'w') continue;
      if (fault == "kill" && test::kSanitized) continue;  // the killed have nothing to say
      SCOPED_TRACE(fault + " at call " + std::to_string(k));
      SetUp();
      const Outcome outcome =
          Run(preload + "QEL_FAULT_AT=" + std::to_string(k) + " QEL_FAULT=" + fault);
      Look();
      if (fault == "kill") {
        EXPECT_EQ(outcome.exit_code, kKilled);
        EXPECT_LE(leftovers_, 1);
      } else {
        EXPECT_EQ(leftovers_, 0);
        EXPECT_EQ(outcome.errors.empty(), outcome.exit_code == kDone) << outcome.errors;
        const bool named = outcome.exit_code == kSomeFailed || outcome.exit_code == kNoOutput;
        EXPECT_TRUE(named || outcome.exit_code == kDone) << outcome.exit_code;
        EXPECT_TRUE(named || whole_ == 2) << "done means done";
        failed += named;
        EXPECT_TRUE(fault == "fail" || !named) << outcome.errors;
      }
      // Sanitizers have seen the rest of a resumed run after a few.
      if (!test::kSanitized || k % 8 == 0) ExpectResumes();
    }
  }
  EXPECT_GT(failed, 8) << "faults are met";
}

TEST_P(CallFaults, KilledInPlaceNothingIsDoneTwice) {
  if (test::kSanitized) GTEST_SKIP() << "the killed have nothing to say";
  const std::string words =
      " " + Tool() + " run in/1.pgm --in-place negative --json m.json --resume";
  Shell(Preload() + "QEL_CALLS=calls" + words);
  const size_t calls = ReadFile(folder_ / "calls").size();
  EXPECT_GT(calls, 10u);
  for (size_t k = 0; k < calls; ++k) {
    SCOPED_TRACE("killed at call " + std::to_string(k));
    SetUp();
    Shell(Preload() + "QEL_FAULT=kill QEL_FAULT_AT=" + std::to_string(k) + words);
    const bool done = ReadFile(folder_ / "m.json").find("\"done\"") != std::string::npos;
    EXPECT_TRUE(!done || ReadFile(folder_ / "in/1.pgm") == Gray(254)) << "done means done";
    EXPECT_EQ(Shell(words).exit_code, kDone);
    EXPECT_EQ(ReadFile(folder_ / "in/1.pgm"), Gray(254));
  }
}

TEST_F(Faults, ThreadsThatCannotBeStartedAreDoneWithout) {
  const std::string words = " " + Tool() + " run 'in/*.pgm' -o 'out/{stem}.pgm' --jobs 2 negative";
  const Outcome outcome = Shell(Preload() + "QEL_THREADS=1" + words);
  EXPECT_EQ(outcome.exit_code, kDone);
  EXPECT_EQ(outcome.errors.find("qel: note: only 1 of 2 threads"), 0u) << outcome.errors;
  Look();
  EXPECT_EQ(whole_, 2);
  EXPECT_EQ(Shell(Preload() + "QEL_THREADS=0" + words).exit_code, kModuleFault);
}

}  // namespace
}  // namespace qel::cli
