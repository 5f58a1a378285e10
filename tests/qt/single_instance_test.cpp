#include "platform/qt/qt_single_instance.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDir>
#include <QFile>
#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <algorithm>
#include <memory>
#include <ostream>
#include <string>

#include "tests/qt/instance.h"
#include "tests/qt/private_bus.h"
#include "tests/qt/qt_world.h"

namespace zunto::testing {
namespace {

/// Where the instances of a test meet.
enum class Meeting { bus, socket };

/// The name by which test reports call it.
void PrintTo(Meeting meeting, std::ostream* out) { *out << (meeting == Meeting::bus ? "bus" : "socket"); }

class Instances : public QtTest {
 protected:
  explicit Instances(Meeting meeting = Meeting::bus) {
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), folder.path());
    if (meeting == Meeting::bus) {
      bus = std::make_unique<PrivateBus>();
      environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), bus->address());
    }
  }

  std::unique_ptr<Instance> start(const QStringList& arguments = {}) const {
    return std::make_unique<Instance>(environment, arguments);
  }
  std::unique_ptr<Instance> startFirst(const QStringList& arguments = {}) {
    auto first = start(arguments);
    EXPECT_TRUE(runUntil([&first] { return first->hasSaid("launched"); }));
    return first;
  }
  /// Starts another one and expects that it hands over and ends well.
  void handOver(const QStringList& arguments = {}) {
    const auto second = start(arguments);
    ASSERT_TRUE(runUntil([&second] { return second->hasEnded(); }));
    EXPECT_EQ(second->said(), QStringList(QStringLiteral("handedOver")));
    EXPECT_EQ(second->exitCode(), 0);
  }

  QTemporaryDir folder;
  QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
  std::unique_ptr<PrivateBus> bus;
};

class EveryMeeting : public Instances, public ::testing::WithParamInterface<Meeting> {
 protected:
  EveryMeeting() : Instances(GetParam()) {}
};

INSTANTIATE_TEST_SUITE_P(Instances, EveryMeeting, ::testing::Values(Meeting::bus, Meeting::socket),
                         [](const auto& tested) { return tested.param == Meeting::bus ? "Bus" : "Socket"; });

TEST_P(EveryMeeting, SecondStartAsksTheFirstToComeForwardAndEnds) {
  const auto first = startFirst();
  handOver();
  EXPECT_TRUE(runUntil([&first] { return first->hasSaid("activate"); }));
}

TEST_P(EveryMeeting, SecondStartHandsItsLinkOver) {
  const auto first = startFirst();
  const QString link = QString::fromUtf8("zunto-helper://open?url=https%3A%2F%2Fmedia.example%2F?ü=●");
  handOver({link});
  const std::string expected = "link " + std::to_string(link.toUtf8().size()) + " " + fromQString(link);
  EXPECT_TRUE(runUntil([&] { return first->hasSaid(expected.c_str()); })) << expected;
  EXPECT_FALSE(first->hasSaid("activate"));
}

