#include "kelvaris/Chain.h"

#include "apps/TestAlgorithms.h"
#include "kelvaris/Command.h"
#include "support/ExpectedLog.h"

#include "Lib/FactoryRegistry.h"

#include <gtest/gtest.h>

namespace Kelvaris::CommandLine {
namespace {

using Tests::ExpectedLog;
using Tests::floatImage;

class ChainTest : public testing::Test {
protected:
  ChainTest() {
    FactoryRegistry::get().add(std::make_unique<Tests::TestAlgorithmFactory>(), nullptr, this);
    Tests::Record::get() = {};
  }
  ~ChainTest() override { FactoryRegistry::get().remove(this); }

  /// A set with one image of that value.
  static SharedImageSet& oneImage(SharedImageSet& set, float value) {
    set.setModality(Data::Ultrasound);
    set.add(floatImage(4, 3, value), value);
    return set;
  }

  Progress m_progress;
};

/// Keeps the first sample of each image and the state of the set.
class Recorder : public OutputFile {
public:
  void append(const SharedImageSet& images) override {
    samples.push_back(images.get(0).mem()->valueAsDouble(0, 0, 0, 0));
    timestamps.push_back(images.timestamp(0));
    hasProperty = images.properties().hasParam("gained");
  }
  void close() override {}
  void finish() override {}
  std::string summary() const override { return ""; }

  std::vector<double> samples, timestamps;
  bool hasProperty = false;
};

TEST_F(ChainTest, EachOutputGetsTheResultOfItsStep) {
  Recorder input, afterFirst, afterLast;
  Chain chain({parseStep("Gain:factor=10"), parseStep("Gain:offset=1"), parseStep("Test.Levels")}, m_progress);
  chain.addOutput(-1, input);
  chain.addOutput(0, afterFirst);
  chain.addOutput(2, afterLast);
  int steps = 0;
  chain.setStepDone([&] { ++steps; });
  for (const float value : {1.0F, 2.0F}) {
    SharedImageSet set;
    chain.run(oneImage(set, value), 0);
  }
  EXPECT_EQ(input.samples, (std::vector<double>{1, 2}));
  EXPECT_EQ(afterFirst.samples, (std::vector<double>{10, 20}));
  EXPECT_EQ(afterLast.samples, (std::vector<double>{11, 21}));
  EXPECT_EQ(afterLast.timestamps, (std::vector<double>{1, 2}));
  EXPECT_FALSE(input.hasProperty);
  EXPECT_TRUE(afterLast.hasProperty);
  EXPECT_EQ(steps, 6);
  EXPECT_EQ(chain.report().size(), 3U);
}

TEST_F(ChainTest, HoldsTwoImagesAndMakesEachAlgorithmOnce) {
  Chain chain({parseStep("Gain"), parseStep("Gain"), parseStep("Gain"), parseStep("Levels")}, m_progress);
  SharedImageSet set;
  for (int i = 0; i < 20; ++i)
    chain.run(oneImage(set, 1.0F), i);
  EXPECT_EQ(Tests::Record::get().made, 4);
  EXPECT_EQ(Tests::Record::get().mostAlive, 2U);
  EXPECT_EQ(set.size(), 0);
}

TEST_F(ChainTest, FailuresSayWhichStepAndImage) {
  const auto errorOf = [&](const char* step, int images) -> std::string {
    Chain chain({parseStep("Gain"), parseStep(step)}, m_progress);
    try {
      for (int i = 0; i < images; ++i) {
        SharedImageSet set;
        chain.run(oneImage(set, 1.0F), i);
      }
    } catch (const std::exception& error) {
      return error.what();
    }
    return "";
  };
  {
    const ExpectedLog log;
    EXPECT_NE(errorOf("Trouble:at=2", 5).find("Trouble failed on image 2"), std::string::npos);
    EXPECT_TRUE(log.contains("4 FloatAlgorithm: No image came out"));
  }
  EXPECT_EQ(errorOf("Trouble:kind=Throw", 1), "the device is gone");
  EXPECT_NE(errorOf("Gain:x=1", 1).find("no parameter \"x\""), std::string::npos);
}

TEST_F(ChainTest, StepsThatDoNotFitNameWhatDoes) {
  Chain chain({parseStep("Levels"), parseStep("Gain")}, m_progress);
  SharedImageSet set;
  try {
    chain.run(oneImage(set, 1.0F), 0);
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()),
              "Gain does not work on this data (uint8, 4 x 3 x 1, 1 channel); what does: nothing");
  }
  SharedImageSet unmarked;
  unmarked.add(floatImage(4, 3, 1.0F));
  Chain other({parseStep("Gain")}, m_progress);
  try {
    other.run(unmarked, 0);
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_NE(std::string(error.what()).find("not marked as ultrasound"), std::string::npos) << error.what();
  }
  EXPECT_THROW(Chain({parseStep("Gian")}, m_progress), std::invalid_argument);
}

TEST_F(ChainTest, CancellingEndsBeforeTheNextStep) {
  Chain chain({parseStep("Gain"), parseStep("Gain")}, m_progress);
  chain.setStepDone([&] { m_progress.cancel(); });
  SharedImageSet set;
  EXPECT_THROW(chain.run(oneImage(set, 1.0F), 0), Canceled);
  EXPECT_EQ(Tests::Record::get().made, 1);
}

} // namespace
} // namespace Kelvaris::CommandLine
