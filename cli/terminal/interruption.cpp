#include "cli/terminal/interruption.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "cli/terminal/errors.h"

namespace qel::cli {

Interruption::Interruption() {
  sigemptyset(&signals_);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    if (std::signal(signal, [](int) { std::_Exit(kInterrupted); }) == SIG_IGN) {
      std::signal(signal, SIG_IGN);
    } else {
      sigaddset(&signals_, signal);
    }
  }
}

void Interruption::Hold() {
  pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
  descriptor_ = signalfd(-1, &signals_, SFD_CLOEXEC);
  if (descriptor_ < 0) throw std::system_error(errno, std::generic_category(), "signalfd");
}

Interruption::~Interruption() {
  if (descriptor_ >= 0) close(descriptor_);
}

}  // namespace qel::cli
