#pragma once

#include "Lib/SharedImageSet.h"
#include "US/FrameGeometry.h"
#include "viewer/view/AxisScale.h"

#include <QPointF>
#include <QString>

#include <memory>

namespace Kelvaris::Viewer {

/// Where the pixels of a slice lie, as far as its image tells. Places are (columns, rows) from the upper left corner of
/// the upper left pixel.
///
/// - a scan-converted image: frame coordinates, x along the array and depth into the medium, from the spacing and the
///   offset of the frame geometry;
/// - lines and depths with a frame geometry: the same where lines are parallel and upright, else the number of the line
///   and the depth along it;
/// - channel data: the number of the channel and the time since the first firing, in the order of the
///   ChannelDataLayout; numbers of samples where no FrameAcquisition tells the sampling frequency;
/// - another metric image: image coordinates, with the image's centre as their origin;
/// - any other: columns and rows.
class PixelCoordinates {
public:
  /// Columns and rows.
  PixelCoordinates() = default;
  /// Throws std::out_of_range for an image that isn't there.
  PixelCoordinates(const SharedImageSet& images, int index, int slice);

  const AxisScale& x() const { return m_x; }
  const AxisScale& y() const { return m_y; }
  /// What slices are: "Slice", for channel data "Event".
  const QString& sliceTitle() const { return m_sliceTitle; }
  /// Whether both axes are lengths in space, so that a stretched picture would be wrong.
  bool isMetric() const { return m_isMetric; }
  /// Whether the axes measure different things, so that no ratio of theirs is the right one.
  bool isUnlike() const { return !m_isMetric && m_x.title != columns().title; }

  /// The position in words: "x 1.25 mm, depth 20.05 mm". Where lines fan out, their number and depth and the place in
  /// the frame.
  QString describe(const QPointF& place) const;

private:
  static AxisScale columns() { return AxisScale::index(QStringLiteral("Column")); }
  void setFrame(const SharedImageSet& images, int index, const US::FrameGeometry& geometry);
  bool setChannelData(const SharedImageSet& images, int index, int slice);

  AxisScale m_x = columns();
  AxisScale m_y = AxisScale::index(QStringLiteral("Row"));
  QString m_sliceTitle = QStringLiteral("Slice");
  bool m_isMetric = false;
  std::shared_ptr<const US::FrameGeometry> m_fan; ///< of lines that aren't parallel and upright
  QPointF m_size{1.0, 1.0};                       ///< columns and rows
};

} // namespace Kelvaris::Viewer
