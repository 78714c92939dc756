#include "viewer/view/PixelText.h"

#include "Lib/Mask.h"
#include "Lib/MemImage.h"

#include <QStringList>

#include <cmath>
#include <limits>

namespace Kelvaris::Viewer {
namespace {

/// Integers whole, floats and doubles with the digits that tell them apart in a display.
QString number(double value, int pixelType) {
  const bool isFloating = pixelType == PixelFloat || pixelType == PixelHalf || pixelType == PixelDouble;
  return QString::number(value, 'g', isFloating ? 6 : std::numeric_limits<double>::digits10);
}

QString decibels(double amplitude) {
  return QStringLiteral("%1 dB").arg(20.0 * std::log10(amplitude), 0, 'f', 2);
}

} // namespace

QString pixelText(const MemImage& image, const Mask* mask, Contents contents, int x, int y, int slice) {
  const ImageDescriptor& d = image.descriptor();
  unsigned char valid = 1;
  if (mask) mask->evaluate(image, x, y, slice, 1, &valid);
  if (!valid) return QStringLiteral("masked");
  const bool isStored = d.shift() == 0.0 && d.scale() == 1.0;
  const auto stored = [&](int channel) { return image.valueAsDouble(x, y, slice, channel); };
  const auto real = [&](int channel) { return isStored ? stored(channel) : stored(channel) / d.scale() - d.shift(); };

  if (d.channels() == 1) {
    QString text = isStored ? number(real(0), d.pixelType()) : number(real(0), PixelFloat);
    if (contents == Contents::Decibels) text += QStringLiteral(" dB");
    if (!isStored) text += QStringLiteral(" (stored: %1)").arg(number(stored(0), d.pixelType()));
    return text;
  }
  QStringList names;
  if (contents == Contents::Color)
    names = QStringList{"red", "green", "blue", "alpha"};
  else if (d.channels() == 2)
    names = QStringList{"I", "Q"};
  QStringList parts;
  double power = 0.0;
  for (int channel = 0; channel < d.channels(); ++channel) {
    const QString value = number(real(channel), isStored ? d.pixelType() : static_cast<int>(PixelFloat));
    parts << (names.isEmpty() ? value : QStringLiteral("%1 %2").arg(names[channel], value));
    power += real(channel) * real(channel);
  }
  QString text = parts.join(QStringLiteral(", "));
  if (contents != Contents::Color)
    text += QStringLiteral(", magnitude %1 (%2)").arg(number(std::sqrt(power), PixelFloat), decibels(std::sqrt(power)));
  return text;
}

} // namespace Kelvaris::Viewer
