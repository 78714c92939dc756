#include "viewer/Focus.h"

#include <QWidget>

namespace Kelvaris::Viewer {

bool focusFirst(QWidget& part) {
  QWidget* widget = &part;
  do {
    if ((widget == &part || part.isAncestorOf(widget)) && widget->isVisible() && widget->isEnabled() &&
        (widget->focusPolicy() & Qt::TabFocus)) {
      widget->setFocus(Qt::TabFocusReason);
      return true;
    }
    widget = widget->nextInFocusChain();
  } while (widget != &part);
  return false;
}

} // namespace Kelvaris::Viewer
