// What the tests of the macOS backend itself need: the application, a clock, and turns of the event loop.
#pragma once

#include <gtest/gtest.h>

#include <functional>

#include "compat.h"
#include "native_window.h"
#include "platform/appkit/app_kit_clock.h"

namespace zunto::testing {

class AppKitTest : public ::testing::Test {
 protected:
  AppKitTest() : pool_([[NSAutoreleasePool alloc] init]) {}
  ~AppKitTest() override { [pool_ drain]; }

  /// Runs everything that is queued.
  void runTurns() {
    bool isDrained = false;
    clock.post([&] { isDrained = true; });
    ASSERT_TRUE(runEventLoopUntil([&] { return isDrained; }));
  }

 private:
  NSAutoreleasePool* pool_;

 protected:
  AppKitClock clock;
};

}  // namespace zunto::testing
