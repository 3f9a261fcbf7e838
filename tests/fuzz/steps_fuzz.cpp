// The step grammar: the input is a command line, a word per line. The same input as a line of a
// manifest, and as a text in one, which must come back.

#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "cli/terminal/json_reader.h"
#include "operations/errors.h"
#include "operations/steps.h"
#include "operations/text/json.h"
#include "tests/fuzz/fuzz.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::istringstream lines(std::string(data, data + size));
  std::vector<std::string> words;
  for (std::string line; std::getline(lines, line);) words.push_back(line);
  try {
    qel::operations::ParseSteps(words);
  } catch (const qel::operations::StepError&) {
    // What a wrong command line is answered with.
  }
  const std::string text(data, data + size);
  try {
    qel::cli::ReadJsonTexts(text);
  } catch (const std::invalid_argument&) {
  }
  const std::string line = qel::operations::JsonObject().Text("text", text).Line();
  if (qel::cli::ReadJsonTexts(line).at("text") != text) std::abort();
  return 0;
}
