#include "ImageViewTools.h"

#include "Lib/IntensityMask.h"
#include "Lib/PngWriter.h"
#include "US/FrameGeometryLinear.h"
#include "US/FrameGeometryMetadata.h"
#include "US/PixelSize.h"
#include "support/TemporaryFolder.h"
#include "viewer/OnDisplay.h"
#include "viewer/view/ColorMap.h"

#include <QComboBox>

#include <gtest/gtest.h>

namespace Kelvaris::Viewer {
namespace {

std::shared_ptr<MemImage> levels(int width, int height, int channels, const Eigen::Vector2d& spacing) {
  ImageDescriptor descriptor(PixelUInt8, width, height, 2, channels);
  descriptor.setSpacing({spacing.x(), spacing.y(), 1.0});
  return Tests::noiseImage(descriptor);
}

/// The PNG of a slice, as the command line writes it.
QImage png(const SharedImageSet& images, int slice, const std::optional<PngWriter::Color>& maskColor) {
  const Tests::TemporaryFolder folder;
  PendingFile file(folder / "a.png");
  PngWriter::write(file, images.get(0), slice, {.pixelSize = US::prescanPixelSize(images, 0), .maskColor = maskColor});
  file.commit();
  return QImage(QString::fromStdString((folder / "a.png").string())).convertToFormat(QImage::Format_ARGB32);
}

TEST(ImageViewPicture, IsThePngOfTheSlicePixelForPixel) {
  const struct {
    const char* what;
    int channels;
    Eigen::Vector2d spacing;
    bool masked, navy, lines;
  } table[] = {
      {"square pixels", 1, {0.2, 0.2}, false, false, false},
      {"wide pixels", 1, {0.5, 0.2}, false, false, false},
      {"masked", 1, {0.2, 0.35}, true, false, false},
      {"masked, in navy", 1, {0.2, 0.35}, true, true, false},
      {"colours", 3, {0.2, 0.2}, true, false, false},
      {"colours, in navy", 3, {0.2, 0.3}, true, true, false},
      {"colours with alpha", 4, {0.3, 0.2}, false, false, false},
      {"lines and depths", 1, {1.0, 0.1}, true, false, true},
  };
  for (const auto& c : table) {
    const auto set = setOf({levels(37, 29, c.channels, c.spacing)});
    if (c.masked)
      set->shared(0)->setMask(
          std::make_shared<IntensityMask>(PixelUInt8, set->get(0).mem()->valueAsDouble(20, 9, 1, 0)));
    if (c.lines) {
      US::FrameGeometryLinear geometry;
      geometry.setWidth(12.0);
      geometry.setDepth(20.0);
      set->components().add<US::FrameGeometryMetadata>(geometry);
    }
    ShownView shown(set);
    shown.view.setSlice(1);
    if (c.navy) shown.child<QComboBox>("Masked pixels").setCurrentText("Navy");
    const QImage expected = png(*set, 1, c.navy ? std::optional(PngWriter::Color{0, 0, 128}) : std::nullopt);
    EXPECT_EQ(shown.view.picture().convertToFormat(QImage::Format_ARGB32), expected) << c.what;
    EXPECT_EQ(shown.view.picture().dotsPerMeterX(), expected.dotsPerMeterX()) << c.what;
    EXPECT_EQ(shown.view.picture().dotsPerMeterY(), expected.dotsPerMeterY()) << c.what;
  }
}

TEST(ImageViewPicture, HasTheColoursOfTheMapInTheWindow) {
  ShownView shown(
      setOf({Tests::imageOf(ImageDescriptor(PixelDouble, 256, 1), [](int x, int, int, int) { return x - 128.0; })}));
  shown.view.setMapping({DisplayMapping::Law::Linear, -128.0, 127.0});
  shown.view.setColorMap(4);
  const QImage picture = shown.view.picture();
  for (int x = 0; x < 256; ++x)
    ASSERT_EQ(picture.pixel(x, 0), colorMaps()[4].colors[static_cast<std::size_t>(x)]) << x;
}

TEST(ImageViewPicture, LiesOnWholeScreenPixelsOneToOne) {
  for (const auto& [spacing, size] :
       {std::pair(Eigen::Vector2d(0.2, 0.2), QSize(701, 603)), std::pair(Eigen::Vector2d(0.5, 0.2), QSize(698, 605)),
        std::pair(Eigen::Vector2d(0.2, 0.33), QSize(703, 600))}) {
    const auto set = setOf({levels(61, 47, 1, spacing)});
    ShownView shown(set, size);
    QWidget window; // so that the view itself lies somewhere
    shown.view.setParent(&window);
    shown.view.move(3, 7);
    shown.view.show();
    window.show();
    QTest::keyClick(&shown.canvas, Qt::Key_1);
    QApplication::processEvents();
    EXPECT_TRUE(Tests::findPicture(window.grab().toImage().convertToFormat(QImage::Format_RGB32), shown.view.picture()))
        << size.width();
    shown.view.setParent(nullptr);
  }
}

TEST(ImageViewPicture, MaskedPixelsAreNoGrayLevelOnTheScreen) {
  const auto set =
      setOf({Tests::imageOf(ImageDescriptor(PixelUInt8, 40, 40), [](int x, int, int, int) { return x < 20 ? 0 : 9; })});
  set->shared(0)->setMask(std::make_shared<IntensityMask>(PixelUInt8, 0.0));
  ShownView shown(set);
  const QImage screen = shown.canvas.grab().toImage();
  const int middle = screen.height() / 2;
  for (int x = screen.width() / 2 - 100; x < screen.width() / 2 + 100; ++x) {
    const QRgb color = screen.pixel(x, middle);
    const bool isGray = qRed(color) == qGreen(color) && qGreen(color) == qBlue(color);
    if (std::abs(x - screen.width() / 2) > 20) {
      EXPECT_EQ(isGray, x > screen.width() / 2) << x;
    }
  }
}

} // namespace
} // namespace Kelvaris::Viewer
