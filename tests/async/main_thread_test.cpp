#include "async/main_thread.h"

#include <gtest/gtest.h>

#include <thread>

namespace zunto {
namespace {

TEST(MainThreadTest, ACallOnTheThreadThatMadeItPasses) {
  const MainThread mainThread;
  mainThread.check("entry");
  SUCCEED();
}

TEST(MainThreadTest, TheThreadThatMadeItIsTheMainThreadWhicheverThatIs) {
  std::thread([] {
    const MainThread mainThread;
    mainThread.check("entry");
  }).join();
  SUCCEED();
}

TEST(MainThreadDeathTest, ACallOnAnotherThreadEndsTheProgramAndNamesTheEntryPoint) {
  const MainThread mainThread;
  EXPECT_DEATH(std::thread([&] { mainThread.check("toggleHelper"); }).join(),
               "fatal error: toggleHelper was called off the main thread\n");
}

}  // namespace
}  // namespace zunto
