// A beeper that counts instead of sounding.
//
// Owner: the test. Thread: main thread only.
#pragma once

#include "platform/beeper.h"

namespace zunto::testing {

class FakeBeeper final : public Beeper {
 public:
  void beep() override { ++beeps_; }

  /// How often it was asked to sound.
  [[nodiscard]] int beeps() const { return beeps_; }

 private:
  int beeps_ = 0;
};

}  // namespace zunto::testing
