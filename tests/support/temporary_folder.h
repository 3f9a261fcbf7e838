#ifndef QEL_TESTS_SUPPORT_TEMPORARY_FOLDER_H_
#define QEL_TESTS_SUPPORT_TEMPORARY_FOLDER_H_

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>

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
  std::ostringstream content;
  content << file.rdbuf();
  return std::move(content).str();
}

inline void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

/// What a program did.
struct Outcome {
  int exit_code = -1;
  std::string output;
  std::string errors;
  double peak_mib = 0;     ///< largest resident memory of any of its processes
  double cpu_seconds = 0;  ///< of all of them
};

/// Runs a shell command in `folder`.
inline Outcome RunShell(const std::string& command, const TemporaryFolder& folder) {
  const std::string line = "cd '" + folder.path().string() +
                           "' && exec >.output 2>.errors </dev/null && (" + command + ")";
  const pid_t shell = fork();
  if (shell == 0) {
    execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
    _exit(127);
  }
  int status = 0;
  rusage usage{};
  wait4(shell, &status, 0, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(folder / ".output"),
          ReadFile(folder / ".errors"), static_cast<double>(usage.ru_maxrss) / 1024,
          seconds(usage.ru_utime) + seconds(usage.ru_stime)};
}

}  // namespace qel::test

#endif  // QEL_TESTS_SUPPORT_TEMPORARY_FOLDER_H_
