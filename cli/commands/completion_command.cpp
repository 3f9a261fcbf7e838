#include <iostream>

#include "cli/commands/command_table.h"
#include "cli/commands/completion.h"
#include "cli/terminal/errors.h"

namespace qel::cli {

int CompletionCommand(const Words& words) {
  // What the scripts ask: no option of the table, since nobody types it.
  if (words.size() >= 2 && words[0] == "--words" && words[1] == "--") {
    const Completion found = Complete({words.begin() + 2, words.end()});
    for (const Candidate& candidate : found.candidates) {
      std::cout << candidate.text << "\t" << candidate.help << "\n";
    }
    if (found.files) std::cout << "@files\n";
    return kDone;
  }
  const Options options(words, KnownOptions("completion"));
  if (options.rest().size() != 1) throw Failure(kUsage, "write qel completion bash|zsh|fish");
  std::cout << CompletionScript(options.rest().front());
  return kDone;
}

}  // namespace qel::cli
