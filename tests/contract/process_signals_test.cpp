#include "platform/posix/ending_signals.h"

#include <gtest/gtest.h>

#include <csignal>

namespace zunto {
namespace {

TEST(EndingSignals, ReachAProgramThatWasStartedWithThemBlocked) {
  sigset_t all;
  sigset_t earlier;
  sigfillset(&all);
  sigprocmask(SIG_SETMASK, &all, &earlier);
  unblockEndingSignals();
  sigset_t blocked;
  sigprocmask(SIG_SETMASK, &earlier, &blocked);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) EXPECT_EQ(sigismember(&blocked, signal), 0) << signal;
  EXPECT_EQ(sigismember(&blocked, SIGUSR1), 1);
}

}  // namespace
}  // namespace zunto
