#include "processing/IqDemodulation.h"

#include "GL/RequireGL.h"
#include "processing/SignalProcessing.h"
#include "reference/Lines.h"
#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"
#include "support/Samples.h"

#include <complex>

namespace Kelvaris::US {
namespace {

using GlIqDemodulation = Tests::GLTest<>;

struct Settings {
  double fs = 40.0, fd = 5.0;
  int factor = 1;
  double ratio = 1.0;
  int taps = 51;
};

std::shared_ptr<SharedImage> demodulated(const IqDemodulation& demodulation, const SharedImage& image,
                                         const Settings& s = {}) {
  return demodulation.demodulate(image, s.fs, s.fd, s.factor, s.ratio, s.taps);
}

/// Mixed and filtered in double precision, and then rounded to what the pixel type keeps.
std::shared_ptr<MemImage> filtered(const MemImage& image, const Settings& s) {
  ImageDescriptor iq = image.descriptor();
  iq.setPixelType(PixelDouble);
  iq.setChannels(2);
  const auto mixed = Tests::imageOf(iq, [&](int x, int y, int z, int channel) {
    const auto signal = std::polar(2.0, -2.0 * std::numbers::pi * s.fd * y / s.fs);
    return image.valueAsDouble(x, y, z, 0) * (channel == 0 ? signal.real() : signal.imag());
  });
  const auto taps = Signal::createFirFilter(Signal::FilterType::Lowpass, static_cast<float>(s.fs), 0.0f,
                                            static_cast<float>(s.fd * s.ratio), s.taps, 1);
  return Tests::imageOf(iq, [&](int x, int y, int z, int channel) {
    return Tests::stored(Tests::convolved(*mixed, taps, 1, false, {x, y, z}, channel), image.descriptor().pixelType());
  });
}

TEST_F(GlIqDemodulation, AgreesWithMixingFilterAndResamplingInDoublePrecision) {
  const struct {
    const char* what;
    int pixelType;
    Eigen::Vector3i extent;
    Settings settings;
    int rows;
  } cases[] = {
      {"columns", PixelFloat, {5, 120, 1}, {}, 120},
      {"one column of int16", PixelInt16, {1, 120, 1}, {.factor = 2}, 60},
      {"a third, of a number that 3 doesn't divide", PixelFloat, {3, 100, 1}, {.factor = 3}, 33},
      {"another cut-off", PixelFloat, {3, 100, 1}, {.ratio = 0.4, .taps = 101}, 100},
      {"a filter longer than the columns, of doubles", PixelDouble, {3, 20, 1}, {.taps = 101}, 20},
      {"no mixing: the filter's cut-off is 0", PixelFloat, {2, 60, 1}, {.fd = 0.0}, 60},
      {"int8 saturates", PixelInt8, {3, 90, 1}, {}, 90},
      {"uint8 loses what is negative", PixelUInt8, {3, 90, 1}, {}, 90},
      {"uint16, a volume", PixelUInt16, {3, 90, 2}, {.factor = 2}, 45},
      {"int32, mixed in main memory", PixelInt32, {3, 90, 1}, {.factor = 2}, 45},
      {"half", PixelHalf, {3, 90, 1}, {}, 90},
  };
  for (const auto& c : cases)
    for (const bool asTexture : {false, true}) {
      SCOPED_TRACE(c.what);
      ImageDescriptor descriptor(c.pixelType, c.extent.x(), c.extent.y(), c.extent.z());
      descriptor.setSpacing({0.3, 0.02, 0.5});
      SharedImage image(Tests::noiseImage(descriptor));
      const auto expected = filtered(*image.mem(), c.settings);
      if (asTexture) image.assign(std::make_shared<GlImage>(*image.mem()));
      image.setMatrix(Eigen::Matrix4d::Identity() * 3.0);
      const auto output = demodulated(IqDemodulation(), image, c.settings);
      const ImageDescriptor& d = output->descriptor();
      EXPECT_EQ(d.pixelType(), c.pixelType);
      EXPECT_EQ(d.channels(), 2);
      ASSERT_EQ(d.height(), c.rows);
      EXPECT_EQ(output->matrix(), image.matrix());
      EXPECT_TRUE(d.spacing().isApprox(Eigen::Vector3d(0.3, 0.02 * c.extent.y() / c.rows, 0.5), 1e-12));
      const double error = Tests::worstError(*output->mem(), [&](int x, int y, int z, int channel) {
        const Eigen::Vector3d place = Tests::placeIn(c.extent, d.dimensions(), {x, y, z});
        return Tests::stored(Tests::interpolated(*expected, place, channel), c.pixelType);
      });
      const bool isFloat = c.pixelType == PixelFloat || c.pixelType == PixelDouble;
      EXPECT_LE(error, isFloat ? 2e-3 : c.pixelType == PixelHalf ? 0.2 : 1.0);
    }
}

TEST_F(GlIqDemodulation, KeepsItsSignalsAsLongAsNothingChanges) {
  const IqDemodulation demodulation;
  EXPECT_EQ(demodulation.cachedSignals(), nullptr);
  const ImageDescriptor base(PixelFloat, 3, 60), taller(PixelFloat, 3, 61);
  const struct {
    const char* what;
    Settings settings;
    ImageDescriptor image;
    bool isNew;
  } steps[] = {
      {"the first call", {}, base, true},
      {"another factor, width, type, number of slices", {.factor = 3}, ImageDescriptor(PixelInt16, 7, 60, 2), false},
      {"another height", {}, taller, true},
      {"filter length", {.taps = 31}, taller, true},
      {"sampling frequency", {.fs = 41.0, .taps = 31}, taller, true},
      {"demodulation frequency", {.fs = 41.0, .fd = 5.5, .taps = 31}, taller, true},
      {"cut-off, by the last digit",
       {.fs = 41.0, .fd = 5.5, .ratio = std::nextafter(1.0, 2.0), .taps = 31},
       taller,
       true},
  };
  std::array<const void*, 3> before = {};
  for (const auto& step : steps) {
    demodulated(demodulation, SharedImage(Tests::noiseImage(step.image)), step.settings);
    const auto& cached = *demodulation.cachedSignals();
    const std::array<const void*, 3> now = {cached.filter.get(), cached.resampler.get(), cached.signal.get()};
    for (std::size_t i = 0; i < 3; ++i)
      EXPECT_EQ(now[i] != before[i], step.isNew) << step.what << ", object " << i;
    EXPECT_EQ(cached.signal->descriptor().dimensions(), Eigen::Vector3i(1, step.image.height(), 1));
    before = now;
  }
}

TEST_F(GlIqDemodulation, SaysWhatIsWrong) {
  const IqDemodulation demodulation;
  const SharedImage image(Tests::noiseImage(ImageDescriptor(PixelFloat, 3, 60)));
  const SharedImage iq(Tests::noiseImage(ImageDescriptor(PixelFloat, 3, 60, 1, 2)));
  const auto error = [](auto&& action) { return Tests::errorOf<std::invalid_argument>(action); };
  EXPECT_EQ(error([&] { demodulated(demodulation, image, {.taps = 50}); }),
            "Even filter length is not supported. Given length: 50");
  EXPECT_EQ(error([&] { demodulated(demodulation, iq); }), "IQ demodulation takes images of 1 channel, not of 2");
  const Tests::ExpectedLog log;
  EXPECT_EQ(demodulated(demodulation, image, {.factor = -2}), nullptr);
  EXPECT_TRUE(log.contains("The target spacing (1, -2, 1) must be positive and finite"));
}

} // namespace
} // namespace Kelvaris::US
