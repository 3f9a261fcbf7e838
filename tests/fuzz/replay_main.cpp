// Stands in for the fuzzer where there is none: runs the files and folders named on the command
// line, every prefix of each in coarse steps, and a fixed number of random inputs.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "reference/rng.h"
#include "tests/fuzz/fuzz.h"

namespace {

constexpr int kRandomInputs = 300;

void RunWithPrefixes(const std::vector<uint8_t>& bytes) {
  for (size_t size = bytes.size(); size > 0; size = size * 3 / 4) {
    LLVMFuzzerTestOneInput(bytes.data(), size);
  }
}

void RunFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
  RunWithPrefixes(bytes);
  // And with single bytes changed.
  qel::reference::Rng rng(bytes.size());
  for (int i = 0; i < 50 && !bytes.empty(); ++i) {
    std::vector<uint8_t> changed = bytes;
    changed[static_cast<size_t>(rng.Int(0, static_cast<int>(bytes.size()) - 1))] =
        static_cast<uint8_t>(rng.Int(0, 255));
    LLVMFuzzerTestOneInput(changed.data(), changed.size());
  }
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    if (!std::filesystem::is_directory(argv[i])) {
      RunFile(argv[i]);
      continue;
    }
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) RunFile(entry.path());
  }
  qel::reference::Rng rng(20);
  for (int i = 0; i < kRandomInputs; ++i) {
    std::vector<uint8_t> bytes(static_cast<size_t>(rng.Int(0, 200)));
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(rng.Int(0, 255));
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  }
  return 0;
}
