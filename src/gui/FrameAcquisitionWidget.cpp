#include "gui/FrameAcquisitionWidget.h"

#include "gui/Editing.h"
#include "model/PulseEchoEvent.h"
#include "ui_FrameAcquisitionWidget.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

namespace Kelvaris::US {
namespace {

using EventType = PulseEchoEvent::EventType;
using QtHelpers::setSilent;

constexpr const char* kCategory = "FrameAcquisitionWidget";
constexpr double kDegree = M_PI / 180.0;
constexpr double kMegahertz = 1e6;

/// What follows from the parameters, and would be preferred to them.
void removeDerived(Properties& properties) {
  for (const char* derived : {"events", "beamformingRois", "frameGeometry", "metadata"})
    properties.removeSubProperties(derived);
}

/// Throws std::invalid_argument if the elements of a convex array go all around its circle: they would lie on one
/// another.
void checkArc(const Properties& transducer) {
  int numElements = 0;
  double pitch = 0.0, radius = 0.0;
  std::string type;
  if (!transducer.param("type", type) || type != "convex" || !transducer.param("numberElements", numElements) ||
      !transducer.param("pitch", pitch) || !transducer.param("radiusCurvature", radius))
    return;
  const double arc = pitch * (numElements - 1);
  if (radius > 0.0 && arc >= 2.0 * M_PI * radius)
    throw std::invalid_argument(fmt::format("{} elements with a pitch of {} mm go all around a circle with a radius of "
                                            "{} mm: they need a radius above {:.3f} mm, or a smaller pitch, or "
                                            "fewer elements",
                                            numElements, pitch, radius, arc / (2.0 * M_PI)));
}

bool isFinite(const PulseEchoEvent& event) {
  const PulseEchoEvent::Transmit& transmit = event.transmit;
  return transmit.timeZeroPoint.allFinite() && transmit.waveFiducial.allFinite() && transmit.waveStart.allFinite() &&
         std::isfinite(event.receive.startTime) && std::isfinite(event.receive.endTime);
}

/// Throws std::invalid_argument if there are events that nobody could play.
void checkFinite(const std::vector<PulseEchoEvent>& events) {
  const auto unusable = std::count_if(events.begin(), events.end(), [](const auto& event) { return !isFinite(event); });
  if (unusable > 0)
    throw std::invalid_argument(
        fmt::format("{} of the frame's {} events have positions, directions or times that are no finite numbers: the "
                    "angles of diverging waves need at least 2 emissions per aperture",
                    unusable, events.size()));
}

} // namespace

FrameAcquisitionWidget::FrameAcquisitionWidget(QWidget* parent)
    : QWidget(parent), m_ui(std::make_unique<Ui_FrameAcquisitionWidget>()) {
  m_ui->setupUi(this);
  m_realEditors = {
      {m_ui->endDepthDoubleSpinBox, "endDepth", 1.0, 20.0, true},
      {m_ui->pulseFrequencyDoubleSpinBox, "pulseFrequency", kMegahertz, 2e6, true},
      {m_ui->pulseLengthDoubleSpinBox, "pulseLength", 1.0, 2.0, true},
      {m_ui->speedOfSoundDoubleSpinBox, "speedOfSound", 1e3, 1.54e6, true},
      {m_ui->receiveSamplingFrequencyDoubleSpinBox, "receiveSamplingFrequency", kMegahertz, 1e7, true},
      {m_ui->focalDepthDoubleSpinBox, "focalDepth", 1.0, 40.0, true},
      {m_ui->steeringAngleDoubleSpinBox, "steeringAngle", kDegree, 0.0, false},
      {m_ui->planeAngleRangeDoubleSpinBox, "planeAngleRange", kDegree, M_PI / 6.0, false},
      {m_ui->virtualSourceDistanceDoubleSpinBox, "virtualSourceDistance", 1.0, 10.0, false},
      {m_ui->steeringAngleRangeDoubleSpinBox, "steeringAngleRange", kDegree, M_PI / 6.0, false},
  };
  m_countEditors = {
      {m_ui->transmitApertureSpinBox, "maxTransmitAperture", 64},
      {m_ui->receiveApertureSpinBox, "maxReceiveAperture", 64},
      {m_ui->numberBeamsSpinBox, "numberFocusedBeamsTotal", 16},
      {m_ui->numberPlaneAperturesSpinBox, "numberApertures", 4},
      {m_ui->numberPlanesSpinBox, "numberEventsPerAperture", 16},
      {m_ui->numberDivergingAperturesSpinBox, "numberApertures", 4},
      {m_ui->numberDivergingSpinBox, "numberEventsPerAperture", 16},
  };
  initGUI();
  Transducer::createLinear(64, 0.15).configuration(&m_properties.subProperties("transducer"));
  setDefaultParameters();
}

FrameAcquisitionWidget::~FrameAcquisitionWidget() {
  detach(*this);
}

void FrameAcquisitionWidget::setFrameAcquisition(const FrameAcquisition& frameAcquisition) {
  m_frameAcquisition = frameAcquisition;
  m_upToDate = true;
  removeDerived(m_properties);
  m_frameAcquisition.configuration(&m_properties);
  if (m_properties.hasParam("eventType")) removeDerived(m_properties);
  setMissingDefaults();
  updateGUI(false);
}

void FrameAcquisitionWidget::setTransducer(const Transducer& transducer) {
  Properties stored;
  transducer.configuration(&stored);
  if (std::exchange(m_properties.subProperties("transducer"), stored) == stored) return; // the frame is made for it
  configureFrameAcquisition();
}

void FrameAcquisitionWidget::setReceiveSamplingFrequencyOptions(const ReceiveSamplingFrequencyOptions& options) {
  m_receiveSamplingFrequencyOptions = options;
  const auto* const range = std::get_if<std::pair<double, double>>(&options);
  const auto [lowest, highest] = range ? *range : std::pair(0.0, 99.99 * kMegahertz);
  setSilent(*m_ui->receiveSamplingFrequencyDoubleSpinBox, &QDoubleSpinBox::setRange, lowest / kMegahertz,
            highest / kMegahertz);
  updateGUI(false);
}

void FrameAcquisitionWidget::setDefaultParameters() {
  removeDerived(m_properties);
  for (const RealEditor& editor : m_realEditors)
    m_properties.removeParam(editor.key);
  for (const CountEditor& editor : m_countEditors)
    m_properties.removeParam(editor.key);
  setMissingDefaults();
  switchTo(static_cast<int>(EventType::Focused));
}

void FrameAcquisitionWidget::setMissingDefaults() {
  const auto set = [this](const auto& editor) {
    if (!m_properties.hasParam(editor.key)) m_properties.setParam(editor.key, editor.defaultValue);
  };
  std::for_each(m_realEditors.begin(), m_realEditors.end(), set);
  std::for_each(m_countEditors.begin(), m_countEditors.end(), set);
}

void FrameAcquisitionWidget::initGUI() {
  for (const RealEditor& editor : m_realEditors) {
    const auto store = [this, editor](double shown) {
      if (editor.positive && !(shown > 0.0)) return;
      m_properties.setParam(editor.key, shown * editor.unit);
      createAndSignalFrameAcquisition();
    };
    connect(editor.box, qOverload<double>(&QDoubleSpinBox::valueChanged), this, store);
    connect(editor.box, &QDoubleSpinBox::editingFinished, this, [this] { updateGUI(false); });
  }
  for (const CountEditor& editor : m_countEditors) {
    const auto store = [this, editor](int shown) {
      if (shown < 1) return;
      m_properties.setParam(editor.key, shown);
      createAndSignalFrameAcquisition();
    };
    connect(editor.box, qOverload<int>(&QSpinBox::valueChanged), this, store);
  }
  const auto switchBy = [this](QPushButton* button, void (FrameAcquisitionWidget::*switchScanType)()) {
    connect(button, &QPushButton::toggled, this, [this, switchScanType](bool checked) {
      if (checked) (this->*switchScanType)();
    });
  };
  switchBy(m_ui->focusedButton, &FrameAcquisitionWidget::switchFocused);
  switchBy(m_ui->planeWaveButton, &FrameAcquisitionWidget::switchPlaneWave);
  switchBy(m_ui->divergingWaveButton, &FrameAcquisitionWidget::switchDivergingWave);
  arrange(*this);
  setFirstInTabOrder(*this, *m_ui->focusedButton);
}

void FrameAcquisitionWidget::changeEvent(QEvent* event) {
  QWidget::changeEvent(event);
  if (event->type() == QEvent::PaletteChange) highlightChecked(*m_ui->scanTypeButtonGroup, *this);
}

void FrameAcquisitionWidget::updateGUI(bool signalChange) {
  for (const RealEditor& editor : m_realEditors)
    showValue(m_properties, editor.key, editor.unit, *editor.box);
  for (const CountEditor& editor : m_countEditors)
    showValue(m_properties, editor.key, *editor.box);
  int eventType = -1;
  m_properties.param("eventType", eventType);
  QPushButton* const buttons[] = {m_ui->focusedButton, m_ui->planeWaveButton, m_ui->divergingWaveButton};
  m_ui->scanTypeButtonGroup->setExclusive(false); // or there would always be one
  for (int i = 0; i < 3; ++i)
    setSilent(*buttons[i], &QPushButton::setChecked, i == eventType);
  m_ui->scanTypeButtonGroup->setExclusive(true);
  highlightChecked(*m_ui->scanTypeButtonGroup, *this);
  if (eventType >= 0 && eventType <= 2) m_ui->specificParametersStackedWidget->setCurrentIndex(eventType);
  if (signalChange) createAndSignalFrameAcquisition();
}

void FrameAcquisitionWidget::createAndSignalFrameAcquisition() {
  configureFrameAcquisition();
  Q_EMIT frameAcquisitionChanged(m_frameAcquisition);
}

void FrameAcquisitionWidget::configureFrameAcquisition() {
  m_upToDate = false;
  guarded(kCategory, [this] {
    if (m_properties.hasParam("eventType")) checkArc(*m_properties.findSubProperties("transducer"));
    FrameAcquisition configured; // stays empty if it is refused
    configured.configure(&m_properties);
    if (!configured.frameParameters() && configured.events().empty()) return;
    checkFinite(configured.events());
    m_frameAcquisition = configured;
    m_upToDate = true;
  });
}

void FrameAcquisitionWidget::switchTo(int eventType) {
  removeDerived(m_properties);
  m_properties.setParam("eventType", eventType);
  updateGUI(true);
}

void FrameAcquisitionWidget::switchFocused() {
  switchTo(static_cast<int>(EventType::Focused));
}

void FrameAcquisitionWidget::switchPlaneWave() {
  switchTo(static_cast<int>(EventType::PlaneWave));
}

void FrameAcquisitionWidget::switchDivergingWave() {
  switchTo(static_cast<int>(EventType::DivergingWave));
}

} // namespace Kelvaris::US
