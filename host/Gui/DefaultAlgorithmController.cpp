#include "Gui/DefaultAlgorithmController.h"

#include "Core/Log.h"
#include "Core/Parameter.h"
#include "Core/ParameterDescription.h"
#include "Gui/DefaultControllerDecorator.h"
#include "Gui/MainWindow.h"
#include "Gui/QtHelpers.h"
#include "Lib/Algorithm.h"

#include <QCheckBox>
#include <QFormLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QUndoCommand>
#include <QUndoStack>
#include <QVBoxLayout>

#include <algorithm>
#include <memory>
#include <utility>

namespace Kelvaris {
namespace {

/// The letters of a window's menus, and of the buttons below the form.
const char* const kTakenLetters = "fevalhcry";

QString textOf(const std::string& text) {
  return QString::fromStdString(text);
}

QString labelOf(const ParameterBase& parameter) {
  return textOf(ParameterDescription::label(parameter));
}

/// As a word among others: "dynamic range", "F number".
QString labelInText(const ParameterBase& parameter) {
  QString label = labelOf(parameter);
  if (label.size() > 1 && label[1].isLower()) label[0] = label[0].toLower();
  return label;
}

QString toolTipOf(const ParameterBase& parameter) {
  QString expected = textOf(ParameterDescription::expected(parameter));
  const QString unit = textOf(parameter.attribute("suffix"));
  if (!unit.isEmpty()) expected += QObject::tr(", in %1").arg(unit);
  const QString standard =
      textOf(ParameterDescription::shown(parameter, parameter.defaultText(), QObject::tr("none").toStdString()));
  return QObject::tr("<p style='white-space:pre'><b>%1</b> (%2)</p><p>Takes %3.<br>Default: %4</p>")
      .arg(labelOf(parameter).toHtmlEscaped(), textOf(parameter.name()).toHtmlEscaped(), expected.toHtmlEscaped(),
           standard.toHtmlEscaped());
}

} // namespace

/// Values of some parameters before and after. Follows a form no further than it lives.
class DefaultAlgorithmController::Change : public QUndoCommand {
public:
  Change(DefaultAlgorithmController& form, Properties before, Properties after)
      : m_form(&form), m_before(std::move(before)), m_after(std::move(after)) {
    const auto& changed = m_after.params();
    setText(changed.size() == 1 ? DefaultAlgorithmController::tr("Change %1")
                                      .arg(labelInText(*form.algorithm().parameter(changed.front().first.c_str())))
                                : DefaultAlgorithmController::tr("Change %1 settings").arg(changed.size()));
  }

  void undo() override { set(m_before); }
  void redo() override {
    set(m_after);
    if (m_form && current() == m_before) setObsolete(true); // the algorithm kept what it had
  }
  int id() const override { return 1; }
  /// Changes of one editor that follow one another are one, where each went to the algorithm at once.
  bool mergeWith(const QUndoCommand* other) override {
    const auto* const next = dynamic_cast<const Change*>(other);
    if (!next || !m_form || next->m_form != m_form || !m_form->configureOnChanged()) return false;
    const auto& mine = m_after.params();
    const auto& others = next->m_after.params();
    if (mine.size() != 1 || others.size() != 1 || mine[0].first != others[0].first) return false;
    m_after = next->m_after;
    setObsolete(current() == m_before);
    return true;
  }

private:
  void set(const Properties& values) {
    if (m_form)
      m_form->configureAlgorithm(values);
    else
      setObsolete(true);
  }
  Properties current() const {
    Properties values;
    for (const auto& [key, text] : m_before.params())
      values.setParam(key, m_form->algorithm().parameter(key.c_str())->text());
    return values;
  }

