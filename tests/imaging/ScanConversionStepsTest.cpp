// What scan conversion accepts and refuses, and what it gives back beside the pixels.

#include "imaging/ScanConversionCases.h"

#include "GL/AbstractInclude.h"
#include "Lib/IntensityMask.h"
#include "US/FanMask.h"
#include "US/GeometryCases.h"
#include "US/UltrasoundSweep.h"
#include "support/ExpectedLog.h"
#include "support/Images.h"

namespace Kelvaris::US {
namespace {

using namespace Tests;
using Kelvaris::Tests::ExpectedLog;

std::shared_ptr<SharedImage> ramp(int pixelType = PixelUInt8, int slices = 1, int channels = 1) {
  return share(imageOf(prescanDescriptor(pixelType, 8, 11, 40, slices, channels),
                       [](int x, int y, int z, int c) { return x + 3 * y + 5 * z + 7 * c; }));
}

struct Text : GL::AbstractInclude {
  explicit Text(const char* t) : text(t) {}
  std::string source(const std::string&) const override { return text; }
  void setArguments(GL::Program&, const std::string&) const override {}
  const char* text;
};

/// A linear geometry whose shader is that text.
struct GeometryWithShader : FrameGeometryLinear {
  explicit GeometryWithShader(const char* t) : text(t) {
    setWidth(30);
    setDepth(40);
  }
  std::unique_ptr<FrameGeometry> clone() const override { return std::make_unique<GeometryWithShader>(*this); }
  std::unique_ptr<GL::AbstractInclude> transformInclude() const override { return std::make_unique<Text>(text); }
  const char* text;
};

struct HostMask : Mask {
  int deviceStrategy() const override { return 0; }
  void evaluate(const MemImage&, int, int, int, int, unsigned char*) const override {}
};

struct BrokenMask : HostMask, Text {
  BrokenMask() : Text("bool maskIsValid(vec4 texel) { return noSuchFunction(texel); }") {}
  int deviceStrategy() const override { return 2; }
};

using ScanConversionSteps = ScanConversionWithGL;

TEST_F(ScanConversionSteps, RefusalsSayWhy) {
  struct Input {
    std::shared_ptr<SharedImage> image = ramp();
    DataComponentList components = componentsOf(*linearCase(30, 0, 40).geometry);
    FrameGeometry& geometry() { return *components.get<FrameGeometryMetadata>()->frameGeometry(); }
  };
  const struct {
    const char* message;
    std::function<void(Input&)> spoil;
    bool incomplete = false; ///< the constructor tells too
  } cases[] = {
      {"No frame geometry metadata found.", [](Input& in) { in.components.erase<FrameGeometryMetadata>(); }, true},
      {"No ultrasound metadata found.", [](Input& in) { in.components.erase<UltrasoundMetadata>(); }, true},
      {"Inverse scanconversion not currently implemented.",
       [](Input& in) { in.components.get<UltrasoundMetadata>()->scanConverted = true; }, true},
      {"Pixel type of input and output image descriptors do not match.",
       [](Input& in) { in.geometry().setImgDesc(ImageDescriptor(PixelFloat, 20, 20)); }},
      {"uint8, 8 x 11 x 3, 1 channel can't be converted to one of uint8, 20 x 20 x 1, 1 channel",
       [](Input& in) {
         in.image = ramp(PixelUInt8, 3);
         in.geometry().setImgDesc(ImageDescriptor(PixelUInt8, 20, 20));
       }},
      {"A frame of 30 x 40 mm with pixels of 0 mm can't be made into an image",
       [](Input& in) {
         ImageDescriptor descriptor(PixelUInt8, 8, 11);
         descriptor.setSpacing({1.0, 0.0, 1.0});
         in.geometry().setImgDescPrescan(descriptor);
       }},
      {"Cannot perform scanconversion without geometric transform.",
       [](Input& in) { in.components = componentsOf(GeometryWithShader("vec2 transformElse;")); }},
      {"float transformBroken = noSuchName;",
       [](Input& in) { in.components = componentsOf(GeometryWithShader("float transformBroken = noSuchName;\n")); }},
      {"Mask is not a GL mask, cannot use it for scan conversion.",
       [](Input& in) { in.image->setMask(std::make_shared<HostMask>()); }},
      {"Cannot attach mask to scan conversion.", [](Input& in) { in.image->setMask(std::make_shared<BrokenMask>()); }},
      {"Scan conversion failed: The image (uint8, 8 x 11 x 1, 1 channel) has no pixels",
       [](Input& in) { in.image = std::make_shared<SharedImage>(prescanDescriptor(PixelUInt8, 8, 11, 40)); }},
  };
  const ScanConversionUltrafastImaging streamed(nullptr);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.message);
    Input input;
    c.spoil(input);
    SharedImageSet set;
    set.add(input.image);
    set.elementwiseComponents().components(0) = input.components;
    {
      const ExpectedLog log;
      const auto [image, components] = streamed.processImage(*input.image, input.components);
      EXPECT_EQ(image, nullptr);
      EXPECT_TRUE(components.empty());
      EXPECT_TRUE(log.contains("4 ScanConversionUltrafastImaging: ") && log.contains(c.message));
    }
    const ExpectedLog log;
    ScanConversionUltrafastImaging algorithm(&set);
    algorithm.compute();
    EXPECT_EQ(algorithm.status(), Algorithm::Failure);
    EXPECT_TRUE(algorithm.takeOutput().empty());
    EXPECT_TRUE(log.contains(c.message));
    EXPECT_EQ(log.contains("Input sweep does not have required metadata."), c.incomplete);
  }
  EXPECT_NE(streamed.processImage(*ramp(), Input().components).first, nullptr) << "goes on after all that";
}

