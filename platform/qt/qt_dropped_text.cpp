#include "platform/qt/qt_dropped_text.h"

#include <QStringList>

namespace zunto {

namespace {

std::optional<QString> firstLine(const QString& text, QChar commentMark) {
  for (const QString& each : text.split(QLatin1Char('\n'))) {
    const QString line = each.trimmed();
    if (!line.isEmpty() && line.front() != commentMark) return line;
  }
  return std::nullopt;
}

}  // namespace

std::optional<QString> droppedText(const QMimeData& data) {
  const QByteArray addresses = data.data(QStringLiteral("text/uri-list"));
  if (auto address = firstLine(QString::fromUtf8(addresses), QLatin1Char('#'))) return address;
  return firstLine(data.text(), QChar());
}

bool acceptAsCopy(QDropEvent& event) {
  for (const Qt::DropAction action : {Qt::CopyAction, Qt::LinkAction}) {
    if (!event.possibleActions().testFlag(action)) continue;
    event.setDropAction(action);
    event.accept();
    return true;
  }
  return false;
}

}  // namespace zunto
