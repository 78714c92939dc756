#include "model/FrameAcquisition.h"

#include "Core/Properties.h"
#include "US/FrameGeometryLinear.h"
#include "US/FrameGeometryMetadata.h"
#include "US/UltrasoundMetadata.h"
#include "model/FrameCases.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

namespace Kelvaris::US {
namespace {

using namespace Tests;

const std::string kIncomplete = "4 FrameAcquisition: Incomplete properties during configure";

Properties stored(const FrameAcquisition& frame) {
  Properties properties;
  frame.configuration(&properties);
  return properties;
}

FrameAcquisition read(const Properties& properties) {
  FrameAcquisition frame;
  frame.configure(&properties);
  return frame;
}

TEST(FramePersistence, ParametersAreEnoughForAFrameMadeFromThem) {
  for (const Transducer& transducer : {kLinearArray, kConvexArray})
    for (const int eventType : {0, 1, 2}) {
      FrameAcquisition original(transducer, formParameters(eventType));
      original.setReceiveSamplingFrequency(2.5e6); // of the parameters too
      const Properties properties = stored(original);
      EXPECT_FALSE(properties.findSubProperties("events"));
      EXPECT_EQ(properties.hasParam("numberApertures"), eventType != 0);
      EXPECT_EQ(properties.hasParam("focalDepth"), eventType == 0);
      const FrameAcquisition again = read(properties);
      EXPECT_EQ(again, original);
      EXPECT_EQ(stored(again), properties);
    }
}

TEST(FramePersistence, ChangedFramesAreWrittenEventByEvent) {
  const FrameAcquisition made(kLinearArray, formParameters(2));
  const std::function<void(FrameAcquisition&)> changes[] = {
      [](auto& f) { f.events()[5].receive.startTime = 1e-6; },
      [](auto& f) {
        f.rois()->roi(0) = Geometry::Polygon2D(std::vector<Eigen::Vector2d>{{0, 0}, {0, 1}});
      },
      [](auto& f) { f.transducer().configureLinear(32, 0.3); }}; // too small for the parameters
  for (const auto& change : changes) {
    FrameAcquisition frame(made);
    change(frame);
    Properties properties = stored(made); // whose parameters must not survive
    frame.configuration(&properties);
    EXPECT_FALSE(properties.hasParam("eventType"));
    EXPECT_EQ(properties.allSubProperties("events").size(), frame.events().size());
    EXPECT_EQ(read(properties), frame);
  }
}

TEST(FramePersistence, KeepsWhatIsNotANumber) {
  const FrameAcquisition frame(kLinearArray, changed(2, [](auto& p) { p.divergingWave.numberEventsPerAperture = 1; }));
  const Properties properties = stored(frame);
  EXPECT_EQ(properties.allSubProperties("events").size(), 4u); // a NaN never compares equal
  const FrameAcquisition again = read(properties);
  ASSERT_EQ(again.events().size(), 4u);
  EXPECT_TRUE(std::isnan(again.events()[3].transmit.waveFiducial.y()));
  EXPECT_EQ(stored(again), properties);
}

TEST(FramePersistence, StoredRegionsGeometryAndMetadataReplaceWhatWasMade) {
  Properties properties = stored(FrameAcquisition(kLinearArray, formParameters(1)));
  properties.removeSubProperties("beamformingRois");
  properties.subProperties("beamformingRois").addSubProperties("rois").setParam("points", "1 2; 3 4");
  FrameGeometryLinear geometry;
  geometry.setWidth(7.0);
  geometry.setDepth(3.0);
  properties.removeSubProperties("frameGeometry");
  geometry.configuration(&properties.subProperties("frameGeometry"));
  properties.subProperties("metadata").setParam("numRows", 5);
  const FrameAcquisition frame = read(properties);
  EXPECT_EQ(frame.events().size(), 64u);
  EXPECT_EQ(frame.rois()->size(), 1);
  EXPECT_TRUE(frame.frameGeometry().frameGeometry()->isApprox(geometry, 0.0));
  EXPECT_EQ(frame.ultrasoundMetadata().numRows, 5);
  EXPECT_TRUE(stored(frame).findSubProperties("events")); // the parameters alone don't give this
}

TEST(FramePersistence, OlderFormHasOneApertureOfSomeEvents) {
  for (const int eventType : {1, 2}) {
    const FrameAcquisition expected(kLinearArray, changed(eventType, [](auto& p) {
                                      p.planeWave.numberApertures = p.divergingWave.numberApertures = 1;
                                    }));
    Properties properties = stored(expected);
    properties.removeParam("numberEventsPerAperture");
    properties.setParam("numberApertures", 4); // not enough for the present form
    properties.setParam("numberEvents", 16);
    EXPECT_EQ(read(properties), expected);

    Properties incomplete = properties, tooWide = properties;
    incomplete.removeParam("numberEvents");
    tooWide.setParam(eventType == 1 ? "maxTransmitAperture" : "maxReceiveAperture", 129);
    for (Properties* bad : {&incomplete, &tooWide}) {
      const ExpectedLog log;
      EXPECT_TRUE(read(*bad).events().empty());
      EXPECT_EQ(log.messages(), std::vector<std::string>{kIncomplete});
      PulseEchoEvent().configuration(&bad->addSubProperties("events"));
      EXPECT_EQ(read(*bad).events().size(), 1u);
    }
  }
}

TEST(FramePersistence, WithoutParametersAndEventsOnlyTheTransducerIsRead) {
  const FrameAcquisition before(kLinearArray, formParameters(0));
  for (const char* missing : {"eventType", "receiveSamplingFrequency", "numberFocusedBeamsTotal"}) {
    Properties properties = stored(FrameAcquisition(kConvexArray, formParameters(0)));
    properties.removeParam(missing);
    FrameAcquisition frame(before);
    const ExpectedLog log;
    frame.configure(&properties);
    EXPECT_EQ(log.messages(), std::vector<std::string>{kIncomplete}) << missing;
    EXPECT_EQ(frame.transducer(), kConvexArray);
    frame.transducer() = kLinearArray;
    EXPECT_EQ(frame, before);
  }
}

TEST(FramePersistence, BadInputIsLoggedAndChangesNothing) {
  const FrameAcquisition before(kConvexArray, formParameters(2));
  const auto withParam = [](const char* key, const char* text) {
    Properties properties = stored(FrameAcquisition(kLinearArray, formParameters(1)));
    properties.setParam(key, text);
    return properties;
  };
  Properties badEvent = withParam("eventType", "1");
  badEvent.removeParam("eventType");
  for (const char* start : {"0 0 0", "0 0"}) {
    Properties& event = badEvent.addSubProperties("events");
    PulseEchoEvent().configuration(&event);
    event.subProperties("transmit").setParam("waveStart", start);
  }
  const struct {
    Properties properties;
    const char* message;
  } cases[] = {{withParam("maxTransmitAperture", "200"), "4 FrameAcquisition: Plane and diverging waves need"},
               {withParam("endDepth", "inf"), "endDepth is inf"},
               {withParam("eventType", "17"), "4 FrameAcquisition: Unknown eventType value 17 during configure"},
               {badEvent, "4 FrameAcquisition: Event 1 of 2 can't be read"}};
  for (const auto& c : cases) {
    FrameAcquisition frame(before);
    const ExpectedLog log;
    frame.configure(&c.properties);
    EXPECT_TRUE(log.contains(c.message)) << c.message;
    EXPECT_EQ(frame.events(), before.events());
  }

  FrameAcquisition frame(before);
  const ExpectedLog log;
  const Properties noAperture = withParam("maxReceiveAperture", "0");
  EXPECT_THROW(frame.configure(&noAperture), std::bad_optional_access);
  EXPECT_EQ(frame, before);
}

} // namespace
} // namespace Kelvaris::US
