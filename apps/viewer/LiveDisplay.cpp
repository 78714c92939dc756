#include "viewer/LiveDisplay.h"

#include "viewer/view/ImageCanvas.h"
#include "viewer/view/ImageView.h"

namespace Kelvaris::Viewer {

LiveDisplay::LiveDisplay(ImageView& view, QObject* parent) : QObject(parent), m_view(view) {
  m_statusTimer.setInterval(500);
  connect(&m_statusTimer, &QTimer::timeout, this, &LiveDisplay::tellStatus);
}

void LiveDisplay::show(ImageStream& stream) {
  stop();
  m_view.clear();
  m_view.canvas().setMessage(
      tr("No frame has come yet.\nIf the stream is stopped, Ctrl+T starts it; a step may wait for its settings."));
  m_feed = std::make_unique<LiveFeed>(stream);
  connect(m_feed.get(), &LiveFeed::arrived, this, &LiveDisplay::take);
  m_statusTimer.start();
  tellStatus();
}

void LiveDisplay::stop() {
  if (!m_feed) return;
  m_statusTimer.stop();
  m_feed.reset();
  m_shown = 0;
  Q_EMIT statusChanged({});
}

void LiveDisplay::setPaused(bool paused) {
  m_paused = paused;
  if (m_feed) tellStatus();
}

void LiveDisplay::take(const std::shared_ptr<const SharedImageSet>& images) {
  if (m_paused && m_shown > 0) return;
  const bool isFirst = m_shown++ == 0;
  m_view.updateImages(images);
  if (isFirst) Q_EMIT started();
}

void LiveDisplay::tellStatus() {
  QString text = tr("%1 frames/s, %2 not shown").arg(m_feed->frameRate(), 0, 'f', 1).arg(m_feed->dropped());
  if (m_paused) text = tr("Display paused, ") + text;
  Q_EMIT statusChanged(text);
}

} // namespace Kelvaris::Viewer
