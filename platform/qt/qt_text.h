// UTF-8 of the models to Qt's strings and back. Plain functions; any thread.
#pragma once

#include <QByteArray>
#include <QString>
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

}  // namespace zunto
