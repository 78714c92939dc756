#include "imaging/StreamScanConversionAlgorithm.h"

#include "Lib/SharedImageSet.h"
#include "Stream/StreamAlgorithmExecutor.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

#include <memory>

namespace Kelvaris::US {
namespace {

TEST(StreamScanConversion, MakesExecutorsForOneStream) {
  SharedImageSet set;
  ImageStream stream("probe"), another("another");
  set.setModality(Data::Ultrasound);
  for (const DataList& data : {DataList{}, DataList{&set}, DataList{&stream, &another}})
    EXPECT_FALSE(StreamScanConversionAlgorithm::createCompatible(data, nullptr));
  Algorithm* created = nullptr;
  ASSERT_TRUE(StreamScanConversionAlgorithm::createCompatible({&stream}, &created));
  const std::unique_ptr<Algorithm> owner(created);
  const auto& executor = dynamic_cast<const StreamAlgorithmExecutor&>(*created);
  EXPECT_EQ(executor.streamAlgorithmName(), "Advanced Scan-conversion");
  EXPECT_FALSE(executor.autoStart);
  EXPECT_EQ(executor.mode, StreamAlgorithmExecutor::EveryImage);
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
