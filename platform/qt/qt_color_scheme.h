// The program's colours: those of the desktop's theme for Qt, or, where that does not know what the user has
// set for the whole desktop (dark or light, high contrast), colours of the program's own.
//
// The setting is asked of the desktop's portal, and followed while the program runs. Nothing here waits.
// Owner: the program's entry. Thread: main thread only, while a QtApplication lives.
#pragma once

#include <QDBusConnection>
#include <memory>
#include <optional>

namespace zunto {

class QtColorScheme {
 public:
  /// `bus` is none where there is no session bus: the theme's colours then stay.
  explicit QtColorScheme(std::optional<QDBusConnection> bus);
  QtColorScheme(const QtColorScheme&) = delete;
  QtColorScheme& operator=(const QtColorScheme&) = delete;
  /// The theme's own colours from now on.
  ~QtColorScheme();

 private:
  class Portal;
  class ThemeWatch;

  void apply();

  std::unique_ptr<Portal> portal_;
  std::unique_ptr<ThemeWatch> theme_;
};

}  // namespace zunto
