#pragma once

#include "Lib/SharedImageSet.h"
#include "support/Samples.h"
#include "viewer/view/ImageCanvas.h"
#include "viewer/view/ImageView.h"

#include <QApplication>
#include <QMouseEvent>
#include <QTest>
#include <QWheelEvent>

#include <memory>

namespace Kelvaris::Viewer {

inline std::shared_ptr<SharedImageSet> setOf(std::initializer_list<std::shared_ptr<MemImage>> images,
                                             double millisecondsApart = 0.0) {
  auto set = std::make_shared<SharedImageSet>();
  for (const auto& image : images)
    set->add(std::make_shared<SharedImage>(image), millisecondsApart * set->size());
  return set;
}

/// An ImageView on the screen, with what it says and how a user moves in it.
struct ShownView {
  explicit ShownView(std::shared_ptr<const SharedImageSet> images, const QSize& size = {700, 600}) {
    view.resize(size);
    view.show();
    static_cast<void>(QTest::qWaitForWindowExposed(&view));
    QObject::connect(&view, &ImageView::pointed, [this](const QString& text) { pointed = text.toStdString(); });
    view.showImages(std::move(images));
    QApplication::processEvents();
  }

  void mouse(QEvent::Type type, const QPointF& point, Qt::MouseButton button = Qt::NoButton,
             Qt::MouseButtons buttons = Qt::NoButton) {
    QMouseEvent event(type, point, button, buttons, Qt::NoModifier);
    QApplication::sendEvent(&canvas, &event);
  }
  void moveTo(const QPointF& point) { mouse(QEvent::MouseMove, point); }
  void drag(Qt::MouseButton button, const QPointF& from, const QPointF& to) {
    mouse(QEvent::MouseButtonPress, from, button, button);
    mouse(QEvent::MouseMove, to, Qt::NoButton, button);
    mouse(QEvent::MouseButtonRelease, to, button);
  }
  void wheel(const QPointF& point, int notches) {
    QWheelEvent event(point, canvas.mapToGlobal(point.toPoint()), {}, {0, 120 * notches}, Qt::NoButton, Qt::NoModifier,
                      Qt::NoScrollPhase, false);
    QApplication::sendEvent(&canvas, &event);
  }
  /// The only child of that type and accessible name, or text (without its mark of a letter).
  template <typename T> T& child(const QString& name) {
    for (T* found : view.findChildren<T*>())
      if (found->accessibleName() == name || found->property("text").toString().remove('&') == name) return *found;
    throw std::runtime_error("no " + name.toStdString());
  }

  ImageView view;
  ImageCanvas& canvas = view.canvas();
  std::string pointed;
};

} // namespace Kelvaris::Viewer
