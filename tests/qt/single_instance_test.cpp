#include "platform/qt/qt_single_instance.h"

#include <gtest/gtest.h>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusReply>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <algorithm>
#include <csignal>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/qt/instance.h"
#include "tests/qt/private_bus.h"
#include "tests/qt/qt_world.h"

namespace zunto::testing {
namespace {

class Instances : public QtTest {
 protected:
  Instances() {
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), folder.path());
    environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), bus.address());
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

  /// Starts another one and expects that it stands alone and lives.
  std::unique_ptr<Instance> startAlone() {
    auto alone = startFirst();
    EXPECT_EQ(alone->said(), (QStringList{QStringLiteral("alone"), QStringLiteral("launched")}));
    return alone;
  }
  QDBusMessage message(const QString& method, const QVariantList& arguments) const {
    QDBusMessage message = QDBusMessage::createMethodCall(
        QString::fromLatin1(QtSingleInstance::busName), QString::fromLatin1(QtSingleInstance::objectPath),
        QStringLiteral("org.freedesktop.Application"), method);
    message.setArguments(arguments);
    return message;
  }
  QDBusMessage call(const QString& method, const QVariantList& arguments) {
    return bus.connect().call(message(method, arguments));
  }

  static QElapsedTimer started() {
    QElapsedTimer timer;
    timer.start();
    return timer;
  }
  /// For another process to get where it waits.
  static void waitSomeTime() {
    const QDeadlineTimer end(500);
    runUntil([&end] { return end.hasExpired(); });
  }

  QTemporaryDir folder;
  QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
  PrivateBus bus;
};

TEST_F(Instances, SecondStartAsksTheFirstToComeForwardAndEnds) {
  const auto first = startFirst();
  handOver();
  EXPECT_TRUE(runUntil([&first] { return first->hasSaid("activate"); }));
}

TEST_F(Instances, SecondStartHandsItsLinkOver) {
  const auto first = startFirst();
  const QString link = QString::fromUtf8("zunto-helper://open?url=https%3A%2F%2Fmedia.example%2F?ü=●");
  handOver({link});
  const std::string expected = "link " + std::to_string(link.toUtf8().size()) + " " + fromQString(link);
  EXPECT_TRUE(runUntil([&] { return first->hasSaid(expected.c_str()); })) << expected;
  EXPECT_FALSE(first->hasSaid("activate"));
}

TEST_F(Instances, HandsOverALinkOfAHundredKilobytes) {
  const auto first = startFirst();
  const QString link = QStringLiteral("zunto-helper:?url=") + QString(100'000, QLatin1Char('a'));
  handOver({link});
  EXPECT_TRUE(runUntil([&] { return !first->said().filter(QStringLiteral("link 100018 ")).isEmpty(); }));
}

TEST_F(Instances, HandsOverAnEmptyLinkAsALink) {
  const auto first = startFirst();
  handOver({QString()});
  EXPECT_TRUE(runUntil([&first] { return first->hasSaid("link 0 "); }));
}

TEST_F(Instances, LinkOfAColdStartFollowsTheLaunch) {
  const auto first = start({QStringLiteral("zunto-helper:")});
  ASSERT_TRUE(runUntil([&first] { return first->hasSaid("link 13 zunto-helper:"); }));
  const QStringList expected{QStringLiteral("first"), QStringLiteral("launched"),
                             QStringLiteral("link 13 zunto-helper:")};
  EXPECT_EQ(first->said(), expected);
}

TEST_F(Instances, AStartAfterAKilledInstanceIsTheFirst) {
  auto killed = startFirst();
  killed->signal(SIGKILL);
  ASSERT_TRUE(runUntil([&killed] { return killed->hasEnded(); }));
  const auto next = startFirst();
  EXPECT_TRUE(next->hasSaid("first"));
  handOver();
}

TEST_F(Instances, StartsAtTheSameTimeYieldOneInstance) {
  std::vector<std::unique_ptr<Instance>> started;
  for (int i = 0; i < 4; ++i) started.push_back(start());
  const auto count = [&started](const char* what) {
    return std::count_if(started.begin(), started.end(), [what](auto& each) { return each->hasSaid(what); });
  };
  ASSERT_TRUE(runUntil([&count] { return count("first") + count("handedOver") == 4; }));
  EXPECT_EQ(count("first"), 1);
}

TEST_F(Instances, AnInstanceThatEndsGivesItsPlaceUp) {
  const auto first = startFirst();
  first->signal(SIGTERM);
  ASSERT_TRUE(runUntil([&first] { return first->hasEnded(); }));
  EXPECT_EQ(first->exitCode(), 0);
  EXPECT_TRUE(startFirst()->hasSaid("first"));
}

TEST_F(Instances, WithoutABusEveryStartStandsAlone) {
  environment.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
  const auto one = startAlone();
  const auto other = startAlone();
}

TEST_F(Instances, AStartWhoseBusIsGoneStandsAlone) {
  environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"),
                     QStringLiteral("unix:path=%1/nothing").arg(folder.path()));
  startAlone();
}

