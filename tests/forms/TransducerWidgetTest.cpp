#include "FormTools.h"

#include "gui/TransducerWidget.h"

#include <gtest/gtest.h>

namespace Kelvaris::Tests {
namespace {

using US::Transducer;
using US::TransducerWidget;

struct Edit {
  const char* box;
  const char* typed;
  const char* key;
  double value;
};

TEST(TransducerWidgetTest, EveryBoxReachesTheTransducer) {
  TransducerWidget form;
  form.show();
  EXPECT_EQ(form.transducer(), Transducer::createLinear(64, 0.15));
  Signals<Transducer> changed(form, &TransducerWidget::transducerChanged);
  click(form, "convexButton");
  EXPECT_EQ(changed.count, 1);
  EXPECT_EQ(changed.last, Transducer::createConvex(64, 0.15, 50.0));
  for (const Edit& edit : {Edit{"pitchDoubleSpinBox", "0.308", "pitch", 0.308},
                           Edit{"numberElementsSpinBox", "128", "numberElements", 128},
                           Edit{"radiusDoubleSpinBox", "60.5", "radiusCurvature", 60.5}}) {
    enter(form, edit.box, edit.typed);
    EXPECT_EQ(number(changed.last, edit.key), edit.value) << edit.key;
  }
  EXPECT_EQ(form.transducer(), Transducer::createConvex(128, 0.308, 60.5));
  click(form, "linearButton");
  EXPECT_EQ(changed.last, Transducer::createLinear(128, 0.308));
  EXPECT_FALSE(child(form, "radiusDoubleSpinBox").isEnabled());
}

TEST(TransducerWidgetTest, WhatMakesNoTransducerIsntSignalledAndGoesWhenTheBoxIsLeft) {
  for (const Edit& edit :
       {Edit{"numberElementsSpinBox", "1", "numberElements", 64}, Edit{"pitchDoubleSpinBox", "0", "pitch", 0.15}}) {
    TransducerWidget form;
    Signals<Transducer> changed(form, &TransducerWidget::transducerChanged);
    enter(form, edit.box, edit.typed);
    EXPECT_EQ(changed.count, 0) << edit.box;
    EXPECT_EQ(number(form.transducer(), edit.key), edit.value);
    EXPECT_EQ(shown(form, "numberElementsSpinBox"), "64");
    EXPECT_EQ(shown(form, "pitchDoubleSpinBox"), "0.150mm");
    click(form, "convexButton");
    EXPECT_EQ(changed.last, Transducer::createConvex(64, 0.15, 50.0));
  }
}

TEST(TransducerWidgetTest, AnEmptyTransducerIsFilledOneBoxAfterTheOther) {
  TransducerWidget form;
  form.setTransducer(Transducer());
  enter(form, "numberElementsSpinBox", "32");
  enter(form, "pitchDoubleSpinBox", "0.3");
  EXPECT_EQ(form.transducer(), Transducer::createLinear(32, 0.3));
}

TEST(TransducerWidgetTest, ShowsATransducerWithoutASignalAndKeepsWhatTheBoxesCantShow) {
  TransducerWidget form;
  Signals<Transducer> changed(form, &TransducerWidget::transducerChanged);
  form.setTransducer(Transducer::createConvex(512, 0.12345, 200.0));
  EXPECT_EQ(changed.count, 0);
  EXPECT_EQ(form.transducer(), Transducer::createConvex(512, 0.12345, 200.0));
  EXPECT_TRUE(child<QPushButton>(form, "convexButton").isChecked());
  EXPECT_TRUE(child(form, "radiusDoubleSpinBox").isEnabled());
  EXPECT_EQ(shown(form, "pitchDoubleSpinBox"), "0.123mm");
  EXPECT_EQ(shown(form, "numberElementsSpinBox"), "320");
  EXPECT_EQ(shown(form, "radiusDoubleSpinBox"), "150.00mm");
  enter(form, "pitchDoubleSpinBox", "0.2");
  EXPECT_EQ(form.transducer(), Transducer::createConvex(512, 0.2, 200.0));
}

} // namespace
} // namespace Kelvaris::Tests
