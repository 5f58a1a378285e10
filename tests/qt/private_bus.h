// A session bus of the test's own, in a folder of its own; it ends with this object.
#pragma once

#include <QDir>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>
#include <stdexcept>

namespace zunto::testing {

class PrivateBus {
 public:
  PrivateBus() {
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
    daemon_.terminate();
    daemon_.waitForFinished();
  }

  [[nodiscard]] const QString& address() const { return address_; }

 private:
  // An address takes no blanks, which the program's name would bring into the folder's.
  QTemporaryDir folder_{QDir::tempPath() + QLatin1String("/zunto-bus-XXXXXX")};
  QProcess daemon_;
  QString address_;
};

}  // namespace zunto::testing
