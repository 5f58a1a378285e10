// What the user drags over a window, as the one text that it stands for. Plain functions; main thread only.
#pragma once

#include <QDropEvent>
#include <QMimeData>
#include <QString>
#include <optional>

namespace zunto {

/// The first address of a list, else the first line that is not blank; none where there is no text at all.
[[nodiscard]] std::optional<QString> droppedText(const QMimeData& data);

/// Accepts the event as a copy or, from a source that offers nothing else, as a link; never as a move, which
/// would take the text away from where it came from. Answers whether it could.
bool acceptAsCopy(QDropEvent& event);

}  // namespace zunto
