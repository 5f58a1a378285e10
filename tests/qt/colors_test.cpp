#include "platform/qt/qt_colors.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace zunto::testing {
namespace {

double linearChannel(double channel) {
  return channel <= 0.04045 ? channel / 12.92 : std::pow((channel + 0.055) / 1.055, 2.4);
}

double contrastOf(const QColor& one, const QColor& other) {
  const auto luminance = [](const QColor& color) {
    return 0.2126 * linearChannel(color.redF()) + 0.7152 * linearChannel(color.greenF()) +
           0.0722 * linearChannel(color.blueF());
  };
  const double a = luminance(one) + 0.05;
  const double b = luminance(other) + 0.05;
  return std::max(a, b) / std::min(a, b);
}

QPalette makePalette(const QColor& text, const QColor& background) {
  QPalette palette;
  palette.setColor(QPalette::WindowText, text);
  palette.setColor(QPalette::Window, background);
  return palette;
}

TEST(SecondaryColor, IsReadableOnLightAndDark) {
  for (const auto& [text, background] : {std::pair(QColor(0, 0, 0), QColor(239, 239, 239)),
                                         std::pair(QColor(230, 230, 230), QColor(40, 40, 44)),
                                         std::pair(QColor(80, 80, 80), QColor(250, 250, 250))}) {
    const QColor secondary = secondaryTextColor(makePalette(text, background));
    EXPECT_GE(contrastOf(secondary, background), 4.5);
    EXPECT_LT(contrastOf(secondary, background), contrastOf(text, background));
  }
}

TEST(SecondaryColor, IsNotDimmedWhereContrastIsHigh) {
  for (const auto& [text, background] :
       {std::pair(QColor(Qt::black), QColor(Qt::white)), std::pair(QColor(Qt::white), QColor(Qt::black))}) {
    EXPECT_EQ(secondaryTextColor(makePalette(text, background)), text);
  }
}

TEST(DisabledTexts, AreMadeOutWhereThePaletteHasThemTooFaint) {
  for (const auto& [text, ground] : {std::pair(QColor(0, 0, 0), QColor(239, 239, 239)),
                                     std::pair(QColor(238, 238, 238), QColor(42, 42, 46))}) {
    QPalette palette(ground, ground);
    palette.setColor(QPalette::Base, ground);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
      palette.setColor(role, text);
      palette.setColor(QPalette::Disabled, role, ground);
    }
    const QPalette readable = readableDisabledTexts(palette);
    const auto shown = [&](QPalette::ColorRole role) { return readable.color(QPalette::Disabled, role); };
    EXPECT_GE(contrastOf(shown(QPalette::Text), ground), 4.5);
    EXPECT_GE(contrastOf(shown(QPalette::ButtonText), ground), 3);
    EXPECT_GE(contrastOf(shown(QPalette::WindowText), ground), 3);
    EXPECT_LT(contrastOf(shown(QPalette::Text), ground), contrastOf(text, ground));
    EXPECT_EQ(readableDisabledTexts(readable.resolve(palette)).resolveMask(), 0U);
  }
}

}  // namespace
}  // namespace zunto::testing
