#pragma once

#include <QElapsedTimer>
#include <QFrame>

class QLabel;

namespace Kelvaris::Viewer {

/// A strip that says what went wrong with something that the user asked for, until it is closed (Escape) or replaced.
/// Takes no input away from anything else.
class MessageBar : public QFrame {
  Q_OBJECT

public:
  explicit MessageBar(QWidget* parent = nullptr);

  QString text() const;

public Q_SLOTS:
  /// What comes right behind another goes below it: the first often is why there are others.
  void showError(const QString& text);

protected:
  void changeEvent(QEvent* event) override;

private:
  void takeColors();

  QLabel* m_text;
  QElapsedTimer m_sinceLast;
};

} // namespace Kelvaris::Viewer
