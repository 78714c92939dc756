#include "gui/AcquisitionSequenceWidget.h"

#include "gui/Editing.h"
#include "gui/TransducerWidget.h"
#include "model/PulseEchoEvent.h"
#include "ui_AcquisitionSequenceWidget.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <utility>

namespace Kelvaris::US {
namespace {

constexpr const char* kCategory = "AcquisitionSequenceWidget";

/// Throws std::runtime_error if an event, which the user may have taken over from another array, uses elements that the
/// frame's array doesn't have. `number`: of the frame, as the list shows it.
void checkApertures(const FrameAcquisition& frame, std::size_t number) {
  const int numElements = frame.transducer().numElements();
  for (std::size_t e = 0; e < frame.events().size(); ++e) {
    const PulseEchoEvent& event = frame.events()[e];
    const int first = std::min(event.transmit.apertureFirst, event.receive.apertureFirst);
    const int last = std::max(event.transmit.apertureLast, event.receive.apertureLast);
    if (first < 0 || last >= numElements)
      throw std::runtime_error(fmt::format("event {} of \"Frame Acquisition {}\" uses the elements {} to {}, but the "
                                           "array has the elements 0 to {}; choose a scan type for the frame, or a "
                                           "larger array",
                                           e, number, first, last, numElements - 1));
  }
}

/// The widget no longer has a say; it may be the one whose signal is being handled.
void discard(QStackedWidget& pages, FrameAcquisitionWidget* widget) {
  widget->disconnect();
  pages.removeWidget(widget);
  widget->setParent(nullptr);
  widget->deleteLater();
}

} // namespace

AcquisitionSequenceWidget::AcquisitionSequenceWidget(QWidget* parent, bool transducerEnabled)
    : QWidget(parent),
      m_ui(std::make_unique<Ui_AcquisitionSequenceWidget>()),
      m_transducerWidget(&QtHelpers::make<TransducerWidget>(this)) {
  m_ui->setupUi(this);
  initGUI();
  m_transducerWidget->setEnabled(transducerEnabled);
  addFrameAcquisitionWidget(&QtHelpers::make<FrameAcquisitionWidget>(this));
  setDefaultParameters();
}

AcquisitionSequenceWidget::~AcquisitionSequenceWidget() {
  detach(*this);
}

void AcquisitionSequenceWidget::initGUI() {
  while (QWidget* page = m_ui->frameAcquisitionsStackedWidget->widget(0)) {
    m_ui->frameAcquisitionsStackedWidget->removeWidget(page);
    delete page;
  }
  sizeButtons();
  m_ui->transducerGroupBox->layout()->addWidget(m_transducerWidget);
  QtHelpers::makeExpandable(*m_ui->transducerGroupBox);
  setTabOrder(m_ui->transducerGroupBox, m_transducerWidget);
  setFirstInTabOrder(*this, *m_ui->frameAcquisitionsListWidget);

  connect(m_transducerWidget, &TransducerWidget::transducerChanged, this,
          &AcquisitionSequenceWidget::frameAcquisitionChanged);
  connect(m_ui->applyButton, &QPushButton::clicked, this, &AcquisitionSequenceWidget::applyConfigurationChanges);
  connect(m_ui->resetButton, &QPushButton::clicked, this, &AcquisitionSequenceWidget::resetConfigurationChanges);
  connect(m_ui->addFrameAcquisitionButton, &QPushButton::clicked, this,
          &AcquisitionSequenceWidget::addNewFrameAcquisition);
  connect(m_ui->removeFrameAcquisitionButton, &QPushButton::clicked, this, [this] {
    removeFrameAcquisitionWidget(m_ui->frameAcquisitionsListWidget->currentRow());
    frameAcquisitionChanged();
  });
  connect(m_ui->frameAcquisitionsListWidget, &QListWidget::currentRowChanged, this, [this](int row) {
    if (row < m_ui->frameAcquisitionsStackedWidget->count()) m_ui->frameAcquisitionsStackedWidget->setCurrentIndex(row);
  });
}

void AcquisitionSequenceWidget::changeEvent(QEvent* event) {
  QWidget::changeEvent(event);
  if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange) sizeButtons();
}

void AcquisitionSequenceWidget::sizeButtons() {
  for (QPushButton* button : {m_ui->addFrameAcquisitionButton, m_ui->removeFrameAcquisitionButton})
    button->setFixedWidth(button->sizeHint().height() * 5 / 4); // a button of text would be three times as wide
}

void AcquisitionSequenceWidget::updateGUI() {
  m_ui->applyButton->setEnabled(m_userMadeChanges);
  m_ui->resetButton->setEnabled(m_userMadeChanges);
  m_ui->removeFrameAcquisitionButton->setEnabled(m_frameAcquisitionWidgets.size() > 1);
}

void AcquisitionSequenceWidget::setDefaultParameters() {
  frameAcquisitionChanged();
  createAndSignalAcquisitionSequence();
  m_userMadeChanges = false;
  updateGUI();
}

