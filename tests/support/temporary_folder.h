#ifndef QEL_TESTS_SUPPORT_TEMPORARY_FOLDER_H_
#define QEL_TESTS_SUPPORT_TEMPORARY_FOLDER_H_

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace qel::test {

/// A folder for one test, removed at its end.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "qel-test-XXXXXX").string();
    path_ = mkdtemp(name.data());
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  const std::filesystem::path& path() const { return path_; }
  std::string operator/(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

inline std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

inline void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

/// What a program did.
struct Outcome {
  int exit_code = -1;
  std::string output;
  std::string errors;
};

/// Runs a shell command in `folder`.
inline Outcome RunShell(const std::string& command, const TemporaryFolder& folder) {
  const int status = std::system(
      ("cd '" + folder.path().string() + "' && (" + command + ") >.output 2>.errors </dev/null")
          .c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(folder / ".output"),
          ReadFile(folder / ".errors")};
}

}  // namespace qel::test

#endif  // QEL_TESTS_SUPPORT_TEMPORARY_FOLDER_H_
