// The system beep. Owner: the program's entry; outlives the logic. Thread: main thread only.
#pragma once

#include "async/interface.h"

namespace zunto {

class Beeper : public Interface {
 public:
  /// Sounds the user's alert sound once; returns at once.
  virtual void beep() = 0;
};

}  // namespace zunto