  QPointer<DefaultAlgorithmController> m_form;
  Properties m_before, m_after;
};

DefaultAlgorithmController::DefaultAlgorithmController(Algorithm* algorithm, std::string title, bool closeWhenDone,
                                                       bool computeAtOnce)
    : QWidget(QtHelpers::noParent()),
      AlgorithmController(algorithm),
      m_title(std::move(title)),
      m_closeWhenDone(closeWhenDone),
      m_computeAtOnce(computeAtOnce) {
  setWindowTitle(textOf(this->title()));
  // Before the rows read the values, so that no change goes unseen.
  for (ParameterBase* parameter : algorithm->parameters())
    m_connections.push_back(parameter->changed.connectBlocking([this] { // on any thread
      if (m_followPosted.exchange(true)) return;
      QMetaObject::invokeMethod(
          this,
          [this] {
            m_followPosted = false;
            follow();
          },
          Qt::QueuedConnection);
    }));

  auto& layout = QtHelpers::make<QVBoxLayout>(this);
  layout.setContentsMargins(0, 0, 0, 0);
  addRows();
  m_buttons = &QtHelpers::make<QWidget>(this);
  layout.addWidget(m_buttons);
  auto& buttons = QtHelpers::make<QHBoxLayout>(m_buttons);
  buttons.setContentsMargins(0, 0, 0, 0);
  buttons.addStretch(1);
  m_resetButton = &QtHelpers::make<QPushButton>(m_buttons, tr("&Reset"));
  m_resetButton->setObjectName("resetButton");
  m_resetButton->setToolTip(tr("Show the values that the algorithm has"));
  buttons.addWidget(m_resetButton);
  m_applyButton = &QtHelpers::make<QPushButton>(m_buttons, tr("Appl&y"));
  m_applyButton->setObjectName("applyButton");
  m_applyButton->setToolTip(tr("Hand the changed values to the algorithm"));
  buttons.addWidget(m_applyButton);
  connect(m_applyButton, &QPushButton::clicked, this, &DefaultAlgorithmController::apply);
  connect(m_resetButton, &QPushButton::clicked, this, &DefaultAlgorithmController::refresh);
  updateButtons();
}

DefaultAlgorithmController::~DefaultAlgorithmController() {
  // An editor that loses the focus on its way out has nobody to tell.
  for (QWidget* widget : findChildren<QWidget*>())
    widget->blockSignals(true);
}

void DefaultAlgorithmController::addRows() {
  auto& rows = QtHelpers::make<QWidget>(this);
  layout()->addWidget(&rows);
  auto& form = QtHelpers::make<QFormLayout>(&rows);
  form.setContentsMargins(0, 0, 0, 0);
  form.setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
  form.setRowWrapPolicy(QFormLayout::WrapLongRows); // in a narrow panel fields go below their labels
  QString takenLetters = kTakenLetters;
  for (const ParameterBase* parameter : algorithm().parameters()) {
    const ParameterEditor editor = makeParameterEditor(
        *parameter, &rows, [this, parameter](const std::string& edited) { onEdited(*parameter, edited); });
    editor.widget->setToolTip(toolTipOf(*parameter));
    editor.widget->setEnabled(parameter->isEnabled());
    const QString label = QtHelpers::withMnemonic(labelOf(*parameter), takenLetters);
    if (auto* const box = qobject_cast<QCheckBox*>(editor.widget)) {
      box->setText(label);
      form.addRow(box);
    } else {
      form.addRow(label, editor.widget); // makes the editor the label's buddy
      form.labelForField(editor.widget)->setToolTip(editor.widget->toolTip());
    }
    m_rows.push_back({parameter, editor, {}});
    showValue(m_rows.back());
  }
  if (m_rows.empty()) form.addRow(&QtHelpers::make<QLabel>(&rows, tr("There is nothing to set.")));
}

std::string DefaultAlgorithmController::title() const {
  return m_title.empty() ? algorithm().factoryInfo().displayName : m_title;
}

void DefaultAlgorithmController::setConfigureOnChanged(bool configureOnChanged) {
  m_configureOnChanged = configureOnChanged;
  if (configureOnChanged) apply();
  updateButtons();
}

void DefaultAlgorithmController::onEdited(const ParameterBase& parameter, const std::string& text) {
  if (text == parameter.text())
    m_edits.removeParam(parameter.name());
  else
    m_edits.setParam(parameter.name(), text);
  if (m_configureOnChanged) applyEdits();
  updateButtons();
}

void DefaultAlgorithmController::apply() {
  for (const Row& row : m_rows)
    row.editor.finish();
  applyEdits();
}

void DefaultAlgorithmController::applyEdits() {
  if (m_edits.empty()) return;
  const Properties after = std::exchange(m_edits, {});
  Properties before;
  for (const auto& [key, text] : after.params())
    before.setParam(key, algorithm().parameter(key.c_str())->text());
  QUndoStack* const undoStack = mainWindow() ? mainWindow()->undoStack() : nullptr;
  if (undoStack)
    undoStack->push(std::make_unique<Change>(*this, before, after).release());
  else
    configureAlgorithm(after);
  updateButtons();
}

void DefaultAlgorithmController::configureAlgorithm(const Properties& values) {
  try {
    algorithm().configure(&values);
  } catch (const std::exception& error) {
    Log::error("DefaultAlgorithmController", "{} can't be set as asked: {}", title(), error.what());
  }
  // The algorithm may have made something else of a value.
  for (Row& row : m_rows)
    if (values.hasParam(row.parameter->name())) showValue(row);
  follow();
}

void DefaultAlgorithmController::refresh() {
  m_edits.clear();
  for (Row& row : m_rows)
    showValue(row);
  follow();
  updateButtons();
}

void DefaultAlgorithmController::showValue(Row& row) {
  if (m_edits.hasParam(row.parameter->name())) return;
  row.shown = row.parameter->text();
  row.editor.show(row.shown);
}

void DefaultAlgorithmController::follow() {
  for (Row& row : m_rows) {
    if (row.parameter->text() != row.shown) showValue(row);
    row.editor.widget->setEnabled(row.parameter->isEnabled());
  }
}

void DefaultAlgorithmController::updateButtons() {
  m_buttons->setVisible(!m_configureOnChanged && !m_rows.empty());
  m_applyButton->setEnabled(!m_edits.empty());
  m_resetButton->setEnabled(!m_edits.empty());
}

void DefaultAlgorithmController::init() {
  if (defaultDecorator())
    connect(defaultDecorator(), &DefaultControllerDecorator::aboutToCompute, this, &DefaultAlgorithmController::apply,
            Qt::UniqueConnection);
}

} // namespace Kelvaris
