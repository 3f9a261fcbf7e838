#ifndef QEL_CLI_TERMINAL_INTERRUPTION_H_
#define QEL_CLI_TERMINAL_INTERRUPTION_H_

#include <csignal>

namespace qel::cli {

/// SIGINT, SIGTERM and SIGHUP as something to wait for. Made once, before threads are started;
/// signals that were ignored, as those of background processes of scripts are, stay so.
class Interruption {
 public:
  /// From now on the signals end the process with exit code 130.
  Interruption();
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;
  ~Interruption();

  /// From now on the signals do nothing but make `descriptor` readable.
  void Hold();
  int descriptor() const { return descriptor_; }

 private:
  sigset_t signals_;
  int descriptor_ = -1;
};

}  // namespace qel::cli

#endif  // QEL_CLI_TERMINAL_INTERRUPTION_H_
