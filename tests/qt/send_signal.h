// Signals for a test's own processes.
#pragma once

#include <QProcess>
#include <csignal>

namespace zunto::testing {

/// One that has ended is left alone: its identifier reads as 0 then, which stands for every process of the
/// group, the other tests and what they have stopped among them.
inline void sendSignal(const QProcess& process, int number) {
  if (process.processId() != 0) ::kill(static_cast<pid_t>(process.processId()), number);
}

}  // namespace zunto::testing
