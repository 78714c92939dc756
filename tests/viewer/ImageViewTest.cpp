#include "ImageViewTools.h"

#include "support/ErrorOf.h"
#include "viewer/view/CinePlayer.h"
#include "viewer/view/DisplayControls.h"

#include <QComboBox>
#include <QDoubleSpinBox>
#include <QMainWindow>
#include <QPushButton>
#include <QSlider>
#include <QSpinBox>
#include <QToolButton>

#include <gtest/gtest.h>

#include <cmath>

namespace Kelvaris::Viewer {
namespace {

constexpr int kPatience = 20000; // ms

/// Pixel (x, y) of slice z of image n has the value 10000 n + 1000 z + 30 y + x.
std::shared_ptr<MemImage> numbered(int n, int width = 30, int height = 20, int slices = 3, bool metric = true) {
  ImageDescriptor descriptor(PixelInt32, width, height, slices);
  descriptor.setSpacing({0.5, 0.5, 1.0});
  descriptor.setMetric(metric);
  return Tests::imageOf(descriptor, [=](int x, int y, int z, int) { return 10000 * n + 1000 * z + 30 * y + x; });
}

/// What the view should say of a place in the image of `numbered`, in pixels from its upper left corner.
std::string textAt(double x, double y, int image = 0, int slice = 0) {
  const int i = static_cast<int>(std::floor(x)), j = static_cast<int>(std::floor(y));
  return QString("%1 | pixel (%2, %3) | x %4 mm, y %5 mm")
      .arg(10000 * image + 1000 * slice + 30 * j + i)
      .arg(i)
      .arg(j)
      .arg(0.5 * (x - 15.0), 0, 'f', 2)
      .arg(0.5 * (y - 10.0), 0, 'f', 2)
      .toStdString();
}

/// Without the position, whose last digit hangs on how a scale was rounded.
std::string pixelPart(const std::string& text) {
  return text.substr(0, text.rfind('|'));
}

TEST(ImageView, TellsThePixelUnderTheMouseUnderZoomAndPan) {
  ShownView shown(setOf({numbered(0)}));
  const double width = shown.canvas.width(), height = shown.canvas.height();
  const double fitting = std::min(width / 30.0, height / 20.0); // screen pixels for a pixel
  const auto expectAround = [&](const QPointF& middle, double scale, const char* where) {
    for (const QPointF& pixel : {QPointF(15.3, 10.2), QPointF(14.5, 9.5), QPointF(16.22, 11.78)}) {
      shown.moveTo(QPointF(0.5 * width, 0.5 * height) + scale * (pixel - middle));
      EXPECT_EQ(shown.pointed, textAt(pixel.x(), pixel.y())) << where;
    }
  };
  expectAround({15.0, 10.0}, fitting, "fitted");
  QTest::keyClick(&shown.canvas, Qt::Key_Plus);
  QTest::keyClick(&shown.canvas, Qt::Key_Plus);
  const double zoomed = 1.25 * 1.25 * fitting;
  expectAround({15.0, 10.0}, zoomed, "zoomed");
  shown.drag(Qt::LeftButton, {300.0, 200.0}, {300.0 - zoomed, 200.0 - 0.5 * zoomed});
  expectAround({16.0, 10.5}, zoomed, "dragged");
  QTest::keyClick(&shown.canvas, Qt::Key_0);
  expectAround({15.0, 10.0}, fitting, "fitted again");

  shown.moveTo({0.5 * (width - 30.0 * fitting) + 0.5 * fitting, 0.5 * (height - 20.0 * fitting) + 0.5 * fitting});
  EXPECT_EQ(shown.pointed, textAt(0.5, 0.5));
  shown.view.updateImages(setOf({numbered(7)}));
  EXPECT_EQ(shown.pointed, textAt(0.5, 0.5, 7)); // new content under a mouse that rests
  QEvent leave(QEvent::Leave);
  QApplication::sendEvent(&shown.canvas, &leave);
  EXPECT_EQ(shown.pointed, "");
}

TEST(ImageView, IsLookedAtAsBefore) {
  const auto images = setOf({numbered(0), numbered(1), numbered(2)});
  const ViewState states[] = {{},
                              {2, 1, DisplayMapping{DisplayMapping::Law::Decibels, -12.5, 1.0 / 3.0}, "Hot", 0.0, {}},
                              {1, 0, DisplayMapping{DisplayMapping::Law::Linear, 0.1, 1e5}, "Gray", 60.0, {11.0, 7.5}}};
  for (const ViewState& state : states) {
    Properties properties;
    state.writeTo(properties);
    std::vector<std::string> problems;
    EXPECT_EQ(ViewState::from(properties, problems), state);
    EXPECT_TRUE(problems.empty());
    ShownView shown(images);
    const DisplayMapping first = shown.view.mapping();
    shown.view.setColorMap(1);
    shown.canvas.zoom(2.0);
    shown.view.setState(state);
    const ViewState back = shown.view.state();
    EXPECT_EQ(back.image, state.image);
    EXPECT_EQ(back.slice, state.slice);
    EXPECT_EQ(back.mapping, state.mapping.value_or(first));
    EXPECT_EQ(back.colorMap, state.colorMap);
    EXPECT_NEAR(back.magnification, state.magnification, 1e-9);
    EXPECT_NEAR(back.center.x(), state.center.x(), 1e-9);
    EXPECT_NEAR(back.center.y(), state.center.y(), 1e-9);
  }
  const struct {
    std::vector<Properties::Param> params;
    const char* problem;
  } cases[] = {{{{"image", "-1"}}, "has the image \"-1\", expected 0 or more"},
               {{{"slice", "x"}}, "has the slice \"x\""},
               {{{"colorMap", "Mauve"}}, "has the colorMap \"Mauve\", expected the name of a colour map"},
               {{{"magnification", "inf"}}, "has the magnification \"inf\""},
               {{{"center", "1 nan"}}, "has the center \"1 nan\", expected two numbers"},
               {{{"law", "cubic"}, {"low", "1"}, {"high", "2"}}, "expected linear or decibels"},
               {{{"low", "nan"}}, "has the low \"nan\""},
               {{{"low", "2"}, {"high", "2"}}, "shows values from 2 to 2"}};
  for (const auto& c : cases) {
    Properties properties;
    properties.setParams(c.params);
    std::vector<std::string> problems;
    EXPECT_EQ(ViewState::from(properties, problems), ViewState()) << c.problem;
    ASSERT_EQ(problems.size(), 1U) << c.problem;
    EXPECT_CONTAINS(problems[0], c.problem);
  }
}

TEST(ImageView, ANarrowMainWindowHasRoomForAllControls) {
  QMainWindow window;
  auto& view = *std::make_unique<ImageView>(&window).release();
  window.setCentralWidget(&view);
  view.showImages(setOf({numbered(0), numbered(1)}));
  window.show();
  for (const int width : {900, 450, 320, 700}) {
    window.resize(width, 200);
    for (int i = 0; i < 10; ++i)
      QApplication::processEvents();
    EXPECT_GE(view.canvas().height(), 100) << width;
    for (const auto* child : view.findChild<DisplayControls*>()->findChildren<QWidget*>())
      EXPECT_TRUE(!child->isVisible() || view.rect().contains(QRect(child->mapTo(&view, QPoint()), child->size())))
          << child->metaObject()->className() << " at a width of " << width;
  }
}

TEST(ImageView, TheWheelZoomsAboutTheMouse) {
  ShownView shown(setOf({numbered(0, 300, 200)}));
  const QPointF point(0.5 * shown.canvas.width() + 71.0, 0.5 * shown.canvas.height() - 43.0);
  QTest::keyClick(&shown.canvas, Qt::Key_Plus);
  QTest::keyClick(&shown.canvas, Qt::Key_Plus); // so that no edge is in the window
  shown.moveTo(point);
  const std::string before = pixelPart(shown.pointed);
  ASSERT_NE(before, "");
  for (int i = 0; i < 8; ++i) {
    const double magnification = shown.canvas.transform().magnification();
    shown.wheel(point, 1);
    EXPECT_EQ(pixelPart(shown.pointed), before) << i;
    EXPECT_GT(shown.canvas.transform().magnification(), magnification);
  }
  for (int i = 0; i < 30; ++i)
    shown.wheel(point, -1);
  EXPECT_EQ(shown.canvas.transform().content().center().toPoint(),
            QPointF(0.5 * shown.canvas.width(), 0.5 * shown.canvas.height()).toPoint());
}

TEST(ImageView, TheCrosshairGoesByKeys) {
  ShownView shown(setOf({numbered(0, 31, 21)}));
  const struct {
    Qt::Key key;
    Qt::KeyboardModifiers modifiers;
    double x, y;
  } table[] = {
      {Qt::Key_Right, Qt::ShiftModifier, 15.5, 10.5}, // the middle
      {Qt::Key_Right, Qt::ShiftModifier, 16.5, 10.5},
      {Qt::Key_Up, Qt::ShiftModifier, 16.5, 9.5},
      {Qt::Key_Left, Qt::ShiftModifier | Qt::ControlModifier, 6.5, 9.5},
      {Qt::Key_Down, Qt::ShiftModifier | Qt::ControlModifier, 6.5, 19.5},
      {Qt::Key_Down, Qt::ShiftModifier, 6.5, 20.5}, // the edge
  };
  for (const auto& c : table) {
    QTest::keyClick(&shown.canvas, c.key, c.modifiers);
    EXPECT_EQ(pixelPart(shown.pointed), pixelPart(textAt(c.x, c.y)));
  }
  QTest::keyClick(&shown.canvas, Qt::Key_PageDown);
  EXPECT_EQ(pixelPart(shown.pointed), pixelPart(textAt(6.5, 20.5, 0, 1)));
  QTest::keyClick(&shown.canvas, Qt::Key_Escape);
  EXPECT_EQ(shown.pointed, "");
}

TEST(ImageView, SlicesAndImagesGoByKeysSlidersAndBoxes) {
  const auto set = setOf({numbered(0), numbered(1), numbered(2), numbered(3, 30, 20, 2)});
  ShownView shown(set);
  const struct {
    Qt::Key key;
    bool control;
    int image, slice;
  } table[] = {
      {Qt::Key_PageDown, false, 0, 1}, {Qt::Key_End, false, 0, 2},    {Qt::Key_PageDown, false, 0, 2},
      {Qt::Key_PageDown, true, 1, 2},  {Qt::Key_PageUp, false, 1, 1}, {Qt::Key_End, true, 3, 1},
      {Qt::Key_Home, false, 3, 0},     {Qt::Key_PageUp, true, 2, 0},  {Qt::Key_Home, true, 0, 0},
      {Qt::Key_PageUp, true, 0, 0},    {Qt::Key_PageUp, false, 0, 0},
  };
  shown.moveTo({0.5 * shown.canvas.width() + 2.0, 0.5 * shown.canvas.height() + 2.0});
  for (const auto& c : table) {
    QTest::keyClick(&shown.canvas, c.key, c.control ? Qt::ControlModifier : Qt::NoModifier);
    EXPECT_EQ(shown.view.imageIndex(), c.image);
    EXPECT_EQ(shown.view.slice(), c.slice);
    EXPECT_EQ(pixelPart(shown.pointed), pixelPart(textAt(15.0, 10.0, c.image, c.slice)));
  }
  auto& imageBox = shown.child<QSpinBox>("Image");
  imageBox.setValue(2);
  EXPECT_EQ(shown.view.imageIndex(), 2);
  shown.child<QSlider>("Slice").setValue(1);
  EXPECT_EQ(shown.view.slice(), 1);
  EXPECT_EQ(shown.child<QSpinBox>("Slice").value(), 1);

  // The same item with fewer of both.
  shown.view.updateImages(setOf({numbered(0, 30, 20, 1), numbered(1, 30, 20, 1)}));
  EXPECT_EQ(shown.view.imageIndex(), 1);
  EXPECT_EQ(shown.view.slice(), 0);
  EXPECT_FALSE(shown.child<QSlider>("Slice").isVisible());
  EXPECT_TRUE(imageBox.isVisible());
  QTest::keyClick(&shown.canvas, Qt::Key_PageUp); // there is one slice: images
  EXPECT_EQ(shown.view.imageIndex(), 0);
  shown.view.updateImages(setOf({numbered(0, 30, 20, 1)}));
  EXPECT_FALSE(imageBox.isVisible());
}

TEST(ImageView, PlaysTheImagesOverAndOver) {
  ShownView shown(setOf({numbered(0), numbered(1), numbered(2)}, 20.0));
  std::vector<int> indices;
  QObject::connect(&shown.view, &ImageView::imageIndexChanged, [&](int index) { indices.push_back(index); });
  auto& rate = shown.child<QDoubleSpinBox>("Images per second");
  EXPECT_DOUBLE_EQ(rate.value(), 50.0);
  rate.setValue(100.0);
  QTest::keyClick(&shown.canvas, Qt::Key_Space);
  EXPECT_TRUE(shown.view.isPlaying());
  EXPECT_TRUE(QTest::qWaitFor([&] { return indices.size() > 6; }, kPatience));
  EXPECT_NE(std::find(indices.begin(), indices.end(), 0), indices.end()); // it began again
  QTest::keyClick(&shown.canvas, Qt::Key_Space);
  EXPECT_FALSE(shown.view.isPlaying());
  shown.child<QToolButton>("Play").click();
  EXPECT_TRUE(shown.view.isPlaying());
  shown.view.showImages(setOf({numbered(0)}));
  EXPECT_FALSE(shown.view.isPlaying());
  shown.view.setPlaying(true); // one image
  EXPECT_FALSE(shown.view.isPlaying());
}

TEST(CineRate, IsThatOfTheRecordingWhereItCanBeSeen) {
  for (const auto& [milliseconds, rate] : {std::pair(20.0, 50.0), std::pair(1000.0, 1.0), std::pair(0.1, 25.0),
                                           std::pair(0.0, 25.0), std::pair(-5.0, 25.0), std::pair(60000.0, 25.0)})
    EXPECT_DOUBLE_EQ(cineRate(*setOf({numbered(0), numbered(1), numbered(2)}, milliseconds)), rate) << milliseconds;
  EXPECT_DOUBLE_EQ(cineRate(SharedImageSet()), 25.0);
}

TEST(ImageView, NewContentKeepsWhatTheUserChose) {
  ShownView shown(setOf({numbered(0)}));
  shown.view.setSlice(2);
  QTest::keyClick(&shown.canvas, Qt::Key_Plus);
  const DisplayMapping chosen{DisplayMapping::Law::Decibels, 3.0, 33.0};
  shown.view.setMapping(chosen);
  const QRectF content = shown.canvas.transform().content();
  shown.view.updateImages(setOf({numbered(5)}));
  EXPECT_EQ(shown.view.slice(), 2);
  EXPECT_EQ(shown.view.mapping(), chosen);
  EXPECT_EQ(shown.canvas.transform().content(), content);
  shown.view.updateImages(setOf({numbered(5, 40, 20)})); // another size fits anew
  EXPECT_TRUE(shown.canvas.transform().isFitted());
  EXPECT_EQ(shown.view.mapping(), chosen);
  shown.view.showImages(setOf({numbered(5)}));
  EXPECT_EQ(shown.view.slice(), 0);
  EXPECT_NE(shown.view.mapping(), chosen);

  // A stream that begins with nothing gets its mapping with the first values.
  ImageDescriptor descriptor(PixelFloat, 8, 8);
  shown.view.showImages(setOf({Tests::imageOf(descriptor, [](int, int, int, int) { return 0.0; })}));
  shown.view.updateImages(setOf({Tests::imageOf(descriptor, [](int x, int, int, int) { return 100.0 * (x - 4); })}));
  EXPECT_EQ(shown.view.mapping().law, DisplayMapping::Law::Linear);
  EXPECT_DOUBLE_EQ(shown.view.mapping().center(), 0.0);
  EXPECT_DOUBLE_EQ(shown.view.mapping().width(), 800.0);
}

TEST(ImageView, TheWindowGoesByBoxesButtonsAndTheRightMouseButton) {
  ImageDescriptor descriptor(PixelInt16, 101, 1);
  ShownView shown(setOf({Tests::imageOf(descriptor, [](int x, int, int, int) { return x - 50; })}));
  const auto window = [&] { return std::pair(shown.view.mapping().center(), shown.view.mapping().width()); };
  EXPECT_EQ(window(), std::pair(0.0, 100.0));
  shown.child<QDoubleSpinBox>("Level, the middle of the window").setValue(20.0);
  EXPECT_EQ(window(), std::pair(20.0, 100.0));
  shown.child<QDoubleSpinBox>("Width of the window").setValue(40.0);
  EXPECT_EQ(window(), std::pair(20.0, 40.0));
  EXPECT_EQ(shown.view.picture().pixel(50, 0), qRgb(0, 0, 0));
  EXPECT_EQ(shown.view.picture().pixel(90, 0), qRgb(255, 255, 255));

  shown.drag(Qt::RightButton, {100.0, 100.0}, {150.0, 100.0});
  EXPECT_DOUBLE_EQ(window().first, 20.0);
  EXPECT_GT(window().second, 40.0);
  const QRgb before = shown.view.picture().pixel(70, 0);
  shown.drag(Qt::RightButton, {100.0, 100.0}, {100.0, 60.0});
  EXPECT_GT(qRed(shown.view.picture().pixel(70, 0)), qRed(before)); // up is brighter

  shown.child<QPushButton>("Full").click();
  EXPECT_EQ(window(), std::pair(-0.5, 65535.0));
  shown.child<QPushButton>("Auto").click();
  EXPECT_EQ(window(), std::pair(0.0, 100.0));

  auto& law = shown.child<QComboBox>("What is shown");
  law.setFocus();
  QTest::keyClick(&law, Qt::Key_Down);
  EXPECT_EQ(shown.view.mapping().law, DisplayMapping::Law::Decibels);
  EXPECT_NEAR(shown.view.mapping().high, 20.0 * std::log10(50.0), 1e-9);
  shown.child<QDoubleSpinBox>("Dynamic range in decibels").setValue(20.0);
  EXPECT_NEAR(shown.view.mapping().high, 20.0 * std::log10(50.0), 1e-9);
  EXPECT_NEAR(shown.view.mapping().width(), 20.0, 1e-9);
}

/// Pixels somewhere else; null: they can't be read from there.
class FarImage : public Image {
public:
  explicit FarImage(std::shared_ptr<MemImage> pixels)
      : Image(pixels ? pixels->descriptor() : ImageDescriptor(PixelFloat, 4, 4)), m_pixels(std::move(pixels)) {}
  ImageForm imageForm() const override { return ImageForm::Device; }
  std::unique_ptr<MemImage> download() const override {
    if (!m_pixels) throw std::runtime_error("the device is lost");
    return m_pixels->clone();
  }

private:
  std::shared_ptr<MemImage> m_pixels;
};

TEST(ImageView, ReadsBackWhatLiesOnADeviceAndLeavesItThere) {
  const auto set = std::make_shared<SharedImageSet>();
  set->add(std::make_shared<SharedImage>(std::make_shared<FarImage>(numbered(0))));
  ShownView shown(set);
  shown.view.setSlice(2);
  const QImage far = shown.view.picture();
  EXPECT_FALSE(far.isNull());
  EXPECT_FALSE(set->get(0).hasForm(ImageForm::Mem));
  const DisplayMapping mapping = shown.view.mapping();
  shown.view.showImages(setOf({numbered(0)}));
  shown.view.setSlice(2);
  EXPECT_EQ(shown.view.mapping(), mapping);
  EXPECT_EQ(shown.view.picture(), far);
}

TEST(ImageView, SaysWhyAnImageCannotBeShown) {
  ShownView shown(nullptr);
  EXPECT_TRUE(shown.view.picture().isNull());
  auto broken = std::make_shared<SharedImageSet>();
  broken->add(std::make_shared<SharedImage>(numbered(0)));
  broken->add(std::make_shared<SharedImage>(std::make_shared<FarImage>(nullptr)));
  broken->add(std::make_shared<SharedImage>(ImageDescriptor(PixelFloat, 4, 4)));
  broken->add(std::make_shared<SharedImage>(ImageDescriptor()));
  shown.view.showImages(broken);
  EXPECT_FALSE(shown.view.picture().isNull());
  for (const auto& [index, part] :
       {std::pair(1, "the device is lost"), std::pair(2, "Image 2"), std::pair(3, "no pixels")}) {
    shown.view.setImageIndex(index);
    EXPECT_TRUE(shown.view.picture().isNull()) << index;
    EXPECT_TRUE(shown.canvas.message().contains(part)) << shown.canvas.message().toStdString();
    shown.canvas.grab();
  }
  shown.view.setImageIndex(0);
  EXPECT_FALSE(shown.view.picture().isNull());
  shown.view.showImages(std::make_shared<SharedImageSet>());
  EXPECT_EQ(shown.canvas.message(), "There are no images");
  shown.view.clear();
  EXPECT_EQ(shown.canvas.message(), "");
}

TEST(ImageView, ControlsWrapInANarrowView) {
  for (const int width : {360, 520, 1300}) {
    ShownView shown(setOf({numbered(0)}), {width, 700});
    EXPECT_EQ(shown.view.width(), width);
    std::vector<QRect> taken;
    for (const char* name : {"Colour map", "What is shown", "Auto", "Full", "Interpolation", "Fit", "1:1"}) {
      const QWidget& control = shown.child<QWidget>(name);
      const QRect rect(control.mapTo(&shown.view, {0, 0}), control.size());
      EXPECT_TRUE(shown.view.rect().contains(rect)) << name << ", " << width;
      for (const QRect& other : taken)
        EXPECT_FALSE(other.intersects(rect)) << name << ", " << width;
      taken.push_back(rect);
    }
  }
}

} // namespace
} // namespace Kelvaris::Viewer
