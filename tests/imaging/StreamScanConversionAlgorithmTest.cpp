#include "imaging/StreamScanConversionAlgorithm.h"

#include "Lib/SharedImageSet.h"
#include "Stream/StreamAlgorithmExecutor.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace Kelvaris::US {
namespace {

TEST(StreamScanConversion, MakesExecutorsForStreamsOfAnyKindThatOutliveAMissingScanConversion) {
  SharedImageSet set;
  ImageStream stream("probe"), another("another");
  set.setModality(Data::Ultrasound);
  for (const DataList& data : {DataList{}, DataList{&set}, DataList{&stream, &another}, DataList{&stream, &set}})
    EXPECT_FALSE(StreamScanConversionAlgorithm::createCompatible(data, nullptr));
  for (const auto kind : {Data::ImageStreamKind, Data::VolumeStreamKind, Data::OtherStreamKind}) {
    stream.setKind(kind);
    EXPECT_TRUE(StreamScanConversionAlgorithm::createCompatible({&stream}, nullptr));
  }
  Algorithm* created = nullptr;
  ASSERT_TRUE(StreamScanConversionAlgorithm::createCompatible({&stream}, &created));
  const std::unique_ptr<Algorithm> owner(created);
  auto& executor = dynamic_cast<StreamAlgorithmExecutor&>(*created);
  EXPECT_EQ(executor.streamAlgorithmName(), "Advanced Scan-conversion");
  EXPECT_FALSE(executor.autoStart);
  EXPECT_EQ(executor.mode, StreamAlgorithmExecutor::EveryImage);

  executor.compute();
  const auto images = std::make_shared<SharedImageSet>();
  images->add(std::make_shared<SharedImage>(ImageDescriptor(PixelFloat, 2, 2)));
  const Tests::ExpectedLog log;
  for (int i = 0; i < 3; ++i)
    stream.dataSignal.emitSignal(std::make_shared<ImageStreamData>(images));
  EXPECT_EQ(log.messages(),
            std::vector<std::string>{"4 StreamAlgorithmExecutor: Could not create the algorithm "
                                     "\"Advanced Scan-conversion\" so far: no factory has one of this name"});
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
