#include "kelvaris/Chain.h"

#include "apps/TestAlgorithms.h"
#include "kelvaris/Command.h"
#include "support/ErrorOf.h"

#include "Lib/FactoryRegistry.h"

#include <gtest/gtest.h>

namespace Kelvaris::CommandLine {
namespace {

using Tests::errorOf;
using Tests::floatImage;

class ChainTest : public testing::Test {
protected:
  ChainTest() {
    FactoryRegistry::get().add(std::make_unique<Tests::TestAlgorithmFactory>(), nullptr, this);
    Tests::Record::get() = {};
    m_images.setModality(Data::Ultrasound);
    m_images.add(floatImage(4, 3, 1.0F));
  }
  ~ChainTest() override { FactoryRegistry::get().remove(this); }

  Progress m_progress;
  SharedImageSet m_images; ///< one image; a run takes it out
};

TEST_F(ChainTest, HoldsTwoImagesAndMakesEachAlgorithmOnce) {
  Chain chain({parseStep("Gain"), parseStep("Gain"), parseStep("Gain"), parseStep("Levels")}, m_progress);
  for (int i = 0; i < 20; ++i) {
    chain.run(m_images, i);
    ASSERT_EQ(m_images.size(), 0);
    m_images.add(floatImage(4, 3, 1.0F));
  }
  EXPECT_EQ(Tests::Record::get().made, 4);
  EXPECT_EQ(Tests::Record::get().mostAlive, 2U);
}

TEST_F(ChainTest, StepsThatDoNotFitNameWhatDoes) {
  Chain chain({parseStep("Levels"), parseStep("Gain")}, m_progress);
  EXPECT_EQ(errorOf([&] { chain.run(m_images, 0); }),
            "Gain does not work on this data (images of a file: uint8, 4 x 3 x 1, 1 channel); what does: nothing");
  SharedImageSet unmarked;
  unmarked.add(floatImage(4, 3, 1.0F));
  Chain other({parseStep("Gain")}, m_progress);
  EXPECT_CONTAINS(errorOf([&] { other.run(unmarked, 0); }), "not marked as ultrasound");
}

TEST_F(ChainTest, CancellingEndsBeforeTheNextStep) {
  Chain chain({parseStep("Gain"), parseStep("Gain")}, m_progress);
  chain.setStepDone([&] { m_progress.cancel(); });
  EXPECT_THROW(chain.run(m_images, 0), Canceled);
  EXPECT_EQ(Tests::Record::get().made, 1);
}

} // namespace
} // namespace Kelvaris::CommandLine
