#pragma once

#include <QTimer>
#include <QWidget>

class QLabel;
class QProgressBar;
class QToolButton;

namespace Kelvaris::Viewer {

/// In the status bar: what runs, how far it is, and a button that cancels it. Short work doesn't show.
class BusyIndicator : public QWidget {
  Q_OBJECT

public:
  explicit BusyIndicator(QWidget* parent = nullptr);

  void setBusy(bool busy);
  /// `steps` 0: how far is not known.
  void showProgress(const QString& text, int step, int steps);

Q_SIGNALS:
  void cancelRequested();

private:
  QLabel* m_text;
  QProgressBar* m_bar;
  QToolButton* m_cancel;
  QTimer m_delay;
};

} // namespace Kelvaris::Viewer
