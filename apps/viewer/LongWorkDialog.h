#pragma once

#include "Core/LongWork.h"

#include <QDialog>
#include <QElapsedTimer>

class QLabel;
class QProgressBar;
class QPushButton;

namespace Kelvaris::Viewer {

/// Keeps the program alive while LongWork keeps the main thread: events are processed whenever the work reports.
/// Windows are drawn and timers go on. All that a user does waits half a second; if the work isn't over then, the
/// dialog opens, and until the end nothing else takes input, not even what was held down before.
///
/// Events come in the middle of the work, which may hold locks and leave things half done. Therefore:
/// - Input reaches no window but the dialog, and timers of widgets, by which a spin box goes on stepping, rest.
/// - Calls from other threads and timers that change data, steps or panels are put off (afterLongWork()).
/// - What shows a stream's settings, for which the stream's lock is needed, waits for the end (DataListPanel).
/// - The panel that makes a stream simulate puts off what it would set meanwhile. So there is no work within the work.
class LongWorkDialog : public QDialog, private LongWork::Handler {
  Q_OBJECT

public:
  /// For work on the thread of the application from now on, as long as this object is there.
  explicit LongWorkDialog(QWidget* parent);
  ~LongWorkDialog() override;

  void reject() override;

protected:
  bool eventFilter(QObject* object, QEvent* event) override;

private:
  bool report(const std::string& text, double fraction) override;
  void end() override;
  void appear();

  QLabel* m_text;
  QProgressBar* m_bar;
  QPushButton* m_cancel;
  QElapsedTimer m_since; ///< the work's first report
  bool m_canceled = false;
};

} // namespace Kelvaris::Viewer
