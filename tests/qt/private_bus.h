// A session bus of the test's own, in a folder of its own; it ends with this object.
#pragma once

#include <QDBusConnection>
#include <QDir>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <csignal>
#include <stdexcept>

#include "tests/qt/send_signal.h"

namespace zunto::testing {

class PrivateBus {
 public:
  /// It starts the services that `dataFolder` holds in dbus-1/services, if one is given.
  explicit PrivateBus(const QString& dataFolder = {}) {
    if (!dataFolder.isEmpty()) {
      QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
      environment.insert(QStringLiteral("XDG_DATA_HOME"), dataFolder);
      daemon_.setProcessEnvironment(environment);
    }
    const QString address = QStringLiteral("unix:path=%1/bus").arg(folder_.path());
    daemon_.start(QStringLiteral("dbus-daemon"),
                  {QStringLiteral("--session"), QStringLiteral("--nofork"), QStringLiteral("--nopidfile"),
                   QStringLiteral("--address=%1").arg(address), QStringLiteral("--print-address=1")});
    if (!daemon_.waitForReadyRead(10000)) throw std::runtime_error("no dbus-daemon");
    address_ = QString::fromUtf8(daemon_.readLine()).trimmed();
  }
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;
  ~PrivateBus() {
    for (const QString& name : names_) QDBusConnection::disconnectFromBus(name);
    sendSignal(daemon_, SIGCONT);
    daemon_.terminate();
    daemon_.waitForFinished();
  }

  [[nodiscard]] const QString& address() const { return address_; }

  /// A new connection, which ends with the bus.
  [[nodiscard]] QDBusConnection connect() {
    // Qt remembers connections by their names beyond this object.
    static int count = 0;
    names_.append(QStringLiteral("connection-%1").arg(++count));
    return QDBusConnection::connectToBus(address_, names_.back());
  }

  /// Lets the bus stand and answer nobody any more.
  void hang() const { sendSignal(daemon_, SIGSTOP); }

  /// Ends the bus while it is in use.
  void stop() {
    daemon_.kill();
    daemon_.waitForFinished();
  }

 private:
  // An address takes no blanks, which the program's name would bring into the folder's.
  QTemporaryDir folder_{QDir::tempPath() + QLatin1String("/zunto-bus-XXXXXX")};
  QProcess daemon_;
  QString address_;
  QStringList names_;
};

}  // namespace zunto::testing
