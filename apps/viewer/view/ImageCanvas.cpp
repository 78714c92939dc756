#include "viewer/view/ImageCanvas.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

namespace Kelvaris::Viewer {
namespace {

constexpr double kZoomStep = 1.25;
/// From this size on (device pixels), the pixels of an image are shown as such.
constexpr double kLargePixel = 6.0;

} // namespace

ImageCanvas::ImageCanvas(QWidget* parent) : QWidget(parent) {
  setMouseTracking(true);
  setFocusPolicy(Qt::StrongFocus);
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
  setAccessibleName(tr("Image"));
  setAccessibleDescription(tr("Wheel, + and - zoom, 0 fits, 1 is one to one, Shift and arrow keys move a crosshair"));
}

void ImageCanvas::setPicture(SlicePicture picture, bool stretched, bool anew) {
  const Eigen::Vector2d step = picture.step();
  const bool alike = picture.width() == m_picture.width() && picture.height() == m_picture.height() &&
                     step == m_picture.step() && !m_picture.isNull();
  m_picture = std::move(picture);
  m_reduced = QImage();
  m_message.clear();
  if (m_picture.samples().isNull()) return setMessage(tr("The picture needs more memory than there is"));
  if (anew || !alike) {
    updateWindow();
    m_transform.setContent({m_picture.width(), m_picture.height()}, {1.0 / step.x(), 1.0 / step.y()}, m_picture.size(),
                           stretched);
    m_crosshair.reset();
  }
  changed();
  Q_EMIT pointed();
}

void ImageCanvas::setColors(const ColorMap& map, const std::optional<QColor>& maskColor) {
  m_picture.setColors(map, maskColor);
  m_reduced = QImage();
  update();
}

void ImageCanvas::setStretched(bool stretched) {
  if (stretched == m_transform.isStretched()) return;
  m_transform.setStretched(stretched);
  changed();
}

void ImageCanvas::setInterpolation(Interpolation interpolation) {
  m_interpolation = interpolation;
  update();
}

void ImageCanvas::setMessage(const QString& text) {
  m_picture = {};
  m_reduced = QImage();
  m_crosshair.reset();
  m_message = text;
  changed();
  Q_EMIT pointed();
}

void ImageCanvas::changed() {
  if (QGuiApplication::mouseButtons() == Qt::NoButton) updateCursor();
  update();
  Q_EMIT transformed();
}

void ImageCanvas::fit() {
  m_transform.fit();
  changed();
}

void ImageCanvas::oneToOne() {
  m_transform.oneToOne();
  changed();
}

void ImageCanvas::zoom(double factor) {
  m_transform.zoom(devicePoint(QPointF(0.5 * width(), 0.5 * height())), factor);
  changed();
}

void ImageCanvas::lookAt(const QPointF& place, double magnification) {
  m_transform.lookAt(place, magnification);
  changed();
}

std::optional<QPointF> ImageCanvas::pointedPlace() const {
  if (m_picture.isNull()) return std::nullopt;
  if (m_mouse) {
    const QPointF place = m_transform.toPlace(devicePoint(*m_mouse));
    if (place.x() >= 0.0 && place.y() >= 0.0 && place.x() < m_picture.width() && place.y() < m_picture.height())
      return place;
    return std::nullopt;
  }
  if (m_crosshair) return QPointF(*m_crosshair) + QPointF(0.5, 0.5);
  return std::nullopt;
}

void ImageCanvas::updateWindow() {
  m_transform.setWindow(deviceSize());
}

void ImageCanvas::resizeEvent(QResizeEvent*) {
  updateWindow();
  changed();
}

void ImageCanvas::wheelEvent(QWheelEvent* event) {
  const double notches = event->angleDelta().y() / 120.0;
  if (m_picture.isNull() || notches == 0.0) return event->ignore();
  m_transform.zoom(devicePoint(event->position()), std::pow(kZoomStep, notches));
  m_mouse = event->position();
  changed();
  Q_EMIT pointed();
}

void ImageCanvas::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton && event->button() != Qt::RightButton) return event->ignore();
  m_dragged = event->localPos();
  if (event->button() == Qt::LeftButton && m_transform.canPan()) setCursor(Qt::ClosedHandCursor);
}

void ImageCanvas::mouseMoveEvent(QMouseEvent* event) {
  const QPointF distance = event->localPos() - m_dragged;
  m_mouse = event->localPos();
  if (event->buttons() & (Qt::LeftButton | Qt::RightButton)) m_dragged = event->localPos();
  if (event->buttons() & Qt::LeftButton) {
    m_transform.pan(devicePoint(distance));
    changed();
  } else if (event->buttons() & Qt::RightButton) {
    Q_EMIT windowDragged(distance);
  }
  Q_EMIT pointed();
}

void ImageCanvas::mouseReleaseEvent(QMouseEvent*) {
  updateCursor();
}

void ImageCanvas::updateCursor() {
  setCursor(m_picture.isNull() ? Qt::ArrowCursor : Qt::CrossCursor);
}

void ImageCanvas::mouseDoubleClickEvent(QMouseEvent* event) {
  if (event->button() == Qt::LeftButton) fit();
}

void ImageCanvas::leaveEvent(QEvent*) {
  m_mouse.reset();
  Q_EMIT pointed();
}

