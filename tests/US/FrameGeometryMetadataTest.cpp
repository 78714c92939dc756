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
  components.add<FrameGeometryMetadata>(*Tests::linearCase(38, 5, 40).geometry);
  components.add<UltrasoundMetadata>();
  const auto read = DataComponentsIO::fromXml(DataComponentsIO::toXml(components));
  ASSERT_TRUE(read);
  ASSERT_NE(read->get<FrameGeometryMetadata>(), nullptr);
  EXPECT_EQ(*read->get<FrameGeometryMetadata>(), *components.get<FrameGeometryMetadata>());
  EXPECT_NE(read->get<UltrasoundMetadata>(), nullptr);
}

TEST(FrameGeometryMetadata, TakesOverAGeometryOfAnyKindOrKeepsItsOwn) {
  FrameGeometryMetadata metadata(*Tests::linearCase(38, 5, 40).geometry);
  const FrameGeometryMetadata before = metadata;
  const Properties none;
  metadata.configure(nullptr);
  metadata.configure(&none);
  EXPECT_EQ(metadata, before);

  const struct {
    const char *key, *text, *message;
  } cases[] = {{"depth", "40", "a frame geometry needs its class under \"type\""},
               {"type", "FrameGeometryRound", "Unknown frame geometry type \"FrameGeometryRound\""}};
  for (const auto& c : cases) {
    Properties bad;
    bad.setParam(c.key, c.text);
    const ExpectedLog log;
    metadata.configure(&bad);
    EXPECT_TRUE(log.contains(c.message)) << testing::PrintToString(log.messages());
    EXPECT_EQ(metadata, before);
  }

  for (const Tests::GeometryCase& c : Tests::geometryCases()) {
    const FrameGeometryMetadata source(*c.geometry);
    Properties full;
    source.configuration(&full);
    metadata.configure(&full);
    EXPECT_EQ(metadata, source) << c.name;
  }
}

} // namespace
} // namespace Kelvaris::US
