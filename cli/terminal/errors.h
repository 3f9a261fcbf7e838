#ifndef QEL_CLI_TERMINAL_ERRORS_H_
#define QEL_CLI_TERMINAL_ERRORS_H_

#include "cli/terminal/failure.h"

namespace qel::cli {

/// The exit code that an exception ends in.
ExitCode ExitCodeOf(const std::exception& error);

/// What an exception says, in words.
std::string MessageOf(const std::exception& error);

}  // namespace qel::cli

#endif  // QEL_CLI_TERMINAL_ERRORS_H_
