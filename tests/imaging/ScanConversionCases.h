#pragma once

#include "Core/Resource.h"
#include "GL/RequireGL.h"
#include "Lib/SharedImage.h"
#include "US/FrameGeometryMetadata.h"
#include "US/UltrasoundMetadata.h"
#include "imaging/ScanConversionUltrafastImaging.h"
#include "plugin/Repository_KelvarisUSImgFormationPlugin.h"
#include "support/Samples.h"

/// What the tests of scan conversion start from.
namespace Kelvaris::US::Tests {

inline std::shared_ptr<SharedImage> share(std::shared_ptr<MemImage> pixels) {
  auto image = std::make_shared<SharedImage>(std::move(pixels));
  image->setModality(Data::Ultrasound);
  return image;
}

/// Spacing like that of beamformed images: lines across, mm along.
inline ImageDescriptor prescanDescriptor(int pixelType, int width, int height, double depth, int slices = 1,
                                         int channels = 1) {
  ImageDescriptor descriptor(pixelType, width, height, slices, channels);
  descriptor.setSpacing({1.0, depth / (height - 1), 1.0});
  return descriptor;
}

inline DataComponentList componentsOf(const FrameGeometry& geometry, bool scanConverted = false) {
  DataComponentList components;
  components.add<FrameGeometryMetadata>(geometry);
  components.add<UltrasoundMetadata>().scanConverted = scanConverted;
  return components;
}

inline const FrameGeometry& geometryOf(const DataComponentList& components) {
  return *components.get<FrameGeometryMetadata>()->frameGeometry();
}

using Kelvaris::Tests::imageOf, Kelvaris::Tests::isSame;

/// With the plugin's shaders at hand.
class ScanConversion : public testing::Test {
protected:
  ScanConversion() { Resource::addRepository(&m_repository); }

  static std::pair<std::shared_ptr<SharedImage>, DataComponentList> convert(const SharedImage& image,
                                                                            const FrameGeometry& geometry) {
    return ScanConversionUltrafastImaging(nullptr).processImage(image, componentsOf(geometry));
  }

private:
  Repository_KelvarisUSImgFormationPlugin m_repository;
};
using ScanConversionWithGL = Kelvaris::Tests::GLTest<ScanConversion>;

} // namespace Kelvaris::US::Tests
