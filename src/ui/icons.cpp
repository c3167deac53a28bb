#include "ui/icons.h"

#include <QPainter>
#include <QPainterPath>
#include <QObject>
#include <QPixmap>

namespace inkharbour::Icons {

namespace {

constexpr int kSizes[] = {16, 24, 32, 48};

// A sheet of paper from x = left to x = right, its top right corner folded.
QPainterPath pageOutline(double left, double right) {
  const double fold = (right - left) / 3;
  QPainterPath page;
  page.moveTo(left, 2);
  page.lineTo(right - fold, 2);
  page.lineTo(right, 2 + fold);
  page.lineTo(right, 30);
  page.lineTo(left, 30);
  page.closeSubpath();
  return page;
}

QPen whitePen(double width) {
  return QPen(Qt::white, width, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
}

}  // namespace

QIcon painted(const std::function<void(QPainter&)>& paint) {
  QIcon icon;
  for (const int size : kSizes) {
    QPixmap pixmap(size, size);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.scale(size / 32.0, size / 32.0);
    paint(painter);
    painter.end();
    icon.addPixmap(pixmap);
  }
  return icon;
}

QIcon status(LinkStatus status) {
  switch (status) {
    case LinkStatus::upToDate:
      return painted([](QPainter& p) {
        p.setPen(Qt::NoPen);
        p.setBrush(QColor(0x2e, 0x8b, 0x57));
        p.drawEllipse(QRectF(2, 2, 28, 28));
        p.setPen(whitePen(4));
        p.drawPolyline(QPolygonF({QPointF(9, 16.5), QPointF(14, 21.5), QPointF(23, 11)}));
      });
    case LinkStatus::modified:
      return painted([](QPainter& p) {
        p.setPen(Qt::NoPen);
        p.setBrush(QColor(0xe0, 0x8e, 0x0b));
        QPainterPath triangle;
        triangle.moveTo(16, 2);
        triangle.lineTo(31, 29);
        triangle.lineTo(1, 29);
        triangle.closeSubpath();
        p.drawPath(triangle);
        p.setPen(whitePen(4));
        p.drawLine(QPointF(16, 11), QPointF(16, 19));
        p.drawPoint(QPointF(16, 24.5));
      });
    case LinkStatus::missing:
      return painted([](QPainter& p) {
        p.setPen(Qt::NoPen);
        p.setBrush(QColor(0xc6, 0x28, 0x28));
        p.drawRoundedRect(QRectF(3, 3, 26, 26), 4, 4);
        p.setPen(whitePen(4));
        p.drawLine(QPointF(10, 10), QPointF(22, 22));
        p.drawLine(QPointF(22, 10), QPointF(10, 22));
      });
  }
  return {};
}

QIcon linkKind(std::optional<LinkKind> kind) {
  QColor colour(0x90, 0x90, 0x90);
  QString letter;
  if (kind) {
    switch (*kind) {
      case LinkKind::word:
        colour = QColor(0x2b, 0x57, 0x9a);
        letter = QStringLiteral("W");
        break;
      case LinkKind::excel:
        colour = QColor(0x21, 0x73, 0x46);
        letter = QStringLiteral("X");
        break;
      case LinkKind::text:
        colour = QColor(0x5f, 0x63, 0x68);
        letter = QStringLiteral("T");
        break;
    }
  }
  return painted([&](QPainter& p) {
    const QPainterPath page = pageOutline(6, 27);
    if (kind) {
      p.setPen(Qt::NoPen);
      p.setBrush(colour);
    } else {
      p.setPen(QPen(colour, 2));
      p.setBrush(Qt::NoBrush);
    }
    p.drawPath(page);
    if (letter.isEmpty()) return;
    QFont font;
    font.setBold(true);
    font.setPixelSize(15);
    p.setFont(font);
    p.setPen(Qt::white);
    p.drawText(QRectF(6, 8, 21, 20), Qt::AlignCenter, letter);
  });
}

QIcon placeFile() {
  return painted([](QPainter& p) {
    const QPainterPath page = pageOutline(4, 22);
    p.setPen(QPen(QColor(0x5f, 0x63, 0x68), 2));
    p.setBrush(Qt::white);
    p.drawPath(page);
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(0x2e, 0x8b, 0x57));
    p.drawEllipse(QRectF(15, 15, 16, 16));
    p.setPen(QPen(Qt::white, 3, Qt::SolidLine, Qt::RoundCap));
    p.drawLine(QPointF(23, 18.5), QPointF(23, 27.5));
    p.drawLine(QPointF(18.5, 23), QPointF(27.5, 23));
  });
}

QIcon exportDocument() {
  return painted([](QPainter& p) {
    const QPainterPath page = pageOutline(3, 21);
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(0x2b, 0x57, 0x9a));
    p.drawPath(page);
    p.setPen(QPen(QColor(0x2e, 0x8b, 0x57), 4, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.drawLine(QPointF(14, 19), QPointF(28, 19));
    p.drawPolyline(QPolygonF({QPointF(23, 13.5), QPointF(28.5, 19), QPointF(23, 24.5)}));
  });
}

QIcon letters(const QString& text, bool bold, bool italic, bool underline, bool strike) {
  return painted([&](QPainter& p) {
    QFont font(QStringLiteral("DejaVu Serif"));
    font.setPixelSize(22);
    font.setBold(bold);
    font.setItalic(italic);
    font.setUnderline(underline);
    font.setStrikeOut(strike);
    p.setFont(font);
    p.setPen(QColor(0x30, 0x30, 0x30));
    p.drawText(QRectF(0, 0, 32, 32), Qt::AlignCenter, text);
  });
}

QString statusWord(LinkStatus status) {
  switch (status) {
    case LinkStatus::upToDate:
      return QObject::tr("Up to date");
    case LinkStatus::modified:
      return QObject::tr("Modified");
    case LinkStatus::missing:
      return QObject::tr("Missing");
  }
  return {};
}

QString kindWord(std::optional<LinkKind> kind) {
  if (!kind) return QObject::tr("Not linked");
  switch (*kind) {
    case LinkKind::word:
      return QObject::tr("Word");
    case LinkKind::excel:
      return QObject::tr("Excel");
    case LinkKind::text:
      return QObject::tr("Text");
  }
  return {};
}

}  // namespace inkharbour::Icons
