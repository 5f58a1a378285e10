// The system beep. Owner: the program's entry; outlives the logic. Thread: main thread only.
#pragma once

namespace zunto {

class Beeper {
 public:
  Beeper() = default;
  Beeper(const Beeper&) = delete;
  Beeper& operator=(const Beeper&) = delete;
  virtual ~Beeper() = default;

  /// Sounds the user's alert sound once; returns at once.
  virtual void beep() = 0;
};

}  // namespace zunto
