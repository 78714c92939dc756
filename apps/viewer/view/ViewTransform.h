#pragma once

#include <QPointF>
#include <QRectF>
#include <QSize>
#include <QSizeF>

namespace Kelvaris::Viewer {

/// How a slice lies in its window. Places count pixels of the slice from its upper left corner, window coordinates are
/// device pixels from the window's upper left corner.
///
/// At scale 1 a pixel of the slice is `unit` device pixels large: more than one along the axis on which pixels are
/// longer, so that shapes are right. What is stretched gets a scale for each axis where it fits the window. Content
/// that is smaller than the window is centred, larger content leaves no gap at an edge.
class ViewTransform {
public:
  /// New content fits the window. The picture of the content at scale 1 has `pictureSize` whole pixels and the centre
  /// of the content.
  void setContent(const QSize& size, const QSizeF& unit, const QSize& pictureSize, bool stretched);
  bool isStretched() const { return m_stretched; }
  /// Fits anew.
  void setStretched(bool stretched);
  /// In device pixels. Content that fits goes on to do so; other content keeps its scale and the place in the middle.
  void setWindow(const QSize& size);
  const QSize& window() const { return m_window; }

  void fit();
  /// Scale 1, where pixels of the picture are device pixels; the place in the middle stays.
  void oneToOne();
  /// The place at `point` stays there, as far as the edges let it. Scales stay between the one that fits (or 1, if that
  /// is less) and 64 device pixels for the shorter side of a pixel of the slice.
  void zoom(const QPointF& point, double factor);
  void pan(const QPointF& distance);
  /// Brings the place to the middle at that magnification, both as far as zoom() and the edges let them.
  void lookAt(const QPointF& place, double magnification);

  bool isFitted() const { return m_fitted; }
  /// In the middle of the window.
  QPointF center() const { return toPlace(middle()); }
  bool isOneToOne() const { return m_oneToOne; }
  /// Whether there is more than the window shows.
  bool canPan() const;
  /// Device pixels for a pixel of the picture, along the rows' direction for one that is stretched.
  double magnification() const;

  /// Device pixels for a pixel of the slice.
  const QSizeF& scale() const { return m_scale; }
  QPointF toWindow(const QPointF& place) const;
  QPointF toPlace(const QPointF& point) const;
  /// The content, in device pixels.
  QRectF content() const;
  /// Where the picture lies at scale 1, on whole device pixels.
  QRectF picture() const;

private:
  bool isEmpty() const { return m_size.isEmpty() || m_window.isEmpty(); }
  QSizeF fittingScale() const;
  QPointF middle() const { return {0.5 * m_window.width(), 0.5 * m_window.height()}; }
  void settle();

  QSize m_size, m_window, m_pictureSize;
  QSizeF m_unit{1.0, 1.0};
  bool m_stretched = false, m_fitted = true, m_oneToOne = false;
  QSizeF m_scale{1.0, 1.0};
  QPointF m_offset; ///< of the content's upper left corner
};

} // namespace Kelvaris::Viewer
