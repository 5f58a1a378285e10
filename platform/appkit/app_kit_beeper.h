// The system beep. Owner: the program's entry. Thread: main thread only.
#pragma once

#include "platform/beeper.h"

namespace zunto {

class AppKitBeeper final : public Beeper {
 public:
  void beep() override;
};

}  // namespace zunto
