// An unprivileged user for the time of a test that runs as the superuser, to whom nothing is forbidden.
#pragma once

#include <sys/prctl.h>
#include <unistd.h>

namespace zunto::testing {

class Unprivileged {
 public:
  Unprivileged() {
    if (user_ == 0) take(nobody);
  }
  Unprivileged(const Unprivileged&) = delete;
  Unprivileged& operator=(const Unprivileged&) = delete;
  ~Unprivileged() {
    if (user_ == 0) take(user_);
  }

 private:
  static constexpr uid_t nobody = 65534;

  /// A program that changes its user may no longer look at itself in /proc, unless it asks for that.
  static void take(uid_t user) {
    static_cast<void>(::seteuid(user));
    ::prctl(PR_SET_DUMPABLE, 1);
  }

  uid_t user_ = ::geteuid();
};

}  // namespace zunto::testing
