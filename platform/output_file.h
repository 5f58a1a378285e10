// An open file that a child process writes its output to.
//
// Owner: whoever holds it; destroying it closes the descriptor. A child that was launched with it has a
// descriptor of its own onto the same open file (and so the same write position). Thread: main thread only.
#pragma once

#include "async/interface.h"

namespace zunto {

class OutputFile : public Interface {
 public:
  /// Moves the write position to the end of the file, once: later writes of others are not followed. Throws
  /// SystemError.
  virtual void seekToEnd() = 0;

  /// Closes the descriptor now. Throws SystemError when the system reports a failure; the file is closed then
  /// too. A second call does nothing.
  virtual void close() = 0;

  /// The system's descriptor, for the backend that launches children only; -1 when closed.
  [[nodiscard]] virtual int descriptor() const = 0;
};

}  // namespace zunto
