#include "US/UltrasoundMetadata.h"

#include "Core/Properties.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

namespace Kelvaris::US {
namespace {

using Kelvaris::Tests::ExpectedLog;

TEST(UltrasoundMetadata, EveryFieldIsComparedAndStored) {
  const UltrasoundMetadata fresh;
  Properties stored;
  fresh.configuration(&stored);
  EXPECT_EQ(stored.params().size(), 10U);
  for (const auto& [key, text] : stored.params()) {
    Properties changed = stored;
    changed.setParam(key, key == "scanConverted" ? "true" : "7");
    UltrasoundMetadata read;
    read.configure(&changed);
    EXPECT_NE(read, fresh) << key;
    Properties again;
    read.configuration(&again);
    EXPECT_EQ(again, changed) << key;
  }
}

TEST(UltrasoundMetadata, MissingKeysStayAndUnreadableOnesChangeNothing) {
  UltrasoundMetadata metadata;
  metadata.depthEnd = 20;
  Properties partial;
  partial.setParam("numRows", 79);
  metadata.configure(nullptr);
  metadata.configure(&partial);
  EXPECT_EQ(metadata.numRows, 79);
  EXPECT_EQ(metadata.depthEnd, 20);

  partial.setParam("numRows", 80);
  partial.setParam("depthEnd", "deep");
  const ExpectedLog log;
  metadata.configure(&partial);
  EXPECT_TRUE(log.contains("depthEnd"));
  EXPECT_EQ(metadata.numRows, 79);
}

} // namespace
} // namespace Kelvaris::US
