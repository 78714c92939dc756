#include "US/FrameGeometryMetadata.h"

#include "Core/Properties.h"
#include "Lib/DataComponentsIO.h"
#include "US/GeometryCases.h"
#include "US/UltrasoundMetadata.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

namespace Kelvaris::US {
namespace {

using Kelvaris::Tests::ExpectedLog;

TEST(FrameGeometryMetadata, OwnsItsGeometry) {
  const auto linear = Tests::linearCase(38, 5, 40).geometry;
  FrameGeometryMetadata metadata(*linear);
  linear->setDepth(50);
  EXPECT_EQ(metadata.frameGeometry()->depth(), 40);

  const FrameGeometryMetadata copy = metadata;
  const std::unique_ptr<DataComponentBase> clone = metadata.clone();
  EXPECT_TRUE(clone->equals(copy));
  metadata.frameGeometry()->setDepth(60);
  EXPECT_EQ(copy.frameGeometry()->depth(), 40);
  EXPECT_FALSE(clone->equals(metadata));

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
  const std::pair<std::string, const char*> cases[] = {
      {"", "a frame geometry needs its class under \"type\""},
      {"FrameGeometryRound", "Unknown frame geometry type \"FrameGeometryRound\""}};
  for (const auto& [type, message] : cases) {
    Properties bad;
    bad.setParam(type.empty() ? "depth" : "type", type);
    const ExpectedLog log;
    metadata.configure(&bad);
    EXPECT_TRUE(log.contains(message)) << testing::PrintToString(log.messages());
  }
  const Properties none;
  metadata.configure(&none);
  EXPECT_EQ(metadata, before);

  Properties stored;
  other.configuration(&stored);
  metadata.configure(&stored);
  EXPECT_EQ(metadata, other);
}

} // namespace
} // namespace Kelvaris::US