TEST_F(ScanConversionSteps, TheSizeOfTheOutputIsAsTold) {
  ImageDescriptor unit = ImageDescriptor(PixelInt16, 8, 11);
  unit.setSpacing({0.3, 1.0, 7.0});
  unit.setShift(3.0);
  unit.setScale(2.0);
  unit.setMetric(false);
  const auto image = share(imageOf(unit, [](int, int, int, int) { return 5; }));
  const auto frame = linearCase(10.1, 0, 20).geometry;
  frame->setOffset({1.0, 2.0, 3.0});
  const auto [picture, components] = convert(*image, *frame);
  ImageDescriptor expected = unit;
  expected.setDimensions({11, 20, 1});
  expected.setSpacing(Eigen::Vector3d::Ones());
  expected.setMetric(true);
  EXPECT_TRUE(picture->descriptor().isApprox(expected)) << picture->descriptor().toString();
  EXPECT_EQ(geometryOf(components).offset(), Eigen::Vector3d(1.0, -8.0, 3.0));
  const auto pixels = picture->mem();
  for (const auto& [x, y, value] : {std::tuple{0, 5, -32768}, {1, 5, 5}, {5, 1, -32768}, {5, 2, 5}, {9, 19, 5}})
    EXPECT_EQ(pixels->valueAsDouble(x, y, 0, 0), value) << x << " " << y;

  unit.setSpacing({1.0, 0.5, 1.0});
  frame->setImgDescPrescan(unit);
  EXPECT_EQ(convert(*image, *frame).first->descriptor().dimensions(), Eigen::Vector3i(21, 40, 1))
      << "the geometry's own descriptor is the first";
}

TEST_F(ScanConversionSteps, AGeometryWithItsOwnImageKeepsIt) {
  const auto c = convexCase(28.5, 60, 120);
  ImageDescriptor own(PixelUInt8, 90, 70);
  own.setSpacing({1.5, 1.5, 1.0});
  c.geometry->setImgDesc(own);
  c.geometry->setOffset({-2.0, -45.0, 0.0});
  auto expected = c.geometry->clone();
  expected->setImgDescPrescan(ramp()->descriptor());
  for (const auto& geometry : {c.geometry->clone(), c.geometry->convertTo(CoordinateSystem::Pixel)}) {
    const auto [image, components] = convert(*ramp(), *geometry);
    ASSERT_NE(image, nullptr);
    EXPECT_TRUE(image->descriptor().isApprox(own));
    EXPECT_TRUE(geometryOf(components).isApprox(*expected, 1e-9, true));
  }
}

