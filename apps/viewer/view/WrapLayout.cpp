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

QSize WrapLayout::sizeHint() const {
  const int width = parentWidget() && parentWidget()->width() > 0 ? parentWidget()->width() : 0;
  const QSize least = minimumSize();
  return {least.width(), std::max(least.height(), heightForWidth(std::max(width, least.width())))};
}

QSize WrapLayout::minimumSize() const {
  QSize size;
  for (const QLayoutItem* item : m_items)
    if (!item->isEmpty()) size = size.expandedTo(item->minimumSize());
  return size;
}

void WrapLayout::setGeometry(const QRect& rect) {
  QLayout::setGeometry(rect);
  arrange(rect, true);
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
