#include "platform/qt/qt_status_icon.h"

#include <QIconEngine>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <algorithm>
#include <cmath>
#include <memory>

namespace zunto {

namespace {

constexpr QRgb tileColor = 0xff3558c8;
constexpr QRgb letterColor = 0xffffffff;
constexpr QRgb dotColor = 0xff2fbf5f;

/// How thick the letter's strokes are: whole pixels, since a part of one blurs a small picture.
int strokeWidth(int side) { return std::max(2, static_cast<int>(std::lround(0.11 * side))); }

/// The letter as strokes: a font would differ from desktop to desktop. Their edges fall between pixels.
QPainterPath letterPath(int side) {
  const bool isEven = strokeWidth(side) % 2 == 0;
  const auto snapped = [side, isEven](double share) {
    return isEven ? std::round(share * side) : std::floor(share * side) + 0.5;
  };
  const QPointF first(snapped(0.29), snapped(0.28));
  const QPointF last(side - first.x(), side - first.y());
  QPainterPath path(first);
  path.lineTo(last.x(), first.y());
  path.lineTo(first.x(), last.y());
  path.lineTo(last);
  return path;
}

/// Draws a size when somebody asks for it: a start needs few of them, and the large ones cost the most.
class StatusIconEngine final : public QIconEngine {
 public:
  explicit StatusIconEngine(StatusMark mark) : mark_(mark) {}

  void paint(QPainter* painter, const QRect& area, QIcon::Mode, QIcon::State) override {
    painter->drawImage(area, drawStatusIcon(std::min(area.width(), area.height()), mark_));
  }
  QPixmap pixmap(const QSize& size, QIcon::Mode, QIcon::State) override {
    return QPixmap::fromImage(drawStatusIcon(std::min(size.width(), size.height()), mark_));
  }
  QList<QSize> availableSizes(QIcon::Mode, QIcon::State) override {
    return {{16, 16}, {24, 24}, {32, 32}, {48, 48}, {64, 64}};
  }
  [[nodiscard]] QIconEngine* clone() const override {
    return std::make_unique<StatusIconEngine>(mark_).release();  // Qt takes ownership
  }

 private:
  StatusMark mark_;
};

}  // namespace

StatusMark statusMarkIn(const QString& title) {
  return title.endsWith(QChar(0x25cf)) ? StatusMark::dot : StatusMark::none;
}

QImage drawStatusIcon(int side, StatusMark mark) {
  QImage image(side, side, QImage::Format_ARGB32_Premultiplied);
  image.fill(Qt::transparent);
  QPainter painter(&image);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(Qt::NoPen);
  painter.setBrush(QColor::fromRgba(tileColor));
  const int inset = static_cast<int>(std::lround(0.04 * side));
  painter.drawRoundedRect(QRect(0, 0, side, side).adjusted(inset, inset, -inset, -inset), 0.2 * side,
                          0.2 * side);
  painter.setBrush(Qt::NoBrush);
  painter.setPen(
      QPen(QColor::fromRgba(letterColor), strokeWidth(side), Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
  painter.drawPath(letterPath(side));
  painter.scale(side, side);
  if (mark == StatusMark::dot) {
    // The rim keeps the dot apart from the tile and from a bar of its own colour.
    painter.setPen(QPen(QColor::fromRgba(letterColor), 0.06));
    painter.setBrush(QColor::fromRgba(dotColor));
    painter.drawEllipse(QPointF(0.78, 0.78), 0.19, 0.19);
  }
  return image;
}

QIcon makeStatusIcon(StatusMark mark) { return QIcon(std::make_unique<StatusIconEngine>(mark).release()); }

}  // namespace zunto