TEST_F(ScanConversionSteps, PixelsOfUnknownSizeAreTakenForMillimetresWithAWarning) {
  FrameGeometryLinear geometry(CoordinateSystem::Pixel);
  geometry.setWidth(30);
  geometry.setDepth(40);
  const ExpectedLog log;
  const auto [image, components] = convert(*ramp(), geometry);
  EXPECT_EQ(log.messages(), std::vector<std::string>{
                                "3 ScanConversionUltrafastImaging: Input frame geometry is not in image coordinate "
                                "system, but no spacing was given. Resulting geometry might be incorrect."});
  EXPECT_EQ(image->descriptor().dimensions(), Eigen::Vector3i(8, 10, 1));
}

TEST_F(ScanConversionSteps, OneObjectTakesImagesOfAllSortsInTurn) {
  const ScanConversionUltrafastImaging algorithm(nullptr);
  const auto masked = [](std::shared_ptr<SharedImage> image) {
    image->setMask(std::make_shared<IntensityMask>(image->descriptor().pixelType(), 9.0));
    return image;
  };
  const struct {
    std::shared_ptr<SharedImage> image;
    std::shared_ptr<FrameGeometry> geometry;
  } cases[] = {{ramp(), linearCase(30, 0, 40).geometry},
               {masked(ramp()), convexCase(28.5, 60, 40).geometry},
               {ramp(PixelInt16, 3, 2), convexCase(28.5, 60, 40).geometry},
               {ramp(), sectorCase(30, 5, 45, 0.5).geometry},
               {masked(ramp(PixelFloat, 3)), linearCase(30, 10, 40).geometry},
               {ramp(), linearCase(30, 0, 40).geometry}};
  for (const auto& c : cases) {
    const auto [image, components] = algorithm.processImage(*c.image, componentsOf(*c.geometry));
    const auto [expected, sameComponents] = convert(*c.image, *c.geometry);
    ASSERT_NE(image, nullptr);
    EXPECT_TRUE(Kelvaris::Tests::sameBytes(*image->mem(), *expected->mem()));
    EXPECT_EQ(dynamic_cast<const IntensityMask*>(image->mask().get()) != nullptr, c.image->mask() != nullptr);
  }
}

enum class Place { Nowhere, Set, Sweep, Images };

/// Geometry and metadata stand where it is told; the metadata's number of rows is the image's index.
std::unique_ptr<SharedImageSet> makeSet(const FrameGeometry& frame, Place geometry, Place metadata, int images,
                                        bool isSweep) {
  std::unique_ptr<SharedImageSet> set =
      isSweep ? std::make_unique<UltrasoundSweep>() : std::make_unique<SharedImageSet>();
  if (geometry == Place::Sweep) dynamic_cast<UltrasoundSweep&>(*set).setFrameGeometry(frame);
  if (geometry == Place::Set) set->components().add<FrameGeometryMetadata>(frame);
  if (metadata == Place::Set) set->components().add<UltrasoundMetadata>();
  for (int i = 0; i < images; ++i) {
    set->add(ramp(), 10.0 * i);
    DataComponentList& components = set->elementwiseComponents().components(i);
    if (geometry == Place::Images) components.add<FrameGeometryMetadata>(frame);
    if (metadata == Place::Images) components.add<UltrasoundMetadata>().numRows = i;
  }
  return set;
}

TEST_F(ScanConversionSteps, CompatibleIsWhatHasGeometryAndMetadata) {
  const struct {
    const char* what;
    Place geometry, metadata;
    Data::Modality modality;
    int images;
    bool sweep, compatible;
  } cases[] = {
      {"set-wide", Place::Set, Place::Set, Data::Ultrasound, 2, false, true},
      {"mixed", Place::Set, Place::Images, Data::Ultrasound, 1, false, true},
      {"no geometry", Place::Nowhere, Place::Set, Data::Ultrasound, 1, false, false},
      {"no metadata", Place::Set, Place::Nowhere, Data::Ultrasound, 1, false, false},
      {"another modality", Place::Set, Place::Set, Data::UnknownModality, 1, false, false},
      {"sweep with its own geometry", Place::Sweep, Place::Images, Data::Ultrasound, 1, true, true},
      {"sweep of another modality, empty", Place::Sweep, Place::Set, Data::UnknownModality, 0, true, true},
      {"sweep without geometry", Place::Nowhere, Place::Set, Data::Ultrasound, 1, true, false},
  };
  const auto frame = linearCase(30, 0, 40).geometry;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const auto set = makeSet(*frame, c.geometry, c.metadata, c.images, c.sweep);
    set->setModality(c.modality);
    EXPECT_EQ(ScanConversionUltrafastImaging::createCompatible({set.get()}, nullptr), c.compatible);
    EXPECT_FALSE(ScanConversionUltrafastImaging::createCompatible({set.get(), set.get()}, nullptr));
  }
}

