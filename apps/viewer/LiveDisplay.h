#pragma once

#include "viewer/LiveFeed.h"

#include <QObject>
#include <QTimer>

#include <memory>

namespace Kelvaris::Viewer {

class ImageView;

/// Shows the emissions of one stream in the view as they come, and tells their rate.
class LiveDisplay : public QObject {
  Q_OBJECT

public:
  /// The view must outlive this object.
  explicit LiveDisplay(ImageView& view, QObject* parent = nullptr);

  /// Instead of the one before. stop() must come before the stream ends.
  void show(ImageStream& stream);
  void stop();
  /// Emissions of the present stream that have been shown.
  long shown() const { return m_shown; }
  /// The picture stands still; what comes meanwhile is counted but not shown.
  void setPaused(bool paused);

Q_SIGNALS:
  /// The first emission of the present stream is in the view.
  void started();
  /// For the status bar: rate, and how many emissions weren't shown; empty when no stream is shown.
  void statusChanged(const QString& text);

private:
  void take(const std::shared_ptr<const SharedImageSet>& images);
  void tellStatus();

  ImageView& m_view;
  std::unique_ptr<LiveFeed> m_feed;
  QTimer m_statusTimer;
  bool m_paused = false;
  long m_shown = 0;
};

} // namespace Kelvaris::Viewer
