#include "gui/SimulatedChannelDataStreamController.h"

#include "Gui/AfterLongWork.h"
#include "Gui/DefaultControllerDecorator.h"
#include "gui/AcquisitionSequenceWidget.h"
#include "gui/Editing.h"
#include "model/ChannelDataLayout.h"
#include "ui_SimulatedChannelDataStreamController.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

namespace Kelvaris::US {
namespace {

using QtHelpers::setSilent;

constexpr const char* kCategory = "SimulatedChannelDataStreamController";

} // namespace

SimulatedChannelDataStreamController::SimulatedChannelDataStreamController(StreamMaker* algorithm)
    : StreamControllerBase(algorithm),
      m_ui(std::make_unique<Ui_SimulatedChannelDataStreamController>()),
      m_sequenceWidget(std::make_unique<AcquisitionSequenceWidget>(this, true).release()) {
  leaveOutStartStop();
  m_ui->setupUi(this);
  setupGUI();
  updateGUI();
}

SimulatedChannelDataStreamController::~SimulatedChannelDataStreamController() {
  detach(*this);
}

template <typename Action> void SimulatedChannelDataStreamController::withStream(Action action) {
  // A simulation holds the stream's lock, on this very thread, and what the window does meanwhile may change a box.
  afterLongWork(this, [this, action] {
    if (!m_stream) return;
    guarded(kCategory, [&] { action(*m_stream); });
    if (m_stream->useSIMUS() != (m_ui->simulatorComboBox->currentIndex() == 0)) updateGUI();
  });
}

void SimulatedChannelDataStreamController::setupGUI() {
  arrange(*this);
  m_ui->pulseEchoSequenceWidget->layout()->addWidget(m_sequenceWidget);
  setTabOrder(m_ui->noiseAmplitudeDoubleSpinBox, m_sequenceWidget);

  constexpr auto realChanged = qOverload<double>(&QDoubleSpinBox::valueChanged);
  constexpr auto indexChanged = qOverload<int>(&QComboBox::currentIndexChanged);
  connect(m_sequenceWidget, &AcquisitionSequenceWidget::acquisitionSequenceChanged, this,
          &SimulatedChannelDataStreamController::onAcquisitionSequenceChanged);
  connect(m_ui->startStopPushButton, &QPushButton::clicked, this,
          &SimulatedChannelDataStreamController::onStartStopClicked);
  connect(m_ui->targetFrameRateDoubleSpinBox, realChanged, this, [this](double rate) {
    withStream([rate](SimulatedChannelDataStream& stream) { stream.setTargetFrameRate(rate); });
  });
  const auto connectAll = [&](std::initializer_list<QDoubleSpinBox*> boxes, auto slot) {
    for (QDoubleSpinBox* box : boxes)
      connect(box, realChanged, this, slot);
  };
  connectAll(
      {m_ui->echoAmplitudeDoubleSpinBox, m_ui->transmitAmplitudeDoubleSpinBox, m_ui->noiseAmplitudeDoubleSpinBox},
      &SimulatedChannelDataStreamController::onAmplitudeChanged);
  connectAll({m_ui->phantomOriginXDoubleSpinBox, m_ui->phantomOriginYDoubleSpinBox, m_ui->phantomOriginZDoubleSpinBox},
             &SimulatedChannelDataStreamController::onPhantomOriginChanged);
  connectAll({m_ui->interEventPhantomMotionXDoubleSpinBox, m_ui->interEventPhantomMotionYDoubleSpinBox,
              m_ui->interEventPhantomMotionZDoubleSpinBox},
             &SimulatedChannelDataStreamController::onInterEventPhantomMotionChanged);
  connect(m_ui->simulatorComboBox, indexChanged, this, &SimulatedChannelDataStreamController::onSimulatorMethodChanged);
  connect(m_ui->phantomTypeCompoBox, indexChanged, this, &SimulatedChannelDataStreamController::onPhantomTypeChanged);
  connect(m_ui->dataTypeComboBox, indexChanged, this, [this](int index) {
    withStream(
        [index](SimulatedChannelDataStream& stream) { stream.setPixelType(index == 0 ? PixelInt16 : PixelFloat); });
  });
  for (QComboBox* box : {m_ui->dataLayoutXComboBox, m_ui->dataLayoutYComboBox, m_ui->dataLayoutZComboBox})
    connect(box, indexChanged, this, [this, box] { onDataLayoutChanged(*box); });
}

void SimulatedChannelDataStreamController::init() {
  StreamControllerBase::init();
  Stream* const stream = streamAlgorithm().stream();
  m_stream = dynamic_cast<SimulatedChannelDataStream*>(stream);
  if (stream && !m_stream)
    throw std::runtime_error("SimulatedChannelDataStreamController::init was provided with incorrect stream type");
  if (m_stream) {
    m_stateConnection = m_stream->stateChanged.connectBlocking([this](Stream::State) {
      QMetaObject::invokeMethod(this, &SimulatedChannelDataStreamController::updateGUI, Qt::QueuedConnection);
    });
    m_streamGoneConnection = m_stream->closedSignal.connectBlocking([this] {
      m_stream = nullptr;
      updateGUI();
    });
    const AcquisitionSequence& sequence = m_stream->acquisitionSequence();
    if (sequence.numFrameAcquisitions() > 0 && sequence.numEvents() > 0)
      m_sequenceWidget->setAcquisitionSequence(sequence);
    else
      onAcquisitionSequenceChanged(m_sequenceWidget->acquisitionSequence());
  }
  updateGUI();
  // In the panel, which is then disabled, the message is hard to read.
  if (defaultDecorator()) defaultDecorator()->showMessage(m_stream ? QString() : failure());
}

void SimulatedChannelDataStreamController::onStartStopClicked() {
  withStream([](SimulatedChannelDataStream& stream) {
    if (stream.state() == Stream::State::Running)
      stream.stopAsync();
    else
      stream.startAsync();
  });
}

void SimulatedChannelDataStreamController::onAcquisitionSequenceChanged(const AcquisitionSequence& sequence) {
  withStream([sequence](SimulatedChannelDataStream& stream) { stream.setAcquisitionSequence(sequence); });
}

void SimulatedChannelDataStreamController::onAmplitudeChanged(double) {
  withStream([this](SimulatedChannelDataStream& stream) {
    stream.setEchoAmplitude(m_ui->echoAmplitudeDoubleSpinBox->value());
    // Not only what it says: this one makes the stream render the pulses anew, those of the echoes among them.
    stream.setTransmitAmplitude(m_ui->transmitAmplitudeDoubleSpinBox->value());
    stream.setNoiseAmplitude(m_ui->noiseAmplitudeDoubleSpinBox->value());
  });
}

void SimulatedChannelDataStreamController::onPhantomOriginChanged(double) {
  withStream([this](SimulatedChannelDataStream& stream) {
    stream.setPhantomOrigin({m_ui->phantomOriginXDoubleSpinBox->value(), m_ui->phantomOriginYDoubleSpinBox->value(),
                             m_ui->phantomOriginZDoubleSpinBox->value()});
  });
}

void SimulatedChannelDataStreamController::onInterEventPhantomMotionChanged(double) {
  withStream([this](SimulatedChannelDataStream& stream) {
    stream.setInterEventPhantomMotion({m_ui->interEventPhantomMotionXDoubleSpinBox->value(),
                                       m_ui->interEventPhantomMotionYDoubleSpinBox->value(),
                                       m_ui->interEventPhantomMotionZDoubleSpinBox->value()});
  });
}

void SimulatedChannelDataStreamController::onSimulatorMethodChanged(int index) {
  withStream([index](SimulatedChannelDataStream& stream) { stream.setUseSIMUS(index == 0); });
  updateGUI();
}

void SimulatedChannelDataStreamController::onPhantomTypeChanged(int index) {
  withStream([index](SimulatedChannelDataStream& stream) { stream.setPhantomType(static_cast<PhantomType>(index)); });
}

void SimulatedChannelDataStreamController::onDataLayoutChanged(const QComboBox& changed) {
  const std::array boxes = {m_ui->dataLayoutXComboBox, m_ui->dataLayoutYComboBox, m_ui->dataLayoutZComboBox};
  const auto isShown = [&](int axis) {
    return std::any_of(boxes.begin(), boxes.end(), [&](const QComboBox* box) { return box->currentIndex() == axis; });
  };
  int missing = 0;
  while (missing < 3 && isShown(missing))
    ++missing;
  const auto twin = std::find_if(boxes.begin(), boxes.end(), [&](const QComboBox* box) {
    return box != &changed && box->currentIndex() == changed.currentIndex();
  });
  if (twin != boxes.end()) (*twin)->setCurrentIndex(missing); // comes back here for that box

  const auto axis = [&](std::size_t box) { return static_cast<ChannelDataLayout::Axis>(boxes[box]->currentIndex()); };
  const ChannelDataLayout layout(axis(0), axis(1), axis(2));
  withStream([layout](SimulatedChannelDataStream& stream) { stream.setChannelDataLayout(layout); });
}

void SimulatedChannelDataStreamController::updateGUI() {
  setEnabled(m_stream != nullptr);
  if (!m_stream) return;
  const SimulatedChannelDataStream& stream = *m_stream;
  m_ui->startStopPushButton->setText(stream.state() == Stream::State::Running ? tr("Stop") : tr("Start"));
  const auto showNumber = [](QDoubleSpinBox* box, double value) { setSilent(*box, &QDoubleSpinBox::setValue, value); };
  const auto showIndex = [](QComboBox* box, int index) { setSilent(*box, &QComboBox::setCurrentIndex, index); };
  showNumber(m_ui->targetFrameRateDoubleSpinBox, stream.targetFrameRate());
  showNumber(m_ui->echoAmplitudeDoubleSpinBox, stream.echoAmplitude());
  showNumber(m_ui->transmitAmplitudeDoubleSpinBox, stream.transmitAmplitude());
  showNumber(m_ui->noiseAmplitudeDoubleSpinBox, stream.noiseAmplitude());
  showIndex(m_ui->simulatorComboBox, stream.useSIMUS() ? 0 : 1);
  showNumber(m_ui->phantomOriginXDoubleSpinBox, stream.phantomOrigin().x());
  showNumber(m_ui->phantomOriginYDoubleSpinBox, stream.phantomOrigin().y());
  showNumber(m_ui->phantomOriginZDoubleSpinBox, stream.phantomOrigin().z());
  showIndex(m_ui->phantomTypeCompoBox, static_cast<int>(stream.phantomType()));
  showNumber(m_ui->interEventPhantomMotionXDoubleSpinBox, stream.interEventPhantomMotion().x());
  showNumber(m_ui->interEventPhantomMotionYDoubleSpinBox, stream.interEventPhantomMotion().y());
  showNumber(m_ui->interEventPhantomMotionZDoubleSpinBox, stream.interEventPhantomMotion().z());
  showIndex(m_ui->dataTypeComboBox, stream.pixelType() == PixelInt16 ? 0 : 1);
  for (QDoubleSpinBox* box : {m_ui->phantomOriginXDoubleSpinBox, m_ui->phantomOriginYDoubleSpinBox,
                              m_ui->phantomOriginZDoubleSpinBox, m_ui->interEventPhantomMotionXDoubleSpinBox,
                              m_ui->interEventPhantomMotionYDoubleSpinBox, m_ui->interEventPhantomMotionZDoubleSpinBox})
    box->setKeyboardTracking(!stream.useSIMUS());
}

} // namespace Kelvaris::US
