#include "viewer/view/WrapLayout.h"

#include <QWidget>

#include <algorithm>

namespace Kelvaris::Viewer {

WrapLayout::WrapLayout(QWidget* parent) : QLayout(parent) {
  setContentsMargins(0, 0, 0, 0);
}

WrapLayout::~WrapLayout() {
  qDeleteAll(m_items);
}

QLayoutItem* WrapLayout::takeAt(int index) {
  return index >= 0 && index < m_items.size() ? m_items.takeAt(index) : nullptr;
}

QSize WrapLayout::minimumSize() const {
  int width = 0;
  for (const QLayoutItem* item : m_items)
    if (!item->isEmpty()) width = std::max(width, item->minimumSize().width());
  // Before it is laid out, one line: a window grows for what it is told to need, but doesn't shrink again.
  return {width, heightForWidth(m_width > 0 ? std::max(width, m_width) : QWIDGETSIZE_MAX)};
}

void WrapLayout::setGeometry(const QRect& rect) {
  QLayout::setGeometry(rect);
  const int before = minimumSize().height();
  m_width = rect.width();
  arrange(rect, true);
  // The layouts of main windows know no heights that hang on widths.
  if (parentWidget() && minimumSize().height() != before) parentWidget()->updateGeometry();
}

int WrapLayout::arrange(const QRect& rect, bool place) const {
  const int gap = std::max(spacing(), 0);
  int x = rect.left(), y = rect.top(), lineHeight = 0;
  for (QLayoutItem* item : m_items) {
    if (item->isEmpty()) continue;
    const QSize size = item->sizeHint();
    if (x > rect.left() && x + size.width() > rect.left() + rect.width()) {
      x = rect.left();
      y += lineHeight + gap;
      lineHeight = 0;
    }
    if (place) item->setGeometry(QRect(QPoint(x, y), size));
    x += size.width() + 2 * gap;
    lineHeight = std::max(lineHeight, size.height());
  }
  return y + lineHeight - rect.top();
}

} // namespace Kelvaris::Viewer
