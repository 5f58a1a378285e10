#include "platform/qt/qt_status_icon.h"

#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

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

}  // namespace

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

QIcon makeStatusIcon(StatusMark mark) {
  QIcon icon;
  for (const int side : {16, 22, 24, 32, 48, 64, 128, 256}) {
    icon.addPixmap(QPixmap::fromImage(drawStatusIcon(side, mark)));
  }
  return icon;
}

}  // namespace zunto
