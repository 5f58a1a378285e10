#include "platform/qt/qt_text_label.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QApplication>
#include <QEvent>
#include <QFontMetrics>
#include <QPainter>
#include <QStyle>
#include <QTextOption>
#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>

#include "platform/qt/qt_colors.h"
#include "platform/qt/qt_text.h"

namespace zunto {

namespace {

/// How wide a wrapping label wants to be at most; a window makes it wider or narrower.
constexpr int wrappingWidthInCharacters = 60;

QFont::Weight nativeWeight(FontWeight weight) {
  switch (weight) {
    case FontWeight::semibold:
      return QFont::DemiBold;
    case FontWeight::bold:
      return QFont::Bold;
    case FontWeight::regular:
      break;
  }
  return QFont::Normal;
}

/// Size and weight apart, the desktop's font. Sizes grow with a user who has chosen a larger font, and are
/// never smaller than asked for.
QFont nativeFont(const Font& font, const QWidget& widget) {
  QFont result = QApplication::font(&widget);
  if (font.weight != FontWeight::regular) result.setWeight(nativeWeight(font.weight));
  if (font.size) result.setPixelSize(static_cast<int>(std::lround(*font.size * scaleOf(result))));
  return result;
}

/// As much of a text as anybody reads: laying out megabytes would hold up the window.
QString readable(const QString& text) {
  constexpr qsizetype longest = 4000;
  if (text.size() <= longest) return text;
  const qsizetype end = text.at(longest - 1).isHighSurrogate() ? longest - 1 : longest;
  return text.left(end) + QChar(0x2026);
}

class AnnouncementAccessible final : public QAccessibleWidget {
 public:
  explicit AnnouncementAccessible(QtTextLabel& label)
      : QAccessibleWidget(&label, QAccessible::Notification) {}
};

/// Qt takes ownership of what it answers; none lets it make its own.
QAccessibleInterface* makeAnnouncement(const QString&, QObject* object) {
  auto* label = dynamic_cast<QtTextLabel*>(object);
  if (label == nullptr || !label->announces()) return nullptr;
  return std::make_unique<AnnouncementAccessible>(*label).release();
}

}  // namespace

void announceQtTextLabels() { QAccessible::installFactory(makeAnnouncement); }

QtTextLabel::QtTextLabel(const Label& model, QWidget* parent)
    : QLabel(parent), model_(model), style_(model.style()) {
  setTextFormat(Qt::PlainText);
  setWordWrap(false);
  QSizePolicy policy(style_.wraps || style_.truncatesTail ? QSizePolicy::Preferred : QSizePolicy::Maximum,
                     QSizePolicy::Fixed);
  policy.setHeightForWidth(style_.wraps);
  setSizePolicy(policy);
  applyFont();
  mirrorText();
}

void QtTextLabel::mirrorText() {
  if (model_.isProblem() != isProblem_) {
    isProblem_ = model_.isProblem();
    applyFont();
    update();
  }
  const QString full = readable(toQString(model_.text()));
  if (full == text() && !accessibleName().isNull()) return;
  // The name first: Qt tells of it, and a text that changes behind a name is not news once more.
  const std::string& givenName = model_.accessibleName();
  setAccessibleName(givenName.empty() ? full : toQString(givenName));
  setText(full);
  sizeHint_.reset();
  updateGeometry();
  if (style_.announces && isVisible()) announce();
}

void QtTextLabel::announce() {
  // A screen reader asks for the text only later, so two texts of one turn would be the last one, spoken
  // twice.
  if (std::exchange(isAnnouncing_, true)) return;
  QMetaObject::invokeMethod(
      this,
      [this] {
        isAnnouncing_ = false;
        // Screen readers speak a notification that is shown, and say nothing to a label's new name.
        QAccessibleEvent shown(this, QAccessible::ObjectShow);
        QAccessible::updateAccessibility(&shown);
      },
      Qt::QueuedConnection);
}

int QtTextLabel::heightForWidth(int width) const {
  if (!style_.wraps) return -1;
  const int lines = style_.keepsRoom ? maximumLines() : static_cast<int>(breakLines(width).size());
  return std::max(1, lines) * fontMetrics().lineSpacing();
}

QSize QtTextLabel::sizeHint() const {
  // Layouts ask several times for what takes the shaping of the whole text.
  if (!sizeHint_) sizeHint_ = naturalSize();
  return *sizeHint_;
}

QSize QtTextLabel::naturalSize() const {
  const QFontMetrics metrics = fontMetrics();
  QString text = QLabel::text();
  text.replace(QLatin1Char('\n'), QLatin1Char(' '));
  int width = metrics.horizontalAdvance(text) + 1;
  if (style_.wraps) width = std::min(width, wrappingWidthInCharacters * metrics.averageCharWidth());
  const int height = style_.wraps ? heightForWidth(width) : metrics.lineSpacing();
  return {width, height};
}

QSize QtTextLabel::minimumSizeHint() const {
  const QFontMetrics metrics = fontMetrics();
  if (style_.wraps || style_.truncatesTail) {
    const int shortest = std::min(sizeHint().width(), 12 * metrics.averageCharWidth());
    return {shortest, metrics.lineSpacing()};
  }
  return sizeHint();
}

QStringList QtTextLabel::breakLines(int width) const {
  QString full = text();
  if (!style_.wraps) {
    full.replace(QLatin1Char('\n'), QLatin1Char(' '));
    return {style_.truncatesTail ? fontMetrics().elidedText(full, Qt::ElideRight, width) : full};
  }
  full.replace(QLatin1Char('\n'), QChar(QChar::LineSeparator));
  QTextLayout layout(full, font());
  QTextOption option;
  option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
  layout.setTextOption(option);
  QStringList lines;
  layout.beginLayout();
  for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
    line.setLineWidth(width);
    const qsizetype start = line.textStart();
    if (lines.size() + 1 == maximumLines()) {
      QString rest = full.mid(start);
      rest.replace(QChar(QChar::LineSeparator), QLatin1Char(' '));
      lines.append(fontMetrics().elidedText(rest, Qt::ElideRight, width));
      break;
    }
    lines.append(full.mid(start, line.textLength()).trimmed());
  }
  layout.endLayout();
  return lines;
}

