#include "processing/ChannelDataRemappingAlgorithm.h"

#include "beamforming/BeamformingCases.h"
#include "model/ChannelDataLayout.h"
#include "support/DeviceTest.h"
#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"
#include "support/Images.h"

namespace Kelvaris::US {
namespace {

using Axis = ChannelDataLayout::Axis;
using Kelvaris::Tests::errorOf, Kelvaris::Tests::ExpectedLog;

/// A recording with the acquisition that describes it.
struct Recording {
  FrameAcquisition acquisition;
  std::shared_ptr<MemImage> data;
  ChannelDataLayout layout;

  DataComponentList components() const {
    DataComponentList list;
    list.add<FrameAcquisition>(acquisition);
    list.add<ChannelDataLayout>(layout);
    return list;
  }
  std::shared_ptr<SharedImage> image() const {
    auto result = std::make_shared<SharedImage>(data);
    result->setModality(Data::Ultrasound);
    return result;
  }
  std::unique_ptr<SharedImageSet> set() const {
    auto images = std::make_unique<SharedImageSet>();
    images->setModality(Data::Ultrasound);
    images->elementwiseComponents().add(components(), 0);
    images->add(image(), 5.0);
    return images;
  }
};

Recording canonical(int pixelType = PixelFloat, int components = 1) {
  const FrameAcquisition acquisition = Tests::planeWaves();
  return {acquisition, Tests::noise(acquisition, pixelType, components), {}};
}

/// The same recording as another device delivers it: every event has its own order of the channels, and the axes lie
/// as `layout` tells.
Recording shuffled(const Recording& recording, const ChannelDataLayout& layout) {
  Recording result = recording;
  std::mt19937 random(7);
  for (PulseEchoEvent& event : result.acquisition.events())
    std::shuffle(event.receive.elementToChannelMapping.begin(), event.receive.elementToChannelMapping.end(), random);
  const auto data = Kelvaris::Tests::imageOf(recording.data->descriptor(), [&](int c, int s, int v, int i) {
    const auto& mapping = result.acquisition.events()[static_cast<std::size_t>(v)].receive.elementToChannelMapping;
    const auto element = std::find(mapping.begin(), mapping.end(), c) - mapping.begin();
    return recording.data->valueAsDouble(static_cast<int>(element), s, v, i);
  });
  result.data = permuteChannelData(*data, recording.layout, layout);
  result.layout = layout;
  return result;
}

bool sameBytes(const SharedImage& a, const SharedImage& b) {
  return a.descriptor().dimensions() == b.descriptor().dimensions() && Kelvaris::Tests::sameBytes(*a.mem(), *b.mem());
}

using Remapping = Kelvaris::Tests::DeviceTest<>;

TEST_F(Remapping, AShuffledRecordingBecomesThePlainOne) {
  for (const int components : {1, 2})
    for (const auto& layout : {ChannelDataLayout(Axis::FastTime, Axis::Channels, Axis::SlowTime),
                               ChannelDataLayout(Axis::SlowTime, Axis::FastTime, Axis::Channels)}) {
      const Recording plain = canonical(PixelInt16, components), mixed = shuffled(plain, layout);
      const auto images = mixed.set();
      const ChannelDataRemappingAlgorithm remapping(images.get());
      const auto [image, updated] = remapping.processImage(images->get(0), mixed.components());
      ASSERT_TRUE(image);
      EXPECT_TRUE(sameBytes(*image, *plain.image()));
      EXPECT_EQ(image->modality(), Data::Ultrasound);
      EXPECT_EQ(*updated.get<ChannelDataLayout>(), ChannelDataLayout());
      EXPECT_EQ(*updated.get<FrameAcquisition>(), plain.acquisition);
    }
}

TEST_F(Remapping, AnApertureThatMovesKeepsEachElementOnItsChannel) {
  Recording recording = canonical();
  for (PulseEchoEvent& event : recording.acquisition.events()) {
    event.receive.apertureFirst = 5;
    event.receive.apertureLast = 8;
    event.receive.elementToChannelMapping = {9, 3, 200, 0};
  }
  const auto images = recording.set();
  const auto [image, updated] =
      ChannelDataRemappingAlgorithm(images.get()).processImage(images->get(0), recording.components());
  ASSERT_TRUE(image);
  for (const PulseEchoEvent& event : updated.get<FrameAcquisition>()->events())
    EXPECT_EQ(event.receive.elementToChannelMapping, (std::vector<int>{1, 2, 3, 0}));
  EXPECT_EQ(image->descriptor().width(), 16);
  const int sources[] = {0, 9, 3, -1, -1}; // the data have no channel 200; four elements receive
  for (int c = 0; c < 5; ++c)
    EXPECT_EQ(image->mem()->valueAsDouble(c, 30, 1, 0),
              sources[c] < 0 ? 0.0 : recording.data->valueAsDouble(sources[c], 30, 1, 0));
}

TEST_F(Remapping, WorksOnVolumesWithAnAcquisitionOnly) {
  SharedImageSet bare, oneSlice;
  bare.add(canonical().image());
  oneSlice.elementwiseComponents().add(canonical().components(), 0);
  oneSlice.add(std::make_shared<SharedImage>(std::make_shared<TypedImage<float>>(16, 100)));
  for (SharedImageSet* set : {&bare, &oneSlice}) {
    set->setModality(Data::Ultrasound);
    EXPECT_FALSE(ChannelDataRemappingAlgorithm::createCompatible({set}, nullptr));
  }
  for (const SharedImageSet* set :
       {static_cast<const SharedImageSet*>(nullptr), static_cast<const SharedImageSet*>(&bare)})
    EXPECT_EQ(errorOf<std::invalid_argument>([&] { ChannelDataRemappingAlgorithm{set}; }),
              "imageSet does not represent channel data");
}

/// What processImage says: the exception's text, the log's last message, or nothing.
std::string complaint(const ChannelDataRemappingAlgorithm& algorithm, const SharedImage& image,
                      const DataComponentList& components) {
  const ExpectedLog log;
  std::shared_ptr<SharedImage> result;
  const std::string thrown =
      errorOf<std::runtime_error>([&] { result = algorithm.processImage(image, components).first; });
  return result || !thrown.empty() ? thrown : log.messages().back();
}

TEST_F(Remapping, ABadAcquisitionIsRefusedOnceAndThenTheLastGoodOneHolds) {
  const Recording good = canonical();
  Recording none = good, uneven = good, empty = good;
  none.acquisition.events().clear();
  uneven.acquisition.events()[1].receive.apertureLast -= 1;
  for (PulseEchoEvent& event : empty.acquisition.events())
    event.receive.apertureLast = event.receive.apertureFirst - 1;
  const struct {
    const Recording& recording;
    const char* error;
  } cases[] = {
      {none, "Input FrameAcquisition has no events"},
      {uneven, "Input FrameAcquisition has events with different number of receiving channels"},
      {empty, "Input FrameAcquisition has events that receive on 0 elements; at least one is needed"},
  };
  const auto images = good.set();
  for (const auto& c : cases) {
    const ChannelDataRemappingAlgorithm algorithm(images.get());
    EXPECT_EQ(complaint(algorithm, images->get(0), c.recording.components()), c.error);
    EXPECT_EQ(complaint(algorithm, images->get(0), c.recording.components()),
              "4 ChannelDataRemappingAlgorithm: Remapper not instantiated, cannot compute");
    EXPECT_EQ(complaint(algorithm, images->get(0), good.components()), "");
    EXPECT_EQ(complaint(algorithm, images->get(0), c.recording.components()), c.error);
    EXPECT_EQ(complaint(algorithm, images->get(0), c.recording.components()), "");
  }
  const ChannelDataRemappingAlgorithm algorithm(images.get());
  EXPECT_EQ(complaint(algorithm, images->get(0), {}),
            "4 ChannelDataRemappingAlgorithm: Input image does not represent channel data");
  EXPECT_EQ(complaint(algorithm, *canonical(PixelDouble).image(), good.components()),
            "4 ChannelDataRemappingAlgorithm: Remapper did not produce an output");
}

} // namespace
} // namespace Kelvaris::US
