#include "gpu/Beamforming.h"

#include "US/FrameGeometryLinear.h"
#include "model/ChannelDataLayout.h"
#include "model/FrameAcquisition.h"
#include "support/DeviceTest.h"
#include "support/ExpectedLog.h"
#include "support/IntensityMaskOf.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numbers>

namespace Kelvaris::US::GPU {
namespace {

using Eigen::Vector2d;
using Eigen::Vector3d;
using Tests::ExpectedLog;
using EventType = PulseEchoEvent::EventType;

constexpr double speedOfSound = 1.54e6, samplingFrequency = 40e6, pulseFrequency = 5e6;
constexpr int numSamples = 1200;

double referenceTransmitTime(const PulseEchoEvent& event, const Vector3d& p) {
  const auto& t = event.transmit;
  const double reference = (t.timeZeroPoint - t.waveFiducial).norm(), distance = (p - t.waveFiducial).norm();
  switch (t.eventType) {
  case EventType::Focused:
    return (reference + (p.y() > t.waveFiducial.y() ? distance : -distance)) / t.speedOfSound;
  case EventType::PlaneWave:
    return (p - t.timeZeroPoint).dot(t.waveFiducial) / t.speedOfSound;
  default:
    return (distance - reference) / t.speedOfSound;
  }
}

class Beamforming : public Tests::DeviceTest<> {
protected:
  static FrameAcquisition acquisition(std::vector<PulseEchoEvent> events, const Transducer& transducer) {
    for (PulseEchoEvent& event : events) {
      event.transmit.speedOfSound = speedOfSound;
      event.transmit.pulseFrequency = pulseFrequency;
      event.receive.samplingFrequency = samplingFrequency;
    }
    return FrameAcquisition(transducer, std::move(events));
  }
  static FrameAcquisition planeWaves(int count = 3, const Transducer& transducer = Transducer::createLinear(48, 0.3)) {
    std::vector<PulseEchoEvent> events;
    for (int i = 0; i < count; ++i)
      events.push_back(PulseEchoEvent::createPlaneWave(transducer, Vector3d::Zero(), (i - count / 2) * 0.1,
                                                       transducer.numElements(), transducer.numElements()));
    return acquisition(std::move(events), transducer);
  }

  /// Echoes of a point: a short pulse per element and event at the time that geometry gives. Shape: by the layout.
  template <typename T>
  static std::shared_ptr<SharedImage> echoes(const FrameAcquisition& acquisition, const Vector3d& point,
                                             const ChannelDataLayout& layout = {}, int slowTimes = 0,
                                             double amplitude = 1000) {
    const auto elements = acquisition.transducer().elementPositions();
    const auto numEvents = static_cast<int>(acquisition.events().size());
    const Eigen::Vector3i size =
        layout.packVec(acquisition.transducer().numElements(), numSamples, std::max(numEvents, slowTimes));
    auto image = std::make_shared<TypedImage<T>>(size.x(), size.y(), size.z());
    std::fill_n(image->pointer(), image->size(), T{});
    for (int v = 0; v < numEvents; ++v) {
      const PulseEchoEvent& event = acquisition.events()[static_cast<std::size_t>(v)];
      const double transmit = referenceTransmitTime(event, point);
      for (int e = event.receive.apertureFirst; e <= event.receive.apertureLast; ++e) {
        const double arrival = transmit + (point - elements[static_cast<std::size_t>(e)]).norm() / speedOfSound;
        const int channel =
            event.receive.elementToChannelMapping[static_cast<std::size_t>(e - event.receive.apertureFirst)];
        for (int k = 0; k < numSamples; ++k) {
          const double t = k / samplingFrequency - arrival, width = 0.3e-6;
          const double value =
              amplitude * std::exp(-t * t / (width * width)) * std::cos(2 * std::numbers::pi * pulseFrequency * t);
          const Eigen::Vector3i at = layout.packVec(channel, k, v);
          image->setValue(static_cast<T>(value), at.x(), at.y(), at.z());
        }
      }
    }
    auto shared = std::make_shared<SharedImage>(image);
    shared->setModality(Data::Ultrasound);
    return shared;
  }

