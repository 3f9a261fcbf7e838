#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "cli/terminal/errors.h"
#include "tests/support/sanitized.h"
#include "tests/support/tool.h"

namespace qel::cli {
namespace {

using test::Outcome;
using test::WriteFile;
namespace fs = std::filesystem;

/// A file of noise that is larger than what a run holds of it.
class OneLarge : public test::ToolTest {
 protected:
  void SetUp() override { fs::create_directory(folder_.path() / "out"); }
  Outcome Run(const std::string& words) const { return ToolTest::Run("run " + words); }
  void MakeLarge(int width, int height) {
    const std::string size = std::to_string(width) + " " + std::to_string(height);
    Shell("printf 'P6\\n" + size + "\\n255\\n' > large.ppm; head -c " +
          std::to_string(3 * width * height) + " /dev/urandom >> large.ppm");
  }
};

/// The number that follows `text` in what a run has printed.
double NumberAfter(const std::string& output, const std::string& text) {
  const size_t at = output.find(text);
  EXPECT_NE(at, std::string::npos) << output;
  return at == std::string::npos ? 0 : std::stod(output.substr(at + text.size()));
}

/// Expects that a run takes the memory that a dry run has told, both in mebibytes; `peak_of_run`
/// runs. Libraries hold more or less. Several threads rarely have all of their bands at a time, and
/// even fewer while the processor is busy: the highest peak of a few runs counts.
template <typename PeakOfRun>
void ExpectAtMostAbout(double told, bool one_thread, const PeakOfRun& peak_of_run) {
  const double least = told - std::max((one_thread ? 0.1 : 0.25) * told, 2.0);
  double peak = 0;
  for (int run = 0; run < (one_thread ? 1 : 5) && peak < least; ++run) {
    peak = std::max(peak, peak_of_run());
  }
  EXPECT_LE(peak, told + std::max(0.02 * told, 2.0));
  EXPECT_GE(peak, least);
}

TEST_F(OneLarge, IsTheSameForAnyThreadsAndBandsAndTakesWhatTheDryRunTells) {
  MakeLarge(test::kSanitized ? 700 : 3000, 2501);
  const struct {
    std::string output, steps;
  } cases[] = {{"o.ppm", "negative"},
               {"o.png", "sharpen"},
               {"o.tif", "'median size=3' sharpen 'crop y=100' gaussian-blur"},
               {"o.bmp", "'turn angle=90' 'resize width=50%'"},
               {"o.ppm", "blur 'rotate angle=30' blur"}};
  for (const auto& c : cases) {
    Shell("rm -f first");
    for (const std::string how : {"--threads 1", "--threads 2", "--threads 3 --band-rows 50"}) {
      SCOPED_TRACE(c.steps + " " + how);
      const std::string words = "large.ppm -o " + c.output + " " + c.steps + " --no-notes " + how;
      const auto peak_of_run = [&] {
        const Outcome outcome = Run(words + " --stats");
        EXPECT_EQ(outcome.exit_code, kDone) << outcome.errors;
        EXPECT_EQ(
            Shell("test -f first || cp " + c.output + " first; cmp first " + c.output).exit_code,
            0);
        return NumberAfter(outcome.output, "memory at its peak ");
      };
      if (test::kSanitized) {  // which hold memory of their own
        peak_of_run();
        continue;
      }
      const double told = NumberAfter(Run(words + " --dry-run").output, "at most about ");
      ExpectAtMostAbout(told, how == "--threads 1", peak_of_run);
    }
  }
}

TEST_F(OneLarge, LeavesNothingWhenItEndsInTheMiddle) {
  MakeLarge(2000, 2000);
  Shell(
      "printf 'P6\\n2000 2000\\n254\\n' > bad.ppm; head -c 9000000 /dev/zero >> bad.ppm; "
      "tail -c 3000000 large.ppm >> bad.ppm");
  const std::pair<std::string, std::string> faults[] = {
      {Tool() + " run bad.ppm -o out/o.ppm --threads 2 sharpen", "larger than the stated maximum"},
      {"trap '' XFSZ; ulimit -f 8000; " + Tool() +
           " run large.ppm -o out/o.ppm --threads 2 sharpen",
       "File too large"},
      {"trap '' XFSZ; ulimit -f 8000; " + Tool() +
           " run large.ppm -o out/o.png --threads 3 sharpen",
       "File too large"}};
  for (const auto& [command, message] : faults) {
    const Outcome outcome = Shell(command);
    EXPECT_NE(outcome.exit_code, kDone);
    EXPECT_NE(outcome.errors.find(message), std::string::npos) << outcome.errors;
    EXPECT_TRUE(Files("out").empty());
  }
}

TEST_F(OneLarge, TakesTheMemoryOfItsBandsHoweverHighItIs) {
  for (const int height : {2000, 100'000}) {
    const std::string header = "P5\n100000 " + std::to_string(height) + "\n255\n";
    WriteFile(folder_ / "wide.pgm", header);
    fs::resize_file(folder_ / "wide.pgm", header.size() + uintmax_t{100'000} * height);
    const std::string words = "wide.pgm -o o.png 'light brightness=20' sharpen 'median size=3'";
    const double told = NumberAfter(Run(words + " --dry-run").output, "at most about ");
    EXPECT_LT(told, 100) << height << " rows";
    if (height > 2000 || test::kSanitized) continue;
    ExpectAtMostAbout(told, false, [&] {
      const Outcome outcome = Run(words + " --stats");
      EXPECT_EQ(outcome.exit_code, kDone) << outcome.errors;
      return NumberAfter(outcome.output, "memory at its peak ");
    });
  }
}

TEST_F(OneLarge, IsWholeOrNotThereHoweverLittleMemoryThereIs) {
  if (test::kSanitized) GTEST_SKIP() << "sanitizers take address space of their own";
  MakeLarge(700, 900);
  const std::string words =
      "timeout 20 " + Tool() + " run large.ppm -o out/o.png --threads 3 sharpen";
  ASSERT_EQ(Shell(words).exit_code, kDone);
  const std::string whole = Files("out").at("o.png");
  std::set<int> codes;
  int enough = 0;
  for (int mebibytes = 20; mebibytes < 800 && enough < 3; mebibytes += 1 + mebibytes / 12) {
    Shell("rm out/o.png");
    const Outcome outcome =
        Shell("ulimit -v " + std::to_string(mebibytes * 1024) + "; exec " + words);
    codes.insert(outcome.exit_code);
    const auto files = Files("out");
    if (outcome.exit_code == kDone) {
      ++enough;
      EXPECT_EQ(files.at("o.png"), whole);
    } else {
      EXPECT_TRUE(files.empty());
      EXPECT_FALSE(outcome.errors.empty());
    }
    EXPECT_TRUE(outcome.exit_code >= 0 && outcome.exit_code < 124)
        << outcome.exit_code << " with " << mebibytes << " MiB: " << outcome.errors;
  }
  EXPECT_TRUE(codes.contains(kDone));
  EXPECT_GT(codes.size(), 1u);
}

TEST_F(OneLarge, EndsSoonAfterASignalInTheMiddleAndLeavesNothing) {
  // Of rows of 30,000 bytes, one in fifty is there at once.
  const int rows = test::kSanitized ? 25000 : 100000;
  // While rows are waited for, and while all threads are at work.
  for (const std::string rest : {"sleep 60", "cat /dev/zero"}) {
    SCOPED_TRACE(rest);
    WriteFile(folder_ / "script",
              "mkfifo pipe; (printf 'P6\\n10000 " + std::to_string(rows) + "\\n255\\n'; head -c " +
                  std::to_string(rows / 50 * 30000) + " /dev/zero; exec " + rest +
                  ") > pipe & writer=$!; "
                  "env --default-signal=INT " +
                  Tool() +
                  " run pipe -o out/o.png --threads 2 --progress=json 'median size=5' & tool=$!; "
                  "until grep -q '\"share\": 0.0*[1-9]' .errors || ! kill -0 $tool; do "
                  "sleep 0.01; done; "
                  "start=$(date +%s%N); kill -INT $tool; wait $tool; code=$?; "
                  "echo took $((($(date +%s%N) - start) / 1000000)); "
                  "kill $writer 2>/dev/null; rm pipe; exit $code");
    const Outcome outcome = Shell("bash script");
    EXPECT_EQ(outcome.exit_code, kInterrupted) << outcome.errors;
    EXPECT_LT(NumberAfter(outcome.output, "took "), test::kSanitized ? 2000 : 500);
    EXPECT_TRUE(Files("out").empty());
  }
}

}  // namespace
}  // namespace qel::cli