void ImageCanvas::keyPressEvent(QKeyEvent* event) {
  const int key = event->key();
  const bool shift = event->modifiers() & Qt::ShiftModifier, control = event->modifiers() & Qt::ControlModifier;
  if (m_picture.isNull()) return event->ignore();
  if (key == Qt::Key_Plus || key == Qt::Key_Equal)
    zoom(kZoomStep);
  else if (key == Qt::Key_Minus)
    zoom(1.0 / kZoomStep);
  else if (key == Qt::Key_0)
    fit();
  else if (key == Qt::Key_1)
    oneToOne();
  else if (key == Qt::Key_Escape && m_crosshair)
    m_crosshair.reset();
  else if (!(shift ? moveCrosshair(key, control ? 10 : 1) : !control && panByKey(key)))
    return event->ignore();
  update();
  Q_EMIT pointed();
}

namespace {

/// (0, 0) for other keys.
QPoint arrow(int key) {
  switch (key) {
  case Qt::Key_Left:
    return {-1, 0};
  case Qt::Key_Right:
    return {1, 0};
  case Qt::Key_Up:
    return {0, -1};
  case Qt::Key_Down:
    return {0, 1};
  default:
    return {};
  }
}

} // namespace

bool ImageCanvas::moveCrosshair(int key, int distance) {
  const QPoint direction = arrow(key);
  if (direction.isNull()) return false;
  m_mouse.reset();
  const QPoint last(m_picture.width() - 1, m_picture.height() - 1);
  if (m_crosshair) {
    *m_crosshair += distance * direction;
  } else {
    const QPointF middle = m_transform.toPlace(devicePoint(QPointF(0.5 * width(), 0.5 * height())));
    m_crosshair = QPoint(static_cast<int>(std::floor(middle.x())), static_cast<int>(std::floor(middle.y())));
  }
  m_crosshair = QPoint(std::clamp(m_crosshair->x(), 0, last.x()), std::clamp(m_crosshair->y(), 0, last.y()));
  return true;
}

bool ImageCanvas::panByKey(int key) {
  const QPoint direction = arrow(key);
  if (direction.isNull() || !m_transform.canPan()) return false;
  m_transform.pan(-devicePoint(QPointF(direction.x() * width() / 10, direction.y() * height() / 10)));
  changed();
  return true;
}

bool ImageCanvas::isSmooth() const {
  if (m_interpolation != Interpolation::Automatic) return m_interpolation == Interpolation::Smooth;
  return std::min(m_transform.scale().width(), m_transform.scale().height()) < kLargePixel;
}

const QImage& ImageCanvas::reduced(const QSize& size) {
  const QImage& samples = m_picture.samples();
  const QSize target(std::min(size.width(), samples.width()), std::min(size.height(), samples.height()));
  if (target == samples.size()) return samples;
  if (m_reduced.size() != target) m_reduced = samples.scaled(target, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
  return m_reduced;
}

void ImageCanvas::moveEvent(QMoveEvent*) {
  Q_EMIT transformed(); // what stands beside the picture goes with it
}

void ImageCanvas::paintEvent(QPaintEvent*) {
  if (m_transform.window() != deviceSize()) { // on a screen with other pixels
    updateWindow();
    QMetaObject::invokeMethod(this, &ImageCanvas::transformed, Qt::QueuedConnection);
  }
  QPainter painter(this);
  if (m_picture.isNull()) {
    painter.setPen(palette().color(QPalette::WindowText));
    painter.drawText(rect().adjusted(12, 12, -12, -12), Qt::AlignCenter | Qt::TextWordWrap, m_message);
    return;
  }
  // From here on, units are device pixels, and pixels of the picture fall on whole ones wherever the widget lies.
  const QTransform device = painter.deviceTransform();
  const QPointF corner = device.map(QPointF(0.0, 0.0));
  painter.setWorldTransform(QTransform::fromTranslate(std::round(corner.x()), std::round(corner.y())) *
                            device.inverted());
  painter.setClipRect(QRectF(QPointF(), QSizeF(size()) * devicePixelRatioF()).toAlignedRect());
  paintPicture(painter);
  paintCrosshair(painter);
}

void ImageCanvas::paintPicture(QPainter& painter) {
  const bool exact =
      m_transform.isOneToOne() && m_interpolation != Interpolation::Nearest && !m_picture.picture().isNull();
  const QRectF target = exact ? m_transform.picture() : m_transform.content();
  if (m_picture.samples().hasAlphaChannel()) {
    painter.fillRect(target, maskedColor());
    painter.fillRect(target, maskedStripes());
  }
  if (exact) return painter.drawImage(target.topLeft(), m_picture.picture());
  const bool smooth = isSmooth();
  const QImage& image =
      smooth ? reduced(QSizeF(std::ceil(target.width()), std::ceil(target.height())).toSize()) : m_picture.samples();
  painter.setRenderHint(QPainter::SmoothPixmapTransform, smooth);
  painter.drawImage(target, image);
}

void ImageCanvas::paintCrosshair(QPainter& painter) {
  if (!m_crosshair) return;
  const QPointF center = m_transform.toWindow(QPointF(*m_crosshair) + QPointF(0.5, 0.5));
  const QRectF all = m_transform.content();
  const double gap = std::max(6.0, m_transform.scale().width());
  for (const auto& [color, wide] : {std::pair(QColor(0, 0, 0, 160), 3.0), std::pair(QColor(255, 220, 60), 1.0)}) {
    painter.setPen(QPen(color, wide * devicePixelRatioF()));
    painter.drawLine(QPointF(all.left(), center.y()), QPointF(center.x() - gap, center.y()));
    painter.drawLine(QPointF(center.x() + gap, center.y()), QPointF(all.right(), center.y()));
    painter.drawLine(QPointF(center.x(), all.top()), QPointF(center.x(), center.y() - gap));
    painter.drawLine(QPointF(center.x(), center.y() + gap), QPointF(center.x(), all.bottom()));
  }
}

} // namespace Kelvaris::Viewer
