#pragma once

#include "viewer/view/AxisScale.h"

#include <QWidget>

#include <optional>

namespace Kelvaris::Viewer {

/// The scale along an edge of an image: ticks, numbers and what they mean.
class Ruler : public QWidget {
  Q_OBJECT

public:
  /// Horizontal ones stand above the image, vertical ones left of it.
  explicit Ruler(Qt::Orientation orientation, QWidget* parent = nullptr);

  void setAxis(const AxisScale& axis);
  const AxisScale& axis() const { return m_axis; }
  /// Place 0 of the axis lies at `origin`, the last one, `places`, at `end` (logical pixels along the ruler).
  void setExtent(double origin, double end, double places);
  /// Where the mouse is, as a place.
  void setMarker(std::optional<double> place);

  QSize sizeHint() const override;
  QSize minimumSizeHint() const override { return sizeHint(); }

protected:
  void paintEvent(QPaintEvent* event) override;

private:
  double position(double place) const { return m_origin + (m_end - m_origin) * place / m_places; }
  int length() const { return m_orientation == Qt::Horizontal ? width() : height(); }
  std::vector<Tick> ticks() const;

  Qt::Orientation m_orientation;
  AxisScale m_axis;
  double m_origin = 0.0, m_end = 0.0, m_places = 1.0;
  std::optional<double> m_marker;
};

} // namespace Kelvaris::Viewer
