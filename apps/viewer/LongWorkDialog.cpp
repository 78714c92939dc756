#include "viewer/LongWorkDialog.h"

#include "Gui/QtHelpers.h"

#include <QAbstractSpinBox>
#include <QApplication>
#include <QDialogButtonBox>
#include <QKeyEvent>
#include <QLabel>
#include <QMouseEvent>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>
#include <QWindow>

#include <algorithm>
#include <cmath>

namespace Kelvaris::Viewer {
namespace {

constexpr int kDelay = 500;  // ms
constexpr int kLongest = 20; // ms, for the events of one report
constexpr int kSteps = 1000; // of the bar

/// Spin boxes that are held down would not learn that they are let go, and step for ever.
void letGo() {
  for (QWidget* widget : QApplication::allWidgets()) {
    if (!qobject_cast<QAbstractSpinBox*>(widget)) continue;
    QMouseEvent mouse(QEvent::MouseButtonRelease, QPointF(-1, -1), Qt::LeftButton, Qt::NoButton, Qt::NoModifier);
    QApplication::sendEvent(widget, &mouse);
    QKeyEvent key(QEvent::KeyRelease, Qt::Key_unknown, Qt::NoModifier);
    QApplication::sendEvent(widget, &key);
  }
}

} // namespace

LongWorkDialog::LongWorkDialog(QWidget* parent)
    : QDialog(parent),
      m_text(&QtHelpers::make<QLabel>(this)),
      m_bar(&QtHelpers::make<QProgressBar>(this)),
      m_cancel(nullptr) {
  setObjectName("longWorkDialog");
  setWindowTitle(tr("Working"));
  setWindowModality(Qt::ApplicationModal);
  m_bar->setAccessibleName(tr("Progress"));
  auto& buttons = QtHelpers::make<QDialogButtonBox>(this, QDialogButtonBox::Cancel);
  m_cancel = buttons.button(QDialogButtonBox::Cancel);
  m_cancel->setObjectName("cancelLongWork");
  m_cancel->setAutoDefault(false); // whoever types into a field, and Return at its end, would press it
  m_cancel->setToolTip(tr("Give it up (Esc)"));
  connect(&buttons, &QDialogButtonBox::rejected, this, &LongWorkDialog::reject);
  auto& layout = QtHelpers::make<QVBoxLayout>(this);
  layout.addWidget(m_text);
  layout.addWidget(m_bar);
  layout.addWidget(&buttons);
  setMinimumWidth(fontMetrics().averageCharWidth() * 60);
  LongWork::setHandler(this);
}

LongWorkDialog::~LongWorkDialog() {
  if (LongWork::handler() == this) LongWork::setHandler(nullptr);
}

bool LongWorkDialog::report(const std::string& text, double fraction) {
  if (!m_since.isValid()) {
    m_since.start();
    m_canceled = false;
    m_cancel->setEnabled(true);
    qApp->installEventFilter(this);
  }
  m_text->setText(QString::fromStdString(text));
  m_bar->setRange(0, fraction < 0.0 ? 0 : kSteps);
  m_bar->setValue(static_cast<int>(std::lround(std::clamp(fraction, 0.0, 1.0) * kSteps)));
  if (isHidden() && m_since.elapsed() >= kDelay) appear();
  // What waits is dropped when the dialog is there, since the windows that it is meant for are blocked then.
  QCoreApplication::processEvents(isHidden() ? QEventLoop::ExcludeUserInputEvents : QEventLoop::AllEvents, kLongest);
  return !m_canceled;
}

void LongWorkDialog::appear() {
  while (QWidget* const popup = QApplication::activePopupWidget()) // it would take the dialog's input
    if (!popup->close()) break;
  letGo();
  show();
  activateWindow();
}

void LongWorkDialog::end() {
  qApp->removeEventFilter(this);
  m_since.invalidate();
  hide();
}

void LongWorkDialog::reject() {
  m_canceled = true;
  m_cancel->setEnabled(false);
}

bool LongWorkDialog::eventFilter(QObject* object, QEvent* event) {
  const auto* const widget = qobject_cast<const QWidget*>(object);
  if (object == windowHandle() || (widget && widget->window() == this)) return false;
  switch (event->type()) {
  case QEvent::Timer:
    return widget != nullptr;
  case QEvent::MouseButtonPress:
  case QEvent::MouseButtonDblClick:
  case QEvent::MouseMove:
  case QEvent::Wheel:
  case QEvent::KeyPress:
  case QEvent::Shortcut:
  case QEvent::ShortcutOverride:
  case QEvent::InputMethod:
  case QEvent::ContextMenu:
  case QEvent::TabletPress:
  case QEvent::TabletMove:
  case QEvent::TouchBegin:
  case QEvent::TouchUpdate:
  case QEvent::NativeGesture:
  case QEvent::DragEnter:
  case QEvent::DragMove:
  case QEvent::Drop:
  case QEvent::Close:
    event->ignore();
    return true;
  default:
    return false;
  }
}

} // namespace Kelvaris::Viewer
