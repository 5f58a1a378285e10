// System calls that fail when a test wants them to, as those of a bad disk or of an old file system would.
//
// It works in programs that link zunto_system_faults, which the linker makes call the functions behind this
// header instead of the system's; everything that no fault is set for goes through. Any thread.
#pragma once

namespace zunto::testing {

enum class SystemCall {
  open,
  write,
  close,            ///< of a regular file; it is closed all the same
  makeNameless,     ///< a file without a name
  renameExclusive,  ///< a rename that replaces nothing
  splice,           ///< a move of bytes inside the system
  makeSocket,
  makePoll  ///< what tells which sockets are ready
};

/// While it lives, the first `times` calls of the one kind fail with `error`, an errno value. One at a time
/// per kind.
class SystemFault {
 public:
  static constexpr int always = 1'000'000;

  SystemFault(SystemCall call, int error, int times = always);
  SystemFault(const SystemFault&) = delete;
  SystemFault& operator=(const SystemFault&) = delete;
  ~SystemFault();

  /// How many calls have failed so far.
  [[nodiscard]] int failures() const;

 private:
  SystemCall call_;
  int times_;
};

}  // namespace zunto::testing
