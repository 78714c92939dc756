#include "model/FrameAcquisition.h"

#include "US/FrameGeometryMetadata.h"
#include "US/GeometryCases.h"
#include "US/UltrasoundMetadata.h"
#include "model/FrameCases.h"
#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"

namespace Kelvaris::US {
namespace {

using Eigen::Vector2d;
using Eigen::Vector3d;
using namespace Kelvaris::Tests;

constexpr double kPi = std::numbers::pi;

double angleOf(const Vector3d& direction) {
  return std::atan2(direction.x(), direction.y());
}

TEST(FocusedFrame, BeamsStartAtEqualArcLengthAndFanOutFromTheArray) {
  for (const int numBeams : {2, 16, 33}) {
    const auto parameters = changed(0, [&](auto& p) {
      p.focused.numberFocusedBeamsTotal = numBeams;
      p.focused.steeringAngle = 0.1;
    });
    const FrameAcquisition linear(kLinearArray, parameters), convex(kConvexArray, parameters);
    ASSERT_EQ(linear.events().size(), static_cast<std::size_t>(numBeams));
    for (int i = 0; i < numBeams; ++i) {
      const double part = static_cast<double>(i) / (numBeams - 1) - 0.5; // of the array, from its centre
      const auto& onLine = linear.events()[static_cast<std::size_t>(i)].transmit;
      EXPECT_NEAR(onLine.waveStart.x(), part * 127 * 0.3, 1e-9);
      EXPECT_NEAR(angleOf(onLine.waveFiducial - onLine.waveStart), 0.1, 1e-12);
      EXPECT_NEAR((onLine.waveFiducial - onLine.waveStart).norm(), 40.0, 1e-12);

      const auto& onArc = convex.events()[static_cast<std::size_t>(i)].transmit;
      const double angle = part * 127 * 0.4 / 50.0;
      EXPECT_NEAR((onArc.waveStart - Vector3d(50.0 * std::sin(angle), 50.0 * std::cos(angle) - 50.0, 0)).norm(), 0.0,
                  1e-4);
      EXPECT_NEAR(angleOf(onArc.waveFiducial - onArc.waveStart), angle + 0.1, 1e-12);
    }
  }
}

TEST(FocusedFrame, ASingleBeamStartsInTheMiddleAndPointsAlongTheEdgeOfAConvexArray) {
  const auto parameters = changed(0, [](auto& p) { p.focused.numberFocusedBeamsTotal = 1; });
  const FrameAcquisition linear(kLinearArray, parameters), convex(kConvexArray, parameters);
  const auto &onLine = linear.events()[0].transmit, &onArc = convex.events()[0].transmit;
  EXPECT_LT(onLine.waveStart.norm(), 1e-9);
  EXPECT_LT((onLine.waveFiducial - Vector3d(0, 40, 0)).norm(), 1e-9);
  EXPECT_LT(onArc.waveStart.norm(), 1e-4);
  EXPECT_NEAR(angleOf(onArc.waveFiducial - onArc.waveStart), -0.5 * 127 * 0.4 / 50.0, 1e-6);
  // The undefined column of a single beam leaves the event's own end time.
  const double own = 1.02 * (20.0 + std::hypot(0.3 * 64, 20.0)) / 1.54e6;
  EXPECT_NEAR(linear.events()[0].receive.endTime, own, 1e-18);
}

TEST(WaveFrame, AnglesRunFastestOverEvenlySpacedApertures) {
  const FrameAcquisition planes(kLinearArray, changed(1, [](auto&p) { p.maxTransmitAperture = 32; })),
      diverging(kConvexArray, formParameters(2));
  const auto elements = kLinearArray.elementPositions();
  ASSERT_EQ(planes.events().size(), 64u);
  ASSERT_EQ(diverging.events().size(), 64u);
  const std::size_t firsts[] = {0, 21, 43, 64};
  for (std::size_t i = 0; i < 64; ++i) {
    const PulseEchoEvent& event = planes.events()[i];
    const std::size_t first = firsts[i / 16];
    const double angle = -kPi / 12 + static_cast<double>(i % 16) * kPi / 6 / 15;
    EXPECT_NEAR(event.transmit.waveStart.x(), (elements[first].x() + elements[first + 63].x()) / 2, 1e-12) << i;
    EXPECT_NEAR(angleOf(event.transmit.waveFiducial), angle, 1e-12);
    EXPECT_EQ(event.receive.apertureLast - event.receive.apertureFirst, 63);
    EXPECT_EQ(event.transmit.apertureLast - event.transmit.apertureFirst, 31);
    EXPECT_NEAR(event.transmit.apertureFirst, static_cast<double>(first) + 16, 1.0);
    EXPECT_EQ(event.transmit.pulseLength, 2.0);
    EXPECT_EQ(event.receive.samplingFrequency, 1e7);
    // The virtual source lies behind the aperture's centre.
    const auto& transmit = diverging.events()[i].transmit;
    EXPECT_NEAR((transmit.waveStart - transmit.waveFiducial).norm(), 10.0, 1e-12);
    EXPECT_NEAR(angleOf(transmit.waveStart - transmit.waveFiducial), angle, 1e-12);
  }
}

TEST(WaveFrame, OfASingleAngleHasTheFirstPlaneButNoDivergingWave) {
  const FrameAcquisition plane(kConvexArray, changed(1, [](auto& p) {
                                 p.maxTransmitAperture = 128;
                                 p.planeWave.numberApertures = p.planeWave.numberEventsPerAperture = 1;
                               }));
  ASSERT_EQ(plane.events().size(), 1u);
  EXPECT_NEAR(angleOf(plane.events()[0].transmit.waveFiducial), -kPi / 12, 1e-15);
  // On the chord between the outer elements.
  const Vector3d chord(0, kConvexArray.elementPositions()[0].y(), 0);
  EXPECT_LT((plane.events()[0].transmit.waveStart - chord).norm(), 1e-12);

  const FrameAcquisition none(kLinearArray, changed(2, [](auto& p) { p.divergingWave.numberEventsPerAperture = 1; }));
  ASSERT_EQ(none.events().size(), 4u);
  EXPECT_TRUE(std::isnan(none.events()[0].transmit.waveFiducial.x()));
  EXPECT_EQ(none.events()[0].transmit.timeZeroPoint, Vector3d::Zero());
  EXPECT_EQ(none.events()[0].receive.endTime, 0.0);
}

TEST(Frame, GeometryAndMetadataFollowTheScan) {
  const double range = kPi / 6, width = 127 * 0.3, sectorRadius = 0.5 * width / std::tan(range / 2);
  const double opening = 0.5 * 127 * 0.4 / 50.0 * 180 / kPi;
  const auto sector = US::Tests::sectorCase(15, sectorRadius, sectorRadius + 20, 1).geometry;
  const auto convex = US::Tests::convexCase(opening, 50, 20).geometry;
  const auto steered = US::Tests::steeredCase(opening * 16 / 15, 50, 18, 20).geometry;
  const auto linear = [](double w, double steering, double depth) {
    return US::Tests::linearCase(w, steering, depth).geometry;
  };
  const auto tilted = changed(0, [](auto& p) { p.focused.steeringAngle = kPi / 10; });
  const auto oneBeam = changed(0, [](auto& p) { p.focused.numberFocusedBeamsTotal = 1; });
  const auto narrow = changed(1, [](auto& p) { p.planeWave.planeAngleRange = 0.03; });
  const struct {
    const char* name;
    Transducer transducer;
    FrameParameters parameters;
    std::shared_ptr<FrameGeometry> geometry;
    int columns;
    double focalDepth;
  } cases[] = {{"beams", kLinearArray, formParameters(0), linear(width * 16 / 15, 0, 20), 16, 40},
               {"steered beams", kLinearArray, tilted, linear(width * 16 / 15, 18, 20 * std::cos(kPi / 10)), 16, 40},
               {"one beam", kLinearArray, oneBeam, linear(1, 0, 20), 1, 40},
               {"beams, convex", kConvexArray, tilted, steered, 16, 40},
               {"planes", kLinearArray, formParameters(1), sector, 255, 0},
               {"nearly parallel planes", kLinearArray, narrow, linear(width, 0, 20), 255, 0},
               {"planes, convex", kConvexArray, formParameters(1), convex, 255, 0},
               {"diverging", kLinearArray, formParameters(2), sector, 255, 0},
               {"diverging, convex", kConvexArray, formParameters(2), convex, 255, 0}};
  for (const auto& c : cases) {
    const FrameAcquisition frame(c.transducer, c.parameters);
    // The arc's curve is sampled from a spline: some 1e-5 mm.
    EXPECT_TRUE(frame.frameGeometry().frameGeometry()->isApprox(*c.geometry, 1e-4)) << c.name;
    UltrasoundMetadata expected;
    expected.scanMode = 6;
    expected.persistence = 0;
    expected.numColumns = c.columns;
    expected.numRows = 78;
    expected.depthEnd = 20.0;
    expected.focalDepth = c.focalDepth;
    expected.pulseFrequency = 2e6;
    expected.speedOfSound = 1.54e6;
    EXPECT_EQ(frame.ultrasoundMetadata(), expected) << c.name;
  }
}

TEST(Frame, RegionsAreWhatTheWavesIlluminate) {
  for (const Transducer& transducer : {kLinearArray, kConvexArray}) {
    const auto elements = transducer.elementPositions();
    for (const int eventType : {0, 1, 2}) {
      const FrameAcquisition frame(transducer, changed(eventType, [](auto& p) { p.maxTransmitAperture = 40; }));
      const double height = frame.frameGeometry().frameGeometry()->bounds().height();
      ASSERT_EQ(frame.rois()->size(), static_cast<int>(frame.events().size()));
      for (int i = 0; i < frame.rois()->size(); ++i) {
        const auto& transmit = frame.events()[static_cast<std::size_t>(i)].transmit;
        const auto& points = frame.rois()->roi(i).points();
        const Vector2d fiducial = transmit.waveFiducial.head<2>();
        if (eventType == 0) {
          ASSERT_EQ(points.size(), 2u);
          EXPECT_EQ(points[0], Vector2d(transmit.waveStart.head<2>()));
          EXPECT_NEAR((points[1] - points[0]).norm(), 20.0, 1e-12);
          EXPECT_NEAR((points[1] - points[0]).dot(fiducial - points[0]), 20.0 * 40.0, 1e-9);
          continue;
        }
        ASSERT_EQ(points.size(), 4u);
        EXPECT_EQ(points[0], Vector2d(elements[static_cast<std::size_t>(transmit.apertureFirst)].head<2>()));
        EXPECT_EQ(points[3], Vector2d(elements[static_cast<std::size_t>(transmit.apertureLast)].head<2>()));
        for (const auto& [top, bottom] : {std::pair(points[0], points[1]), std::pair(points[3], points[2])}) {
          EXPECT_NEAR(bottom.y() - top.y(), height, 1e-9);
          const Vector2d along = eventType == 1 ? fiducial : Vector2d(top - fiducial);
          EXPECT_NEAR(along.x() * (bottom - top).y(), along.y() * (bottom - top).x(), 1e-9);
        }
      }
    }
  }
}

/// By the rule alone: every row of every column from the bottom up, every element.
double endTimeByTrying(const FrameAcquisition& frame) {
  const auto elements = frame.transducer().elementPositions();
  const FrameGeometry& geometry = *frame.frameGeometry().frameGeometry();
  const int columns = frame.ultrasoundMetadata().numColumns, rows = frame.ultrasoundMetadata().numRows;
  double latest = 0.0;
  for (int i = 0; i < static_cast<int>(frame.events().size()); ++i) {
    const auto& transmit = frame.events()[static_cast<std::size_t>(i)].transmit;
    const bool focused = transmit.eventType == PulseEchoEvent::EventType::Focused;
    for (int x = focused ? i : 0; x < (focused ? i + 1 : columns); ++x)
      for (int y = rows - 1; y >= 0; --y) {
        const Vector2d at(x / (columns - 1.0), focused ? 1.0 : y / (rows - 1.0));
        const Vector2d inPlane = geometry.convertPoint(at, FrameGeometry::NormalizedToPhysical);
        if (!focused && !frame.rois()->roi(i).includesPoint(inPlane)) continue;
        const Vector3d p(inPlane.x(), inPlane.y(), 0.0), t = transmit.timeZeroPoint, f = transmit.waveFiducial;
        double way = (p - f).norm() - (t - f).norm();
        if (transmit.eventType == PulseEchoEvent::EventType::PlaneWave) way = (p - t).dot(f);
        if (focused) way = (t - f).norm() + ((f - transmit.waveStart).dot(p - f) > 0 ? 1 : -1) * (p - f).norm();
        double back = 0.0;
        for (const Vector3d& element : elements)
          back = std::max(back, std::hypot(p.x() - element.x(), p.y() - element.y()));
        latest = std::max(latest, (way + back) / 1.54e6);
        break;
      }
    if (focused) latest = std::max(latest, 1.02 * (20.0 + std::hypot(frame.transducer().pitch() * 64, 20.0)) / 1.54e6);
  }
  return latest;
}

TEST(EndTime, IsWhenTheLastEchoReachesTheFarthestElement) {
  const auto shallowFocus = [](auto& p) { p.focused.focalDepth = 3.0; };
  const auto single = [](auto& p) { p.maxTransmitAperture = 1, p.maxReceiveAperture = 100; };
  const auto wide = [](auto& p) { p.planeWave.planeAngleRange = p.divergingWave.steeringAngleRange = 2.6; };
  const auto onePlane = [](auto& p) { p.planeWave.numberApertures = p.planeWave.numberEventsPerAperture = 1; };
  for (const Transducer& transducer : {kLinearArray, kConvexArray, Transducer::createLinear(64, 0.15)})
    for (const auto& parameters : {formParameters(0), changed(0, shallowFocus), formParameters(1), changed(1, wide),
                                   changed(1, onePlane), formParameters(2), changed(2, wide)}) {
      const FrameAcquisition frame(transducer, parameters);
      const double expected = endTimeByTrying(frame);
      for (const PulseEchoEvent& event : frame.events())
        EXPECT_NEAR(event.receive.endTime, expected, 1e-15) << parameters.eventType << " " << transducer.numElements();
    }
  const FrameAcquisition aperturesOfOne(kLinearArray, changed(2, single)); // regions without area
  EXPECT_NEAR(aperturesOfOne.events()[0].receive.endTime, endTimeByTrying(aperturesOfOne), 1e-15);
  // The bottom corners of frame and region coincide.
  const FrameAcquisition form(kLinearArray, formParameters(1));
  EXPECT_EQ(static_cast<int>(form.events()[0].receive.endTime * 1e7), 443);
}

TEST(Frame, UnusableParametersAreRefusedInWords) {
  const struct {
    Transducer transducer;
    FrameParameters parameters;
    const char* message;
  } cases[] = {{Transducer::createLinear(0, 0.3), formParameters(0), "0 elements"},
               {Transducer::createLinear(128, std::nan("")), formParameters(1), "pitch is nan"},
               {Transducer::createConvex(128, 0.3, 0.0), formParameters(0), "radius of curvature is 0"},
               {kLinearArray, changed(1, [](auto& p) { p.maxTransmitAperture = 129; }), "maxTransmitAperture is 129"},
               {kLinearArray, changed(0, [](auto& p) { p.focused.numberFocusedBeamsTotal = -1; }), "is -1"},
               {kLinearArray, changed(1, [](auto& p) { p.planeWave.numberApertures = 65536; }), "too many"},
               {Transducer::createLinear(16384, 0.01),
                changed(0, [](auto& p) { p.focused.numberFocusedBeamsTotal = 1025; }), "1025 events of 16384 elements"},
               {kLinearArray, changed(0, [](auto& p) { p.focused.focalDepth = std::nan(""); }), "focalDepth is nan"},
               {kLinearArray, changed(1, [](auto& p) { p.endDepth = 1e9; }), "rows"},
               {kLinearArray, changed(2, [](auto& p) { p.speedOfSound = 0; }), "speedOfSound is 0"}};
  for (const auto& c : cases)
    EXPECT_CONTAINS(errorOf<std::invalid_argument>([&] { FrameAcquisition(c.transducer, c.parameters); }), c.message);

  const ExpectedLog log;
  for (const int eventType : {0, 1, 2})
    EXPECT_THROW(FrameAcquisition(kLinearArray, changed(eventType, [](auto& p) { p.maxReceiveAperture = 0; })),
                 std::bad_optional_access);
  const auto none = [](auto& p) { p.focused.numberFocusedBeamsTotal = p.planeWave.numberApertures = 0; };
  for (const int eventType : {0, 1, 3})
    EXPECT_TRUE(FrameAcquisition(kConvexArray, changed(eventType, none)).events().empty());
  EXPECT_EQ(log.messages().back(), "4 FrameAcquisition: Unknown eventType value 3 during configure");
}

TEST(Frame, CopiesAreDeepAndEqualityComparesWhatIsThere) {
  const FrameAcquisition frame(kLinearArray, formParameters(1));
  const FrameAcquisition raw(frame.transducer(), frame.events());
  EXPECT_NE(frame, raw);
  EXPECT_EQ(raw, FrameAcquisition(kLinearArray, frame.events()));

  FrameAcquisition copy(frame);
  EXPECT_EQ(copy, frame);
  copy.rois()->roi(3) = Geometry::Polygon2D();
  EXPECT_NE(copy, frame);
  copy = frame;
  EXPECT_EQ(copy, frame);
  copy.transducer().configureLinear(128, 0.31);
  EXPECT_NE(copy, frame);
  copy = frame;
  copy.setReceiveSamplingFrequency(2.5e6);
  EXPECT_EQ(copy, FrameAcquisition(kLinearArray, changed(1, [](auto& p) { p.receiveSamplingFrequency = 2.5e6; })));
}

} // namespace
} // namespace Kelvaris::US