  static std::unique_ptr<FrameGeometry> geometry(const ImageDescriptor& prescan) {
    auto result = std::make_unique<FrameGeometryLinear>();
    result->setImgDescPrescan(prescan);
    return result;
  }
  /// Pixel (x, y) at the corner plus x and y steps (mm).
  static SharedImage grid(int width, int height, const Vector2d& corner, const Vector2d& step) {
    auto positions = std::make_shared<TypedImage<float>>(width, height, 1, 2);
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) {
        positions->setValue(static_cast<float>(corner.x() + x * step.x()), x, y, 0, 0);
        positions->setValue(static_cast<float>(corner.y() + y * step.y()), x, y, 0, 1);
      }
    return SharedImage(positions);
  }
};

TEST_F(Beamforming, FocusesAPointForEveryWaveAndArray) {
  for (const Transducer& transducer : {Transducer::createLinear(48, 0.3), Transducer::createConvex(48, 0.3, 30)})
    for (const EventType type : {EventType::Focused, EventType::PlaneWave, EventType::DivergingWave}) {
      const Vector3d point(1.5, 12, 0);
      std::vector<PulseEchoEvent> events;
      for (const double x : {-1.0, 0.0, 1.0, 1.5}) {
        if (type == EventType::Focused)
          events.push_back(PulseEchoEvent::createFocused(transducer, {x, 0, 0}, {x, 9, 0}, 24, 48));
        else if (type == EventType::PlaneWave)
          events.push_back(PulseEchoEvent::createPlaneWave(transducer, Vector3d::Zero(), 0.1 * x, 48, 48));
        else
          events.push_back(PulseEchoEvent::createDivergingWave(transducer, Vector3d::Zero(), {x, -10, 0}, 48, 48));
      }
      const FrameAcquisition a = acquisition(events, transducer);
      // Focused: a column per event, at the event's x. Else a grid of columns around the point.
      const bool focused = type == EventType::Focused;
      const int width = focused ? 4 : 13, height = 41, column = focused ? 3 : 6;
      SharedImage positions = grid(width, height, {0.3, 11.0}, {0.2, 0.05});
      if (focused) {
        auto image = std::static_pointer_cast<TypedImage<float>>(positions.mem());
        for (int x = 0; x < 4; ++x)
          for (int y = 0; y < height; ++y)
            image->setValue(static_cast<float>(x == 3 ? 1.5 : x - 1.0), x, y, 0, 0);
      }
      const auto image =
          US::GPU::Beamforming(a).beamform(*echoes<float>(a, point), {}, *geometry({PixelFloat, width, height}),
                                           positions, 1.0, 1.0, BeamformerType::HammingDas, true);
      ASSERT_TRUE(image);
      const auto mem = image->mem();
      int bestX = -1, bestY = -1;
      double best = 0;
      for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
          if (const double v = std::abs(mem->valueAsDouble(x, y, 0, 0)); v > best) {
            best = v;
            bestX = x;
            bestY = y;
          }
      EXPECT_EQ(bestX, column) << "wave " << static_cast<int>(type);
      EXPECT_EQ(bestY, 20) << "wave " << static_cast<int>(type);
    }
}

TEST_F(Beamforming, WorkmodeFollowsTheFirstTwoEvents) {
  const Transducer transducer = Transducer::createLinear(16, 0.3);
  const auto focused = PulseEchoEvent::createFocused(transducer, Vector3d::Zero(), {0, 9, 0}, 16, 16);
  const auto plane = PulseEchoEvent::createPlaneWave(transducer, Vector3d::Zero(), 0, 16, 16);
  struct Case {
    const char* what;
    std::vector<PulseEchoEvent> events;
    bool compounding;
    std::vector<double>
        expected; ///< debug aperture size of the columns 0 and 1, then of the second slice; NaN is invalid
  };
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  // With F-number 0 the aperture is all 16 elements; three columns, two slices, of which some have no event.
  const Case cases[] = {
      {"two focused events: column per event", {focused, focused}, true, {16, 16, nan, 16, 16, nan}},
      {"focused, whatever the third", {focused, focused, plane}, false, {16, 16, 16, 16, 16, 16}},
      {"one focused event is not focused", {focused}, true, {16, 16, 16, 16, 16, 16}},
      {"compounds add", {plane, focused, focused}, true, {48, 48, 48, 48, 48, 48}},
      {"one slice per event", {plane}, false, {16, 16, 16, nan, nan, nan}},
  };
  for (const Case& c : cases) {
    const FrameAcquisition a = acquisition(c.events, transducer);
    for (const int pixelType : {PixelFloat, PixelInt16}) {
      const auto input = pixelType == PixelFloat ? echoes<float>(a, {0, 5, 0}) : echoes<short>(a, {0, 5, 0});
      const auto image =
          US::GPU::Beamforming(a).beamform(*input, {}, *geometry({pixelType, 3, 1, 2}), grid(3, 1, {0, 5}, {0.1, 1}),
                                           0.0, 1.0, BeamformerType::DebugApertureSize, c.compounding);
      ASSERT_TRUE(image) << c.what;
      ASSERT_TRUE(image->mask());
      for (int z = 0; z < 2; ++z)
        for (int x = 0; x < 3; ++x) {
          const double expected = c.expected[static_cast<std::size_t>(3 * z + x)],
                       value = image->mem()->valueAsDouble(x, 0, z, 0);
          EXPECT_EQ(intensityMask(*image).isMasked(value), std::isnan(expected))
              << c.what << " at " << x << ", " << z << ": " << value;
          EXPECT_TRUE(std::isnan(expected) || value == expected) << c.what << " at " << x << ", " << z << ": " << value;
        }
    }
  }
}

TEST_F(Beamforming, ResultKeepsTheMetadataAndStaysOnTheDevice) {
  const FrameAcquisition a = planeWaves();
  const auto input = echoes<short>(a, {0, 8, 0});
  ImageDescriptor prescan(PixelInt16, 5, 7);
  prescan.setSpacing({1, 0.25, 1});
  const auto image = US::GPU::Beamforming(a).beamform(*input, {}, *geometry(prescan), grid(5, 7, {-1, 6}, {0.5, 0.5}),
                                                      1.0, 2.0, BeamformerType::UnweightedDas, true);
  ASSERT_TRUE(image);
  EXPECT_TRUE(image->hasForm(ImageForm::Device));
  EXPECT_FALSE(image->hasForm(ImageForm::Mem));
  EXPECT_EQ(image->modality(), Data::Ultrasound);
  EXPECT_TRUE(image->descriptor().isApprox(prescan));
  EXPECT_EQ(intensityMask(*image).value(), -32768);
}

TEST_F(Beamforming, EveryLayoutGivesTheSameImage) {
  const FrameAcquisition a = planeWaves();
  const US::GPU::Beamforming beamforming(a);
  const auto image = [&](const ChannelDataLayout& layout, int slowTimes) {
    return beamforming
        .beamform(*echoes<float>(a, {0, 8, 0}, layout, slowTimes), layout, *geometry({PixelFloat, 9, 11}),
                  grid(9, 11, {-1, 6}, {0.25, 0.4}), 1.0, 1.0, BeamformerType::UnweightedDas, true)
        ->mem();
  };
  const auto expected = image({}, 0);
  ExpectedLog log;
  int axes[] = {0, 1, 2};
  do {
    using Axis = ChannelDataLayout::Axis;
    const ChannelDataLayout layout(Axis{axes[0]}, Axis{axes[1]}, Axis{axes[2]});
    for (const int slowTimes : {0, 5}) { // two more entries than events
      const auto actual = image(layout, slowTimes);
      EXPECT_EQ(std::memcmp(actual->data(), expected->data(), expected->byteSize()), 0)
          << axes[0] << axes[1] << axes[2] << " with " << slowTimes;
    }
  } while (std::next_permutation(axes, axes + 3));
  ASSERT_EQ(log.messages().size(), 1u) << "one warning per object";
  EXPECT_NE(log.messages()[0].find("5 entries of slow time, but the acquisition has 3 events"), std::string::npos)
      << log.messages()[0];
}

TEST_F(Beamforming, PixelsBeyondThePositionsAreInvalid) {
  const FrameAcquisition a = planeWaves();
  const auto image =
      US::GPU::Beamforming(a).beamform(*echoes<float>(a, {0, 8, 0}), {}, *geometry({PixelFloat, 4, 4}),
                                       grid(2, 3, {-1, 6}, {0.5, 0.5}), 1.0, 1.0, BeamformerType::UnweightedDas, true);
  ASSERT_TRUE(image);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 4; ++x)
      EXPECT_EQ(std::isnan(image->mem()->valueAsDouble(x, y, 0, 0)), x >= 2 || y >= 3) << x << ", " << y;
}

