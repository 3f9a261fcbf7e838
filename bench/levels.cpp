#include "bench/levels.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <stdexcept>

#ifdef QEL_BENCH_OPENCV
#include <opencv2/core.hpp>
#endif

namespace qel::bench {
namespace {

constexpr const char* kMarker = "QEL_BENCH_LEVEL";

/// What the libraries beside the module are told at a level, in their own words.
struct Restriction {
  const char* level;
  const char* instructions;  ///< what is left of the peer's
  const char* peer_lacks;
  const char* library_lacks;
};
constexpr Restriction kRestrictions[] = {
    {"sse2", "SSE2", "SSE4.1,SSE4.2,FP16,AVX,AVX2,AVX512-SKX",
     "-AVX_Fast_Unaligned_Load,-AVX,-AVX2,-FMA,-AVX512F,-AVX512VL"},
    {"avx2", "AVX2", "AVX512-SKX", "-AVX512F,-AVX512VL"},
};

/// Null for the highest levels.
const Restriction* RestrictionOf(const std::string& level) {
  const auto* const found = std::ranges::find_if(
      kRestrictions, [&](const Restriction& restriction) { return level == restriction.level; });
  return found != std::end(kRestrictions) ? found : nullptr;
}

/// The arguments of the process of one level.
std::vector<std::string> ArgumentsFor(const Options& options, const std::string& level) {
  std::vector<std::string> arguments = {"qel_bench"};
  arguments.insert(arguments.end(), options.shared.begin(), options.shared.end());
  arguments.insert(arguments.end(), {"--level", level});
  if (!options.json.empty()) {
    std::filesystem::path file = options.json;
    if (options.levels.size() > 1) {
      const std::string name = file.stem().string() + "-" + level + file.extension().string();
      file.replace_filename(name);
    }
    arguments.insert(arguments.end(), {"--json", file.string()});
  }
  return arguments;
}

/// Becomes the process of one level.
[[noreturn]] void Become(const Options& options, const std::string& level) {
  setenv(kMarker, level.c_str(), 1);
  if (const Restriction* const restriction = RestrictionOf(level)) {
    setenv("OPENCV_CPU_DISABLE", restriction->peer_lacks, 1);
    setenv("GLIBC_TUNABLES",
           (std::string("glibc.cpu.hwcaps=") + restriction->library_lacks).c_str(), 1);
  }
  std::vector<std::string> arguments = ArgumentsFor(options, level);
  std::vector<char*> pointers;
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  execv("/proc/self/exe", pointers.data());
  std::perror("qel_bench: cannot start itself");
  _exit(1);
}

/// Runs the process of one level and hands every line that it prints to `each`. Result: its exit
/// code, or 1 if it did not end by itself.
template <typename Each>
int RunLevel(const Options& options, const std::string& level, const Each& each) {
  int ends[2];
  if (pipe(ends) != 0) throw std::runtime_error("no pipe to the process of a level");
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("no process for level " + level);
  if (child == 0) {
    dup2(ends[1], STDOUT_FILENO);
    close(ends[0]);
    close(ends[1]);
    Become(options, level);
  }
  close(ends[1]);
  const std::unique_ptr<FILE, int (*)(FILE*)> output(fdopen(ends[0], "r"), &std::fclose);
  char* text = nullptr;
  size_t room = 0;
  while (getline(&text, &room, output.get()) > 0) {
    std::string line = text;
    if (line.back() == '\n') line.pop_back();
    each(line);
  }
  std::free(text);
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

}  // namespace

std::string PeerInstructions() {
#ifdef QEL_BENCH_OPENCV
  return cv::checkHardwareSupport(CV_CPU_AVX512_SKX) ? "AVX-512"
         : cv::checkHardwareSupport(CV_CPU_AVX2)     ? "AVX2"
         : cv::checkHardwareSupport(CV_CPU_AVX)      ? "AVX"
         : cv::checkHardwareSupport(CV_CPU_SSE4_1)   ? "SSE4.1"
                                                     : "SSE2";
#else
  return {};
#endif
}

bool MeasuresOneLevel(const Options& options) {
  const char* const marker = std::getenv(kMarker);
  if (marker == nullptr || options.levels != std::vector<std::string>{marker}) return false;
  const Restriction* const restriction = RestrictionOf(marker);
  const std::string instructions = PeerInstructions();
  if (restriction != nullptr && !instructions.empty() &&
      instructions != restriction->instructions) {
    throw std::runtime_error("OpenCV uses " + instructions + ", not " + restriction->instructions +
                             ", beside the module's level " + marker);
  }
  return true;
}

int MeasureLevels(const Options& options) {
  constexpr const char* kMiddle = " | ";  // between a row's name and its figures
  std::vector<std::string> names;
  std::map<std::string, std::string> figures;
  bool failed = false;
  for (const std::string& level : options.levels) {
    failed |= 0 != RunLevel(options, level, [&](const std::string& line) {
                std::cout << line << std::endl;
                const size_t middle = line.find(kMiddle);
                if (middle == std::string::npos) return;
                const std::string name = line.substr(0, middle);
                if (figures.find(name) == figures.end()) names.push_back(name);
                figures[name] += line.substr(middle);
              });
  }
  if (options.levels.size() > 1) std::cout << "\nSide by side\n";
  for (const std::string& name : names) {
    if (options.levels.size() > 1) std::cout << name << figures[name] << "\n";
  }
  return failed ? 1 : 0;
}

}  // namespace qel::bench
