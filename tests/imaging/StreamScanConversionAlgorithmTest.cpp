#include "imaging/StreamScanConversionAlgorithm.h"

#include "Lib/SharedImageSet.h"
#include "Stream/ImageStream.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

namespace Kelvaris::US {
namespace {

TEST(StreamScanConversion, MakesExecutorsForOneStream) {
  SharedImageSet set;
  ImageStream stream("probe"), another("another");
  for (const DataList& data : {DataList{}, DataList{&set}, DataList{&stream, &another}})
    EXPECT_FALSE(StreamScanConversionAlgorithm::createCompatible(data, nullptr));
  EXPECT_TRUE(StreamScanConversionAlgorithm::createCompatible({&stream}, nullptr));
}

TEST(StreamScanConversion, ComputesNothingItself) {
  StreamScanConversionAlgorithm algorithm;
  const Tests::ExpectedLog log;
  algorithm.compute();
  EXPECT_EQ(algorithm.status(), Algorithm::Failure);
  EXPECT_TRUE(algorithm.takeOutput().empty());
  EXPECT_TRUE(log.contains("4 ChannelDataFilterAlgorithm: No implementation. This algorithm is only intended to "
                           "instantiate a pre-configured StreamAlgorithmExecutor with createCompatible."));
}

} // namespace
} // namespace Kelvaris::US
