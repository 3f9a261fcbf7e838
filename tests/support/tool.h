#ifndef QEL_TESTS_SUPPORT_TOOL_H_
#define QEL_TESTS_SUPPORT_TOOL_H_

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "tests/support/build_paths.h"
#include "tests/support/temporary_folder.h"

namespace qel::test {

inline size_t Count(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != text.npos; at = text.find(part, at + 1)) ++count;
  return count;
}

/// The tool as a user starts it, in a folder of its own.
class ToolTest : public testing::Test {
 protected:
  /// A command line, its exit code, and a part of what it says on either channel.
  struct Ending {
    std::string words;
    int exit_code;
    std::string said;
  };

  /// A grey picture of 4 x 4 pixels, all of one value: its negative is known without any tool.
  static std::string Gray(int value) {
    return "P5\n4 4\n255\n" + std::string(16, static_cast<char>(value & 255));
  }
  static std::string Tool() { return Built("bin/qel"); }
  Outcome Run(const std::string& words) const { return RunShell(Tool() + " " + words, folder_); }
  Outcome Shell(const std::string& line) const { return RunShell(line, folder_); }
  /// Names and contents of the files below a folder, temporary ones included.
  std::map<std::string, std::string> Files(const std::string& name) const {
    namespace fs = std::filesystem;
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder_.path() / name)) {
      const std::string path = fs::relative(entry.path(), folder_.path() / name).string();
      if (entry.is_regular_file() && !path.starts_with(".output") && !path.starts_with(".errors")) {
        files[path] = ReadFile(entry.path().string());
      }
    }
    return files;
  }
  void Expect(const Ending& ending) const {
    const Outcome outcome = Run(ending.words);
    const std::string said = outcome.output + outcome.errors;
    EXPECT_EQ(outcome.exit_code, ending.exit_code) << ending.words << "\n" << said;
    EXPECT_TRUE(outcome.exit_code < 2 || outcome.errors.starts_with("qel: ")) << said;
    EXPECT_NE(said.find(ending.said), std::string::npos) << ending.words << "\n" << said;
  }
  /// Several, with `before` in front of their words.
  void ExpectEach(const std::string& before, const std::vector<Ending>& endings) const {
    for (const Ending& ending : endings) {
      Expect({before + ending.words, ending.exit_code, ending.said});
    }
  }

  TemporaryFolder folder_;
};

}  // namespace qel::test

#endif  // QEL_TESTS_SUPPORT_TOOL_H_
