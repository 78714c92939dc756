#pragma once

#include "Core/Configurable.h"
#include "Core/Properties.h"
#include "model/FrameAcquisition.h"

#include <QAbstractSpinBox>
#include <QPushButton>
#include <QStringList>
#include <QTest>
#include <QWidget>

#include <gtest/gtest.h>

#include <ostream>
#include <stdexcept>
#include <string>

/// Forms as their users see them.
namespace Kelvaris::Tests {

/// The widget of that name; throws if there is none.
template <typename Widget = QWidget> Widget& child(const QWidget& form, const char* name) {
  auto* const found = form.findChild<Widget*>(name);
  if (!found) throw std::runtime_error(std::string("the form has no ") + name);
  return *found;
}

/// Replaces what the box shows, and leaves it.
inline void enter(QWidget& form, const char* box, const char* text) {
  auto& spinBox = child<QAbstractSpinBox>(form, box);
  spinBox.setFocus();
  spinBox.selectAll();
  QTest::keyClicks(&spinBox, text);
  QTest::keyClick(&spinBox, Qt::Key_Return);
}

inline void click(QWidget& form, const char* button) {
  QTest::mouseClick(&child<QPushButton>(form, button), Qt::LeftButton);
}

inline QString shown(const QWidget& form, const char* box) {
  return child<QAbstractSpinBox>(form, box).text();
}

inline double number(const Configurable& object, const char* key) {
  Properties properties;
  object.configuration(&properties);
  double value = 0.0;
  if (!properties.param(key, value)) throw std::runtime_error(std::string("no ") + key + " in the configuration");
  return value;
}

/// Focused beams of 8 elements, 30 mm deep.
inline US::FrameAcquisition focusedFrame(const US::Transducer& transducer, int beams = 3) {
  return {transducer, US::FrameParameters{0, 30.0, 3e6, 2.0, 1.54e6, 8, 8, 1e7, {20.0, 0.0, beams}, {}, {}}};
}

/// Counts a signal, and keeps what it brought last.
template <typename T> class Signals {
public:
  template <typename Form, typename Signal> Signals(Form& form, Signal signal) {
    QObject::connect(&form, signal, [this](const T& value) {
      ++count;
      last = value;
    });
  }
  int count = 0;
  T last;
};

/// Presses the Tab key from `first` on until the focus is back there, and expects it to go down the form on its way.
/// Returns the names of the widgets that had the focus.
inline QStringList walkDownByTab(QWidget& form, QWidget& first) {
  first.setFocus();
  QStringList visited;
  int last = 0;
  do {
    QWidget& at = *form.focusWidget();
    const int y = at.mapTo(&form, QPoint()).y();
    EXPECT_GE(y, last - 2) << at.objectName().toStdString() << " after " << visited.join(' ').toStdString();
    last = y;
    visited.append(at.objectName());
    QTest::keyClick(&at, Qt::Key_Tab);
  } while (form.focusWidget() != &first && visited.size() < 100);
  return visited;
}

/// So that gtest can say what differs.
inline void PrintTo(const QString& text, std::ostream* stream) {
  *stream << text.toStdString();
}

} // namespace Kelvaris::Tests
