#include "viewer/view/PositionBar.h"

#include "Gui/QtHelpers.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QSignalBlocker>
#include <QSlider>
#include <QSpinBox>

#include <algorithm>

namespace Kelvaris::Viewer {

PositionBar::PositionBar(const QString& title, const QString& keys, QWidget* parent)
    : QWidget(parent),
      m_title(title),
      m_keys(keys),
      m_layout(&QtHelpers::make<QHBoxLayout>(this)),
      m_label(&QtHelpers::make<QLabel>(this)),
      m_slider(&QtHelpers::make<QSlider>(this, Qt::Horizontal)),
      m_spinBox(&QtHelpers::make<QSpinBox>(this)) {
  m_layout->setContentsMargins(0, 0, 0, 0);
  m_layout->addWidget(m_label);
  m_layout->addWidget(m_slider, 1);
  m_layout->addWidget(m_spinBox);
  m_label->setBuddy(m_spinBox);
  m_slider->setPageStep(1);
  m_spinBox->setKeyboardTracking(false);
  connect(m_slider, &QSlider::valueChanged, this, &PositionBar::setPosition);
  connect(m_spinBox, qOverload<int>(&QSpinBox::valueChanged), this, &PositionBar::setPosition);
  connect(m_slider, &QSlider::valueChanged, this, &PositionBar::positionChanged);
  setCount(0);
  updateTexts();
}

void PositionBar::setTitle(const QString& title) {
  m_title = title;
  updateTexts();
}

void PositionBar::updateTexts() {
  m_label->setText(m_title);
  const QString tip = tr("%1, counted from 0\n%2").arg(m_title, m_keys);
  for (QWidget* widget : {static_cast<QWidget*>(m_slider), static_cast<QWidget*>(m_spinBox)}) {
    widget->setToolTip(tip);
    widget->setAccessibleName(m_title);
  }
}

void PositionBar::setCount(int count) {
  m_count = count;
  const int last = std::max(count - 1, 0);
  m_spinBox->setSuffix(tr(" / %1").arg(last));
  m_spinBox->setRange(0, last);
  m_slider->setRange(0, last);
  setVisible(count > 1);
}

int PositionBar::position() const {
  return m_slider->value();
}

void PositionBar::setPosition(int position) {
  position = std::clamp(position, 0, std::max(m_count - 1, 0));
  {
    const QSignalBlocker blocker(m_spinBox);
    m_spinBox->setValue(position);
  }
  m_slider->setValue(position);
}

void PositionBar::addControl(QWidget* control) {
  m_layout->addWidget(control);
}

} // namespace Kelvaris::Viewer