TEST_F(Instances, MeetAtTheBusInTheRuntimeFolderWhereNoAddressNamesOne) {
  const QString path = bus.address().section(QLatin1Char('='), 1).section(QLatin1Char(','), 0, 0);
  ASSERT_TRUE(QFile::link(path, folder.filePath(QStringLiteral("bus"))));
  environment.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
  const auto first = startFirst();
  handOver();
}

TEST_F(Instances, AStartWhoseBusHangsStandsAloneAfterTwoSeconds) {
  const auto first = startFirst();
  bus.hang();
  const QElapsedTimer timer = started();
  const auto second = startAlone();
  EXPECT_GT(timer.elapsed(), 1900);
  EXPECT_LT(timer.elapsed(), 5000);
}

TEST_F(Instances, SigtermEndsAStartWhoseBusHangs) {
  bus.hang();
  const auto start = this->start();
  waitSomeTime();
  start->signal(SIGTERM);
  const QElapsedTimer timer = started();
  ASSERT_TRUE(runUntil([&start] { return start->hasEnded(); }));
  EXPECT_LT(timer.elapsed(), 1000);
}

TEST_F(Instances, AHandOverWhoseBusGoesAwayStandsAlone) {
  const auto first = startFirst();
  first->signal(SIGSTOP);  // so that it does not answer
  const auto second = start();
  waitSomeTime();
  bus.stop();
  EXPECT_TRUE(runUntil([&second] { return second->hasSaid("launched"); }));
  EXPECT_TRUE(second->hasSaid("alone"));
}

TEST_F(Instances, AHandOverWhoseBusBeginsToHangStandsAlone) {
  const auto first = startFirst();
  first->signal(SIGSTOP);
  const auto second = start();
  waitSomeTime();
  bus.hang();
  EXPECT_TRUE(runUntil([&second] { return second->hasSaid("launched"); }));
  EXPECT_TRUE(second->hasSaid("alone"));
}

TEST_F(Instances, AnInstanceThatIsBusyHasTheRequestAllTheSame) {
  const auto first = startFirst();
  first->signal(SIGSTOP);
  handOver({QStringLiteral("zunto-helper:a")});
  first->signal(SIGCONT);
  EXPECT_TRUE(runUntil([&first] { return first->hasSaid("link 14 zunto-helper:a"); }));
}

TEST_F(Instances, AStartIsTheNextOneWhenTheInstanceEndsInsteadOfTakingTheRequest) {
  const auto first = startFirst();
  first->signal(SIGSTOP);
  const auto second = start({QStringLiteral("zunto-helper:a")});
  waitSomeTime();
  first->signal(SIGKILL);
  EXPECT_TRUE(runUntil([&second] { return second->hasSaid("link 14 zunto-helper:a"); }));
  EXPECT_TRUE(second->hasSaid("first"));
}

