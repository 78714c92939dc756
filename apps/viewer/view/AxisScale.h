#pragma once

#include <QString>

#include <vector>

namespace Kelvaris::Viewer {

/// What a place along one axis of an image stands for. Places count pixels from the image's edge: pixel i reaches from
/// i to i + 1, its centre is at i + 0.5.
struct AxisScale {
  QString title;        ///< "Depth"
  QString unit;         ///< "mm"; empty for indices
  double origin = -0.5; ///< coordinate of place 0
  double step = 1.0;    ///< from one pixel to the next

  /// The index of the pixel, written at its centre.
  static AxisScale index(const QString& title) { return {title, {}, -0.5, 1.0}; }

  bool isIndex() const { return unit.isEmpty(); }
  double at(double place) const { return origin + step * place; }
  double placeOf(double coordinate) const { return (coordinate - origin) / step; }
  /// "Depth [mm]", or the title alone.
  QString label() const { return unit.isEmpty() ? title : QStringLiteral("%1 [%2]").arg(title, unit); }
  /// The coordinate with its unit, with digits for a tenth of a pixel: "12.34 mm"; the index of the pixel for indices.
  QString text(double place) const;

  bool operator==(const AxisScale&) const = default;
};

struct Tick {
  double value;
  QString text;
};

/// The round values (1, 2 or 5 times a power of ten apart) between two, in rising order, as close together as `closest`
/// lets them. Nothing unless `closest` is above 0 and all are finite.
std::vector<Tick> roundTicks(double from, double to, double closest);

/// A number with as many decimals as tell steps of `resolution` apart, at most nine.
QString numberText(double value, double resolution);

} // namespace Kelvaris::Viewer
