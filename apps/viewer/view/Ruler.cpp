#include "viewer/view/Ruler.h"

#include <QFontMetricsF>
#include <QPainter>

#include <algorithm>
#include <cmath>

namespace Kelvaris::Viewer {
namespace {

constexpr int kTick = 5, kGap = 3;

} // namespace

Ruler::Ruler(Qt::Orientation orientation, QWidget* parent) : QWidget(parent), m_orientation(orientation) {
  setSizePolicy(orientation == Qt::Horizontal ? QSizePolicy::Expanding : QSizePolicy::Fixed,
                orientation == Qt::Horizontal ? QSizePolicy::Fixed : QSizePolicy::Expanding);
}

void Ruler::setAxis(const AxisScale& axis) {
  if (axis == m_axis) return;
  m_axis = axis;
  setAccessibleName(tr("Scale: %1").arg(axis.label()));
  updateGeometry();
  update();
}

void Ruler::setExtent(double origin, double end, double places) {
  m_origin = origin;
  m_end = end;
  m_places = places;
  update();
}

void Ruler::setMarker(std::optional<double> place) {
  if (place == m_marker) return;
  m_marker = place;
  update();
}

QSize Ruler::sizeHint() const {
  const QFontMetrics metrics(font());
  const int lines = 2 * metrics.height() + kTick + 2 * kGap;
  if (m_orientation == Qt::Horizontal) return {0, lines};
  return {metrics.height() + metrics.horizontalAdvance(QStringLiteral("-00000")) + kTick + 2 * kGap, 0};
}

std::vector<Tick> Ruler::ticks() const {
  if (!(m_end > m_origin)) return {};
  // What the ruler shows of the axis.
  const double perPixel = m_places / (m_end - m_origin);
  const double first = std::clamp((0.0 - m_origin) * perPixel, 0.0, m_places),
               last = std::clamp((length() - m_origin) * perPixel, 0.0, m_places);
  const QFontMetricsF metrics(font());
  const double perUnit = 1.0 / (perPixel * std::abs(m_axis.step)); // logical pixels for one unit of the axis
  const auto ticksApart = [&](double pixels) {
    const double closest = pixels / perUnit;
    return roundTicks(m_axis.at(first), m_axis.at(last), m_axis.isIndex() ? std::max(closest, 1.0) : closest);
  };
  std::vector<Tick> found = ticksApart(2.0 * metrics.height());
  if (m_orientation == Qt::Vertical) return found;
  // Numbers need room side by side. Rounder numbers are no longer.
  double widest = 0.0;
  for (const Tick& tick : found)
    widest = std::max(widest, metrics.horizontalAdvance(tick.text));
  return ticksApart(std::max(2.0 * metrics.height(), widest + metrics.height()));
}

void Ruler::paintEvent(QPaintEvent*) {
  if (!(m_end > m_origin)) return;
  QPainter painter(this);
  painter.setPen(palette().color(QPalette::WindowText));
  const QFontMetrics metrics(font());
  const int line = metrics.height();
  const double from = std::max(m_origin, 0.0), to = std::min(m_end, static_cast<double>(length()));
  const bool horizontal = m_orientation == Qt::Horizontal;
  if (!horizontal) { // the same drawing, in a picture turned by a quarter, with upright numbers
    painter.drawLine(QPointF(width() - 0.5, from), QPointF(width() - 0.5, to));
    painter.save();
    painter.rotate(-90.0);
    painter.drawText(QRectF(-to, 0.0, to - from, line), Qt::AlignCenter, m_axis.label());
    painter.restore();
  } else {
    painter.drawLine(QPointF(from, height() - 0.5), QPointF(to, height() - 0.5));
    painter.drawText(QRectF(from, 0.0, to - from, line), Qt::AlignCenter, m_axis.label());
  }
  for (const Tick& tick : ticks()) {
    const double at = position(m_axis.placeOf(tick.value));
    if (horizontal) {
      painter.drawLine(QPointF(at, height() - kTick), QPointF(at, height()));
      const double half = 0.5 * metrics.horizontalAdvance(tick.text) + 1.0;
      const double middle = std::clamp(at, half, std::max(half, width() - half));
      painter.drawText(QRectF(middle - half, height() - kTick - kGap - line, 2.0 * half, line), Qt::AlignCenter,
                       tick.text);
    } else {
      painter.drawLine(QPointF(width() - kTick, at), QPointF(width(), at));
      const double top = std::clamp(at - 0.5 * line, 0.0, std::max(0.0, static_cast<double>(height() - line)));
      painter.drawText(QRectF(line, top, width() - line - kTick - kGap, line), Qt::AlignRight | Qt::AlignVCenter,
                       tick.text);
    }
  }
  if (!m_marker) return;
  const double at = position(*m_marker);
  const QPointF tip = horizontal ? QPointF(at, height()) : QPointF(width(), at);
  const QPointF back = horizontal ? QPointF(0.0, -7.0) : QPointF(-7.0, 0.0),
                side = horizontal ? QPointF(4.0, 0.0) : QPointF(0.0, 4.0);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(Qt::NoPen);
  painter.setBrush(palette().color(QPalette::Highlight));
  painter.drawPolygon(QPolygonF({tip, tip + back + side, tip + back - side}));
}

} // namespace Kelvaris::Viewer