TEST_F(Instances, AnInstanceThatHasTerminatedTakesNoRequest) {
  qputenv("DBUS_SESSION_BUS_ADDRESS", bus.address().toUtf8());
  auto instance = std::make_unique<QtSingleInstance>();
  ASSERT_EQ(instance->claim({}), QtSingleInstance::Role::first);
  qunsetenv("DBUS_SESSION_BUS_ADDRESS");
  QtUrlEvents links(clock);
  int activations = 0;
  instance->serve(clock, links, [&activations] { ++activations; });
  runTurns();  // what comes before them is taken for what has started the program
  QDBusConnection desktop = bus.connect();
  const QDBusPendingCall taken = desktop.asyncCall(message(QStringLiteral("Activate"), {QVariantMap()}));
  ASSERT_TRUE(runUntil([&taken] { return taken.isFinished(); }));
  EXPECT_FALSE(taken.isError());
  EXPECT_EQ(activations, 1);

  application.terminate();
  const QDBusPendingCall late = desktop.asyncCall(message(QStringLiteral("Activate"), {QVariantMap()}));
  waitSomeTime();
  EXPECT_FALSE(late.isFinished());
  instance.reset();
  ASSERT_TRUE(runUntil([&late] { return late.isFinished(); }));
  EXPECT_TRUE(late.isError());
  EXPECT_EQ(activations, 1);
}

TEST(LaunchRequests, TheLinkIsTheFirstArgumentThatBelongsToNoOption) {
  const auto linkOf = [](std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "zunto-helper");
    return readLaunchRequest(static_cast<int>(arguments.size()), arguments.data()).link;
  };
  EXPECT_EQ(linkOf({}), std::nullopt);
  EXPECT_EQ(linkOf({"zunto-helper:a", "zunto-helper:b"}), "zunto-helper:a");
  EXPECT_EQ(linkOf({"-platform", "offscreen"}), std::nullopt);
  EXPECT_EQ(linkOf({"-platform", "offscreen", "zunto-helper:a"}), "zunto-helper:a");
  EXPECT_EQ(linkOf({"https://\xff"}), "https://\xff");
  EXPECT_EQ(linkOf({""}), "");
}

TEST_F(Instances, AnswersTheDesktopsCalls) {
  const auto first = startFirst();
  const QVariantMap data{{QStringLiteral("activation-token"), QStringLiteral("token")}};
  EXPECT_EQ(call(QStringLiteral("Activate"), {data}).type(), QDBusMessage::ReplyMessage);
  EXPECT_TRUE(runUntil([&first] { return first->hasSaid("activate"); }));
  const QStringList links{QStringLiteral("zunto-helper:a"), QStringLiteral("zunto-helper:b")};
  EXPECT_EQ(call(QStringLiteral("Open"), {links, data}).type(), QDBusMessage::ReplyMessage);
  EXPECT_TRUE(runUntil([&first] { return first->hasSaid("link 14 zunto-helper:b"); }));
  EXPECT_TRUE(first->hasSaid("link 14 zunto-helper:a"));
}

TEST_F(Instances, DoesTheActionsThatItOffersAndComesForwardForOthers) {
  const auto first = startFirst();
  const QVariantMap data{{QStringLiteral("desktop-startup-id"), QStringLiteral("id")}};
  const QString method = QStringLiteral("ActivateAction");
  const QVariantList parameters{QStringLiteral("not asked for")};
  EXPECT_EQ(call(method, {QStringLiteral("greet"), parameters, data}).type(), QDBusMessage::ReplyMessage);
  EXPECT_TRUE(runUntil([&first] { return first->hasSaid("greet"); }));
  EXPECT_FALSE(first->hasSaid("activate"));
  EXPECT_EQ(call(method, {QStringLiteral("sing"), parameters, data}).type(), QDBusMessage::ReplyMessage);
  EXPECT_TRUE(runUntil([&first] { return first->hasSaid("activate"); }));
}

