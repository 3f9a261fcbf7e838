#include "cli/terminal/process.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "cli/terminal/errors.h"

namespace qel::cli {

void PrepareProcess() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(descriptor, F_GETFD) >= 0) continue;
    // The lowest one that is free is this one. It is opened for what it is not used for.
    const int opened = open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    if (opened != descriptor) std::_Exit(kModuleFault);
  }
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
}

void EndIfNobodyReads(int descriptor) {
  pollfd state{descriptor, 0, 0};
  if (poll(&state, 1, 0) < 1 || (state.revents & POLLERR) == 0) return;
  std::signal(SIGPIPE, SIG_DFL);
  std::raise(SIGPIPE);
}

}  // namespace qel::cli
