// Qt's connection to the desktop session's message bus.
//
// Parts of Qt (accessibility, menus) connect to it by themselves, and wait for the bus without a limit. So
// somebody else has to know before whether it answers. Owner: the program's entry. Thread: main thread only.
#pragma once

#include <QByteArray>
#include <QDBusConnection>
#include <optional>

namespace zunto {

class QtSessionBus {
 public:
  /// Made before the QtApplication. Where the bus does not answer, or there is none, no part of Qt looks for
  /// it; nor does Qt start one, which would outlive the program.
  explicit QtSessionBus(bool answers);

  /// The program's connection, which is the one that all of Qt uses; none where the bus does not answer. The
  /// environment is as it was before from now on. Called once, while the QtApplication lives.
  [[nodiscard]] std::optional<QDBusConnection> connect();

 private:
  bool answers_;
  QByteArray address_;
};

}  // namespace zunto
