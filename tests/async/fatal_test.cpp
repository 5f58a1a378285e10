#include "async/fatal.h"

#include <gtest/gtest.h>

#include <csignal>

namespace zunto {
namespace {

TEST(FatalDeathTest, WritesItsReasonAsOneLineAndAborts) {
  EXPECT_EXIT(fatalError("the reason"), ::testing::KilledBySignal(SIGABRT),
              "^zunto-helper: fatal error: the reason\n");
}

}  // namespace
}  // namespace zunto
