#pragma once

#include "viewer/view/ColorMap.h"
#include "viewer/view/DisplayMapping.h"
#include "viewer/view/ImageCanvas.h"

#include <QColor>
#include <QWidget>

#include <optional>

class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QPushButton;

namespace Kelvaris::Viewer {

/// The controls for how values become colours and pixels a picture.
class DisplayControls : public QWidget {
  Q_OBJECT

public:
  explicit DisplayControls(QWidget* parent = nullptr);

  /// Shows a mapping; nothing is signalled.
  void setMapping(const DisplayMapping& mapping);
  const DisplayMapping& mapping() const { return m_mapping; }
  /// Images that are colours have neither mapping nor colour map.
  void setMappingEnabled(bool enabled);
  const ColorMap& colorMap() const;
  void setColorMap(int index);
  /// Nothing: transparent in pictures, striped here.
  std::optional<QColor> maskColor() const;
  void setMaskControlVisible(bool visible);
  /// Whether the picture may be stretched, and is. Nothing is signalled.
  void setStretching(bool possible, bool stretched);
  bool isStretched() const;
  /// Screen pixels for a pixel of the picture.
  void setMagnification(double magnification);

Q_SIGNALS:
  /// Centre, width, top or range were edited; mapping() has them.
  void mappingChanged();
  void lawChosen(Kelvaris::Viewer::DisplayMapping::Law law);
  void automaticRequested();
  void fullRequested();
  /// Colour map or colour of masked pixels.
  void colorsChanged();
  void interpolationChosen(Kelvaris::Viewer::ImageCanvas::Interpolation interpolation);
  void stretchingChosen(bool stretched);
  void fitRequested();
  void oneToOneRequested();

private:
  void editMapping();

  DisplayMapping m_mapping;
  QComboBox *m_colorMap, *m_law, *m_masked, *m_interpolation;
  QLabel *m_centerLabel, *m_widthLabel, *m_magnification;
  QDoubleSpinBox *m_center, *m_width; ///< in decibels: top and range
  QPushButton *m_automatic, *m_full;
  QCheckBox* m_stretched;
  QWidget* m_maskGroup;
};

} // namespace Kelvaris::Viewer
