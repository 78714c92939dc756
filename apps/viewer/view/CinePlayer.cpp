#include "viewer/view/CinePlayer.h"

#include "Lib/SharedImageSet.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace Kelvaris::Viewer {

double cineRate(const SharedImageSet& images) {
  constexpr double fallback = 25.0;
  std::vector<double> distances; // ms
  for (int i = 1; i < images.size(); ++i)
    distances.push_back(images.timestamp(i) - images.timestamp(i - 1));
  if (distances.empty()) return fallback;
  const auto middle = distances.begin() + static_cast<std::ptrdiff_t>(distances.size() / 2);
  std::nth_element(distances.begin(), middle, distances.end());
  const double rate = 1000.0 / *middle;
  return rate >= 1.0 && rate <= 100.0 ? rate : fallback;
}

CinePlayer::CinePlayer(QObject* parent) : QObject(parent) {
  m_timer.setTimerType(Qt::PreciseTimer);
  connect(&m_timer, &QTimer::timeout, this, &CinePlayer::tick);
}

void CinePlayer::setRate(double rate) {
  m_rate = rate;
  if (isPlaying()) restart();
}

void CinePlayer::setPlaying(bool playing) {
  if (playing)
    restart();
  else
    m_timer.stop();
}

void CinePlayer::restart() {
  m_advanced = 0;
  m_clock.start();
  m_timer.start(std::max(1, static_cast<int>(250.0 / m_rate))); // four looks at the clock for an image
}

void CinePlayer::tick() {
  const auto due = static_cast<qint64>(std::floor(1e-9 * static_cast<double>(m_clock.nsecsElapsed()) * m_rate));
  if (due <= m_advanced) return;
  const auto images = static_cast<int>(due - m_advanced);
  m_advanced = due;
  Q_EMIT advance(images);
}

} // namespace Kelvaris::Viewer
