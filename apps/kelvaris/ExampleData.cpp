#include "kelvaris/ExampleData.h"

#include "Core/PropertiesIO.h"
#include "Lib/DataComponentFactory.h"
#include "US/FrameGeometryLinear.h"
#include "US/FrameGeometryMetadata.h"
#include "US/UltrasoundMetadata.h"

#include <cstring>

namespace Kelvaris::CommandLine {
namespace {

constexpr const char* kAcquisition = R"(<properties>
  <properties key="transducer">
    <param key="type">linear</param> <param key="numberElements">16</param> <param key="pitch">0.3</param>
  </properties>
  <param key="eventType">1</param> <param key="endDepth">5</param>
  <param key="pulseFrequency">5e6</param> <param key="pulseLength">2</param> <param key="speedOfSound">1.54e6</param>
  <param key="maxTransmitAperture">16</param> <param key="maxReceiveAperture">16</param>
  <param key="receiveSamplingFrequency">20e6</param>
  <param key="planeAngleRange">0.2</param> <param key="numberApertures">1</param>
  <param key="numberEventsPerAperture">2</param>
</properties>)";

std::unique_ptr<SharedImageSet> setOf(const ImageDescriptor& descriptor, const DataComponentList& components) {
  std::shared_ptr<MemImage> pixels = MemImage::create(descriptor);
  std::memset(pixels->data(), 0, pixels->byteSize());
  auto set = std::make_unique<SharedImageSet>();
  set->setModality(Data::Ultrasound);
  set->add(std::make_shared<SharedImage>(pixels));
  set->elementwiseComponents().add(components, 0);
  return set;
}

} // namespace

std::vector<std::unique_ptr<SharedImageSet>> exampleData() {
  std::vector<std::unique_ptr<SharedImageSet>> sets;
  DataComponentList picture;
  US::FrameGeometryLinear geometry;
  geometry.setWidth(10.0);
  geometry.setDepth(10.0);
  picture.add<US::FrameGeometryMetadata>(geometry);
  picture.add<US::UltrasoundMetadata>();
  sets.push_back(setOf(ImageDescriptor(PixelFloat, 16, 16), picture));

  if (auto acquisition = DataComponentFactory::get().create("FrameAcquisition")) {
    if (const auto properties = PropertiesIO::fromXml(kAcquisition)) acquisition->configure(&*properties);
    DataComponentList channelData;
    channelData.add(std::move(acquisition));
    sets.push_back(setOf(ImageDescriptor(PixelInt16, 16, 200, 2), channelData));
  }
  return sets;
}

} // namespace Kelvaris::CommandLine
