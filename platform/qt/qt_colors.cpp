#include "platform/qt/qt_colors.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace zunto {

namespace {

constexpr double readable = 4.5;
constexpr double discernible = 3;

double linear(double channel) {
  return channel <= 0.04045 ? channel / 12.92 : std::pow((channel + 0.055) / 1.055, 2.4);
}

double luminance(const QColor& color) {
  return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) + 0.0722 * linear(color.blueF());
}

QColor mix(const QColor& text, const QColor& ground, float share) {
  const auto channel = [share](float a, float b) { return a * share + b * (1 - share); };
  return QColor::fromRgbF(channel(text.redF(), ground.redF()), channel(text.greenF(), ground.greenF()),
                          channel(text.blueF(), ground.blueF()));
}

/// The faintest mixture with its ground, of at least this share, that has the contrast.
QColor tonedDown(const QColor& text, const QColor& ground, int leastPercent, double leastContrast) {
  for (int percent = leastPercent; percent < 100; percent += 5) {
    const QColor color = mix(text, ground, static_cast<float>(percent) / 100);
    if (contrast(color, ground) >= leastContrast) return color;
  }
  return text;
}

struct DisabledText {
  QPalette::ColorRole text;
  QPalette::ColorRole ground;
  double leastContrast;
};

/// What a disabled field holds is still read, and so is a line of a menu that only says something. Of a
/// button's contrast some is lost to the style, which shades the ground.
constexpr std::array<DisabledText, 3> disabledTexts{{{QPalette::Text, QPalette::Base, readable},
                                                     {QPalette::WindowText, QPalette::Window, discernible},
                                                     {QPalette::ButtonText, QPalette::Button, readable}}};

}  // namespace

double contrast(const QColor& one, const QColor& other) {
  const double a = luminance(one);
  const double b = luminance(other);
  return (std::max(a, b) + 0.05) / (std::min(a, b) + 0.05);
}

bool isDark(const QPalette& palette) {
  return luminance(palette.color(QPalette::Window)) < luminance(palette.color(QPalette::WindowText));
}

bool isHighContrast(const QPalette& palette) {
  constexpr double nearlyBlackAndWhite = 20;
  return contrast(palette.color(QPalette::Active, QPalette::WindowText),
                  palette.color(QPalette::Active, QPalette::Window)) >= nearlyBlackAndWhite;
}

void drawStrongEdge(QPainter& painter, const QRect& edge, const QPalette& palette) {
  if (!isHighContrast(palette)) return;
  painter.setPen(palette.color(QPalette::WindowText));
  painter.setBrush(Qt::NoBrush);
  painter.drawRect(edge.adjusted(0, 0, -1, -1));
}

QColor secondaryTextColor(const QPalette& palette, QPalette::ColorRole text, QPalette::ColorRole ground) {
  constexpr int leastPercent = 60;
  if (isHighContrast(palette)) return palette.color(text);
  return tonedDown(palette.color(text), palette.color(ground), leastPercent, readable);
}

QPalette readableDisabledTexts(const QPalette& palette) {
  constexpr int leastPercent = 40;
  QPalette result;
  result.setResolveMask(0);
  for (const DisabledText& each : disabledTexts) {
    const QColor ground = palette.color(QPalette::Disabled, each.ground);
    if (contrast(palette.color(QPalette::Disabled, each.text), ground) >= each.leastContrast) continue;
    result.setColor(
        QPalette::Disabled, each.text,
        tonedDown(palette.color(QPalette::Active, each.text), ground, leastPercent, each.leastContrast));
  }
  return result;
}

}  // namespace zunto
