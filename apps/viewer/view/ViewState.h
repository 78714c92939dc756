#pragma once

#include "Core/Properties.h"
#include "viewer/view/DisplayMapping.h"

#include <QPointF>
#include <QString>

#include <optional>
#include <string>
#include <vector>

namespace Kelvaris::Viewer {

/// How a set of images is looked at, as sessions keep it.
struct ViewState {
  int image = 0, slice = 0;
  std::optional<DisplayMapping> mapping; ///< nothing: the first one that suits the values
  QString colorMap = QStringLiteral("Gray");
  double magnification = 0.0; ///< screen pixels for a pixel of the picture; 0: the picture fits
  QPointF center;             ///< pixels of the slice, in the middle of the window; for a picture that doesn't fit

  void writeTo(Properties& properties) const;
  /// What is missing or impossible gets its default. `problems` get a sentence for each of the latter.
  static ViewState from(const Properties& properties, std::vector<std::string>& problems);

  bool operator==(const ViewState&) const = default;
};

} // namespace Kelvaris::Viewer
