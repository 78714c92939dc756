#include "processing/ChannelDataRemappingAlgorithm.h"

#include "Core/Resource.h"
#include "Stream/StreamAlgorithmExecutor.h"
#include "beamforming/BeamformingAlgorithm.h"
#include "beamforming/BeamformingCases.h"
#include "model/ChannelDataLayout.h"
#include "plugin/Repository_KelvarisUSImgFormationPlugin.h"
#include "support/DeviceTest.h"
#include "support/ExpectedLog.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

namespace Kelvaris::US {
namespace {

using Axis = ChannelDataLayout::Axis;
using Kelvaris::Tests::ExpectedLog;

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
  const std::shared_ptr<MemImage> data = recording.data->clone();
  const std::size_t bytes =
      data->byteSize() / data->descriptor().elementCount() * static_cast<std::size_t>(data->channels());
  for (int v = 0; v < data->slices(); ++v) {
    std::vector<int>& mapping =
        result.acquisition.events()[static_cast<std::size_t>(v)].receive.elementToChannelMapping;
    const std::vector<int> before = mapping;
    std::shuffle(mapping.begin(), mapping.end(), random);
    const auto address = [&](const MemImage& image, int c, int s) {
      return static_cast<char*>(const_cast<void*>(image.data())) +
             image.index(c, s, v, 0) / static_cast<std::size_t>(image.channels()) * bytes;
    };
    for (std::size_t k = 0; k < mapping.size(); ++k)
      for (int s = 0; s < data->height(); ++s)
        std::memcpy(address(*data, mapping[k], s), address(*recording.data, before[k], s), bytes);
  }
  result.data = permuteChannelData(*data, recording.layout, layout);
  result.layout = layout;
  return result;
}

bool sameBytes(const SharedImage& a, const SharedImage& b) {
  return a.descriptor().dimensions() == b.descriptor().dimensions() && a.mem()->byteSize() == b.mem()->byteSize() &&
         std::memcmp(a.mem()->data(), b.mem()->data(), a.mem()->byteSize()) == 0;
}

class Remapping : public Kelvaris::Tests::DeviceTest<> {
protected:
  Remapping() { Resource::addRepository(&m_repository); }
  ~Remapping() override { Resource::removeRepository(&m_repository); }

private:
  Repository_KelvarisUSImgFormationPlugin m_repository; ///< the beamformer's shader
};

TEST_F(Remapping, AShuffledRecordingBeamformsToTheSameBits) {
  const ChannelDataLayout layouts[] = {{Axis::FastTime, Axis::Channels, Axis::SlowTime},
                                       {Axis::SlowTime, Axis::FastTime, Axis::Channels},
                                       {Axis::FastTime, Axis::SlowTime, Axis::Channels}};
  for (const int pixelType : {PixelFloat, PixelInt16})
    for (const int components : {1, 2})
      for (const ChannelDataLayout& layout : layouts) {
        const Recording plain = canonical(pixelType, components), mixed = shuffled(plain, layout);
        const auto images = mixed.set();
        const ChannelDataRemappingAlgorithm remapping(images.get());
        const auto [image, updated] = remapping.processImage(images->get(0), mixed.components());
        ASSERT_TRUE(image);
        EXPECT_TRUE(sameBytes(*image, *plain.image()));
        EXPECT_EQ(image->modality(), Data::Ultrasound);
        EXPECT_EQ(*updated.get<ChannelDataLayout>(), ChannelDataLayout());
        EXPECT_EQ(*updated.get<FrameAcquisition>(), plain.acquisition);

        const BeamformingAlgorithm beamforming(nullptr);
        const auto expected = beamforming.processImage(*plain.image(), plain.components()).first;
        const auto formed = beamforming.processImage(*image, updated).first;
        ASSERT_TRUE(expected && formed);
        EXPECT_TRUE(sameBytes(*formed, *expected));
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
  const auto images = canonical().set();
  ImageStream volumes("volumes"), flat("images");
  volumes.setKind(Data::VolumeStreamKind);
  flat.setKind(Data::ImageStreamKind);
  SharedImageSet bare, oneSlice;
  bare.setModality(Data::Ultrasound);
  bare.add(canonical().image());
  oneSlice.setModality(Data::Ultrasound);
  oneSlice.elementwiseComponents().add(canonical().components(), 0);
  oneSlice.add(std::make_shared<SharedImage>(std::make_shared<TypedImage<float>>(16, 100)));
  EXPECT_TRUE(ChannelDataRemappingAlgorithm::createCompatible({images.get()}, nullptr));
  EXPECT_TRUE(ChannelDataRemappingAlgorithm::createCompatible({&volumes}, nullptr));
  for (Data* data : {static_cast<Data*>(&bare), static_cast<Data*>(&oneSlice), static_cast<Data*>(&flat)})
    EXPECT_FALSE(ChannelDataRemappingAlgorithm::createCompatible({data}, nullptr));
  for (const SharedImageSet* input :
       {static_cast<const SharedImageSet*>(nullptr), const_cast<const SharedImageSet*>(&bare)})
    try {
      const ChannelDataRemappingAlgorithm algorithm(input);
      ADD_FAILURE() << "accepted";
    } catch (const std::invalid_argument& error) {
      EXPECT_STREQ(error.what(), "imageSet does not represent channel data");
    }
}

/// What processImage says: the exception's text, the log's last message, or nothing.
std::string complaint(const ChannelDataRemappingAlgorithm& algorithm, const SharedImage& image,
                      const DataComponentList& components) {
  const ExpectedLog log;
  try {
    const auto [result, updated] = algorithm.processImage(image, components);
    if (result) return "";
    EXPECT_TRUE(updated.empty());
    return log.messages().back();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
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

TEST_F(Remapping, AStreamGoesOnBehindABadFrame) {
  const Recording good = canonical();
  Recording uneven = good;
  uneven.acquisition.events()[1].receive.apertureLast -= 1;
  ImageStream stream("probe");
  stream.setKind(Data::VolumeStreamKind);
  const auto first = good.set();
  StreamAlgorithmExecutor executor(stream, std::make_unique<ChannelDataRemappingAlgorithm>(first.get()));
  int frames = 0;
  const auto connection = executor.stream()->dataSignal.connect([&](const auto&) { ++frames; });
  const auto emit = [&](const Recording& recording) {
    stream.dataSignal.emitSignal(std::make_shared<ImageStreamData>(std::shared_ptr<SharedImageSet>(recording.set())));
  };
  emit(good);
  {
    const ExpectedLog log;
    emit(uneven);                 // throws
    emit(canonical(PixelDouble)); // gives no image
    EXPECT_TRUE(log.contains("Input FrameAcquisition has events with different number of receiving channels"));
    EXPECT_TRUE(log.contains("Unsupported pixel type"));
  }
  EXPECT_EQ(frames, 1);
  emit(good);
  EXPECT_EQ(frames, 2);
}

} // namespace
} // namespace Kelvaris::US
