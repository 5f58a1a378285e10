// Runs the tests of the macOS backend itself.
#include <gtest/gtest.h>

#include "compat.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  zunto::testing::installCompatibility();
  @autoreleasepool {
    [[NSApplication sharedApplication] finishLaunching];
    return RUN_ALL_TESTS();
  }
}
