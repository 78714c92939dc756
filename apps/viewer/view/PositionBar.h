#pragma once

#include <QString>
#include <QWidget>

class QHBoxLayout;
class QLabel;
class QSlider;
class QSpinBox;

namespace Kelvaris::Viewer {

/// A slider and a spin box for one of several slices or images, counted from 0. Hidden where there is one alone.
class PositionBar : public QWidget {
  Q_OBJECT

public:
  /// `keys` are named in the tool tip.
  PositionBar(const QString& title, const QString& keys, QWidget* parent = nullptr);

  void setTitle(const QString& title);
  /// The position stays where it can.
  void setCount(int count);
  int count() const { return m_count; }
  int position() const;
  /// Moves a position outside to the next one inside.
  void setPosition(int position);
  /// For what else belongs to the bar.
  void addControl(QWidget* control);

Q_SIGNALS:
  void positionChanged(int position);

private:
  void updateTexts();

  QString m_title, m_keys;
  QHBoxLayout* m_layout;
  QLabel* m_label;
  QSlider* m_slider;
  QSpinBox* m_spinBox;
  int m_count = 0;
};

} // namespace Kelvaris::Viewer
