#ifndef QEL_CLI_TERMINAL_FAILURE_H_
#define QEL_CLI_TERMINAL_FAILURE_H_

#include <fmt/core.h>

#include <stdexcept>
#include <string_view>
#include <utility>

namespace qel::cli {

/// Exit codes of the tool.
enum ExitCode : int {
  kDone = 0,
  kSomeFailed = 1,
  kUsage = 2,
  kNoInput = 3,
  kNoOutput = 4,
  kModuleFault = 5,
  kWrongDepth = 6,
  kInterrupted = 130,
};

/// What an exit code means, for help and the manual.
struct ExitMeaning {
  ExitCode code;
  std::string_view text;
};
inline constexpr ExitMeaning kExitMeanings[] = {
    {kDone, "done; pictures are equal, all rules are kept"},
    {kSomeFailed, "some files failed, pictures differ, or rules are broken"},
    {kUsage, "wrong usage, or pictures that cannot be compared"},
    {kNoInput, "no input can be read"},
    {kNoOutput, "an output cannot be written"},
    {kModuleFault, "the module or the host failed, or cannot be loaded"},
    {kWrongDepth, "a step does not take the depth of a picture"},
    {kInterrupted, "interrupted"},
};

/// A failure with the exit code that it ends in. The message says what was wrong, where, and what
/// would be right; `arguments` take the places of the {} in `format`.
class Failure : public std::runtime_error {
 public:
  template <typename... Arguments>
  Failure(ExitCode code, fmt::format_string<Arguments...> format, Arguments&&... arguments)
      : std::runtime_error(fmt::format(format, std::forward<Arguments>(arguments)...)),
        code_(code) {}
  ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

}  // namespace qel::cli

#endif  // QEL_CLI_TERMINAL_FAILURE_H_
