#include "platform/qt/qt_status_icon.h"

#include <QIconEngine>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <algorithm>
#include <memory>

namespace zunto {

namespace {

constexpr QRgb tileColor = 0xff3558c8;
constexpr QRgb letterColor = 0xffffffff;
constexpr QRgb dotColor = 0xff2fbf5f;

/// The letter in a unit square, as strokes: a font would differ from desktop to desktop.
QPainterPath letterPath() {
  QPainterPath path;
  path.moveTo(0.29, 0.28);
  path.lineTo(0.71, 0.28);
  path.lineTo(0.29, 0.72);
  path.lineTo(0.71, 0.72);
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
  painter.scale(side, side);
  painter.setPen(Qt::NoPen);
  painter.setBrush(QColor::fromRgba(tileColor));
  painter.drawRoundedRect(QRectF(0.04, 0.04, 0.92, 0.92), 0.2, 0.2);
  painter.setBrush(Qt::NoBrush);
  painter.setPen(QPen(QColor::fromRgba(letterColor), 0.11, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
  painter.drawPath(letterPath());
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