TEST_P(EveryMeeting, HandsOverALinkOfAHundredKilobytes) {
  const auto first = startFirst();
  const QString link = QStringLiteral("zunto-helper:?url=") + QString(100'000, QLatin1Char('a'));
  handOver({link});
  EXPECT_TRUE(runUntil([&] { return !first->said().filter(QStringLiteral("link 100018 ")).isEmpty(); }));
}

TEST_P(EveryMeeting, HandsOverAnEmptyLinkAsALink) {
  const auto first = startFirst();
  handOver({QString()});
  EXPECT_TRUE(runUntil([&first] { return first->hasSaid("link 0 "); }));
}

TEST_P(EveryMeeting, LinkOfAColdStartFollowsTheLaunch) {
  const auto first = start({QStringLiteral("zunto-helper:")});
  ASSERT_TRUE(runUntil([&first] { return first->hasSaid("link 13 zunto-helper:"); }));
  const QStringList expected{QStringLiteral("first"), QStringLiteral("launched"),
                             QStringLiteral("link 13 zunto-helper:")};
  EXPECT_EQ(first->said(), expected);
}

TEST_P(EveryMeeting, AStartAfterAKilledInstanceIsTheFirst) {
  auto killed = startFirst();
  killed->signal(SIGKILL);
  ASSERT_TRUE(runUntil([&killed] { return killed->hasEnded(); }));
  const auto next = startFirst();
  EXPECT_TRUE(next->hasSaid("first"));
  handOver();
}

TEST_P(EveryMeeting, StartsAtTheSameTimeYieldOneInstance) {
  std::vector<std::unique_ptr<Instance>> started;
  for (int i = 0; i < 4; ++i) started.push_back(start());
  const auto count = [&started](const char* what) {
    return std::count_if(started.begin(), started.end(), [what](auto& each) { return each->hasSaid(what); });
  };
  ASSERT_TRUE(runUntil([&count] { return count("first") + count("handedOver") == 4; }));
  EXPECT_EQ(count("first"), 1);
}

TEST_P(EveryMeeting, AnInstanceThatEndsGivesItsPlaceUp) {
  const auto first = startFirst();
  first->signal(SIGTERM);
  ASSERT_TRUE(runUntil([&first] { return first->hasEnded(); }));
  EXPECT_EQ(first->exitCode(), 0);
  EXPECT_TRUE(startFirst()->hasSaid("first"));
}

class OnTheSocket : public Instances {
 protected:
  OnTheSocket() : Instances(Meeting::socket) {}
};

TEST_F(OnTheSocket, InstancesOfAnotherDisplayStayApart) {
  const auto first = startFirst();
  environment.insert(QStringLiteral("DISPLAY"), QStringLiteral(":12345"));
  EXPECT_TRUE(startFirst()->hasSaid("first"));
}

TEST_F(OnTheSocket, FolderIsTheUsersAlone) {
  const auto first = startFirst();
  struct stat state {};
  ASSERT_EQ(stat((folder.path() + QLatin1String("/zunto-helper")).toUtf8().constData(), &state), 0);
  EXPECT_EQ(state.st_mode & 0777U, 0700U);
}

TEST_F(OnTheSocket, AFolderThatOthersMayEnterIsNotUsed) {
  const QByteArray path = (folder.path() + QLatin1String("/zunto-helper")).toUtf8();
  ASSERT_EQ(mkdir(path.constData(), 0777), 0);
  ASSERT_EQ(chmod(path.constData(), 0777), 0);
  const auto alone = startFirst();
  EXPECT_TRUE(alone->hasSaid("first"));
  EXPECT_TRUE(QDir(QString::fromUtf8(path)).isEmpty());
}

TEST_F(OnTheSocket, WithoutARuntimeFolderTheTemporaryFolderServes) {
  environment.remove(QStringLiteral("XDG_RUNTIME_DIR"));
  environment.insert(QStringLiteral("TMPDIR"), folder.path());
  const auto first = startFirst();
  handOver();
  EXPECT_TRUE(runUntil([&first] { return first->hasSaid("activate"); }));
}

TEST_F(OnTheSocket, AVeryLongRuntimeFolderServesToo) {
  const QString deep = folder.path() + QLatin1Char('/') + QString(200, QLatin1Char('d'));
  ASSERT_TRUE(QDir().mkpath(deep));
  environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), deep);
  const auto first = startFirst();
  handOver();
  EXPECT_TRUE(runUntil([&first] { return first->hasSaid("activate"); }));
}

TEST_F(OnTheSocket, ServesWhereTheNamedBusIsGone) {
  environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"),
                     QStringLiteral("unix:path=%1/nothing").arg(folder.path()));
  const auto first = startFirst();
  handOver();
  EXPECT_TRUE(runUntil([&first] { return first->hasSaid("activate"); }));
}

class OnTheBus : public Instances {
 protected:
  QDBusMessage call(const QString& method, const QVariantList& arguments) {
    auto connection = bus->connect();
    QDBusMessage message = QDBusMessage::createMethodCall(
        QString::fromLatin1(QtSingleInstance::busName), QString::fromLatin1(QtSingleInstance::objectPath),
        QStringLiteral("org.freedesktop.Application"), method);
    message.setArguments(arguments);
    return connection.call(message);
  }
};

TEST_F(OnTheBus, AnswersTheDesktopsCalls) {
  const auto first = startFirst();
  const QVariantMap data{{QStringLiteral("activation-token"), QStringLiteral("token")}};
  EXPECT_EQ(call(QStringLiteral("Activate"), {data}).type(), QDBusMessage::ReplyMessage);
  EXPECT_TRUE(runUntil([&first] { return first->hasSaid("activate"); }));
  const QStringList links{QStringLiteral("zunto-helper:a"), QStringLiteral("zunto-helper:b")};
  EXPECT_EQ(call(QStringLiteral("Open"), {links, data}).type(), QDBusMessage::ReplyMessage);
  EXPECT_TRUE(runUntil([&first] { return first->hasSaid("link 14 zunto-helper:b"); }));
  EXPECT_TRUE(first->hasSaid("link 14 zunto-helper:a"));
}

TEST_F(OnTheBus, RefusesACallOfAnotherShape) {
  const auto first = startFirst();
  EXPECT_EQ(call(QStringLiteral("Open"), {QStringLiteral("zunto-helper:")}).type(),
            QDBusMessage::ErrorMessage);
  EXPECT_EQ(call(QStringLiteral("Close"), {}).type(), QDBusMessage::ErrorMessage);
  EXPECT_FALSE(first->hasSaid("activate"));
}

TEST_F(QtTest, LinksWaitForAHandlerAndComeOnTurnsOfTheirOwn) {
  QtUrlEvents links(clock);
  std::vector<std::string> heard;
  links.deliver("one");
  links.deliver("two");
  runTurns();
  links.setHandler([&heard](const UrlEvent& event) { heard.push_back(*event.directObject->stringValue); });
  EXPECT_TRUE(heard.empty());
  runTurns();
  EXPECT_EQ(heard, (std::vector<std::string>{"one", "two"}));
  links.deliver("three");
  links.removeHandler();
  runTurns();
  EXPECT_EQ(heard.size(), 2U);
}

}  // namespace
}  // namespace zunto::testing
