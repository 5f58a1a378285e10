#include "platform/qt/qt_application.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <QPixmap>
#include <QPixmapCache>
#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <QWindow>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "tests/qt/instance.h"
#include "tests/qt/qt_world.h"

namespace zunto::testing {
namespace {

/// A global that a library makes when it is first used.
struct LateGlobal {
  ~LateGlobal() { std::cerr << "global gone\n"; }
};

class RecordingDelegate final : public ApplicationDelegate {
 public:
  void applicationDidFinishLaunching() override {
    calls.emplace_back("launched");
    if (whenLaunched) whenLaunched();
  }
  void applicationWillTerminate() override {
    calls.emplace_back("willTerminate");
    if (whenTerminated) whenTerminated();
  }

  std::vector<std::string> calls;
  std::function<void()> whenLaunched;
  std::function<void()> whenTerminated;
};

class QtApplicationLife : public QtTest {
 protected:
  QtApplicationLife() { application.setDelegate(delegate); }

  std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
  std::vector<std::string> whole{"launched", "willTerminate"};
};

TEST_F(QtTest, KeepsNothingOfWhatDialogsDraw) {
  const QString name = QStringLiteral("picture");
  QPixmapCache::insert(name, QPixmap(1, 1));
  EXPECT_FALSE(QPixmapCache::find(name, nullptr));
}

TEST_F(QtApplicationLife, LaunchesOnATurnOfTheLoopAndTellsItsEndOnce) {
  delegate->whenLaunched = [this] {
    application.terminate();
    application.terminate();
  };
  EXPECT_TRUE(delegate->calls.empty());
  application.run();
  EXPECT_EQ(delegate->calls, whole);
}

TEST_F(QtApplicationLife, TerminatesInsideTheCallThatAsksForIt) {
  delegate->whenLaunched = [this] {
    application.terminate();
    delegate->calls.emplace_back("after");
  };
  application.run();
  whole.emplace_back("after");
  EXPECT_EQ(delegate->calls, whole);
}

TEST_F(QtApplicationLife, DoesNotRunOnceItWasTerminated) {
  application.terminate();
  application.run();
  EXPECT_EQ(delegate->calls, std::vector<std::string>{"willTerminate"});
}

TEST_F(QtApplicationLife, HoldsItsDelegateWeakly) {
  delegate.reset();
  clock.post([this] { application.terminate(); });
  application.run();
}

TEST_F(QtApplicationLife, EndOfTheSessionTerminates) {
  QWidget window;
  window.show();
  delegate->whenLaunched = [] { QCoreApplication::quit(); };
  application.run();
  EXPECT_EQ(delegate->calls, whole);
}

TEST_F(QtApplicationLife, TellsOfAnExitWhileTheGlobalsThatTheLaunchHasMadeStillLive) {
  delegate->whenLaunched = [this] {
    static const LateGlobal late;
    clock.post([] { std::exit(3); });
  };
  delegate->whenTerminated = [] { std::cerr << "told\n"; };
  EXPECT_EXIT(application.run(), ::testing::ExitedWithCode(3), "told\nglobal gone");
}

/// What Qt does when the compositor is gone.
[[noreturn]] void endAsWithoutCompositor() {
  qWarning("The Wayland connection broke. Did the Wayland compositor die?");
  _exit(1);
}

TEST_F(QtApplicationLife, TellsOfTheCompositorsEndBeforeQtEndsTheProgram) {
  delegate->whenLaunched = [this] { clock.post(endAsWithoutCompositor); };
  delegate->whenTerminated = [] { std::cerr << "told\n"; };
  EXPECT_EXIT(application.run(), ::testing::ExitedWithCode(1), "told\n$");
}

TEST_F(QtApplicationLife, TellsOfTheCompositorsEndWhenAnotherThreadNotices) {
  delegate->whenLaunched = [] { std::thread(endAsWithoutCompositor).detach(); };
  delegate->whenTerminated = [] { std::cerr << "told\n"; };
  EXPECT_EXIT(application.run(), ::testing::ExitedWithCode(1), "told\n$");
}

TEST_F(QtApplicationLife, RunsNoTurnAndNoTimerOnceItHasTerminated) {
  std::vector<std::string> after;
  std::unique_ptr<Timer> dueAlready;
  delegate->whenLaunched = [&] {
    dueAlready = clock.callLater(std::chrono::nanoseconds(0), [&] { after.emplace_back("timer"); });
    clock.post([this] { application.terminate(); });
    clock.post([&] { after.emplace_back("turn"); });
  };
  application.run();
  QCoreApplication::processEvents();
  EXPECT_EQ(after, std::vector<std::string>());
}

TEST_F(QtApplicationLife, ItsWindowsCarryTheNameOfTheDesktopEntry) {
  EXPECT_EQ(QGuiApplication::desktopFileName().toStdString(), "example.zunto.Helper");
}

TEST_F(QtApplicationLife, ClosingTheLastWindowDoesNotTerminate) {
  QWidget window;
  window.show();
  bool wentOn = false;
  std::unique_ptr<Timer> later;
  delegate->whenLaunched = [&] {
    window.close();
    later = clock.callLater(std::chrono::milliseconds(50), [&] {
      wentOn = true;
      application.terminate();
    });
  };
  application.run();
  EXPECT_TRUE(wentOn);
}

class Signals : public QtTest, public ::testing::WithParamInterface<int> {};

INSTANTIATE_TEST_SUITE_P(Ending, Signals, ::testing::Values(SIGTERM, SIGINT, SIGHUP),
                         [](const auto& tested) { return std::string(sigabbrev_np(tested.param)); });

TEST_P(Signals, TerminateInTheOrdinaryWay) {
  const QTemporaryDir folder;
  QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
  environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), folder.path());
  Instance program(environment);
  ASSERT_TRUE(runUntil([&program] { return program.hasSaid("launched"); }));
  program.signal(GetParam());
  ASSERT_TRUE(runUntil([&program] { return program.hasEnded(); }));
  const QStringList expected{QStringLiteral("alone"), QStringLiteral("launched"),
                             QStringLiteral("willTerminate"), QStringLiteral("ended")};
  EXPECT_EQ(program.said(), expected);
  EXPECT_EQ(program.exitCode(), 0);
}

}  // namespace
}  // namespace zunto::testing
