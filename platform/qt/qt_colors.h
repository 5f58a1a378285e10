// Colours that can be told apart, whatever palette the desktop has. Plain functions; any thread.
#pragma once

#include <QColor>
#include <QPainter>
#include <QPalette>
#include <QRect>

namespace zunto {

/// How far two colours are apart, from 1 (equal) to 21 (black and white), as the eye sees it.
[[nodiscard]] double contrast(const QColor& one, const QColor& other);

/// Whether light text stands on a dark ground.
[[nodiscard]] bool isDark(const QPalette& palette);

/// Whether text is about as strong as it can be: nobody gets such a palette without having asked for it.
[[nodiscard]] bool isHighContrast(const QPalette& palette);

/// Where contrast is high, draws the edge of a control in the colour of its text: the edges of many styles
/// are shades of the ground, and on black there are none.
void drawStrongEdge(QPainter& painter, const QRect& edge, const QPalette& palette);

/// The text's colour, toned down as far as it stays readable on its ground, and not at all where contrast is
/// high.
[[nodiscard]] QColor secondaryTextColor(const QPalette& palette,
                                        QPalette::ColorRole text = QPalette::WindowText,
                                        QPalette::ColorRole ground = QPalette::Window);

/// `palette` with disabled texts that can still be made out. Only these are set in the answer, and only those
/// that were too faint.
[[nodiscard]] QPalette readableDisabledTexts(const QPalette& palette);

}  // namespace zunto
