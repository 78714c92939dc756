#pragma once

#include "viewer/view/SlicePicture.h"
#include "viewer/view/ViewTransform.h"

#include <QBrush>
#include <QWidget>

#include <optional>

namespace Kelvaris::Viewer {

/// Shows a picture under zoom and pan, and says where the mouse or the crosshair is.
///
/// Mouse: wheel (also with Ctrl) zooms about the mouse, the left button drags the picture, the right one the levels.
/// Keys: + - zoom, 0 fits, 1 shows one pixel of the picture a screen pixel, arrows move a picture that is larger than
/// the window, Shift and arrows move the crosshair by a pixel (with Ctrl by ten), Escape takes it away.
class ImageCanvas : public QWidget {
  Q_OBJECT

public:
  enum class Interpolation {
    Automatic, ///< smooth until pixels of the image are large
    Smooth,
    Nearest
  };

  explicit ImageCanvas(QWidget* parent = nullptr);

  /// Replaces the picture. One that has the extent and the shape of the present one keeps zoom and pan unless they are
  /// to be anew; another fits.
  void setPicture(SlicePicture picture, bool stretched, bool anew);
  void setColors(const ColorMap& map, const std::optional<QColor>& maskColor);
  void setStretched(bool stretched);
  void setInterpolation(Interpolation interpolation);
  /// Without a picture, this text stands in its place.
  void setMessage(const QString& text);
  const QString& message() const { return m_message; }

  const SlicePicture& picture() const { return m_picture; }
  const ViewTransform& transform() const { return m_transform; }
  void fit();
  void oneToOne();
  /// About the middle.
  void zoom(double factor);
  /// As ViewTransform::lookAt().
  void lookAt(const QPointF& place, double magnification);

  /// What shows through masked pixels that have no colour: a tint with stripes, nothing that a gray level could be
  /// taken for.
  static QColor maskedColor() { return {96, 92, 120}; }
  static QBrush maskedStripes() { return {QColor(150, 146, 178), Qt::BDiagPattern}; }

  /// In pixels of the slice: of the mouse where it is over the picture, else the centre of the crosshair's pixel.
  std::optional<QPointF> pointedPlace() const;

  QSize sizeHint() const override { return {480, 480}; }
  QSize minimumSizeHint() const override { return {120, 120}; }

Q_SIGNALS:
  /// Where the picture lies has changed.
  void transformed();
  /// pointedPlace() may have changed.
  void pointed();
  /// The right button was dragged by so much, in logical pixels.
  void windowDragged(const QPointF& distance);

protected:
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void moveEvent(QMoveEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void mouseDoubleClickEvent(QMouseEvent* event) override;
  void leaveEvent(QEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

private:
  void changed();
  void updateWindow();
  void updateCursor();
  QSize deviceSize() const { return (QSizeF(size()) * devicePixelRatioF()).toSize(); }
  bool isSmooth() const;
  QPointF devicePoint(const QPointF& logical) const { return logical * devicePixelRatioF(); }
  bool moveCrosshair(int key, int distance);
  bool panByKey(int key);
  void paintPicture(QPainter& painter);
  void paintCrosshair(QPainter& painter);
  const QImage& reduced(const QSize& size);

  SlicePicture m_picture;
  ViewTransform m_transform;
  Interpolation m_interpolation = Interpolation::Automatic;
  QString m_message;
  QImage m_reduced;               ///< the samples averaged down to the screen's pixels, where they are more than those
  std::optional<QPointF> m_mouse; ///< logical pixels
  std::optional<QPoint> m_crosshair; ///< pixel of the slice
  QPointF m_dragged;                 ///< where the mouse was last while a button was down
};

} // namespace Kelvaris::Viewer
