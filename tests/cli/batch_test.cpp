#include <fmt/core.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>

#include "cli/operations.h"
#include "cli/session/session.h"
#include "cli/session/sha256.h"
#include "cli/terminal/errors.h"
#include "pictures/byte_reader.h"
#include "tests/support/sanitized.h"
#include "tests/support/tool.h"

namespace qel::cli {
namespace {

using test::Count;
using test::Outcome;
using test::ReadFile;
using test::WriteFile;
namespace fs = std::filesystem;

std::string HashOf(const std::string& content) { return Sha256(pictures::BytesOf(content)); }

/// The tool on many files, as a user starts it.
class Bulk : public test::ToolTest {
 protected:
  void SetUp() override {
    fs::create_directory(folder_.path() / "in");
    fs::create_directory(folder_.path() / "out");
  }

  Outcome Run(const std::string& words) { return ToolTest::Run("run " + words); }

  std::string Name(int i) { return "in/" + std::to_string(1000 + i) + ".pgm"; }

  void MakeInputs(int count) {
    for (int i = 0; i < count; ++i) WriteFile(folder_ / Name(i), Gray(i));
  }

  std::string Line(int i, const std::string& recipe) {
    const std::string name = std::to_string(1000 + i) + ".pgm";
    return "{\"input\": \"in/" + name + "\", \"output\": \"out/" + name + "\", \"recipe\": \"" +
           recipe + "\", \"status\": \"done\", \"output_sha256\": \"" + HashOf(Gray(255 - i)) +
           "\", \"input_sha256\": \"" + HashOf(Gray(i)) + "\"}\n";
  }
};

TEST_F(Bulk, OneBrokenFileInTwentyLeavesTheOthersRightAndEveryShardingGivesTheSame) {
  // Each of the ten ways to be broken is met five times, or once.
  constexpr int kFiles = test::kSanitized ? 200 : 1000;
  const std::string broken[] = {"",
                                "no picture at all",
                                Gray(1).substr(0, 20),
                                "P5\n0 4\n255\n",
                                "P5\n99999999 99999999\n255\n0",
                                "\x89PNG\r\n\x1a\n and nothing more",
                                "\xFF\xD8\xFF\xE0",
                                std::string("II*\0\xFF\xFF\xFF\x7F", 8)};
  MakeInputs(kFiles);
  std::map<std::string, std::string> expected;
  std::set<std::string> wrong;
  for (int i = 0; i < kFiles; ++i) {
    const std::string path = folder_ / Name(i);
    const size_t way = static_cast<size_t>(i / 20) % (std::size(broken) + 2);
    if (i % 20 != 7) {
      expected[fs::path(path).filename()] = Gray(255 - i);
      continue;
    }
    wrong.insert(Name(i));
    if (way < std::size(broken)) WriteFile(path, broken[way]);
    if (way >= std::size(broken)) fs::remove(path);
    if (way == std::size(broken)) fs::create_directory(path);
    if (way > std::size(broken)) fs::create_symlink("nowhere", path);
  }
  // A list, since patterns pass folders over.
  Shell("ls -d in/* > list");
  const std::string words = "--files-from list -o 'out/{stem}.pgm' negative ";
  const Outcome outcome = Run(words + "--json whole.json");
  EXPECT_EQ(outcome.exit_code, kSomeFailed);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(Count(outcome.errors, "\n"), wrong.size() + 1) << outcome.errors;
  const std::string failed = fmt::format("qel: {} of {} files failed\n", kFiles / 20, kFiles);
  EXPECT_NE(outcome.errors.find(failed), std::string::npos) << outcome.errors;
  for (const std::string& name : wrong) {
    EXPECT_EQ(Count(outcome.errors, "qel: " + name + ": "), 1u) << name;
  }
  EXPECT_EQ(Files("out"), expected);
  const std::string whole = ReadFile(folder_ / "whole.json");
  EXPECT_EQ(Count(whole, "\n"), size_t{kFiles});
  EXPECT_EQ(Count(whole, "\"status\": \"failed\", \"error\": \"in/"), wrong.size());
  EXPECT_EQ(whole.find(Line(0, "negative")), 0u) << whole.substr(0, 500);

  fs::remove_all(folder_.path() / "out");
  fs::create_directory(folder_.path() / "out");
  const std::string parts[] = {
      " 1/3 --jobs 1",
      " auto --jobs 3 --json 2.json",
      " auto --json 3.json",
  };
  EXPECT_EQ(Run(words + "--json 1.json --shard" + parts[0]).exit_code, kSomeFailed);
  Shell("SLURM_ARRAY_TASK_ID=11 SLURM_ARRAY_TASK_MIN=10 SLURM_ARRAY_TASK_COUNT=3 " + Tool() +
        " run " + words + "--shard" + parts[1]);
  EXPECT_EQ(Files("out").size(), test::kSanitized ? 126u : 633u);
  Shell("JOB_COMPLETION_INDEX=2 QEL_SHARD_COUNT=3 " + Tool() + " run " + words + "--shard" +
        parts[2]);
  EXPECT_EQ(Files("out"), expected);
  EXPECT_EQ(Shell("cat 1.json 2.json 3.json").output, whole);
}

TEST_F(Bulk, ResumesWhereBothFilesAndStepsAreAsTheyWere) {
  MakeInputs(8);
  const std::string words =
      "'in/*.pgm' -o 'out/{stem}.pgm' negative --json m.json --progress=json ";
  const auto skipped = [](const Outcome& outcome) {
    return Count(outcome.errors, "\"status\": \"skipped\"");
  };
  ASSERT_EQ(skipped(Run(words)), 0u);
  const std::string manifest = ReadFile(folder_ / "m.json");
  const auto files = Files("out");
  EXPECT_EQ(skipped(Run(words + "--resume")), 8u);
  EXPECT_EQ(ReadFile(folder_ / "m.json"), manifest);

  // Written by hand, and by a run that was killed before it could say that it was done.
  std::string edited = manifest;
  edited.insert(edited.find(": "), "  ");
  edited.replace(edited.find("done"), 4, "started");
  const std::string strange[] = {"{\"input\": \"in/1000.pgm\"", "{\"status\": \"done\"} {}",
                                 "text"};
  for (const std::string& line : strange) edited += line + "\n";
  WriteFile(folder_ / "m.json", edited + "{\"inp");
  const Outcome again = Run(words + "--resume");
  EXPECT_EQ(skipped(again), 8u);
  EXPECT_EQ(ReadFile(folder_ / "m.json"), manifest);
  for (const std::string line : {"9 is not understood: there is no }, after 23 bytes\n",
                                 "10 is not understood: there is more than one object",
                                 "11 is not understood: there is no {", "12 is not understood"}) {
    EXPECT_EQ(Count(again.errors, "qel: m.json: line " + line), 1u) << again.errors;
  }

  // An output that is gone, one that is damaged, another input, a line that was cut off.
  fs::remove(folder_ / "out/1000.pgm");
  WriteFile(folder_ / "out/1001.pgm", "damaged");
  WriteFile(folder_ / Name(2), Gray(99));
  WriteFile(folder_ / "m.json", manifest.substr(0, manifest.size() - 30));
  const Outcome outcome = Run(words + "--resume");
  EXPECT_EQ(outcome.exit_code, kDone);
  EXPECT_EQ(skipped(outcome), 4u) << outcome.errors;
  auto expected = files;
  expected["1002.pgm"] = Gray(255 - 99);
  EXPECT_EQ(Files("out"), expected);
  EXPECT_EQ(Count(ReadFile(folder_ / "m.json"), "\n"), 8u);
  // What cannot be read for a while stays done.
  WriteFile(folder_ / Name(3), "broken");
  EXPECT_EQ(skipped(Run(words + "--resume")), 7u);
  WriteFile(folder_ / Name(3), Gray(3));
  EXPECT_EQ(skipped(Run(words + "--resume")), 8u);
  // Other steps are other work.
  EXPECT_EQ(skipped(Run(words + "'light brightness=1' --resume")), 0u);
  EXPECT_EQ(skipped(Run(words + "--quality 50 --resume")), 0u);
}

TEST_F(Bulk, InterruptionsLeaveWholeFilesAndCanBeResumed) {
  // The second input is a pipe to which nobody writes: one thread waits for it for ever.
  for (const std::string signal : {"INT", "TERM", "HUP"}) {
    SCOPED_TRACE(signal);
    Shell("rm -f in/* out/* events");
    MakeInputs(5);
    const std::string words = "'in/*.pgm' -o 'out/{stem}.pgm' --jobs 2 negative --json m.json ";
    const auto interrupt = [&](const std::string& pipes, const std::string& more_words,
                               const std::string& condition) {
      const std::string script = "rm -f " + pipes + "; mkfifo " + pipes +
                                 "; set -m; "
                                 // Also where the tests themselves run with interrupts ignored.
                                 "env --default-signal=INT --default-signal=HUP " +
                                 Tool() + " run " + words + more_words +
                                 "& for i in $(seq 1000); do " + condition +
                                 " && break; sleep 0.01; done; kill -" + signal + " $!; wait $!";
      WriteFile(folder_ / "script", script);
      const Outcome outcome = Shell("bash script");
      EXPECT_EQ(outcome.exit_code, kInterrupted) << outcome.errors;
      EXPECT_NE(outcome.errors.find("qel: interrupted with "), std::string::npos) << outcome.errors;
    };
    interrupt("in/1001.pgm", "", "[ -e out/1004.pgm ]");
    const std::map<std::string, std::string> expected = {{"1000.pgm", Gray(255)},
                                                         {"1002.pgm", Gray(253)},
                                                         {"1003.pgm", Gray(252)},
                                                         {"1004.pgm", Gray(251)}};
    EXPECT_EQ(Files("out"), expected);
    const std::string manifest = ReadFile(folder_ / "m.json");
    EXPECT_EQ(manifest, Line(0, "negative") + Line(2, "negative") + Line(3, "negative") +
                            Line(4, "negative"));
    fs::remove(folder_ / Name(1));
    WriteFile(folder_ / Name(1), Gray(1));
    const Outcome resumed = Run(words + "--resume --progress=json");
    EXPECT_EQ(resumed.exit_code, kDone);
    EXPECT_EQ(Count(resumed.errors, "skipped\", "), 4u) << resumed.errors;
    EXPECT_EQ(ReadFile(folder_ / "out/1001.pgm"), Gray(254));
    // A resumed run that comes to nothing forgets nothing.
    interrupt("in/1000.pgm in/1001.pgm", "--resume --progress=json --progress-fd 3 3>events",
              "grep -q start events");
    std::string all;
    for (int i = 0; i < 5; ++i) all += Line(i, "negative");
    EXPECT_EQ(ReadFile(folder_ / "m.json"), all);
  }
}

TEST_F(Bulk, ClosedDescriptorsAreNotTakenForFiles) {
  // Every output has a note: "holds no alpha".
  constexpr int kFiles = 12;
  for (int i = 0; i < kFiles; ++i) {
    WriteFile(folder_ / Name(i), "P7\nWIDTH 1\nHEIGHT 1\nDEPTH 4\nMAXVAL 255\nENDHDR\nabc" +
                                     std::string(1, static_cast<char>(i)));
  }
  std::map<std::string, std::string> expected;
  for (int i = 0; i < kFiles; ++i) {
    expected[std::to_string(1000 + i) + ".ppm"] = "P6\n1 1\n255\n\x9E\x9D\x9C";
  }
  const std::string words = "'in/*' -o 'out/{stem}.ppm' --jobs 4 negative --json m.json";
  ASSERT_EQ(Run(words).exit_code, kDone);
  const std::string manifest = ReadFile(folder_ / "m.json");
  const char* const closed[] = {" <&-", " >&-", " 2>&-"};
  for (unsigned subset = 0; subset < 8; ++subset) {
    for (const bool with_manifest : {true, false}) {
      std::string line = words.substr(0, with_manifest ? words.npos : words.find(" --json"));
      for (unsigned i = 0; i < 3; ++i) line += (subset >> i & 1) != 0 ? closed[i] : "";
      SCOPED_TRACE(line);
      Shell("rm out/* m.json");
      EXPECT_EQ(Run(line).exit_code, kDone);
      EXPECT_EQ(Files("out"), expected);
      EXPECT_EQ(ReadFile(folder_ / "m.json"), with_manifest ? manifest : "");
    }
  }
  EXPECT_EQ(ToolTest::Run("list >&-").exit_code, kNoOutput);
}

TEST_F(Bulk, ProtectedFilesAreReplacedByForceOnly) {
  MakeInputs(2);
  fs::permissions(folder_ / Name(0), fs::perms(0444));
  for (const std::string dry : {" --dry-run", ""}) {
    const Outcome outcome = Run("'in/*' --in-place negative" + dry);
    EXPECT_EQ(outcome.exit_code, kSomeFailed);
    EXPECT_NE(outcome.errors.find("in/1000.pgm: has no write permission"), std::string::npos)
        << outcome.errors;
  }
  EXPECT_EQ(ReadFile(folder_ / Name(0)), Gray(0));
  EXPECT_EQ(ReadFile(folder_ / Name(1)), Gray(254));
  EXPECT_EQ(Run("in/1000.pgm --in-place --force negative").exit_code, kDone);
  EXPECT_EQ(ReadFile(folder_ / Name(0)), Gray(255));
}

TEST_F(Bulk, RefusesBeforeAnythingIsDone) {
  MakeInputs(2);
  fs::create_directory(folder_.path() / "other");
  WriteFile(folder_ / "other/1000.pgm", Gray(5));
  WriteFile(folder_ / "in/x-1000.pgm", Gray(6));
  WriteFile(folder_ / "empty", "\n\n");
  WriteFile(folder_ / "other.json", "{\n  \"input\": 1}\n");
  fs::create_symlink("in/1000.pgm", folder_.path() / "link.pgm");
  fs::create_hard_link(folder_ / Name(0), folder_ / "hard.pgm");
  const auto before = Files(".");
  const std::vector<Ending> cases = {
      {"in/1000.pgm in/1001.pgm -o out.pgm negative", kUsage, "in/1000.pgm and in/1001.pgm would"},
      {"in/1000.pgm other/1000.pgm -o 'out/{stem}.pgm' negative", kUsage, "would both become"},
      {"in/1000.pgm other/../in/1000.pgm -o 'out/{stem}.pgm' negative", kUsage, "both"},
      {"in/1000.pgm other/1000.pgm -o 'out/{dir}/../{stem}.pgm' --parents negative", kUsage,
       "both"},
      {"in/1000.pgm -o in/1000.pgm negative", kUsage, "write --in-place"},
      {"in/1000.pgm -o link.pgm negative", kUsage, "write --in-place"},
      {"in/1000.pgm in/x-1000.pgm -o 'in/x-{stem}.pgm' negative", kUsage,
       "replace in/x-1000.pgm, which is read as well"},
      {"in/1000.pgm link.pgm --in-place negative", kUsage, "link.pgm is given twice"},
      {"in/1000.pgm --in-place -o out.pgm negative", kUsage, "exclude each other"},
      {"- - -o 'out/{n}.pgm' negative", kUsage, "can be read once"},
      {"- --files-from - -o 'out/{n}.pgm' negative", kUsage, "can be read once"},
      {"in/1000.pgm -o out.pgm filter kernel=@/dev/zero", kNoInput, "than the limit of 67108864"},
      {"in/1000.pgm -o out.pgm negative --json out.pgm", kUsage, "--json out.pgm is one of"},
      {"in/1000.pgm -o out.pgm negative --json in/../in/1000.pgm", kUsage, "is one of"},
      {"in/1000.pgm -o out.pgm negative --json out", kNoOutput, "not a regular file"},
      {"in/1000.pgm -o out.pgm negative --json hard.pgm", kUsage, "same file as in/1000.pgm"},
      {"in/1000.pgm -o out.pgm add with=in/1001.pgm --json in/1001.pgm", kUsage, "is one of"},
      {"--files-from empty in/1000.pgm -o out.pgm negative --json empty", kUsage, "as empty,"},
      {"in/1000.pgm -o hard.pgm negative --json in/1000.pgm", kUsage, "is one of"},
      {"in/1000.pgm -o out.pgm negative --json in/1001.pgm", kUsage, "that is no manifest"},
      {"in/1000.pgm -o out.pgm negative --json other.json --dry-run", kUsage, "is no manifest"},
      {"in/1001.pgm -o hard.pgm negative --json in/1000.pgm", kUsage, "same file as hard.pgm"},
      {"in/1000.pgm -o out.pgm negative --module " + Tool() + " --json " + Tool(), kUsage,
       "as " + Tool()},
      {"in/1000.pgm -o '{folder}.pgm' negative", kUsage, "there is no {folder}"},
      {"in/1000.pgm -o '{stem.pgm' negative", kUsage, "not closed"},
      {"in/1000.pgm -o '{stem}' negative", kUsage, "names no picture format"},
      {"in/1000.pgm -o 'new/{stem}.pgm' negative", kNoOutput, "there is no folder new"},
      {"'in/*.png' -o 'out/{stem}.pgm' negative", kNoInput, "in/*.png: no file matches"},
      {"-o 'out/{stem}.pgm' negative", kUsage, "no inputs before -o"},
      {"--files-from empty -o 'out/{stem}.pgm' negative", kNoInput, "names no files"},
      {"--files-from none -o 'out/{stem}.pgm' negative", kNoInput, "none: No such file"},
      {"in/1000.pgm -o out.pgm resample", kUsage, "qel: resample: give width="},
      {"in/1000.pgm -o out.pgm filter kernel=1,2", kUsage, "qel: filter: kernel: 2 weights"},
      {"in/1000.pgm -o out.pgm transform", kUsage, "qel: transform: give one of"},
      {"in/1000.pgm -o out.pgm transform affine=1,0,nan,0,1,0", kUsage, "nan"},
      {"in/1000.pgm -o out.pgm quad top-left=3", kUsage, "qel: quad: top-left=3 is no point"},
      {"in/1000.pgm -o out.pgm quad top-left=nan,0", kUsage, "top-left=nan,0 is no point"},
      {"in/1000.pgm -o out.pgm skew x-gain=1e38", kUsage, "of any size, as far as 2147483647"},
      {"in/1000.pgm -o out.pgm negative --resume", kUsage, "--resume needs --json"},
      {"in/1000.pgm -o out.pgm negative --shard 0/3", kUsage, "with I from 1 to N"},
      {"in/1000.pgm -o out.pgm negative --shard 4/3", kUsage, "not 4/3"},
      {"in/1000.pgm -o out.pgm negative --shard 2", kUsage, "not 2"},
      {"in/1000.pgm -o out.pgm negative --shard auto", kUsage, "neither SLURM_ARRAY_TASK_ID"},
      {"in/1000.pgm -o out.pgm negative --jobs 0", kUsage, "from 1 to"},
      {"'in/\x1bm\n\xC2\x9B\xFF.pgm' -o out.pgm negative", kNoInput,
       "qel: in/\\x1bm\\n\\x9b\\xff.pgm: No such file"},
      {"in/1000.pgm -o out.pgm negative --progress=loud", kUsage, "auto, bar, json or none"},
      {"in/1000.pgm -o out.pgm negative --progress=json --progress-fd 77", kUsage, "open"},
  };
  for (const Ending& c : cases) {
    Expect({"run " + c.words, c.exit_code, c.said});
    EXPECT_EQ(Files("."), before) << c.words;
  }
}

TEST_F(Bulk, FindsInputsAndNamesOutputs) {
  fs::create_directories(folder_.path() / "in/deep/er");
  fs::create_directories(folder_.path() / "in/.hidden");
  for (const std::string name : {"in/b.pgm", "in/a.PGM", "in/deep/c.pgm", "in/deep/er/d.e.pgm",
                                 "in/.hidden/x.pgm", "in/.y.pgm", "in/[b].pgm"}) {
    WriteFile(folder_ / name, Gray(0));
  }
  const std::string bytes = "in/\xC3\xA4 \xFF\n.pgm";
  const struct {
    std::string words;
    std::vector<std::string> outputs;
  } cases[] = {
      {"in/b.pgm 'in/a.*' -o '{n}{{{ext}}}.bmp'", {"1{pgm}.bmp", "2{PGM}.bmp"}},
      {"'in/?.pgm' -o '{dir}/../{stem}-{n:3}.png'", {"in/../b-001.png"}},
      {"'in/**/*.pgm' -o 'out/{stem}.png'",
       {"out/[b].png", "out/b.png", "out/c.png", "out/d.e.png"}},
      {"'in/[b].pgm' -o 'out/{stem}.png'", {"out/[b].png"}},
      {"'in/[!b].PGM' 'in/.*.pgm' -o 'out/{stem}.png'", {"out/a.png", "out/.y.png"}},
      {"'*/deep/*.pgm' -o 'x/{dir}/{stem}.png' --parents", {"x/in/deep/c.png"}},
      {"in/b.pgm --files-from list -o 'out/{n}.png'", {"out/1.png", "out/2.png", "out/3.png"}},
      {"'in/**/*.pgm' -o 'out/{n}.png' --shard 2/3", {"out/2.png"}},
      {"in/b.pgm -o 'out/{n}.png' --shard 1/3", {}},
      {"--files-from - -o 'out/{stem}.png' <zeros",
       {"out/b.png", "out/" + bytes.substr(3, 5) + ".png"}},
  };
  WriteFile(folder_ / "list", "in/a.PGM\n\nin/deep/c.pgm");
  WriteFile(folder_ / "zeros", std::string("in/b.pgm") + '\0' + bytes + '\0');
  for (const auto& c : cases) {
    SCOPED_TRACE(c.words);
    const bool with_bytes = c.words.ends_with("zeros");
    if (with_bytes) WriteFile(folder_ / bytes, Gray(0));
    const size_t steps = std::min(c.words.find(" <"), c.words.size());
    const std::string words =
        c.words.substr(0, steps) + " negative --jobs 1 --json m.json" + c.words.substr(steps);
    const Outcome outcome = Run(words);
    EXPECT_EQ(outcome.exit_code, kDone) << outcome.errors;
    for (const std::string& output : c.outputs) {
      EXPECT_TRUE(fs::remove(folder_ / output)) << output;
    }
    EXPECT_TRUE(Files("out").empty());
    const std::string manifest = ReadFile(folder_ / "m.json");
    EXPECT_EQ(Count(manifest, "\n"), c.outputs.size()) << manifest;
    if (with_bytes) {
      EXPECT_EQ(Count(manifest, "in/\xC3\xA4 \\udcff\\u000a.pgm\""), 1u) << manifest;
    }
  }
}

TEST_F(Bulk, ADryRunTellsFromHeadersWhatWouldBeDone) {
  const struct {
    std::string name;
    int bit_count;
  } pictures[] = {{"a.png", 32}, {"b.jpg", 24}, {"c.tiff", 24}, {"d.webp", 32}, {"e.bmp", 8}};
  for (const auto& picture : pictures) {
    const auto image = MakeImage(1024, 512, picture.bit_count);
    SavePicture(folder_ / ("in/" + picture.name), *image, {}, {});
  }
  // The header of a picture is enough.
  const std::string jpeg = ReadFile(folder_ / "in/b.jpg");
  WriteFile(folder_ / "in/b.jpg", jpeg.substr(0, jpeg.size() - 20));
  WriteFile(folder_ / "in/f.png", "broken");
  const auto before = Files(".");
  const Outcome outcome =
      Run("'in/*' -o 'out/{stem}.png' --dry-run --jobs 2 --json m.json negative");
  EXPECT_EQ(outcome.exit_code, kSomeFailed);
  EXPECT_EQ(outcome.errors.find("qel: in/f.png: "), 0u) << outcome.errors;
  for (const auto& picture : pictures) {
    const std::string shape = "  1024 x 512, " + std::to_string(picture.bit_count) + " bits";
    const std::string line =
        "in/" + picture.name + shape + " -> out/" + picture.name.substr(0, 1) + ".png" + shape;
    EXPECT_EQ(Count(outcome.output, line), 1u) << outcome.output;
  }
  EXPECT_EQ(Count(outcome.output, "5 files, 2 at a time, at most about "), 1u) << outcome.output;
  EXPECT_EQ(Files("."), before);
}

TEST_F(Bulk, ProgressGoesToTheTerminalOrToPrograms) {
  MakeInputs(3);
  WriteFile(folder_ / "in/x.pgm", "broken");
  const std::string words = "'in/*' -o 'out/{stem}.pgm' negative ";
  const Outcome json = Run(words + "--jobs 1 --progress=json --progress-fd 3 3>events");
  EXPECT_EQ(Count(json.errors, "\n"), 2u) << json.errors;
  const std::string events = ReadFile(folder_ / "events");
  EXPECT_EQ(events.find("{\"event\": \"start\", \"files\": 4, \"jobs\": 1}\n{\"event\": \"file\", "
                        "\"input\": \"in/1000.pgm\", \"output\": \"out/1000.pgm\", \"status\": "
                        "\"done\", \"finished\": 1, \"files\": 4, "),
            0u)
      << events;
  EXPECT_EQ(Count(events, "\"exit_code\": 3, \"finished\": 4"), 1u) << events;
  EXPECT_EQ(Count(events, "{\"event\": \"end\", \"done\": 3, \"skipped\": 0, \"failed\": 1"), 1u);
  // Nobody reads the events, or the messages: the run goes on.
  for (const std::string unread : {"--progress=json --progress-fd 3 3>&1", "2>&1"}) {
    Shell("rm out/*; { sleep 0.1; " + Tool() + " run " + words + unread +
          "; echo $? >code; } | true");
    EXPECT_EQ(ReadFile(folder_ / "code"), "1\n") << unread;
    EXPECT_EQ(Files("out").size(), 3u) << unread;
  }
  const Outcome unread = Shell("{ sleep 0.1; " + Tool() + " list; echo $? >code; } | true");
  EXPECT_EQ(unread.errors, "");

  const std::string terminal = "script -qec \"" + Tool() + " run " + words + "\" /dev/null";
  const std::string colored = Shell("TERM=xterm " + terminal).output;
  EXPECT_GE(Count(colored, "] 0 of 4, "), 1u) << colored;
  EXPECT_EQ(Count(colored, "\x1b[31m1 of 4 files failed"), 1u) << colored;
  EXPECT_EQ(Count(Shell("NO_COLOR=1 " + terminal).output, "\x1b[31m"), 0u);
}

TEST_F(Bulk, MemoryHardlyGrowsWithTheNumberOfFiles) {
  if (test::kSanitized) GTEST_SKIP() << "sanitizers keep freed memory";
  MakeInputs(1);
  constexpr int kFiles = 2000;
  const auto peak_memory = [&](int files) {
    std::string list;
    for (int i = 0; i < files; ++i) list += Name(0) + "\n";
    WriteFile(folder_ / "list", list);
    const Outcome outcome =
        Run("--files-from list -o 'out/{n}.pgm' negative --json m.json --jobs 2");
    EXPECT_EQ(outcome.exit_code, kDone) << outcome.errors;
    return outcome.peak_mib;
  };
  EXPECT_LT(peak_memory(kFiles), peak_memory(10) + 16.0 * kFiles / 10000);
}

TEST_F(Bulk, GnuParallelSharesTheWork) {
  MakeInputs(9);
  WriteFile(folder_ / "in/x y.pgm", Gray(200));
  Shell("ls in/* > list");
  const std::string script =
      "QEL=" + Tool() + " " + test::SourceFolder() + "/examples/bulk/parallel.sh ";
  const Outcome outcome = Shell(script + "list 'out/{stem}.pgm' 4 negative 'light brightness=5'");
  EXPECT_EQ(outcome.exit_code, kDone) << outcome.errors;
  EXPECT_EQ(Files("out").size(), 10u);
  EXPECT_EQ(ReadFile(folder_ / "out/x y.pgm"), Gray(60));
  const std::string manifest = ReadFile(folder_ / "list.json");
  EXPECT_EQ(
      Run("--files-from list -o 'out/{stem}.pgm' negative 'light brightness=5' --json m").exit_code,
      kDone);
  EXPECT_EQ(ReadFile(folder_ / "m"), manifest);
}

}  // namespace
}  // namespace qel::cli
