#include "platform/qt/qt_color_scheme.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <memory>

#include "platform/qt/qt_colors.h"
#include "tests/qt/private_bus.h"
#include "tests/qt/qt_world.h"
#include "tests/qt/settings_portal.h"

namespace zunto::testing {
namespace {

class ColorScheme : public QtTest {
 protected:
  static constexpr uint preferDark = SettingsPortal::preferDark;
  static constexpr uint preferLight = SettingsPortal::preferLight;

  bool becomesDark(bool dark) {
    return runUntil([dark] { return isDark(QApplication::palette()) == dark; });
  }

  PrivateBus bus;
  QDBusConnection desktop = bus.connect();
};

TEST_F(ColorScheme, IsTheOneThatTheDesktopHasAndFollowsIt) {
  SettingsPortal portal(desktop);
  portal.setScheme(preferDark);
  const QtColorScheme scheme(bus.connect());
  const QWidget window;
  ASSERT_TRUE(becomesDark(true));
  EXPECT_TRUE(isDark(window.palette()));
  EXPECT_FALSE(isHighContrast(window.palette()));
  portal.setScheme(preferLight);
  EXPECT_TRUE(becomesDark(false));
  portal.setScheme(preferDark);
  EXPECT_TRUE(becomesDark(true));
}

TEST_F(ColorScheme, IsHeardOfAPortalThatComesLater) {
  const QtColorScheme scheme(bus.connect());
  runTurns();
  EXPECT_FALSE(isDark(QApplication::palette()));
  SettingsPortal portal(desktop);
  portal.setScheme(preferDark);
  EXPECT_TRUE(becomesDark(true));
}

TEST_F(ColorScheme, IsTheThemesWhereTheUserPrefersNone) {
  const QPalette before = QApplication::palette();
  SettingsPortal portal(desktop);
  portal.setScheme(preferDark);
  const QtColorScheme scheme(bus.connect());
  ASSERT_TRUE(becomesDark(true));
  portal.setScheme(0);
  ASSERT_TRUE(becomesDark(false));
  EXPECT_EQ(QApplication::palette().color(QPalette::Window), before.color(QPalette::Window));
}

TEST_F(ColorScheme, IsOfHighContrastWhereTheUserWantsThat) {
  SettingsPortal portal(desktop);
  const QtColorScheme scheme(bus.connect());
  const auto isStrong = [] { return isHighContrast(QApplication::palette()); };
  portal.set("org.gnome.desktop.a11y.interface", "high-contrast", true);
  EXPECT_TRUE(runUntil(isStrong));
  EXPECT_FALSE(isDark(QApplication::palette()));
  portal.set("org.gnome.desktop.a11y.interface", "high-contrast", false);
  EXPECT_TRUE(runUntil([&] { return !isStrong(); }));
  portal.set("org.freedesktop.appearance", "contrast", 1U);
  portal.setScheme(preferDark);
  EXPECT_TRUE(runUntil([&] { return isStrong() && isDark(QApplication::palette()); }));
}

TEST_F(ColorScheme, LeavesNoDisabledTextTooFaint) {
  const auto faintest = [] {
    const QPalette palette = QApplication::palette();
    return contrast(palette.color(QPalette::Disabled, QPalette::Text),
                    palette.color(QPalette::Disabled, QPalette::Base));
  };
  EXPECT_LT(faintest(), 3);
  SettingsPortal portal(desktop);
  const QtColorScheme scheme(bus.connect());
  EXPECT_GE(faintest(), 4.5);
  portal.setScheme(preferDark);
  ASSERT_TRUE(becomesDark(true));
  EXPECT_GE(faintest(), 4.5);
}

TEST_F(ColorScheme, WaitsForNobody) {
  QDBusConnection program = bus.connect();
  bus.hang();
  QElapsedTimer timer;
  timer.start();
  { const QtColorScheme scheme(program); }
  EXPECT_LT(timer.elapsed(), 1000);
}

TEST_F(QtTest, ColorsAreTheThemesWithoutABus) {
  const QColor before = QApplication::palette().color(QPalette::Window);
  const QtColorScheme scheme(std::nullopt);
  EXPECT_EQ(QApplication::palette().color(QPalette::Window), before);
}

}  // namespace
}  // namespace zunto::testing
