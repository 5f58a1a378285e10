// The models' texts, which are UTF-8, as Qt's, and back. Plain functions; any thread.
#pragma once

#include <QByteArray>
#include <QFont>
#include <QFontInfo>
#include <QString>
#include <Qt>
#include <algorithm>
#include <string>
#include <string_view>

namespace zunto {

/// What is not valid UTF-8 becomes U+FFFD.
[[nodiscard]] inline QString toQString(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

[[nodiscard]] inline std::string fromQString(const QString& text) { return text.toUtf8().toStdString(); }

/// For buttons and menus, where Qt reads "&" as the mark of a mnemonic.
[[nodiscard]] inline QString withoutMnemonic(std::string_view text) {
  return toQString(text).replace(QLatin1Char('&'), QLatin1String("&&"));
}

/// Tool tips guess whether they are given markup; a title from elsewhere must stay a text.
[[nodiscard]] inline QString asToolTip(const QString& text) {
  return QLatin1String("<qt>") + text.toHtmlEscaped() + QLatin1String("</qt>");
}

/// In which direction a text runs, whatever that of the layout is: drawn in the other one, its last full stop
/// would stand before it.
[[nodiscard]] inline Qt::LayoutDirection directionOf(const QString& text) {
  return text.isRightToLeft() ? Qt::RightToLeft : Qt::LeftToRight;
}

/// How much larger a font is than the one that the models' sizes in points were chosen beside; never less
/// than 1.
[[nodiscard]] inline double scaleOf(const QFont& font) {
  constexpr double usualPixels = 13;
  return std::max(1.0, QFontInfo(font).pixelSize() / usualPixels);
}

}  // namespace zunto
