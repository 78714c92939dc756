#include "simulation/SimulatedChannelDataStream.h"

#include "SimulatedStreamCases.h"
#include "US/FrameGeometryMetadata.h"
#include "US/UltrasoundMetadata.h"
#include "model/Utils.h"
#include "streaming/StreamTools.h"
#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"
#include "support/Images.h"
#include "support/Samples.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

namespace Kelvaris::US {
namespace {

using Tests::changed;
using Tests::ExpectedLog;
using Tests::sameBytes;
using Tests::shortFrame;
using Tests::streamOf;
using Axis = ChannelDataLayout::Axis;
using Mode = AcquisitionSequence::EnsembleMode;
using Messages = std::vector<std::string>;

class SimulatedStreamTest : public Tests::SimulatedStream {
protected:
  static std::shared_ptr<MemImage> image(SimulatedChannelDataStream& stream) { return Tests::nextImages(stream).at(0); }
  const AcquisitionSequence usual{{shortFrame(1)}};
};

TEST_F(SimulatedStreamTest, EmitsAllFramesWithTheirComponentsAndClocks) {
  const AcquisitionSequence sequence({shortFrame(0), shortFrame(1, 16, 16), shortFrame(2, 8, 12)}, {1, 2, 3},
                                     {Mode::PerFrame, Mode::PerEvent, Mode::PerFrame}, {{}, 1e-3, {}});
  const auto stream = streamOf(sequence, 0.5);
  EXPECT_EQ(stream->size(), 3);
  EXPECT_EQ(stream->kind(), Data::VolumeStreamKind);
  stream->setChannelDataLayout(ChannelDataLayout(Axis::FastTime, Axis::Channels, Axis::SlowTime));
  const Tests::Receiver receiver(*stream);
  ASSERT_TRUE(stream->openAsync().get());
  ASSERT_TRUE(stream->startAsync().get());
  Tests::waitFor([&] { return receiver.count() >= 5; });
  ASSERT_TRUE(stream->stopAsync().get());
  const auto received = receiver.received();

  for (std::size_t n = 0; n < 5; ++n)
    EXPECT_EQ(received[n]->timestampDevice(), 33 * n);
  EXPECT_GT(received[0]->timestampArrival(), 1'600'000'000'000u) << "milliseconds since 1970";
  const SharedImageSet& images = *received[2]->images();
  ASSERT_EQ(images.size(), 3);
  EXPECT_EQ(images.modality(), Data::Ultrasound);
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(isChannelData(images, i));
    const FrameAcquisition effective = sequence.effectiveFrameAcquisition(i);
    EXPECT_EQ(*getFrameAcquisition(images, i), effective);
    EXPECT_EQ(effective.events().size(), i == 0 ? 3u : i == 1 ? 6u : 9u);
    const DataComponentList& components = images.elementwiseComponents().components(i);
    EXPECT_EQ(components.size(), 4u);
    EXPECT_TRUE(components.get<FrameGeometryMetadata>() && components.get<UltrasoundMetadata>());
    EXPECT_TRUE(components.get<ChannelDataLayout>());
    const auto& descriptor = images.get(i).descriptor();
    EXPECT_EQ(descriptor.width(), static_cast<int>(effective.events()[0].receive.endTime * 2e7));
    EXPECT_EQ(descriptor.height(), i == 2 ? 12 : 16);
    EXPECT_EQ(descriptor.slices(), static_cast<int>(effective.events().size()));
    EXPECT_EQ(descriptor.spacing(), Eigen::Vector3d::Ones());
  }
  EXPECT_FALSE(sameBytes(*received[0]->images()->get(0).mem(), *received[1]->images()->get(0).mem())) << "fresh noise";
  stream->setAcquisitionSequence(sequence);
  EXPECT_EQ(stream->getNextAcquisition().at(0).second.get<ChannelDataLayout>(), nullptr)
      << "a new sequence drops the layout";
}

TEST_F(SimulatedStreamTest, TheDelaysGiveEachEventItsStart) {
  const FrameAcquisition a = shortFrame(1), b(Tests::kStraight, {a.events()[0]});
  const AcquisitionSequence sequence({a, b}, {{0, 1}, {1, 0}, {0, 0}, {0, 2}, {1, 0}}, {0.5, {}, 0.25, 2.0, 8.0});
  const auto stream = streamOf(sequence);
  EXPECT_EQ(stream->computePerEventStartTimes(0), (std::vector<double>{0.0, 0.5, 0.75}));
  EXPECT_EQ(stream->computePerEventStartTimes(1), (std::vector<double>{0.5, 2.75}));
  EXPECT_TRUE(stream->computePerEventStartTimes(2).empty());
}

TEST_F(SimulatedStreamTest, TheMovingPhantomIsWhereItsVelocityTakesIt) {
  const FrameAcquisition frame(Tests::kStraight, {shortFrame(1).events()[1]});
  const auto imageOf = [&](const Eigen::Vector3d& origin, const Eigen::Vector3d& velocity) {
    const auto stream = streamOf(AcquisitionSequence({frame}, {{0, 0}, {0, 0}}, {0.25, {}}));
    stream->setPhantomOrigin(origin);
    stream->setInterEventPhantomMotion(velocity);
    return image(*stream);
  };
  const auto moving = imageOf({0, 5, 0}, {4.0, 8.0, 0.0}), before = imageOf({0, 5, 0}, {0, 0, 0}),
             after = imageOf({1, 7, 0}, {0, 0, 0});
  const std::size_t slice = moving->byteSize() / 2;
  const auto* const bytes = static_cast<const char*>(moving->data());
  EXPECT_EQ(std::memcmp(bytes, before->data(), slice), 0);
  EXPECT_EQ(std::memcmp(bytes + slice, after->data(), slice), 0);
  EXPECT_NE(std::memcmp(bytes, bytes + slice, slice), 0);
}

TEST_F(SimulatedStreamTest, AnEchoAmplitudeWaitsForAnotherChange) {
  const auto stream = streamOf(usual);
  const std::function<void()> idle[] = {[&] { stream->setTargetFrameRate(20.0); },
                                        [&] { stream->setCacheSIMUSechos(false); }},
                              dirty[] = {[&] { stream->setTransmitAmplitude(stream->transmitAmplitude()); },
                                         [&] { stream->setPhantomType(stream->phantomType()); },
                                         [&] { stream->setPhantomOrigin(stream->phantomOrigin()); },
                                         [&] {
                                           stream->setInterEventPhantomMotion({0, 0, 0});
                                         },
                                         [&] { stream->setUseSIMUS(false); },
                                         [&] { stream->setPixelType(stream->pixelType()); },
                                         [&] { stream->setChannelDataLayout({}); },
                                         [&] { stream->setAcquisitionSequence(usual); }};
  auto last = image(*stream);
  for (const auto& change : dirty) {
    stream->setEchoAmplitude(stream->echoAmplitude() + 10.0);
    for (const auto& changeNothing : idle)
      changeNothing();
    EXPECT_TRUE(sameBytes(*image(*stream), *last));
    change();
    const auto now = image(*stream);
    EXPECT_FALSE(sameBytes(*now, *last)) << &change - dirty;
    last = now;
  }
  stream->setNoiseAmplitude(1e-6);
  stream->setEchoAmplitude(0.0);
  EXPECT_FALSE(sameBytes(*image(*stream), *last)) << "any update leaves them out";
}

TEST_F(SimulatedStreamTest, WithoutNoiseNothingIsCountedAndTheSameImagesGoOut) {
  const auto often = streamOf(usual), once = streamOf(usual);
  const auto first = image(*often);
  EXPECT_TRUE(sameBytes(*image(*often), *first));
  EXPECT_TRUE(sameBytes(*image(*once), *first));
  often->setNoiseAmplitude(3.0);
  once->setNoiseAmplitude(3.0);
  const auto noisy = image(*often);
  EXPECT_FALSE(sameBytes(*noisy, *first));
  EXPECT_TRUE(sameBytes(*image(*once), *noisy)) << "the noise goes by the number of updates";
}

TEST_F(SimulatedStreamTest, PhantomsHaveTheirScatterers) {
  const auto grid = phantomScatterers(PhantomType::Grid5mm, {0, 10, 3});
  ASSERT_EQ(grid.size(), 66u);
  EXPECT_EQ(grid.front(), Eigen::Vector3d(-25, 10, 3));
  EXPECT_EQ(grid[1], Eigen::Vector3d(-25, 15, 3));
  EXPECT_EQ(grid.back(), Eigen::Vector3d(25, 35, 3));

  EXPECT_TRUE(phantomScatterers(static_cast<PhantomType>(9), {0, 10, 0}).empty());
}

TEST_F(SimulatedStreamTest, RefusesWhatItCannotUseAndKeepsWhatItHad) {
  const auto stream = streamOf(usual);
  const auto before = image(*stream);
  const double nan = std::nan("");
  AcquisitionSequence withEmpty({shortFrame(0), shortFrame(0)}), disagreeing = usual, dangling = usual;
  withEmpty.frameAcquisitions()[1].events().clear();
  disagreeing.frameAcquisitions()[0].events()[2].receive.endTime *= 2;
  dangling.frameAcquisitions()[0].events().resize(2);
  const struct {
    std::function<void()> set;
    const char* message;
    bool isTaken = false;
  } cases[] = {
      {[&] { stream->setTargetFrameRate(0.0); },
       "4 SimulatedChannelDataStream: A targetFrameRate of 0 per second can't be kept; it must be from 0.001 to 1e9"},
      {[&] { stream->setTransmitAmplitude(nan); },
       "4 SimulatedChannelDataStream: transmitAmplitude can't be nan; it must be a number from -3e38 to 3e38"},
      {[&] { stream->setNoiseAmplitude(1e39); }, "noiseAmplitude can't be 1e+39"},
      {[&] {
         stream->setPhantomOrigin({0.0, nan, 0.0});
       },
       "4 SimulatedChannelDataStream: phantomOrigin can't be (0, nan, 0); it must be three numbers"},
      {[&] { stream->setPixelType(static_cast<PixelType>(17)); },
       "4 SimulatedChannelDataStream: There is no pixelType 17; it must be one of 5120 to 5126, 5130 and 5131"},
      {[&] {
         stream->setChannelDataLayout({Axis::Channels, Axis::Channels, Axis::SlowTime});
       },
       "4 SimulatedChannelDataStream: A ChannelDataLayout (0, 0, 2) can't be made; it must carry each of the axes 0, 1 "
       "and "
       "2 once"},
      {[&] { stream->setAcquisitionSequence({}); },
       "4 SimulatedChannelDataStream: AcquisitionSequence must contain at least one FrameAcquisition"},
      {[&] { stream->setAcquisitionSequence(withEmpty); },
       "4 SimulatedChannelDataStream: FrameAcquisition 1 has no events"},
      {[&] { stream->setAcquisitionSequence(dangling); },
       "4 SimulatedChannelDataStream: The AcquisitionSequence is inconsistent: "},
      {[&] { stream->setAcquisitionSequence(disagreeing); },
       "3 SimulatedChannelDataStream: FrameAcquisition has inconsistencies among the events", true},
  };
  for (const auto& [set, message, isTaken] : cases) {
    const ExpectedLog log;
    set();
    ASSERT_EQ(log.messages().size(), 1u) << message;
    EXPECT_CONTAINS(log.messages()[0], message);
    EXPECT_EQ(stream->acquisitionSequence() == usual, !isTaken);
    EXPECT_TRUE(sameBytes(*image(*stream), *before)) << message;
  }
  EXPECT_EQ(stream->targetFrameRate(), 30.0);
}

TEST_F(SimulatedStreamTest, AFrameThatCannotBeSimulatedEndsTheEmissionsUntilAnotherOneComes) {
  const auto stream = streamOf(usual, 0.5);
  const struct {
    std::function<void(PulseEchoEvent&, int)> change;
    const char* message;
  } cases[] = {{[](PulseEchoEvent& event, int) { event.receive.endTime = 100000.5 / event.receive.samplingFrequency; },
                "100000 samples and 3 events; OpenGL's largest"},
               {[](PulseEchoEvent& event, int) { event.transmit.apertureLast = 16; },
                "The transmit aperture from element 0 to 16 lies beyond the array"}};
  for (const auto& [change, message] : cases) {
    {
      const ExpectedLog log;
      stream->setAcquisitionSequence(AcquisitionSequence({changed(shortFrame(1), change)}));
      for (int n = 0; n < 3; ++n)
        EXPECT_TRUE(stream->getNextAcquisition().empty());
      ASSERT_EQ(log.messages().size(), 1u) << "told once";
      EXPECT_CONTAINS(log.messages()[0], message);
      EXPECT_CONTAINS(log.messages()[0], "Nothing is emitted");
    }
    stream->setAcquisitionSequence(usual);
    EXPECT_EQ(stream->getNextAcquisition().size(), 1u);
  }
}

TEST_F(SimulatedStreamTest, WithoutAPulseFrequencyNoPulseIsTransmitted) {
  const AcquisitionSequence sequence(
      {changed(shortFrame(1), [](PulseEchoEvent& event, int) { event.transmit.pulseFrequency = 0.0; })});
  const auto stream = streamOf(sequence);
  stream->setEchoAmplitude(0.0);
  const ExpectedLog log;
  EXPECT_EQ(Tests::worstError(*image(*stream), [](int, int, int, int) { return 0.0; }), 0.0);
  EXPECT_EQ(log.messages(), Messages{"4 SimulatedChannelDataStream: Invalid frequency configuration: "
                                     "receiveSamplingFrequency 20000000, pulseFrequency 0"});
}

TEST_F(SimulatedStreamTest, WithoutAnInterpreterSimusFallsBackOnSimpleEchoes) {
  const auto stream = streamOf(usual);
  const auto simple = image(*stream);
  Properties properties;
  properties.setParam("useSIMUS", true);
  Properties& broken = properties.addSubProperties("sequence"); // is refused, so that the present one goes on
  broken.addSubProperties("frameAcquisitions");
  broken.addSubProperties("eventOrder");
  const ExpectedLog log;
  stream->configure(&properties);
  EXPECT_FALSE(stream->useSIMUS());
  EXPECT_TRUE(log.contains("3 SimulatedChannelDataStream: SIMUS simulation is not available: Python Interpreter was "
                           "not found. Please specify one in the Application Settings."));
  EXPECT_CONTAINS(log.messages().back(), "falling back to simple echos");
  EXPECT_TRUE(sameBytes(*image(*stream), *simple));
}

TEST_F(SimulatedStreamTest, StoresEverythingButTheMotion) {
  const AcquisitionSequence sequence({shortFrame(0), shortFrame(2)}, {1, 2}, {Mode::PerEvent, Mode::PerFrame},
                                     {{}, 1e-3});
  const auto stream = streamOf(sequence, 0.25), other = streamOf({}), fresh = streamOf({});
  stream->setPixelType(PixelFloat);
  stream->setTargetFrameRate(12.5);
  stream->setCacheSIMUSechos(false);
  stream->setEchoAmplitude(3.0);
  stream->setTransmitAmplitude(4.0);
  stream->setPhantomOrigin({1, 2, 3});
  stream->setInterEventPhantomMotion({7, 8, 9});
  stream->setPhantomType(PhantomType::Grid5mm);
  stream->setChannelDataLayout(ChannelDataLayout(Axis::FastTime, Axis::SlowTime, Axis::Channels));
  Properties properties, copy;
  stream->configuration(&properties);
  other->configure(&properties);
  other->configuration(&copy);
  EXPECT_EQ(copy, properties);
  std::string keys;
  for (const auto& [key, value] : properties.params())
    keys += key + " ";
  EXPECT_EQ(keys, "useSIMUS cacheSIMUSechos pixelType targetFrameRate echoAmplitude transmitAmplitude noiseAmplitude "
                  "phantomOrigin phantomType ");
  EXPECT_EQ(other->interEventPhantomMotion(), Eigen::Vector3d::Zero());
  stream->setInterEventPhantomMotion({0, 0, 0});
  EXPECT_TRUE(sameBytes(*Tests::nextImages(*other).at(1), *Tests::nextImages(*stream).at(1)));

  properties.removeSubProperties("sequence");
  properties.addSubProperties("sequence");
  properties.setParam("targetFrameRate", -1.0);
  const ExpectedLog log;
  fresh->configure(&properties);
  EXPECT_EQ(log.messages().size(), 2u) << "of the rate and of the empty sequence, while the rest is taken over";
  EXPECT_EQ(fresh->targetFrameRate(), 30.0);
  EXPECT_EQ(fresh->echoAmplitude(), 3.0);
  EXPECT_TRUE(fresh->getNextAcquisition().empty());
}

} // namespace
} // namespace Kelvaris::US
