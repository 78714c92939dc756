#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

namespace Kelvaris {
class SharedImageSet;
}

namespace Kelvaris::Viewer {

/// Frames per second of a recording: from the median distance of its timestamps where that is a rate to look at (1 to
/// 100 per second), else 25.
double cineRate(const SharedImageSet& images);

/// Says when to go on to the next images. Where showing them takes longer than the rate allows, images are left out.
class CinePlayer : public QObject {
  Q_OBJECT

public:
  explicit CinePlayer(QObject* parent = nullptr);

  double rate() const { return m_rate; }
  /// Images per second, above 0.
  void setRate(double rate);
  bool isPlaying() const { return m_timer.isActive(); }
  void setPlaying(bool playing);

Q_SIGNALS:
  /// Go on by so many images.
  void advance(int images);

private:
  void tick();
  void restart();

  QTimer m_timer;
  QElapsedTimer m_clock;
  qint64 m_advanced = 0; ///< since the clock was started
  double m_rate = 25.0;
};

} // namespace Kelvaris::Viewer