void AcquisitionSequenceWidget::setAcquisitionSequence(const AcquisitionSequence& sequence) {
  m_acquisitionSequence = sequence;
  clearFrameAcquisitionWidgets();
  for (const FrameAcquisition& frameAcquisition : m_acquisitionSequence.frameAcquisitions()) {
    auto* const widget = &QtHelpers::make<FrameAcquisitionWidget>(this);
    widget->setFrameAcquisition(frameAcquisition);
    addFrameAcquisitionWidget(widget);
  }
  if (!m_frameAcquisitionWidgets.empty()) m_transducerWidget->setTransducer(m_acquisitionSequence.transducer());
  m_framesChanged = false;
  m_userMadeChanges = false;
  updateGUI();
}

void AcquisitionSequenceWidget::setTransducer(const Transducer& transducer, bool apply) {
  m_transducerWidget->setTransducer(transducer);
  frameAcquisitionChanged();
  if (apply) applyConfigurationChanges();
}

void AcquisitionSequenceWidget::setReceiveSamplingFrequencyOptions(const ReceiveSamplingFrequencyOptions& options) {
  m_receiveSamplingFrequencyOptions = options;
  for (FrameAcquisitionWidget* widget : m_frameAcquisitionWidgets)
    widget->setReceiveSamplingFrequencyOptions(options);
}

void AcquisitionSequenceWidget::applyConfigurationChanges() {
  if (m_userMadeChanges && createAndSignalAcquisitionSequence()) m_userMadeChanges = false;
  updateGUI();
}

void AcquisitionSequenceWidget::resetConfigurationChanges() {
  setAcquisitionSequence(m_acquisitionSequence);
}

void AcquisitionSequenceWidget::frameAcquisitionChanged() {
  for (FrameAcquisitionWidget* widget : m_frameAcquisitionWidgets)
    widget->setTransducer(m_transducerWidget->transducer());
  m_framesChanged = true;
  setUserMadeChanges();
}

void AcquisitionSequenceWidget::setUserMadeChanges() {
  m_userMadeChanges = true;
  updateGUI();
}

void AcquisitionSequenceWidget::addNewFrameAcquisition() {
  auto* const widget = &QtHelpers::make<FrameAcquisitionWidget>(this);
  widget->setTransducer(m_transducerWidget->transducer());
  addFrameAcquisitionWidget(widget);
  frameAcquisitionChanged();
}

void AcquisitionSequenceWidget::addFrameAcquisitionWidget(FrameAcquisitionWidget* widget) {
  QWidget* const previous = m_frameAcquisitionWidgets.empty()
                                ? static_cast<QWidget*>(m_ui->removeFrameAcquisitionButton)
                                : m_frameAcquisitionWidgets.back();
  m_frameAcquisitionWidgets.push_back(widget);
  connect(widget, &FrameAcquisitionWidget::frameAcquisitionChanged, this,
          &AcquisitionSequenceWidget::frameAcquisitionChanged);
  m_ui->frameAcquisitionsListWidget->addItem(tr("Frame Acquisition %1").arg(m_frameAcquisitionWidgets.size()));
  m_ui->frameAcquisitionsListWidget->setCurrentRow(m_ui->frameAcquisitionsListWidget->count() - 1);
  m_ui->frameAcquisitionsStackedWidget->addWidget(widget);
  m_ui->frameAcquisitionsStackedWidget->setCurrentWidget(widget);
  setTabOrder(previous, widget);
  widget->setReceiveSamplingFrequencyOptions(m_receiveSamplingFrequencyOptions);
}

void AcquisitionSequenceWidget::removeFrameAcquisitionWidget(int index) {
  if (index < 0 || index >= static_cast<int>(m_frameAcquisitionWidgets.size())) return;
  const auto position = m_frameAcquisitionWidgets.begin() + index;
  FrameAcquisitionWidget* const widget = *position;
  m_frameAcquisitionWidgets.erase(position);
  discard(*m_ui->frameAcquisitionsStackedWidget, widget);
  QListWidget& list = *m_ui->frameAcquisitionsListWidget;
  delete list.takeItem(list.count() - 1);
  m_ui->frameAcquisitionsStackedWidget->setCurrentIndex(list.currentRow());
  setUserMadeChanges();
}

void AcquisitionSequenceWidget::clearFrameAcquisitionWidgets() {
  m_ui->frameAcquisitionsListWidget->clear();
  for (FrameAcquisitionWidget* widget : std::exchange(m_frameAcquisitionWidgets, {}))
    discard(*m_ui->frameAcquisitionsStackedWidget, widget);
}

AcquisitionSequence AcquisitionSequenceWidget::editedSequence() const {
  std::vector<FrameAcquisition> frames;
  for (const FrameAcquisitionWidget* widget : m_frameAcquisitionWidgets) {
    const FrameAcquisition& frame = widget->frameAcquisition();
    const std::size_t number = frames.size() + 1;
    if (!widget->isUpToDate())
      throw std::runtime_error(
          fmt::format("no frame can be made of what \"Frame Acquisition {}\" asks for, for the reason above", number));
    checkApertures(frame, number);
    frames.push_back(frame);
  }
  return AcquisitionSequence(std::move(frames));
}

bool AcquisitionSequenceWidget::createAndSignalAcquisitionSequence() {
  if (m_framesChanged) {
    try {
      m_acquisitionSequence = editedSequence();
    } catch (const std::exception& error) {
      Log::error(kCategory, "The sequence can't be applied: {}", error.what());
      return false;
    }
    m_framesChanged = false;
  }
  Q_EMIT acquisitionSequenceChanged(m_acquisitionSequence);
  return true;
}

} // namespace Kelvaris::US
