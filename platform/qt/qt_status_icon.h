// The program's picture in the desktop: a tile with a letter, legible on light and dark bars.
// Plain functions; main thread only.
#pragma once

#include <QIcon>
#include <QImage>
#include <QString>

namespace zunto {

enum class StatusMark {
  none,
  dot  ///< a filled dot in the corner
};

/// A bar that shows pictures shows the title's mark as a dot on the program's picture.
[[nodiscard]] StatusMark statusMarkIn(const QString& title);

/// A square picture with `side` pixels.
[[nodiscard]] QImage drawStatusIcon(int side, StatusMark mark);

/// The same in whatever size is asked for, drawn then.
[[nodiscard]] QIcon makeStatusIcon(StatusMark mark);

}  // namespace zunto
