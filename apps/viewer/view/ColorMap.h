#pragma once

#include <QRgb>
#include <QString>

#include <array>
#include <vector>

namespace Kelvaris::Viewer {

/// The colours of the levels 0 to 255 under a name.
struct ColorMap {
  QString name;
  QString description; ///< a sentence for a tool tip
  std::array<QRgb, 256> colors;

  QRgb operator[](unsigned char level) const { return colors[level]; }
};

/// All colour maps that there are, gray first. Level i of "Gray" is the colour (i, i, i).
const std::vector<ColorMap>& colorMaps();
/// Index of the map of that name; -1 if there is none.
int colorMapIndex(const QString& name);

} // namespace Kelvaris::Viewer
