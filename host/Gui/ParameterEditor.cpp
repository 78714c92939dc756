#include "Gui/ParameterEditor.h"

#include "Core/Parameter.h"
#include "Core/ParameterDescription.h"
#include "Gui/NumberBox.h"
#include "Gui/QtHelpers.h"

#include <QCheckBox>
#include <QComboBox>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QSpinBox>

#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <optional>
#include <utility>

namespace Kelvaris {
namespace {

using Edited = std::function<void(const std::string&)>;

template <typename T> T parsed(const std::string& text, T otherwise) {
  PropertyText::fromText(text, otherwise);
  return otherwise;
}

template <typename T> T attribute(const ParameterBase& parameter, const char* key, T otherwise) {
  return parsed(parameter.attribute(key), otherwise);
}

/// Degrees and per cent follow their number closely.
QString suffixOf(const ParameterBase& parameter) {
  const QString unit = QString::fromStdString(parameter.attribute("suffix"));
  const bool close = unit.isEmpty() || unit == "%" || unit == QString(QChar(0xb0));
  return close ? unit : " " + unit;
}

/// A widget of the parent's; what all spin boxes have in common.
template <typename Box> Box& makeSpinBox(const ParameterBase& parameter, QWidget* parent) {
  Box& box = QtHelpers::make<Box>(parent);
  box.setKeyboardTracking(false);
  box.setAccelerated(true);
  box.setSuffix(suffixOf(parameter));
  QtHelpers::ignoreWheelWithoutFocus(box);
  return box;
}

void showInteger(QSpinBox& box, const ParameterBase& parameter, int value) {
  const QSignalBlocker blocker(box);
  using Limits = std::numeric_limits<int>;
  box.setRange(std::min(attribute(parameter, "min", Limits::min()), value),
               std::max(attribute(parameter, "max", Limits::max()), value));
  box.setValue(value);
}

ParameterEditor makeBool(const ParameterBase&, QWidget* parent, const Edited& edited) {
  auto& box = QtHelpers::make<QCheckBox>(parent);
  QObject::connect(&box, &QCheckBox::toggled, [edited](bool on) { edited(PropertyText::toText(on)); });
  return {&box,
          [&box](const std::string& text) {
            QtHelpers::setSilent(box, &QCheckBox::setChecked, parsed(text, box.isChecked()));
          },
          [] {}};
}

ParameterEditor makeInteger(const ParameterBase& parameter, QWidget* parent, const Edited& edited) {
  auto& box = makeSpinBox<QSpinBox>(parameter, parent);
  box.setSingleStep(attribute(parameter, "step", 1));
  QObject::connect(&box, QOverload<int>::of(&QSpinBox::valueChanged),
                   [edited](int value) { edited(PropertyText::toText(value)); });
  return {&box, [&box, &parameter](const std::string& text) { showInteger(box, parameter, parsed(text, box.value())); },
          [&box] { box.interpretText(); }};
}

ParameterEditor makeDouble(const ParameterBase& parameter, QWidget* parent, const Edited& edited) {
  auto& box = makeSpinBox<NumberBox>(parameter, parent);
  using Limits = std::numeric_limits<double>;
  box.setStepRange(attribute(parameter, "min", Limits::lowest()), attribute(parameter, "max", Limits::max()));
  box.setShownDecimals(attribute(parameter, "decimals", 0));
  if (const double step = attribute(parameter, "step", 0.0); step > 0.0) box.setFixedStep(step);
  if (parameter.type() == ParameterType::OptionalDouble) box.setEmptyText(QObject::tr("automatic"));
  QObject::connect(&box, QOverload<double>::of(&NumberBox::valueChanged), [edited, &box](double) {
    const std::optional<double> number = box.number();
    edited(number ? PropertyText::toText(*number) : std::string());
  });
  return {&box,
          [&box](const std::string& text) {
            const double number = parsed(text, box.number().value_or(0.0));
            const bool empty = text.find_first_not_of(" \t\r\n") == std::string::npos;
            QtHelpers::setSilent(box, &NumberBox::setNumber, empty ? std::nullopt : std::optional(number));
          },
          [&box] { box.interpretText(); }};
}

ParameterEditor makeVector(const ParameterBase& parameter, QWidget* parent, const Edited& edited) {
  auto& widget = QtHelpers::make<QWidget>(parent);
  auto& layout = QtHelpers::make<QHBoxLayout>(&widget);
  layout.setContentsMargins(0, 0, 0, 0);
  std::array<QSpinBox*, 2> boxes{};
  for (QSpinBox*& box : boxes) {
    box = &makeSpinBox<QSpinBox>(parameter, &widget);
    box->setSingleStep(attribute(parameter, "step", 1));
    box->setObjectName(QString("editor_%1_%2").arg(QString::fromStdString(parameter.name())).arg(layout.count()));
    box->setAccessibleName(
        QString("%1, %2").arg(QString::fromStdString(ParameterDescription::label(parameter))).arg(layout.count() + 1));
    layout.addWidget(box, 1);
  }
  widget.setFocusProxy(boxes[0]);
  for (QSpinBox* box : boxes)
    QObject::connect(box, QOverload<int>::of(&QSpinBox::valueChanged), [edited, boxes](int) {
      edited(PropertyText::toText(Eigen::Vector2i(boxes[0]->value(), boxes[1]->value())));
    });
  return {&widget,
          [boxes, &parameter](const std::string& text) {
            const Eigen::Vector2i value = parsed(text, Eigen::Vector2i(boxes[0]->value(), boxes[1]->value()));
            for (int i : {0, 1})
              showInteger(*boxes[static_cast<std::size_t>(i)], parameter, value[i]);
          },
          [boxes] {
            for (QSpinBox* box : boxes)
              box->interpretText();
          }};
}

ParameterEditor makeEnum(const ParameterBase& parameter, QWidget* parent, const Edited& edited) {
  auto& box = QtHelpers::make<QComboBox>(parent);
  QtHelpers::ignoreWheelWithoutFocus(box);
  box.setSizeAdjustPolicy(QComboBox::AdjustToContents);
  box.setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  const std::vector<std::string> texts = ParameterDescription::displayTexts(parameter);
  for (int i = 0; i < static_cast<int>(texts.size()); ++i)
    box.addItem(QString::fromStdString(texts[static_cast<std::size_t>(i)]), i);
  QObject::connect(&box, QOverload<int>::of(&QComboBox::currentIndexChanged),
                   [edited, &box](int row) { edited(PropertyText::toText(box.itemData(row).toInt())); });
  return {&box,
          [&box](const std::string& text) {
            const QSignalBlocker blocker(box);
            const int value = parsed(text, box.currentData().toInt());
            if (box.findData(value) < 0) box.addItem(QString::number(value), value); // a value without a display text
            box.setCurrentIndex(box.findData(value));
          },
          [] {}};
}

ParameterEditor makeText(const ParameterBase&, QWidget* parent, const Edited& edited) {
  auto& line = QtHelpers::make<QLineEdit>(parent);
  const auto finish = [edited, &line] {
    if (!line.isModified()) return;
    line.setModified(false);
    edited(line.text().toStdString());
  };
  QObject::connect(&line, &QLineEdit::editingFinished, finish);
  return {&line,
          [&line](const std::string& text) {
            QtHelpers::setSilent(line, &QLineEdit::setText, QString::fromStdString(text));
          },
          finish};
}

using Maker = ParameterEditor (*)(const ParameterBase&, QWidget*, const Edited&);

Maker makerFor(ParameterType type) {
  switch (type) {
  case ParameterType::Bool:
    return makeBool;
  case ParameterType::Int:
    return makeInteger;
  case ParameterType::Double:
  case ParameterType::OptionalDouble:
    return makeDouble;
  case ParameterType::Vector2i:
    return makeVector;
  case ParameterType::Enum:
    return makeEnum;
  case ParameterType::Text:
    break;
  }
  return makeText;
}

} // namespace

ParameterEditor makeParameterEditor(const ParameterBase& parameter, QWidget* parent, Edited edited) {
  ParameterEditor editor = makerFor(parameter.type())(parameter, parent, edited);
  editor.widget->setObjectName("editor_" + QString::fromStdString(parameter.name()));
  return editor;
}

} // namespace Kelvaris
