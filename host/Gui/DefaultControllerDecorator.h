#pragma once

#include <QPointer>
#include <QString>
#include <QWidget>

class QLabel;
class QProgressBar;
class QPushButton;

namespace Kelvaris {

/// The frame around a controller's panel: the buttons that run the algorithm, its progress, and how the last run ended.
/// The title, with changes of it, is for the window to show.
class DefaultControllerDecorator : public QWidget {
  Q_OBJECT

public:
  /// Shows `panel`, which isn't owned and is given back, without a parent, by the destructor. A panel that goes first
  /// is simply no longer there.
  DefaultControllerDecorator(QWidget* panel, const QString& title, QWidget* parent = nullptr);
  ~DefaultControllerDecorator() override;

  /// The override, or else the title given at first.
  QString title() const;
  /// Empty: no override.
  void setTitleOverride(const QString& title);
  /// Hides "Compute" and "Cancel" for good: for algorithms that others run.
  void hideAlgorithmButtons();

  /// While an algorithm runs: what it does and how far it is; `steps` 0 if that isn't known. "Cancel" is enabled.
  void showProgress(const QString& text, int step, int steps);
  void hideProgress();
  /// Says something below the panel, for example why the last run failed; until the next run, or the empty text.
  void showMessage(const QString& text);

Q_SIGNALS:
  /// "Compute" was pressed. Comes before computeRequested(): forms apply what the user changed.
  void aboutToCompute();
  void computeRequested();
  void cancelRequested();
  void titleChanged(const QString& title);

private:
  QPointer<QWidget> m_panel;
  QString m_title, m_titleOverride;
  QLabel* m_message;
  QWidget* m_progress;
  QLabel* m_progressText;
  QProgressBar* m_progressBar;
  QWidget* m_buttons;
  QPushButton *m_computeButton, *m_cancelButton;
};

} // namespace Kelvaris
