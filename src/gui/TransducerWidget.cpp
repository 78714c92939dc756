#include "gui/TransducerWidget.h"

#include "gui/Editing.h"
#include "ui_TransducerWidget.h"

#include <string>

namespace Kelvaris::US {

using QtHelpers::setSilent;

TransducerWidget::TransducerWidget(QWidget* parent) : QWidget(parent), m_ui(std::make_unique<Ui_TransducerWidget>()) {
  m_ui->setupUi(this);
  initGUI();
  setDefaultParameters();
}

TransducerWidget::~TransducerWidget() {
  detach(*this);
}

void TransducerWidget::setTransducer(const Transducer& transducer) {
  m_transducer = transducer;
  m_transducer.configuration(&m_properties);
  updateGUI();
}

void TransducerWidget::setDefaultParameters() {
  m_properties.setParam("type", "linear");
  m_properties.setParam("pitch", 0.15);
  m_properties.setParam("numberElements", 64);
  m_properties.setParam("radiusCurvature", 50.0);
  updateGUI();
  createAndSignalTransducer();
}

void TransducerWidget::initGUI() {
  const auto store = [this](const char* key) {
    return [this, key](auto value) {
      m_properties.setParam(key, value);
      createAndSignalTransducer();
    };
  };
  const auto showAgain = [this] { restoreIgnored(); };
  connect(m_ui->pitchDoubleSpinBox, &QDoubleSpinBox::editingFinished, this, showAgain);
  connect(m_ui->numberElementsSpinBox, &QSpinBox::editingFinished, this, showAgain);
  connect(m_ui->linearButton, &QPushButton::toggled, this, [this](bool checked) {
    if (checked) switchLinear();
  });
  connect(m_ui->convexButton, &QPushButton::toggled, this, [this](bool checked) {
    if (checked) switchConvex();
  });
  connect(m_ui->pitchDoubleSpinBox, qOverload<double>(&QDoubleSpinBox::valueChanged), this, store("pitch"));
  connect(m_ui->numberElementsSpinBox, qOverload<int>(&QSpinBox::valueChanged), this, store("numberElements"));
  connect(m_ui->radiusDoubleSpinBox, qOverload<double>(&QDoubleSpinBox::valueChanged), this, store("radiusCurvature"));
  arrange(*this);
  setFirstInTabOrder(*this, *m_ui->linearButton);
}

void TransducerWidget::changeEvent(QEvent* event) {
  QWidget::changeEvent(event);
  if (event->type() == QEvent::PaletteChange) highlightChecked(*m_ui->transducerTypeButtonGroup, *this);
}

void TransducerWidget::updateGUI() {
  showValue(m_properties, "pitch", 1.0, *m_ui->pitchDoubleSpinBox);
  showValue(m_properties, "numberElements", *m_ui->numberElementsSpinBox);
  showValue(m_properties, "radiusCurvature", 1.0, *m_ui->radiusDoubleSpinBox);
  std::string type;
  m_properties.param("type", type);
  if (type == "linear") setSilent(*m_ui->linearButton, &QPushButton::setChecked, true);
  if (type == "convex") setSilent(*m_ui->convexButton, &QPushButton::setChecked, true);
  highlightChecked(*m_ui->transducerTypeButtonGroup, *this);
  if (type == "linear" || type == "convex") m_ui->radiusDoubleSpinBox->setEnabled(type == "convex");
}

bool TransducerWidget::hasElements() const {
  int numberElements = 0;
  return m_properties.param("numberElements", numberElements) && numberElements >= 2;
}

bool TransducerWidget::hasPitch() const {
  double pitch = 0.0;
  return m_properties.param("pitch", pitch) && pitch > 0.0;
}

void TransducerWidget::restoreIgnored() {
  if (!hasElements()) m_properties.setParam("numberElements", m_transducer.numElements());
  if (!hasPitch()) m_properties.setParam("pitch", m_transducer.pitch());
  updateGUI();
}

void TransducerWidget::createAndSignalTransducer() {
  if (!hasElements() || !hasPitch()) return;
  m_transducer.configure(&m_properties);
  Q_EMIT transducerChanged(m_transducer);
}

void TransducerWidget::switchLinear() {
  m_properties.setParam("type", "linear");
  updateGUI();
  createAndSignalTransducer();
}

void TransducerWidget::switchConvex() {
  m_properties.setParam("type", "convex");
  updateGUI();
  createAndSignalTransducer();
}

} // namespace Kelvaris::US
