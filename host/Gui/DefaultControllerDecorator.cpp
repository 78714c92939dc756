#include "Gui/DefaultControllerDecorator.h"

#include "Gui/QtHelpers.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

namespace Kelvaris {

DefaultControllerDecorator::DefaultControllerDecorator(QWidget* panel, const QString& title, QWidget* parent)
    : QWidget(parent), m_panel(panel), m_title(title) {
  auto& layout = QtHelpers::make<QVBoxLayout>(this);
  layout.addWidget(m_panel); // before the others: the Tab key comes to it first
  m_message = &QtHelpers::make<QLabel>(this);
  m_message->setObjectName("messageLabel");
  m_message->setWordWrap(true);
  m_message->setTextInteractionFlags(Qt::TextSelectableByMouse);
  m_message->hide();
  layout.addWidget(m_message);

  m_progress = &QtHelpers::make<QWidget>(this);
  layout.addWidget(m_progress);
  auto& progress = QtHelpers::make<QVBoxLayout>(m_progress);
  progress.setContentsMargins(0, 0, 0, 0);
  m_progressText = &QtHelpers::make<QLabel>(m_progress);
  m_progressText->setObjectName("progressLabel");
  m_progressText->setWordWrap(true);
  progress.addWidget(m_progressText);
  m_progressBar = &QtHelpers::make<QProgressBar>(m_progress);
  m_progressBar->setObjectName("progressBar");
  progress.addWidget(m_progressBar);

  m_buttons = &QtHelpers::make<QWidget>(this);
  layout.addWidget(m_buttons);
  auto& buttons = QtHelpers::make<QHBoxLayout>(m_buttons);
  buttons.setContentsMargins(0, 0, 0, 0);
  buttons.addStretch(1);
  m_cancelButton = &QtHelpers::make<QPushButton>(m_buttons, tr("Cancel"));
  m_cancelButton->setObjectName("cancelButton");
  m_cancelButton->setToolTip(tr("Stop the run in progress; its result is dropped"));
  m_computeButton = &QtHelpers::make<QPushButton>(m_buttons, tr("&Compute"));
  m_computeButton->setObjectName("computeButton");
  m_computeButton->setToolTip(tr("Run the algorithm with these settings"));
  buttons.addWidget(m_cancelButton);
  buttons.addWidget(m_computeButton);
  setTabOrder(m_computeButton, m_cancelButton);
  layout.addStretch(1);

  hideProgress();
  setWindowTitle(title);
  connect(m_computeButton, &QPushButton::clicked, this, [this] {
    Q_EMIT aboutToCompute();
    Q_EMIT computeRequested();
  });
  connect(m_cancelButton, &QPushButton::clicked, this, &DefaultControllerDecorator::cancelRequested);
}

DefaultControllerDecorator::~DefaultControllerDecorator() {
  if (m_panel && m_panel->parent() == this) m_panel->setParent(nullptr);
}

QString DefaultControllerDecorator::title() const {
  return m_titleOverride.isEmpty() ? m_title : m_titleOverride;
}

void DefaultControllerDecorator::setTitleOverride(const QString& title) {
  const QString before = this->title();
  m_titleOverride = title;
  if (this->title() == before) return;
  setWindowTitle(this->title());
  Q_EMIT titleChanged(this->title());
}

void DefaultControllerDecorator::hideAlgorithmButtons() {
  m_buttons->hide();
}

void DefaultControllerDecorator::showProgress(const QString& text, int step, int steps) {
  m_progressText->setText(text);
  m_progressBar->setRange(0, steps);
  m_progressBar->setValue(step);
  m_progressBar->setTextVisible(steps > 0);
  m_progress->show();
  m_message->hide();
  m_cancelButton->setEnabled(true);
}

void DefaultControllerDecorator::hideProgress() {
  m_progress->hide();
  m_cancelButton->setEnabled(false);
}

void DefaultControllerDecorator::showMessage(const QString& text) {
  m_message->setText(text);
  m_message->setVisible(!text.isEmpty());
}

} // namespace Kelvaris
