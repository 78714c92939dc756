#include "gui/Editing.h"

#include <QAbstractButton>
#include <QButtonGroup>
#include <QComboBox>
#include <QFormLayout>
#include <QPalette>
#include <QWidget>

#include <algorithm>

namespace Kelvaris::US {

void arrange(QWidget& form) {
  QList<QWidget*> labels;
  for (const QFormLayout* layout : form.findChildren<QFormLayout*>())
    for (int row = 0; row < layout->rowCount(); ++row)
      if (QLayoutItem* label = layout->itemAt(row, QFormLayout::LabelRole); label && label->widget())
        labels.append(label->widget());
  int width = 0;
  for (const QWidget* label : labels)
    width = std::max(width, label->sizeHint().width());
  for (QWidget* label : labels)
    label->setMinimumWidth(width);
  for (QAbstractSpinBox* box : form.findChildren<QAbstractSpinBox*>())
    QtHelpers::ignoreWheelWithoutFocus(*box);
  for (QDoubleSpinBox* box : form.findChildren<QDoubleSpinBox*>())
    QtHelpers::takeCommaAsPoint(*box);
  for (QComboBox* box : form.findChildren<QComboBox*>())
    QtHelpers::ignoreWheelWithoutFocus(*box);
}

void highlightChecked(const QButtonGroup& group, const QWidget& form) {
  QPalette highlighted;
  for (const auto state : {QPalette::Active, QPalette::Inactive, QPalette::Disabled}) {
    highlighted.setBrush(state, QPalette::Button, form.palette().brush(state, QPalette::Highlight));
    highlighted.setBrush(state, QPalette::ButtonText, form.palette().brush(state, QPalette::HighlightedText));
  }
  for (QAbstractButton* button : group.buttons())
    button->setPalette(button->isChecked() ? highlighted : QPalette());
}

void setFirstInTabOrder(QWidget& form, QWidget& first) {
  form.setFocusPolicy(Qt::TabFocus); // setTabOrder() passes over widgets without a policy
  form.setFocusProxy(&first);
}

void detach(QWidget& form) {
  for (const QObject* child : form.findChildren<QObject*>())
    child->disconnect(&form);
}

} // namespace Kelvaris::US
