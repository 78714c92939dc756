#include "viewer/view/AxisScale.h"

#include <algorithm>
#include <cmath>

namespace Kelvaris::Viewer {

QString numberText(double value, double resolution) {
  const int decimals = resolution > 0.0 && std::isfinite(resolution)
                           ? std::clamp(static_cast<int>(std::ceil(-std::log10(resolution) - 1e-9)), 0, 9)
                           : 3;
  QString text = QString::number(value, 'f', decimals);
  // No "-0.00".
  if (text.startsWith(QLatin1Char('-')) && text.toDouble() == 0.0) text.remove(0, 1);
  return text;
}

QString AxisScale::text(double place) const {
  if (isIndex()) return QString::number(std::lround(at(std::floor(place) + 0.5)));
  return QStringLiteral("%1 %2").arg(numberText(at(place), 0.1 * std::abs(step)), unit);
}

std::vector<Tick> roundTicks(double from, double to, double closest) {
  std::vector<Tick> ticks;
  if (!(closest > 0.0 && std::isfinite(closest) && std::isfinite(from) && std::isfinite(to))) return ticks;
  if (from > to) std::swap(from, to);
  const double power = std::pow(10.0, std::floor(std::log10(closest)));
  double step = 10.0 * power;
  for (const double factor : {5.0, 2.0, 1.0})
    if (factor * power >= closest * (1.0 - 1e-9)) step = factor * power;
  for (double i = std::ceil(from / step - 1e-9); i * step <= to + 1e-9 * step && ticks.size() < 1000; ++i)
    ticks.push_back({i * step, numberText(i * step, step)});
  return ticks;
}

} // namespace Kelvaris::Viewer
