#include <gtest/gtest.h>

#include <algorithm>

#include "cli/commands/command_table.h"
#include "cli/commands/completion.h"
#include "cli/operations.h"
#include "cli/session/picture_io.h"
#include "cli/terminal/errors.h"
#include "tests/support/sanitized.h"
#include "tests/support/tool.h"

namespace qel::cli {
namespace {

using test::Outcome;
using test::ReadFile;
using test::WriteFile;

/// Commands that read no more than small pictures: two of one shape, one pixel apart.
class Commands : public test::ToolTest {
 protected:
  void SetUp() override {
    WriteFile(folder_ / "a.ppm", "P3 3 2 255  1 2 3 4 5 6 7 8 9  9 8 7 6 5 4 3 2 1\n");
    WriteFile(folder_ / "b.ppm", "P3 3 2 255  1 2 3 4 5 6 7 8 9  9 8 7 6 45 4 3 12 1\n");
    WriteFile(folder_ / "grey.pgm", "P2 3 2 255  1 2 3 4 5 6\n");
    WriteFile(folder_ / "small.ppm", "P3 1 1 255  1 2 3\n");
  }
};

TEST_F(Commands, DiffTellsHowPicturesDiffer) {
  ExpectEach(
      "diff ",
      {
          {"a.ppm a.ppm", 0, "exact\ndiffering pixels    0 of 6\nmaximum difference  0\nPSNR  "},
          {"a.ppm a.ppm", 0, "infinite"},
          {"a.ppm b.ppm", 1, "different\ndiffering pixels    2 of 6\nmaximum difference  40\nPSNR"},
          // 10 log10(255 * 255 * 18 / (40 * 40 + 10 * 10))
          {"a.ppm b.ppm", 1, " 28.38 dB\n"},
          {"a.ppm b.ppm --limit 10", 1, "differing pixels    1 of 6"},
          {"a.ppm b.ppm --limit 40", 0, "equal within the limit\ndiffering pixels    0 of 6"},
          {"a.ppm grey.pgm", 2, "one is 3 x 2 at 24 bits, the other 3 x 2 at 8 bits"},
          {"a.ppm small.ppm", 2, "the other 1 x 1 at 24 bits"},
          {"a.ppm", 2, "write qel diff A B"},
          {"a.ppm b.ppm -o ./b.ppm", 2, "b.ppm would be replaced by the output"},
          {"a.ppm ''", 3, "an input has no name"},
          {"a.ppm missing.ppm", 3, "missing.ppm"},
      });
  EXPECT_EQ(Run("diff --json a.ppm b.ppm").output.substr(0, 58),
            "{\"equal\": false, \"exact\": false, \"differing_pixels\": 2, \"p");
  EXPECT_NE(Run("diff --json a.ppm a.ppm").output.find("\"psnr\": null"), std::string::npos);
  EXPECT_EQ(Run("diff a.ppm b.ppm -o d.ppm").exit_code, kSomeFailed);
  const std::string difference = ReadFile(folder_ / "d.ppm");
  std::string expected(18, '\0');
  expected[13] = '\xFF';  // 40 of 40
  expected[16] = '\x3F';  // 10 of 40
  EXPECT_EQ(difference.substr(difference.size() - 18), expected);
}

TEST_F(Commands, SheetsHoldPicturesUnscaled) {
  const auto shape = [&](const std::string& words) {
    const Outcome outcome = Run("sheet " + words + " -o sheet.png");
    EXPECT_EQ(outcome.exit_code, kDone) << outcome.errors;
    const Picture sheet = LoadPicture(folder_ / "sheet.png", {});
    return std::pair(sheet.image->width(), sheet.image->height());
  };
  // Columns have room for the widest picture, 96 at least, rows for their own tallest; captions
  // adapt: 16 letters, three lines.
  EXPECT_EQ(shape("a.ppm grey.pgm small.ppm"), std::pair(12 + 3 * 108, 12 + 34));
  EXPECT_EQ(shape("a.ppm grey.pgm small.ppm --columns 2"), std::pair(12 + 2 * 108, 12 + 34 + 33));
  EXPECT_EQ(shape("a.ppm --steps negative \"light brightness=20\" -o x.png"),
            std::pair(12 + 3 * 108, 12 + 44));
  const std::string letters(40, 'x');
  const std::pair<std::string, int> captions[] = {{letters.substr(0, 16), 34},
                                                  {letters.substr(0, 17), 44},
                                                  {letters, 54},
                                                  {letters + letters, 54},
                                                  {"größe größe größ", 34}};
  for (const auto& [caption, height] : captions) {
    EXPECT_EQ(shape("a.ppm --caption '" + caption + "'"), std::pair(12 + 108, 12 + height));
  }

  // Patterns; no captions, no room for them; scaled into 2 x 2, of three columns by two.
  EXPECT_EQ(shape("'[ab].ppm' --no-captions"), std::pair(12 + 2 * 15, 12 + 2 + 12));
  EXPECT_EQ(shape("'[ab].ppm' --no-captions --size 2"), std::pair(12 + 2 * 14, 12 + 1 + 12));
  WriteFile(folder_ / "wide.pgm", "P5 20000 1 255\n" + std::string(20000, 'x'));
  WriteFile(folder_ / "high.pgm", "P5 1 20000 255\n" + std::string(20000, 'x'));
  const Outcome large = Run("sheet wide.pgm high.pgm -o large.png");
  EXPECT_EQ(large.exit_code, kUsage);
  EXPECT_NE(large.errors.find("more than the limit of 268435456; scale its pictures with --size"),
            std::string::npos)
      << large.errors;
  EXPECT_FALSE(std::filesystem::exists(folder_ / "large.png"));

  // The third cell's picture, by its first pixel: after one step, or two.
  const auto third_pixel = [&](const std::string& words) {
    EXPECT_EQ(Run("sheet a.ppm --steps " + words + " -o s.png --caption 1 --caption 2 --caption 3")
                  .exit_code,
              kDone);
    const Picture sheet = LoadPicture(folder_ / "s.png", {});
    const uint8_t* const pixel = sheet.image->Row(12) + 4 * (12 + 2 * (96 + 12));
    return std::vector<int>{pixel[2], pixel[1], pixel[0]};
  };
  EXPECT_EQ(third_pixel("negative negative"), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(third_pixel("negative negative --apart"), (std::vector<int>{254, 253, 252}));
  EXPECT_EQ(Run("sheet a.ppm -o s.png --caption 1 --caption 2").exit_code, kUsage);
  EXPECT_EQ(Run("sheet a.ppm").exit_code, kUsage);
  EXPECT_EQ(Run("sheet a.ppm -o a.ppm").exit_code, kUsage);
  EXPECT_EQ(Run("sheet b.ppm --steps 'overlay a.ppm' -o a.ppm").exit_code, kUsage);
}

TEST_F(Commands, ModulesAreToldForPrograms) {
  Shell("cp " + test::ModulePath() + " .");
  const Outcome inspected = Run("inspect --json QELMaths.so");
  EXPECT_EQ(inspected.exit_code, kDone) << inspected.errors;
  for (const std::string part :
       {"\"exports\": [\"CreateFunction\", \"InitializeModule\"]", "{\"name\": \"QELMaths\"",
        "\"slots\": [\"QueryInterface\"", "\"level\": \""}) {
    EXPECT_NE(inspected.output.find(part), std::string::npos) << part << inspected.output;
  }
  const Outcome checked = Run("check --json --filter entry QELMaths.so");
  EXPECT_EQ(checked.exit_code, kDone) << checked.errors;
  EXPECT_TRUE(checked.output.starts_with("{\"library\": \"QELMaths.so\", \"suite\": \"entry\""));
  EXPECT_EQ(checked.output.find("\"kept\": false"), std::string::npos) << checked.output;
  const Outcome version = Run("version --verbose");
  EXPECT_NE(version.output.find("\nmodule  /"), std::string::npos) << version.output;
  EXPECT_NE(version.output.find("\nPNG     libpng 1."), std::string::npos) << version.output;
}

TEST_F(Commands, HelpFitsAScreenAndItsExamplesRun) {
  const std::string help = Run("help").output;
  EXPECT_LE(std::ranges::count(help, '\n'), 24) << help;
  ASSERT_EQ(Run("run a.ppm -o photo.jpg resize 200% enlarge=yes").exit_code, kDone);
  Shell("mkdir photos web; cp photo.jpg photos");
  Run("convert photo.jpg -o scan.tiff");
  Run("convert a.ppm -o logo.png");
  size_t examples = 0;
  for (size_t at = 0; (at = help.find("\n  qel ", at)) != help.npos; ++at) {
    std::string words = help.substr(at + 7, help.find('\n', at + 1) - at - 7);
    // The pictures here are smaller than its distance from the corner.
    if (const size_t place = words.find("x=20 y=20"); place != words.npos) words.erase(place);
    const Outcome outcome = Run(words);
    EXPECT_EQ(outcome.exit_code, kDone) << words << "\n" << outcome.errors;
    ++examples;
  }
  EXPECT_EQ(examples, 5u);
}

TEST_F(Commands, TheTableNamesOptionsThatCommandsTake) {
  if (test::kSanitized)
    GTEST_SKIP() << "many starts of the tool, which take long then, to read words";
  for (const Command& command : CommandTable()) {
    std::string help = Run("help " + std::string(command.name)).output;
    EXPECT_NE(help.find("Example    " + std::string(command.example)), std::string::npos) << help;
    EXPECT_NE(command.example.find("qel " + std::string(command.name)), std::string_view::npos);
    // Lines that were broken, as one.
    const std::string indent(24, ' ');
    for (size_t at = 0; (at = help.find("\n" + indent)) != help.npos;) {
      help.replace(at, 1 + indent.size(), " ");
    }
    for (const CommandOption& option : command.options) {
      SCOPED_TRACE(std::string(command.name) + " " + std::string(option.name));
      EXPECT_NE(help.find(option.help), std::string::npos) << help;
      // Parsed before anything is done; "no/where" makes what follows fail.
      const Outcome outcome =
          Run(std::string(command.name) + " " + std::string(option.name) +
              (option.value.empty() ? "" : " no/where/x.png") + " --no-such-option");
      EXPECT_EQ(outcome.exit_code, kUsage);
      EXPECT_EQ(outcome.errors.find("no option " + std::string(option.name) + ";"),
                std::string::npos)
          << outcome.errors;
    }
  }
}

TEST_F(Commands, CompletionFollowsTheTables) {
  const auto complete = [](std::vector<std::string> words) {
    const Completion found = Complete(words);
    std::string text;
    for (const Candidate& candidate : found.candidates) text += candidate.text + " ";
    return text + (found.files ? "@" : "");
  };
  EXPECT_EQ(complete({"che"}), "check check-host ");
  EXPECT_EQ(complete({"check", "--q"}), "--quiet ");
  EXPECT_EQ(complete({"run", "ne"}), "@");
  EXPECT_EQ(complete({"run", "in.png", "-o", "ou"}), "@");
  EXPECT_EQ(complete({"run", "in.png", "-o", "out.png", "nega"}), "negative @");
  EXPECT_EQ(complete({"sheet", "in.png", "--steps", "light", "bri"}), "brightness= @");
  EXPECT_EQ(complete({"run", "in.png", "copy", "from=x"}), "@") << "pictures are files";
  EXPECT_EQ(complete({"completion", ""}), "bash zsh fish ");
  EXPECT_EQ(complete({"sheet", "--columns", ""}), "");
  EXPECT_EQ(complete({"run", "--progress", "j"}), "json ");
  EXPECT_EQ(complete({"nothing", ""}), "");

  // Bash hands name=value over as three words.
  WriteFile(folder_ / "try.sh",
            "source <(" + Tool() + " completion bash)\nqel() { " + Tool() +
                " \"$@\"; }\n"
                "COMP_WORDS=(qel run in.png light brightness = 3 contr); COMP_CWORD=7; _qel\n"
                "echo \"${COMPREPLY[*]}\"\n"
                "COMP_WORDS=(qel list --j); COMP_CWORD=2; _qel; echo \"${COMPREPLY[*]}\"\n");
  EXPECT_EQ(Shell("bash try.sh").output, "contrast=\n--json\n");

  // Zsh with its own functions replaced, since they need a terminal.
  WriteFile(folder_ / "try.zsh",
            "qel() { " + Tool() +
                " \"$@\"; }\n"
                "compdef() { :; }; compset() { print strip }; _files() { print files }\n"
                "compadd() { print -r -- \"$@[-1]\"; }\n"
                "qel completion zsh > _qel; source ./_qel\n"
                "words=(qel run in.png light brightness=3 contr); CURRENT=6; _qel\n"
                "words=(qel list --j); CURRENT=3; _qel\n");
  // Fish as it is.
  WriteFile(folder_ / "try.fish",
            "function qel; " + Tool() +
                " $argv; end\n"
                "qel completion fish | source\n"
                "complete -C 'qel run in.png light brightness=3 contr' | cut -f 1\n"
                "complete -C 'qel list --j' | cut -f 1\n"
                "complete -C 'qel run in.png copy with=small.p' | cut -f 1\n");
  const std::pair<std::string, std::string> shells[] = {
      {"zsh -f try.zsh", "contrast=\nstrip\nfiles\n--json\n"},
      {"fish -N try.fish", "contrast=\n--json\nwith=small.ppm\n"}};
  for (const auto& [words, expected] : shells) {
    EXPECT_EQ(Shell(words).output, expected) << words;
  }
  EXPECT_EQ(Run("completion tcsh").exit_code, kUsage);
}

TEST_F(Commands, HelpListingsAndManualTellEverythingOfEveryOperation) {
  if (test::kSanitized)
    GTEST_SKIP() << "many starts of the tool, which take long then, to read words";
  ASSERT_EQ(Run("man -o pages").exit_code, kDone);
  const std::string tool_page = ReadFile(folder_ / "pages/qel.1");
  const std::string json = Run("list --json").output, list = Run("list").output;
  // Whatever the texts hold, brackets and quotes must pair.
  for (const char* const pair : {"{}", "[]"}) {
    EXPECT_EQ(std::ranges::count(json, pair[0]), std::ranges::count(json, pair[1]));
  }
  const auto escaped = [](std::string_view text) {
    std::string escaped_text;
    for (const char c : text) escaped_text += c == '-' ? "\\-" : std::string(1, c);
    return escaped_text;
  };
  for (const Operation& operation : OperationTable()) {
    const std::string name(operation.name);
    SCOPED_TRACE(name);
    const std::string page = ReadFile(folder_ / ("pages/qel-" + name + ".1"));
    EXPECT_EQ(page, Run("man " + name).output);
    EXPECT_NE(tool_page.find("\\fB" + escaped(name) + "\\fR"), std::string::npos);
    EXPECT_NE(page.find(escaped(operation.example)), std::string::npos) << page;
    EXPECT_NE(json.find("{\"name\": \"" + name + "\", \"component\""), std::string::npos);
    EXPECT_NE(list.find("  " + name + " "), std::string::npos);
    const std::string help = Run("help " + name).output;
    EXPECT_NE(help.find(operation.example), std::string::npos) << help;
    for (const Parameter& parameter : operation.parameters) {
      EXPECT_NE(help.find(std::string(parameter.name) + "="), std::string::npos) << help;
      EXPECT_NE(page.find("\\fB" + escaped(parameter.name) + "=\\fR\n"), std::string::npos);
    }
  }
  for (const Command& command : CommandTable()) {
    const std::string name(command.name);
    EXPECT_NE(tool_page.find("qel\\-" + escaped(name) + "(1)"), std::string::npos) << name;
    const std::string page = ReadFile(folder_ / ("pages/qel-" + name + ".1"));
    EXPECT_EQ(page, Run("man " + name).output);
    for (const CommandOption& option : command.options) {
      EXPECT_NE(page.find("\\fB" + escaped(option.name)), std::string::npos) << option.name;
    }
  }
}

}  // namespace
}  // namespace qel::cli
