#include "viewer/Appearance.h"

#include <QApplication>
#include <QPalette>
#include <QStyle>
#include <QStyleFactory>

namespace Kelvaris::Viewer {
namespace {

QPalette darkPalette() {
  QPalette colors;
  const QColor window(43, 43, 46), base(30, 30, 32), text(226, 226, 228), faint(128, 128, 132);
  colors.setColor(QPalette::Window, window);
  colors.setColor(QPalette::WindowText, text);
  colors.setColor(QPalette::Base, base);
  colors.setColor(QPalette::AlternateBase, QColor(37, 37, 40));
  colors.setColor(QPalette::Text, text);
  colors.setColor(QPalette::PlaceholderText, faint);
  colors.setColor(QPalette::Button, QColor(56, 56, 60));
  colors.setColor(QPalette::ButtonText, text);
  colors.setColor(QPalette::BrightText, Qt::white);
  colors.setColor(QPalette::ToolTipBase, QColor(64, 64, 68));
  colors.setColor(QPalette::ToolTipText, text);
  colors.setColor(QPalette::Link, QColor(110, 170, 255));
  colors.setColor(QPalette::Highlight, QColor(46, 102, 170));
  colors.setColor(QPalette::HighlightedText, Qt::white);
  colors.setColor(QPalette::Light, QColor(78, 78, 82));
  colors.setColor(QPalette::Midlight, QColor(66, 66, 70));
  colors.setColor(QPalette::Mid, QColor(36, 36, 38));
  colors.setColor(QPalette::Dark, QColor(24, 24, 26));
  colors.setColor(QPalette::Shadow, Qt::black);
  for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
    colors.setColor(QPalette::Disabled, role, faint);
  colors.setColor(QPalette::Disabled, QPalette::Highlight, QColor(70, 70, 74));
  return colors;
}

} // namespace

void setDark(QApplication& application, bool dark) {
  // Fusion alone draws everything in the colours that it is given.
  if (dark && application.style()->objectName() != QLatin1String("fusion"))
    QApplication::setStyle(QStyleFactory::create("Fusion"));
  QApplication::setPalette(dark ? darkPalette() : application.style()->standardPalette());
}

} // namespace Kelvaris::Viewer
