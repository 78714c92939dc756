#include "viewer/BusyIndicator.h"

#include "Gui/QtHelpers.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QToolButton>

namespace Kelvaris::Viewer {

BusyIndicator::BusyIndicator(QWidget* parent)
    : QWidget(parent),
      m_text(&QtHelpers::make<QLabel>(this)),
      m_bar(&QtHelpers::make<QProgressBar>(this)),
      m_cancel(&QtHelpers::make<QToolButton>(this)) {
  m_bar->setTextVisible(false);
  m_bar->setFixedWidth(120);
  m_bar->setMaximumHeight(fontMetrics().height());
  m_cancel->setObjectName("cancelWork");
  m_cancel->setText(tr("Cancel"));
  m_cancel->setToolTip(tr("Stop what is running (Ctrl+.); former results stay"));
  m_cancel->setFocusPolicy(Qt::TabFocus);
  m_cancel->setShortcut(QKeySequence("Ctrl+."));
  connect(m_cancel, &QToolButton::clicked, this, &BusyIndicator::cancelRequested);
  auto& layout = QtHelpers::make<QHBoxLayout>(this);
  layout.setContentsMargins(0, 0, 0, 0);
  layout.addWidget(m_text);
  layout.addWidget(m_bar);
  layout.addWidget(m_cancel);
  hide();
  m_delay.setSingleShot(true);
  m_delay.setInterval(300);
  connect(&m_delay, &QTimer::timeout, this, &QWidget::show);
}

void BusyIndicator::setBusy(bool busy) {
  if (busy) {
    showProgress(tr("Working"), 0, 0);
    m_delay.start();
  } else {
    m_delay.stop();
    hide();
  }
}

void BusyIndicator::showProgress(const QString& text, int step, int steps) {
  m_text->setText(text);
  m_bar->setRange(0, steps);
  m_bar->setValue(step);
}

} // namespace Kelvaris::Viewer
