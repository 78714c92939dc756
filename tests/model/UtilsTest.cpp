#include "model/Utils.h"

#include "Lib/SharedImageSet.h"
#include "model/ChannelDataLayout.h"
#include "model/FrameCases.h"

#include <gtest/gtest.h>

namespace Kelvaris::US {
namespace {

class DerivedAcquisition : public FrameAcquisition {};

/// Acquisitions differ in their numbers of elements.
void attach(DataComponentList& components, int numElements) {
  components.add<FrameAcquisition>(Transducer::createLinear(numElements, 0.3), std::vector<PulseEchoEvent>());
}

TEST(ChannelData, IsRecognisedByItsFrameAcquisitionAndThatOfTheImageComesFirst) {
  SharedImageSet set;
  set.components().add<DerivedAcquisition>(); // is none
  set.setModality(Data::Ultrasound);
  attach(set.components(), 20);
  EXPECT_FALSE(isChannelData(set)) << "no images";
  set.components().erase<FrameAcquisition>();
  for (int i = 0; i < 3; ++i)
    set.add(std::make_shared<SharedImage>(ImageDescriptor(PixelInt16, 2, 3, 4)));
  EXPECT_FALSE(isChannelData(set));
  attach(set.elementwiseComponents().components(1), 10);
  EXPECT_FALSE(isChannelData(set));
  EXPECT_TRUE(isChannelData(set, 1));
  set.selection().setFocus(1);
  EXPECT_TRUE(isChannelData(set));
  attach(set.components(), 20);
  EXPECT_EQ(getFrameAcquisition(set)->transducer().numElements(), 10);
  EXPECT_EQ(getFrameAcquisition(set, 2)->transducer().numElements(), 20);
  EXPECT_TRUE(isChannelData(set, 0));
  set.setModality(Data::UnknownModality);
  EXPECT_FALSE(isChannelData(set));
}

} // namespace
} // namespace Kelvaris::US