TEST_F(Instances, SecondStartHandsItsActionOver) {
  const auto first = startFirst();
  handOver({QStringLiteral("--greet")});
  EXPECT_TRUE(runUntil([&first] { return first->hasSaid("greet"); }));
  EXPECT_FALSE(first->hasSaid("activate"));
}

TEST_F(Instances, RefusesACallOfAnotherShape) {
  const auto first = startFirst();
  EXPECT_EQ(call(QStringLiteral("Open"), {QStringLiteral("zunto-helper:")}).type(),
            QDBusMessage::ErrorMessage);
  EXPECT_EQ(call(QStringLiteral("Close"), {}).type(), QDBusMessage::ErrorMessage);
  EXPECT_FALSE(first->hasSaid("activate"));
}

/// The program as a service of the session bus, which starts it for a call.
class ColdStarts : public QtTest {
 protected:
  ColdStarts() {
    const QString services = folder.filePath(QStringLiteral("dbus-1/services"));
    QDir().mkpath(services);
    QFile service(services + QStringLiteral("/helper.service"));
    EXPECT_TRUE(service.open(QIODevice::WriteOnly));
    service.write(QStringLiteral("[D-BUS Service]\nName=%1\nExec=/bin/sh -c \"exec '%2' >'%3'\"\n")
                      .arg(QString::fromLatin1(QtSingleInstance::busName),
                           QCoreApplication::applicationDirPath() + QStringLiteral("/instance_program"),
                           folder.filePath(QStringLiteral("said")))
                      .toUtf8());
    service.close();
    bus.emplace(folder.path());
  }
  ColdStarts(const ColdStarts&) = delete;
  ColdStarts& operator=(const ColdStarts&) = delete;
  ~ColdStarts() override {
    const auto pid = bus->connect().interface()->servicePid(QString::fromLatin1(QtSingleInstance::busName));
    if (pid.isValid()) ::kill(static_cast<pid_t>(pid.value()), SIGKILL);
  }

  /// Calls a method of the program and waits for the answer.
  void call(const QString& method, const QVariantList& arguments) {
    QDBusMessage message = QDBusMessage::createMethodCall(
        QString::fromLatin1(QtSingleInstance::busName), QString::fromLatin1(QtSingleInstance::objectPath),
        QStringLiteral("org.freedesktop.Application"), method);
    message.setArguments(arguments);
    const QDBusMessage answer = bus->connect().call(message);
    ASSERT_EQ(answer.type(), QDBusMessage::ReplyMessage) << fromQString(answer.errorMessage());
  }
  QStringList said() const {
    QFile file(folder.filePath(QStringLiteral("said")));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly));
    return QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
  }

  QTemporaryDir folder;
  std::optional<PrivateBus> bus;
  const QStringList launched{QStringLiteral("first"), QStringLiteral("launched")};
};

TEST_F(ColdStarts, TheLaunchIsWhatAnActivationByTheBusWants) {
  call(QStringLiteral("Activate"), {QVariantMap()});
  EXPECT_EQ(said(), launched);
  call(QStringLiteral("Activate"), {QVariantMap()});
  EXPECT_EQ(said(), launched + QStringList(QStringLiteral("activate")));
}

TEST_F(ColdStarts, AnActionThatTheBusBringsFollowsTheLaunch) {
  call(QStringLiteral("ActivateAction"), {QStringLiteral("greet"), QVariantList(), QVariantMap()});
  EXPECT_EQ(said(), launched + QStringList(QStringLiteral("greet")));
}

TEST_F(ColdStarts, ALinkThatTheBusBringsFollowsTheLaunch) {
  call(QStringLiteral("Open"), {QStringList(QStringLiteral("zunto-helper:a")), QVariantMap()});
  EXPECT_EQ(said(), launched + QStringList(QStringLiteral("link 14 zunto-helper:a")));
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
