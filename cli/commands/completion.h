#ifndef QEL_CLI_COMMANDS_COMPLETION_H_
#define QEL_CLI_COMMANDS_COMPLETION_H_

#include <string>
#include <string_view>
#include <vector>

namespace qel::cli {

/// Something that a word on the command line may become.
struct Candidate {
  std::string text;
  std::string help;
};

/// What a word can become.
struct Completion {
  std::vector<Candidate> candidates;
  bool files = false;  ///< names of files as well
};
/// What the last of `words`, which stand after "qel" and of which it may be half typed, can become.
Completion Complete(const std::vector<std::string>& words);

/// The script that teaches a shell to ask this tool. Throws `Failure(kUsage)`.
std::string_view CompletionScript(const std::string& shell);

}  // namespace qel::cli

#endif  // QEL_CLI_COMMANDS_COMPLETION_H_
