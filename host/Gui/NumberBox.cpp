#include "Gui/NumberBox.h"

#include <QAction>
#include <QLineEdit>
#include <QRegularExpression>
#include <QStyle>
#include <QStyleOptionSpinBox>

#include <algorithm>
#include <cmath>
#include <limits>

namespace Kelvaris {
namespace {

using Limits = std::numeric_limits<double>;
constexpr int kAllDecimals = Limits::max_exponent10 + Limits::digits10;

/// Of the plain notation that reads back exactly.
int decimalsOf(double value) {
  const QString text = QLocale::c().toString(value, 'f', QLocale::FloatingPointShortest);
  const auto point = text.indexOf('.');
  return point < 0 ? 0 : static_cast<int>(text.size() - point) - 1;
}

} // namespace

NumberBox::NumberBox(QWidget* parent) : QDoubleSpinBox(parent), m_least(Limits::lowest()), m_most(Limits::max()) {
  // The base class rounds to its decimals and clips to its range: it gets both so wide that neither happens.
  QDoubleSpinBox::setDecimals(kAllDecimals);
  setRange(-Limits::infinity(), Limits::infinity());
  setValue(0.0);
}

void NumberBox::setStepRange(double least, double most) {
  m_least = least;
  m_most = most;
}

void NumberBox::setShownDecimals(int decimals) {
  m_shownDecimals = decimals;
}

void NumberBox::setFixedStep(double step) {
  m_step = step;
  m_shownDecimals = std::max(m_shownDecimals, decimalsOf(step));
}

void NumberBox::setEmptyText(const QString& text) {
  m_emptyText = text;
  m_clearAction = lineEdit()->addAction(style()->standardIcon(QStyle::SP_LineEditClearButton, nullptr, this),
                                        QLineEdit::TrailingPosition);
  m_clearAction->setToolTip(text);
  connect(m_clearAction, &QAction::triggered, this, [this] { setNumber(std::nullopt); });
  connect(this, QOverload<double>::of(&NumberBox::valueChanged), this, &NumberBox::updateClearAction);
  updateClearAction();
}

void NumberBox::updateClearAction() {
  if (m_clearAction) m_clearAction->setVisible(number().has_value());
}

std::optional<double> NumberBox::number() const {
  if (!isSpecial()) return value();
  if (specialValueText() == m_emptyText) return std::nullopt;
  return specialValueText() == "nan" ? Limits::quiet_NaN() : value();
}

void NumberBox::setNumber(std::optional<double> number) {
  const bool special = !number || std::isnan(*number) || *number == minimum();
  const QString text = special && number ? QString(std::isnan(*number) ? "nan" : "-inf") : m_emptyText;
  const bool onlyTextChanges = special && isSpecial() && text != specialValueText();
  setSpecialValueText(text);
  setValue(special ? minimum() : *number);
  updateClearAction(); // also while signals are blocked
  if (onlyTextChanges) Q_EMIT valueChanged(value());
}

QString NumberBox::textFromValue(double value) const {
  if (!std::isfinite(value)) return value > 0.0 ? "inf" : "-inf";
  QLocale format = locale();
  format.setNumberOptions(QLocale::OmitGroupSeparator);
  const double size = std::abs(value);
  if (size >= 1e15 || (size < 1e-4 && size > 0.0)) return format.toString(value, 'g', QLocale::FloatingPointShortest);
  return format.toString(value, 'f', std::max(decimalsOf(value), m_shownDecimals));
}

QString NumberBox::withoutUnit(const QString& text) const {
  QString number = text.trimmed();
  const QString unit = suffix().trimmed();
  if (!unit.isEmpty() && number.endsWith(unit)) number.chop(static_cast<int>(unit.size()));
  return number.trimmed();
}

double NumberBox::valueFromText(const QString& text) const {
  const QString number = withoutUnit(text);
  return number.isEmpty() || number == specialValueText() ? minimum() : locale().toDouble(number);
}

QValidator::State NumberBox::validate(QString& input, int& position) const {
  // What is typed into the text that stands for no number replaces it.
  const QString special = specialValueText();
  if (const int typed = static_cast<int>(input.size() - special.size());
      isSpecial() && typed > 0 && position >= typed && QString(input).remove(position - typed, typed) == special) {
    input = input.mid(position - typed, typed);
    position = typed;
  }
  if (withoutUnit(input) == special && !special.isEmpty()) return QValidator::Acceptable;
  for (const QChar point : {QChar('.'), QChar(',')})
    input.replace(point, locale().decimalPoint());
  const QString number = withoutUnit(input);
  if (number.isEmpty()) return m_emptyText.isEmpty() ? QValidator::Intermediate : QValidator::Acceptable;
  static const QRegularExpression beginning("^[+-]?\\d*[.,]?\\d*([eE][+-]?\\d*)?$");
  if (!beginning.match(number).hasMatch() && number != textFromValue(value())) return QValidator::Invalid;
  bool complete = false;
  locale().toDouble(number, &complete);
  return complete ? QValidator::Acceptable : QValidator::Intermediate;
}

void NumberBox::stepBy(int steps) {
  interpretText();
  double from = value();
  if (!std::isfinite(from)) {
    from = std::clamp(0.0, m_least, m_most);
    steps = 0;
  }
  double step = m_step;
  if (step == 0.0) {
    // Towards zero from a power of ten, the steps are those below it.
    const double size = std::abs(from) * ((steps > 0) == (from > 0.0) ? 1.0 : 1.0 - 1e-9);
    const int decimals = std::max(m_shownDecimals, 1);
    step = size > 0.0 ? std::pow(10.0, std::max(std::floor(std::log10(size)) - 1.0, -1.0 * decimals)) : 1.0;
  }
  const double to = std::clamp(from + steps * step, std::min(m_least, from), std::max(m_most, from));
  // Sums of decimal fractions come out a little beside a number of as many decimals.
  const int decimals = std::max(decimalsOf(from), decimalsOf(step));
  setNumber(decimals > 15 ? to : QString::number(to, 'f', decimals).toDouble());
  selectAll();
}

QAbstractSpinBox::StepEnabled NumberBox::stepEnabled() const {
  if (isReadOnly()) return StepNone;
  if (isSpecial()) return StepUpEnabled;
  return (value() < m_most ? StepUpEnabled : StepNone) | (value() > m_least ? StepDownEnabled : StepNone);
}

QSize NumberBox::sizeHint() const {
  ensurePolished();
  QStyleOptionSpinBox option;
  initStyleOption(&option);
  int width = std::max(fontMetrics().horizontalAdvance(QString(10, '0') + suffix()),
                       fontMetrics().horizontalAdvance(m_emptyText + "000"));
  if (m_clearAction) width += style()->pixelMetric(QStyle::PM_SmallIconSize, nullptr, this) + 12; // with its margins
  return style()->sizeFromContents(QStyle::CT_SpinBox, &option, {width, lineEdit()->sizeHint().height()}, this);
}

} // namespace Kelvaris