TEST_F(Beamforming, RefusesWhatDoesNotFit) {
  struct Case {
    const char* message;
    std::function<void(FrameAcquisition&)> change;
    ImageDescriptor input{PixelFloat, 48, 100, 3}, output{PixelFloat, 4, 4}, positions{PixelFloat, 4, 4, 1, 2};
    ChannelDataLayout layout{};
  };
  using Axis = ChannelDataLayout::Axis;
  const auto nothing = [](FrameAcquisition&) {};
  const Case cases[] = {
      {"Unsupported input data type for beamforming.", nothing, {PixelFloat, 48, 100, 3, 3}},
      {"Unsupported input data type for beamforming.", nothing, {PixelUInt8, 48, 100, 3}},
      {"Event 1 receives on elements 2 to 48, but the array has elements 0 to 47",
       [](auto& a) {
         a.events()[1].receive.apertureFirst = 2;
         a.events()[1].receive.apertureLast = 48;
       }},
      {"Event 0 receives on elements -1 to", [](auto& a) { a.events()[0].receive.apertureFirst = -1; }},
      {"Event 2 receives on 48 elements (0 to 47), but maps only 7",
       [](auto& a) { a.events()[2].receive.elementToChannelMapping.resize(7); }},
      {"Event 2 maps element 5 to channel -3", [](auto& a) { a.events()[2].receive.elementToChannelMapping[5] = -3; }},
      {"Event 1 maps element 40 to channel 48, but the channel data have channels 0 to 47",
       [](auto& a) { a.events()[1].receive.elementToChannelMapping[40] = 48; }},
      {"0 events and 48 elements", [](auto& a) { a.events().clear(); }},
      {"3 events and 0 elements", [](auto& a) { a.transducer().configureLinear(0, 0.3); }},
      {"must have the pixel type and components", nothing, {PixelFloat, 48, 100, 3, 2}},
      {"must have the pixel type and components", nothing, {PixelInt16, 48, 100, 3}},
      {"Sample positions must be", nothing, {PixelFloat, 48, 100, 3}, {PixelFloat, 4, 4}, {PixelFloat, 4, 4, 1, 1}},
      {"Sample positions must be", nothing, {PixelFloat, 48, 100, 3}, {PixelFloat, 4, 4}, {PixelFloat, 4, 4, 2, 2}},
      {"is not valid", nothing, {PixelFloat, 48, 100, 3}, {PixelFloat, 4, 0}},
      {"once each, not 0 0 2",
       nothing,
       {PixelFloat, 48, 100, 3},
       {PixelFloat, 4, 4},
       {PixelFloat, 4, 4, 1, 2},
       {Axis::Channels, Axis::Channels, Axis::SlowTime}},
      {"20000000 samples per channel, at most 16777216", nothing, {PixelFloat, 48, 20000000, 3}},
  };
  for (const Case& c : cases) {
    FrameAcquisition a = planeWaves();
    c.change(a);
    const ExpectedLog log;
    // Images without pixels: nothing may be touched before the checks are done.
    const auto image =
        US::GPU::Beamforming(a).beamform(SharedImage(c.input), c.layout, *geometry(c.output), SharedImage(c.positions),
                                         1.0, 1.0, BeamformerType::UnweightedDas, true);
    EXPECT_FALSE(image) << c.message;
    EXPECT_TRUE(log.contains(c.message)) << c.message
                                         << "\nlogged: " << (log.messages().empty() ? "nothing" : log.messages()[0]);
  }
}

} // namespace
} // namespace Kelvaris::US::GPU