void QtTextLabel::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  const bool isSecondary = style_.color == TextColor::secondary && !isProblem_;
  painter.setPen(isSecondary ? secondaryTextColor(palette()) : palette().color(QPalette::WindowText));
  const QRect area = contentsRect();
  const int lineHeight = fontMetrics().lineSpacing();
  QRect line(area.left(), area.top(), area.width(), lineHeight);
  const Qt::Alignment leading = QStyle::visualAlignment(layoutDirection(), Qt::AlignLeft);
  // The layout says where a text stands, the text itself in which direction it runs.
  painter.setLayoutDirection(directionOf(text()));
  const int flags = static_cast<int>(leading | Qt::AlignAbsolute | Qt::AlignVCenter) | Qt::TextSingleLine;
  for (const QString& text : breakLines(area.width())) {
    painter.drawText(line, flags, text);
    line.translate(0, lineHeight);
  }
}

bool QtTextLabel::event(QEvent* event) {
  // Only now is it worth its layout.
  if (event->type() == QEvent::ToolTip) updateToolTip();
  return QLabel::event(event);
}

void QtTextLabel::changeEvent(QEvent* event) {
  QLabel::changeEvent(event);
  const bool isFontNews = event->type() == QEvent::ApplicationFontChange ||
                          event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange;
  if (isFontNews) applyFont();
  if (event->type() == QEvent::PaletteChange) update();
}

void QtTextLabel::applyFont() {
  if (isApplyingFont_) return;
  isApplyingFont_ = true;
  Font font = style_.font;
  if (isProblem_) font.weight = std::max(font.weight, FontWeight::semibold);
  setFont(nativeFont(font, *this));
  isApplyingFont_ = false;
  sizeHint_.reset();
  updateGeometry();
}

void QtTextLabel::updateToolTip() {
  QString shown = shownLines().join(QLatin1Char(' '));
  const bool isCut = shown.endsWith(QChar(0x2026)) && !text().endsWith(QChar(0x2026));
  const bool isLonger = shown.size() + maximumLines() < text().size();
  const QString tip = isCut || isLonger ? asToolTip(text()) : QString();
  if (tip != toolTip()) setToolTip(tip);
}

}  // namespace zunto
