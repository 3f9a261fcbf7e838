// The step grammar: the input is a command line, a word per line.

#include <sstream>
#include <string>
#include <vector>

#include "cli/steps.h"
#include "operations/errors.h"
#include "tests/fuzz/fuzz.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::istringstream lines(std::string(data, data + size));
  std::vector<std::string> words;
  for (std::string line; std::getline(lines, line);) words.push_back(line);
  try {
    qel::cli::ParseSteps(words);
  } catch (const qel::cli::Failure&) {
    // What a wrong command line is answered with.
  }
  return 0;
}