TEST_F(ScanConversionSteps, ASetKeepsItsStateAndGetsTheNewGeometryWhereItWas) {
  const struct {
    const char* what;
    Place geometry, metadata;
  } cases[] = {{"set-wide", Place::Set, Place::Set},
               {"element-wise", Place::Images, Place::Images},
               {"sweep, metadata of the images", Place::Sweep, Place::Images}};
  const auto frame = convexCase(28.5, 60, 40).geometry;
  const auto last = share(imageOf(ramp()->descriptor(), [](int x, int y, int, int) { return 5 * x + y; }));
  const auto [single, singleComponents] = convert(*last, *frame);
  const FrameGeometry& expected = geometryOf(singleComponents);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const auto input = makeSet(*frame, c.geometry, c.metadata, 3, c.geometry == Place::Sweep);
    input->properties().setParam("patient", std::string("phantom"));
    input->shared(2)->assign(last->mem());
    input->shared(2)->setMatrix(Eigen::Matrix4d::Constant(2));
    ScanConversionUltrafastImaging algorithm(input.get());
    algorithm.compute();
    ASSERT_EQ(algorithm.status(), Algorithm::Success);
    const auto output = algorithm.takeOutput().extract<SharedImageSet>();
    ASSERT_EQ(output->size(), 3);
    EXPECT_TRUE(output->properties().hasParam("patient"));
    EXPECT_EQ(output->timestamp(2), 20.0);
    EXPECT_EQ(output->get(2).matrix(), input->get(2).matrix());
    EXPECT_TRUE(Kelvaris::Tests::sameBytes(*output->get(2).mem(), *single->mem()));
    EXPECT_NE(dynamic_cast<const FanMask*>(output->get(2).mask().get()), nullptr);
    const DataComponentList& components = output->elementwiseComponents().components(2);
    EXPECT_TRUE(c.geometry != Place::Images || geometryOf(components).isApprox(expected, 0.0, true));
    const auto* const metadata =
        (c.metadata == Place::Set ? output->components() : components).get<UltrasoundMetadata>();
    ASSERT_NE(metadata, nullptr);
    EXPECT_TRUE(metadata->scanConverted);
    EXPECT_TRUE(c.metadata != Place::Images || metadata->numRows == 0) << "all have that of the first";
    const auto* const sweep = dynamic_cast<UltrasoundSweep*>(output.get());
    EXPECT_TRUE((sweep ? *sweep->frameGeometry() : geometryOf(output->components())).isApprox(expected, 0.0, true));
    EXPECT_EQ(output->components().get<FrameGeometryMetadata>() == nullptr, sweep != nullptr);
  }
}

TEST_F(ScanConversionSteps, OneUnfitImageLeavesNoOutputAndNoSetIsAnError) {
  SharedImageSet set;
  set.components() = componentsOf(*linearCase(30, 0, 40).geometry);
  set.add(ramp());
  ScanConversionUltrafastImaging algorithm(&set), withoutSet(nullptr);
  algorithm.compute();
  ASSERT_EQ(algorithm.status(), Algorithm::Success);
  set.add(ramp(PixelInt16));
  const ExpectedLog log;
  algorithm.compute();
  EXPECT_EQ(algorithm.status(), Algorithm::Failure);
  EXPECT_TRUE(algorithm.takeOutput().empty()) << "that of the run before is gone";
  EXPECT_TRUE(log.contains("Pixel type of input and output image descriptors do not match."));
  withoutSet.compute();
  EXPECT_EQ(withoutSet.status(), Algorithm::InvalidInput);
  EXPECT_TRUE(log.contains("4 ScanConversionUltrafastImaging: Input sweep is not set."));
}

} // namespace
} // namespace Kelvaris::US
