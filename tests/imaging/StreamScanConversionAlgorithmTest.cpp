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

TEST(StreamScanConversion, TakesOneStreamOfAnyKindAndNothingElse) {
  ImageStream images("images"), volumes("volumes"), other("other");
  volumes.setKind(Data::VolumeStreamKind);
  other.setKind(Data::OtherStreamKind);
  SharedImageSet set;
  set.setModality(Data::Ultrasound);
  set.add(std::make_shared<SharedImage>(std::make_shared<TypedImage<float>>(2, 2)));
  const struct {
    const char* what;
    DataList data;
    bool compatible;
  } cases[] = {{"images", {&images}, true},
               {"volumes", {&volumes}, true},
               {"any other", {&other}, true},
               {"nothing", {}, false},
               {"an image set", {&set}, false},
               {"two streams", {&images, &volumes}, false},
               {"stream and set", {&images, &set}, false}};
  for (const auto& c : cases) {
    EXPECT_EQ(StreamScanConversionAlgorithm::createCompatible(c.data, nullptr), c.compatible) << c.what;
    Algorithm* created = nullptr;
    EXPECT_EQ(StreamScanConversionAlgorithm::createCompatible(c.data, &created), c.compatible) << c.what;
    const std::unique_ptr<Algorithm> algorithm(created);
    const auto* executor = dynamic_cast<StreamAlgorithmExecutor*>(created);
    ASSERT_EQ(executor != nullptr, c.compatible) << c.what;
    if (!executor) continue;
    EXPECT_EQ(executor->streamAlgorithmName(), "Advanced Scan-conversion");
    EXPECT_FALSE(executor->autoStart);
    EXPECT_EQ(executor->mode, StreamAlgorithmExecutor::EveryImage);
  }
}

TEST(StreamScanConversion, WithoutAScanConversionTheStreamLivesOnAndTheLogSaysWhy) {
  ImageStream stream("probe");
  Algorithm* created = nullptr;
  ASSERT_TRUE(StreamScanConversionAlgorithm::createCompatible({&stream}, &created));
  const std::unique_ptr<Algorithm> executor(created);
  executor->compute();
  auto images = std::make_shared<SharedImageSet>();
  images->add(std::make_shared<SharedImage>(std::make_shared<TypedImage<float>>(2, 2)));
  const Tests::ExpectedLog log;
  for (int i = 0; i < 3; ++i)
    stream.dataSignal.emitSignal(std::make_shared<ImageStreamData>(images));
  EXPECT_EQ(log.messages(), std::vector<std::string>{"4 StreamAlgorithmExecutor: Could not create the algorithm "
                                                     "\"Advanced Scan-conversion\": no factory has one of this name"});
  EXPECT_EQ(executor->takeOutput().size(), 1u);
}

TEST(StreamScanConversion, ComputesNothingItself) {
  StreamScanConversionAlgorithm algorithm;
  const Tests::ExpectedLog log;
  algorithm.compute();
  EXPECT_EQ(algorithm.status(), Algorithm::Failure);
  EXPECT_TRUE(algorithm.takeOutput().empty());
  EXPECT_EQ(log.messages(),
            std::vector<std::string>{
                "4 ChannelDataFilterAlgorithm: No implementation. This algorithm is only intended to instantiate a "
                "pre-configured StreamAlgorithmExecutor with createCompatible."});
}

} // namespace
} // namespace Kelvaris::US
