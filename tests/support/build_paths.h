#ifndef QEL_TESTS_SUPPORT_BUILD_PATHS_H_
#define QEL_TESTS_SUPPORT_BUILD_PATHS_H_

#include <filesystem>
#include <fstream>
#include <string>

namespace qel::test {

// Where things lie is found at run time, so that what is compiled is the same in every checkout.

/// The build folder: tests stand in a folder of it.
inline std::string BuildFolder() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path().string();
}
/// A file or folder of the build.
inline std::string Built(const std::string& name) { return BuildFolder() + "/" + name; }
/// The shipped module, as hosts find it.
inline std::string ModulePath() { return Built("_binLIN64/QELMaths.so"); }

/// The root of the sources.
inline std::string SourceFolder() {
  const std::string key = "CMAKE_HOME_DIRECTORY:INTERNAL=";
  std::ifstream cache(Built("CMakeCache.txt"));
  for (std::string line; std::getline(cache, line);) {
    if (line.starts_with(key)) return line.substr(key.size());
  }
  return {};
}

}  // namespace qel::test

#endif  // QEL_TESTS_SUPPORT_BUILD_PATHS_H_
