#include "Core/Properties.h"
#include "Lib/DataComponentsIO.h"
#include "US/FrameGeometryMetadata.h"
#include "US/GeometryCases.h"
#include "US/UltrasoundMetadata.h"
#include "US/UltrasoundSweep.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

namespace Kelvaris::US {
namespace {

using Kelvaris::Tests::ExpectedLog;

TEST(FrameGeometryMetadata, OwnsItsGeometry) {
  const auto linear = Tests::linearCase(38, 5, 40).geometry;
  FrameGeometryMetadata metadata(*linear);
  const FrameGeometryMetadata copy = metadata;
  linear->setDepth(50);
  EXPECT_EQ(metadata, copy);
  EXPECT_TRUE(metadata.clone()->equals(copy));
  metadata.frameGeometry()->setDepth(60);
  EXPECT_EQ(copy.frameGeometry()->depth(), 40);
  EXPECT_NE(metadata, copy);
  metadata = FrameGeometryMetadata();
  EXPECT_NE(metadata, copy);
  metadata = copy;
  EXPECT_EQ(metadata, copy);
}

TEST(FrameGeometryMetadata, ComesBackFromAFileAsItself) {
  DataComponentList components;
  const auto& written = components.add<FrameGeometryMetadata>(*Tests::linearCase(38, 5, 40).geometry);
  components.add<UltrasoundMetadata>();
  const auto read = DataComponentsIO::fromXml(DataComponentsIO::toXml(components));
  ASSERT_TRUE(read && read->get<FrameGeometryMetadata>() && read->get<UltrasoundMetadata>());
  EXPECT_EQ(*read->get<FrameGeometryMetadata>(), written);
}

TEST(FrameGeometryMetadata, TakesOverAGeometryOfAnotherKindOrKeepsItsOwn) {
  FrameGeometryMetadata metadata(*Tests::linearCase(38, 5, 40).geometry);
  const FrameGeometryMetadata before = metadata, other(*Tests::convexCase(28.5, 60, 120).geometry);
  for (const auto& [key, message] : {std::pair("depth", "a frame geometry needs its class under \"type\""),
                                     {"type", "Unknown frame geometry type \"Round\""}}) {
    Properties bad;
    bad.setParam(key, "Round");
    const ExpectedLog log;
    metadata.configure(&bad);
    EXPECT_TRUE(log.contains(message)) << testing::PrintToString(log.messages());
  }
  Properties stored;
  metadata.configure(&stored); // empty
  EXPECT_EQ(metadata, before);
  other.configuration(&stored);
  metadata.configure(&stored);
  EXPECT_EQ(metadata, other);
}

TEST(UltrasoundMetadata, EveryFieldIsComparedAndStored) {
  const UltrasoundMetadata fresh;
  Properties stored;
  fresh.configuration(&stored);
  EXPECT_EQ(stored.params().size(), 10U);
  for (const auto& [key, text] : stored.params()) {
    Properties changed = stored, again;
    changed.setParam(key, key == "scanConverted" ? "true" : "7");
    UltrasoundMetadata read;
    read.configure(&changed);
    EXPECT_NE(read, fresh) << key;
    read.configuration(&again);
    EXPECT_EQ(again, changed) << key;
  }
}

TEST(UltrasoundMetadata, MissingKeysStayAndUnreadableOnesChangeNothing) {
  UltrasoundMetadata metadata;
  metadata.depthEnd = 20;
  Properties partial;
  partial.setParam("numRows", 79);
  metadata.configure(&partial);
  EXPECT_EQ(metadata.depthEnd, 20);

  partial.setParam("numRows", 80);
  partial.setParam("depthEnd", "deep");
  const ExpectedLog log;
  metadata.configure(&partial);
  EXPECT_TRUE(log.contains("depthEnd"));
  EXPECT_EQ(metadata.numRows, 79);
}

TEST(UltrasoundSweep, ItsClonesAreSweepsWithTheGeometry) {
  UltrasoundSweep sweep;
  EXPECT_EQ(dynamic_cast<const UltrasoundSweep&>(*sweep.clone(1)).frameGeometry(), nullptr);
  const auto convex = Tests::convexCase(28.5, 60, 120).geometry;
  sweep.setFrameGeometry(*convex);
  sweep.add(std::make_shared<SharedImage>(ImageDescriptor(PixelUInt8, 2, 3)), 5.0);
  const auto copy = sweep.clone(4);
  const auto* const geometry = dynamic_cast<const UltrasoundSweep&>(*copy).frameGeometry();
  ASSERT_TRUE(geometry && geometry != sweep.frameGeometry());
  EXPECT_TRUE(geometry->isApprox(*convex, 0.0, true));
  EXPECT_EQ(copy->size(), 1);
}

} // namespace
} // namespace Kelvaris::US
