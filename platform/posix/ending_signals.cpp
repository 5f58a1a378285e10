#include "platform/posix/ending_signals.h"

namespace zunto {

void unblockEndingSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : endingSignals) sigaddset(&signals, signal);
  sigprocmask(SIG_UNBLOCK, &signals, nullptr);  // NOLINT(concurrency-mt-unsafe): there is one thread
}

}  // namespace zunto
