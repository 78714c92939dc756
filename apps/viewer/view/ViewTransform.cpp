#include "viewer/view/ViewTransform.h"

#include <algorithm>
#include <cmath>

namespace Kelvaris::Viewer {
namespace {

constexpr double kLargestPixel = 64.0; // device pixels

/// The offset of content of that size: centred, or without a gap at an edge.
double settled(double offset, double content, double window) {
  if (content <= window) return 0.5 * (window - content);
  return std::clamp(offset, window - content, 0.0);
}

} // namespace

void ViewTransform::setContent(const QSize& size, const QSizeF& unit, const QSize& pictureSize, bool stretched) {
  m_size = size;
  m_unit = unit;
  m_pictureSize = pictureSize;
  m_stretched = stretched;
  fit();
}

void ViewTransform::setStretched(bool stretched) {
  m_stretched = stretched;
  fit();
}

void ViewTransform::setWindow(const QSize& size) {
  if (size == m_window) return;
  const QPointF held = toPlace(middle());
  m_window = size;
  if (m_fitted) return fit();
  m_offset += middle() - toWindow(held);
  settle();
}

QSizeF ViewTransform::fittingScale() const {
  const double x = m_window.width() / (m_size.width() * m_unit.width()),
               y = m_window.height() / (m_size.height() * m_unit.height());
  const double both = std::min(x, y);
  return {m_unit.width() * (m_stretched ? x : both), m_unit.height() * (m_stretched ? y : both)};
}

void ViewTransform::fit() {
  m_fitted = true;
  m_oneToOne = false;
  if (isEmpty()) return;
  m_scale = fittingScale();
  settle();
}

void ViewTransform::oneToOne() {
  if (isEmpty()) return;
  const QPointF held = toPlace(middle());
  m_fitted = false;
  m_oneToOne = true;
  m_scale = m_unit;
  m_offset += middle() - toWindow(held);
  settle();
}

void ViewTransform::zoom(const QPointF& point, double factor) {
  if (isEmpty() || !(factor > 0.0)) return;
  const QSizeF fitting = fittingScale();
  const double least = std::min(fitting.width(), m_unit.width()) / m_scale.width(),
               most = kLargestPixel / std::min(m_scale.width(), m_scale.height());
  factor = std::clamp(factor, std::min(least, 1.0), std::max(most, 1.0));
  if (factor == 1.0) return;
  const QPointF held = toPlace(point);
  m_fitted = m_oneToOne = false;
  m_scale *= factor;
  m_offset += point - toWindow(held);
  settle();
}

void ViewTransform::pan(const QPointF& distance) {
  m_offset += distance;
  settle();
}

void ViewTransform::lookAt(const QPointF& place, double magnification) {
  if (isEmpty()) return;
  zoom(middle(), magnification / this->magnification());
  pan(middle() - toWindow(place));
}

void ViewTransform::settle() {
  if (isEmpty()) return;
  m_offset = {settled(m_offset.x(), m_size.width() * m_scale.width(), m_window.width()),
              settled(m_offset.y(), m_size.height() * m_scale.height(), m_window.height())};
  if (!m_oneToOne) return;
  const QRectF exact = content();
  const QPointF corner = exact.center() - QPointF(0.5 * m_pictureSize.width(), 0.5 * m_pictureSize.height());
  m_offset += QPointF(std::floor(corner.x() + 0.5), std::floor(corner.y() + 0.5)) - corner;
}

bool ViewTransform::canPan() const {
  const QRectF all = content();
  return all.width() > m_window.width() + 0.5 || all.height() > m_window.height() + 0.5;
}

double ViewTransform::magnification() const {
  return m_scale.height() / m_unit.height();
}

QPointF ViewTransform::toWindow(const QPointF& place) const {
  return {m_offset.x() + place.x() * m_scale.width(), m_offset.y() + place.y() * m_scale.height()};
}

QPointF ViewTransform::toPlace(const QPointF& point) const {
  return {(point.x() - m_offset.x()) / m_scale.width(), (point.y() - m_offset.y()) / m_scale.height()};
}

QRectF ViewTransform::content() const {
  return {m_offset, QSizeF(m_size.width() * m_scale.width(), m_size.height() * m_scale.height())};
}

QRectF ViewTransform::picture() const {
  QRectF rect(0.0, 0.0, m_pictureSize.width(), m_pictureSize.height());
  rect.moveCenter(content().center());
  return {std::round(rect.x()), std::round(rect.y()), rect.width(), rect.height()};
}

} // namespace Kelvaris::Viewer
