#include "viewer/view/PixelCoordinates.h"

#include "US/FrameGeometryMetadata.h"
#include "US/PixelSize.h"
#include "US/UltrasoundMetadata.h"

#include <array>
#include <cmath>

namespace Kelvaris::Viewer {
namespace {

const QString kMillimetres = QStringLiteral("mm");

/// The component of the image, else that of the whole set.
template <typename T> const T* componentOf(const SharedImageSet& images, int index) {
  if (const T* own = images.elementwiseComponents().components(index).get<T>()) return own;
  return images.components().get<T>();
}

/// The stored form of a component that only its plugin knows; empty if there is none.
Properties configurationOf(const SharedImageSet& images, int index, const char* id) {
  for (const DataComponentList* list : {&images.elementwiseComponents().components(index), &images.components()})
    for (const auto& component : *list)
      if (component->id() == id) {
        Properties properties;
        component->configuration(&properties);
        return properties;
      }
  return {};
}

/// Time in microseconds along the samples of an event of a stored FrameAcquisition; their number where it isn't known.
AxisScale fastTime(const Properties& acquisition, int event) {
  double frequency = 0.0, start = 0.0; // Hz, s
  const auto events = acquisition.allSubProperties("events");
  if (!events.empty()) {
    const auto stored = std::min(static_cast<std::size_t>(event), events.size() - 1);
    if (const Properties* receive = events[stored]->findSubProperties("receive")) {
      receive->param("samplingFrequency", frequency);
      receive->param("startTime", start);
    }
  } else {
    acquisition.param("receiveSamplingFrequency", frequency);
  }
  const double step = 1e6 / frequency;
  if (!(frequency > 0.0 && std::isfinite(step) && std::isfinite(start)))
    return AxisScale::index(QStringLiteral("Sample"));
  return {QStringLiteral("Time"), QStringLiteral("µs"), 1e6 * start - 0.5 * step, step};
}

} // namespace

PixelCoordinates::PixelCoordinates(const SharedImageSet& images, int index, int slice) {
  const ImageDescriptor& d = images.get(index).descriptor();
  m_size = {static_cast<double>(d.width()), static_cast<double>(d.height())};
  const auto* metadata = componentOf<US::FrameGeometryMetadata>(images, index);
  if (metadata && metadata->frameGeometry()) {
    setFrame(images, index, *metadata->frameGeometry());
  } else if (!setChannelData(images, index, slice) && d.isMetric() && d.spacing().head<2>().allFinite() &&
             d.spacing().head<2>().minCoeff() > 0.0) {
    m_isMetric = true;
    m_x = {QStringLiteral("x"), kMillimetres, -0.5 * d.width() * d.spacing().x(), d.spacing().x()};
    m_y = {QStringLiteral("y"), kMillimetres, -0.5 * d.height() * d.spacing().y(), d.spacing().y()};
  }
}

void PixelCoordinates::setFrame(const SharedImageSet& images, int index, const US::FrameGeometry& geometry) {
  const ImageDescriptor& d = images.get(index).descriptor();
  const QString depth = QStringLiteral("Depth");
  const std::optional<Eigen::Vector2d> lines = US::prescanPixelSize(images, index);
  if (!lines) {
    const Eigen::Vector3d first = -0.5 * d.spacing().cwiseProduct(d.dimensions().cast<double>()) - geometry.offset();
    m_isMetric = true;
    m_x = {QStringLiteral("x"), kMillimetres, first.x(), d.spacing().x()};
    m_y = {depth, kMillimetres, first.y(), d.spacing().y()};
    return;
  }
  m_isMetric = lines->minCoeff() > 0.0;
  m_y = {depth, kMillimetres, 0.0, geometry.depth() / d.height()};
  if (m_isMetric) {
    m_x = {QStringLiteral("x"), kMillimetres, -0.5 * lines->x() * d.width(), lines->x()};
  } else {
    m_x = AxisScale::index(QStringLiteral("Line"));
    m_y.title = QStringLiteral("Depth along the line");
    m_fan = geometry.clone();
  }
}

bool PixelCoordinates::setChannelData(const SharedImageSet& images, int index, int slice) {
  const Properties acquisition = configurationOf(images, index, "FrameAcquisition");
  if (acquisition.empty()) return false;
  std::vector<int> layout = {0, 1, 2};
  std::vector<int> stored;
  if (configurationOf(images, index, "ChannelDataLayout").param("axisSemantics", stored) && stored.size() == 3)
    layout = stored;
  const int event = layout[2] == 2 ? slice : 0;
  const auto axis = [&](int semantics) {
    if (semantics == 1) return fastTime(acquisition, event);
    return AxisScale::index(semantics == 0 ? QStringLiteral("Channel") : QStringLiteral("Event"));
  };
  m_x = axis(layout[0]);
  m_y = axis(layout[1]);
  m_sliceTitle = axis(layout[2]).title;
  return true;
}

QString PixelCoordinates::describe(const QPointF& place) const {
  const auto named = [](const AxisScale& axis, double at) {
    return QStringLiteral("%1 %2").arg(axis.title.toLower(), axis.text(at));
  };
  QString text = QStringLiteral("%1, %2").arg(named(m_x, place.x()), named(m_y, place.y()));
  if (!m_fan) return text;
  const Eigen::Vector2d point =
      m_fan->convertPoint({place.x() / m_size.x(), place.y() / m_size.y()}, US::FrameGeometry::NormalizedToPhysical);
  if (point.allFinite())
    text += QStringLiteral(" (x %1 mm, depth %2 mm)")
                .arg(numberText(point.x(), 0.1 * m_y.step), numberText(point.y(), 0.1 * m_y.step));
  return text;
}

} // namespace Kelvaris::Viewer
