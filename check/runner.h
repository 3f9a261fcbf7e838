#ifndef QEL_CHECK_RUNNER_H_
#define QEL_CHECK_RUNNER_H_

#include <functional>
#include <iosfwd>
#include <string>

#include "check/rule.h"

namespace qel::check {

/// How a process of its own went.
struct Ending {
  /// What went wrong, the message of an exception, a signal or the time, with the last thing that
  /// `Doing` noted; empty when nothing did.
  std::string fault;
  bool broke_off = false;     ///< all that is known is the signal or the code that it ended with
  std::string not_supported;  ///< what `NotSupported` noted, separated by commas
};

/// Runs `body` in a process of its own, for at most `seconds` of processor time. What the body
/// prints to standard output is dropped, unless `keep_output`.
Ending RunApart(const std::function<void()>& body, int seconds, bool keep_output = false);

/// Which rules are tried, and where their outcome goes.
struct CheckOptions {
  bool quiet = false;  ///< print broken rules only
  std::string filter;  ///< a suite, or a rule as SUITE/NAME; empty for all
  int seconds = 20;    ///< processor time of each rule
  /// Gets every rule with its fault, empty when it is kept, and with what the library does not
  /// support of it, in place of what would be printed.
  std::function<void(const Rule& rule, const std::string& fault, const std::string& missing)>
      report = {};
};

/// Tries every rule that the filter names on the library at `path` and prints the outcome. Returns
/// whether all are kept. Throws `std::invalid_argument` for a filter that names none, and
/// `std::runtime_error` when the library cannot be loaded or no process can be started.
bool CheckLibrary(const Rules& rules, const std::string& path, const CheckOptions& options,
                  std::ostream& output);

/// Prints the rules by suite.
void ListRules(const Rules& rules, std::ostream& output);

}  // namespace qel::check

#endif  // QEL_CHECK_RUNNER_H_
