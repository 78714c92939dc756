#include "viewer/OnDisplay.h"

#include <QAction>
#include <QGuiApplication>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <QPixmap>
#include <QScreen>
#include <QtTest>

#include <gtest/gtest.h>

namespace Kelvaris::Tests {

void chooseFromMenu(QMainWindow& window, const QStringList& path) {
  QMenu* menu = nullptr;
  for (const QString& text : path) {
    QAction* wanted = nullptr;
    for (QAction* action : menu ? menu->actions() : window.menuBar()->actions())
      if (action->text().remove('&') == text) wanted = action;
    ASSERT_TRUE(wanted) << "no entry " << text.toStdString();
    ASSERT_TRUE(wanted->isEnabled()) << text.toStdString() << ": " << wanted->statusTip().toStdString();
    if (!menu) {
      QTest::mouseClick(window.menuBar(), Qt::LeftButton, {}, window.menuBar()->actionGeometry(wanted).center());
    } else {
      for (int i = 0; i <= menu->actions().size() && menu->activeAction() != wanted; ++i)
        QTest::keyClick(menu, Qt::Key_Down);
      ASSERT_EQ(menu->activeAction(), wanted) << text.toStdString();
      QTest::keyClick(menu, wanted->menu() ? Qt::Key_Right : Qt::Key_Return);
    }
    menu = wanted->menu();
    ASSERT_TRUE(!menu || QTest::qWaitForWindowExposed(menu)) << text.toStdString();
  }
}

QImage screenshot() {
  return QGuiApplication::primaryScreen()->grabWindow(0).toImage().convertToFormat(QImage::Format_RGB32);
}

std::optional<QPoint> findPicture(const QImage& whole, const QImage& part) {
  // Compared from the brightest pixel on, which is rare.
  struct Pixel {
    int x, y;
    QRgb color;
  };
  std::vector<Pixel> pixels;
  const QImage colors = part.convertToFormat(QImage::Format_ARGB32);
  for (int y = 0; y < colors.height(); ++y)
    for (int x = 0; x < colors.width(); ++x)
      if (const QRgb color = colors.pixel(x, y); qAlpha(color) == 255) pixels.push_back({x, y, color});
  if (pixels.empty()) return std::nullopt;
  std::stable_sort(pixels.begin(), pixels.end(),
                   [](const Pixel& a, const Pixel& b) { return qGray(a.color) > qGray(b.color); });
  for (int top = 0; top + part.height() <= whole.height(); ++top)
    for (int left = 0; left + part.width() <= whole.width(); ++left)
      if (std::all_of(pixels.begin(), pixels.end(),
                      [&](const Pixel& p) { return whole.pixel(left + p.x, top + p.y) == p.color; }))
        return QPoint(left, top);
  return std::nullopt;
}

bool waitUntil(const std::function<bool()>& condition) {
  return QTest::qWaitFor(condition, 90'000);
}

} // namespace Kelvaris::Tests
