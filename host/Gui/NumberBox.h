#pragma once

#include <QDoubleSpinBox>

#include <optional>

namespace Kelvaris {

/// A spin box that shows any double (of those below 1e-308, zero) and gives it back unaltered: with as many digits as
/// the number needs, whatever its decimals, and also where it lies outside of the range. Any number can be typed, with
/// an exponent, and with a point as well as a comma: range, decimals and step say how far steps go and how plain
/// numbers look.
///
/// The box can be empty: value() is then minimum(), and a text stands in place of a number. valueChanged(double) tells
/// of changes to and from empty, too.
class NumberBox : public QDoubleSpinBox {
  Q_OBJECT

public:
  explicit NumberBox(QWidget* parent = nullptr);

  /// Steps don't lead out of it; not set: there are no bounds.
  void setStepRange(double least, double most);
  /// Numbers are shown with at least so many decimals.
  void setShownDecimals(int decimals);
  /// Not set: a tenth of the number's power of ten.
  void setFixedStep(double step);
  /// Lets a user empty the box, by deleting the text or with the mark at its end. `text` is shown then.
  void setEmptyText(const QString& text);

  /// Empty: no value. A NaN shows as "nan".
  std::optional<double> number() const;
  void setNumber(std::optional<double> number);

  QString textFromValue(double value) const override;
  double valueFromText(const QString& text) const override;
  QValidator::State validate(QString& input, int& position) const override;
  void stepBy(int steps) override;
  QSize sizeHint() const override;
  QSize minimumSizeHint() const override { return sizeHint(); }

protected:
  StepEnabled stepEnabled() const override;

private:
  bool isSpecial() const { return value() == minimum(); }
  void updateClearAction();
  QString withoutUnit(const QString& text) const;

  double m_least, m_most;
  int m_shownDecimals = 0;
  double m_step = 0.0; ///< 0: a tenth of the power of ten
  QString m_emptyText; ///< empty: there must be a number
  QAction* m_clearAction = nullptr;
};

} // namespace Kelvaris
