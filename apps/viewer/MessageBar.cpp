#include "viewer/MessageBar.h"

#include "Gui/QtHelpers.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>

namespace Kelvaris::Viewer {
namespace {

constexpr int kFollowsMs = 300, kLines = 5;

} // namespace

MessageBar::MessageBar(QWidget* parent) : QFrame(parent), m_text(&QtHelpers::make<QLabel>(this)) {
  setObjectName("messageBar");
  setFrameShape(QFrame::StyledPanel);
  setAutoFillBackground(true);
  m_text->setObjectName("messageText");
  m_text->setWordWrap(true);
  m_text->setTextFormat(Qt::PlainText);
  m_text->setTextInteractionFlags(Qt::TextSelectableByMouse);
  auto& close = QtHelpers::make<QPushButton>(this, tr("Dismiss"));
  close.setObjectName("dismissMessage");
  close.setShortcut(Qt::Key_Escape);
  close.setToolTip(tr("Close this message (Esc); the log keeps it"));
  connect(&close, &QPushButton::clicked, this, &QWidget::hide);
  auto& layout = QtHelpers::make<QHBoxLayout>(this);
  layout.setContentsMargins(8, 4, 4, 4);
  layout.addWidget(m_text, 1);
  layout.addWidget(&close, 0, Qt::AlignTop);
  takeColors();
  hide();
}

QString MessageBar::text() const {
  return isHidden() ? QString() : m_text->text();
}

void MessageBar::showError(const QString& text) {
  const bool isFollower = !isHidden() && m_sinceLast.isValid() && m_sinceLast.elapsed() < kFollowsMs;
  m_sinceLast.start();
  const QString shown = m_text->text();
  if (!isFollower)
    m_text->setText(text);
  else if (const auto lines = shown.count('\n'); lines < kLines && !shown.split('\n').contains(text))
    m_text->setText(shown + '\n' + (lines + 1 < kLines ? text : tr("More is in the log.")));
  show();
}

void MessageBar::changeEvent(QEvent* event) {
  QFrame::changeEvent(event);
  if (event->type() == QEvent::ApplicationPaletteChange) takeColors();
}

void MessageBar::takeColors() {
  QPalette colors;
  const bool isDark = colors.color(QPalette::Window).lightness() < 128;
  colors.setColor(QPalette::Window, isDark ? QColor(96, 36, 32) : QColor(255, 221, 214));
  colors.setColor(QPalette::WindowText, isDark ? QColor(255, 235, 230) : QColor(70, 10, 5));
  setPalette(colors);
}

} // namespace Kelvaris::Viewer
