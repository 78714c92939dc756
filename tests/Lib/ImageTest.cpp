#include "Lib/DataComponent.h"
#include "Lib/ImageProcessing.h"
#include "Lib/IntensityMask.h"
#include "Lib/PointCloud.h"
#include "Lib/SharedImageSet.h"
#include "support/ErrorOf.h"
#include "support/Samples.h"

#include <algorithm>
#include <climits>
#include <cmath>

namespace Kelvaris {
namespace {

/// Another place for pixels, which counts its transfers.
class DeviceImage : public Image {
public:
  static constexpr ImageForm form = ImageForm::Device;
  explicit DeviceImage(const MemImage& image) : Image(image.descriptor()), m_pixels(image.clone()) { ++uploads; }
  ImageForm imageForm() const override { return form; }
  std::unique_ptr<MemImage> download() const override { return m_pixels->clone(); }
  static inline int uploads = 0;

private:
  std::unique_ptr<MemImage> m_pixels;
};

std::shared_ptr<TypedImage<short>> pixel(short value, int slices = 1) {
  auto image = std::make_shared<TypedImage<short>>(1, 1, slices);
  std::fill_n(image->pointer(), image->size(), value);
  return image;
}

TEST(ImageDescriptorTest, KnowsWhatCanBeAnImage) {
  constexpr int big = INT_MAX;
  EXPECT_NE(MemImage::create({PixelInt16, 3, 2, 4, 2}), nullptr);
  for (const auto& [descriptor, text] :
       {std::pair<ImageDescriptor, const char*>{{5127, 1, 1}, "unknown type 5127, 1 x 1 x 1, 1 channel"},
        {{PixelHalf, 1, -1}, "half, 1 x -1 x 1, 1 channel"},
        {{PixelFloat, 1, 1, 1, 0}, "float, 1 x 1 x 1, 0 channels"}}) {
    EXPECT_FALSE(descriptor.isValid());
    EXPECT_CONTAINS(Tests::errorOf<std::invalid_argument>([&, d = descriptor] { MemImage::create(d); }), text);
  }
  EXPECT_EQ(ImageDescriptor(PixelHalf, 3, 2, 4, 2).byteSize(), 3u * 2 * 4 * 2 * 4) << "halves lie as floats";
  EXPECT_THROW(ImageDescriptor(PixelInt8, big, big, big).byteSize(), std::length_error);
  EXPECT_THROW(MemImage::create({PixelDouble, big, big, 2}), std::length_error);
}

TEST(ImageDescriptorTest, ComparesEveryFieldWithinATolerance) {
  using Change = void (*)(ImageDescriptor&);
  const ImageDescriptor a(PixelInt16, 3, 2);
  const Change slight = [](auto& d) { d.setSpacing(Eigen::Vector3d(1, 1 + 1e-12, 1)); };
  const Change changes[] = {slight,
                            [](auto& d) { d.setSpacing(Eigen::Vector3d(1, 1.001, 1)); },
                            [](auto& d) { d.setPixelType(PixelFloat); },
                            [](auto& d) { d.setChannels(2); },
                            [](auto& d) { d.setDimensions(Eigen::Vector3i(3, 2, 2)); },
                            [](auto& d) { d.setMetric(false); },
                            [](auto& d) { d.setShift(0.1); },
                            [](auto& d) { d.setScale(std::nan("")); }};
  for (const Change change : changes) {
    ImageDescriptor b = a;
    change(b);
    EXPECT_EQ(a.isApprox(b), change == slight) << b.toString();
    EXPECT_TRUE(b.isApprox(b)) << "equal to itself, NaN included";
  }
}

TEST(MemImageTest, StandsOnSamplesOfOthersAsLongAsItNeedsThem) {
  auto samples = std::make_shared<std::vector<short>>(std::vector<short>{1, 2, 3, 4, 5, 6});
  const std::weak_ptr<std::vector<short>> observed = samples;
  short* const first = samples->data();
  std::shared_ptr<MemImage> image = MemImage::create({PixelInt16, 3, 2}, {samples, first});
  samples.reset();
  EXPECT_EQ(image->data(), first);
  EXPECT_EQ(image->valueAsDouble(2, 1, 0, 0), 6.0);
  first[5] = 7;
  const auto copy = image->clone();
  SharedImage shared(std::move(image));
  EXPECT_FALSE(observed.expired());
  shared.assign(MemImage::create({PixelUInt8, 1, 1}));
  EXPECT_TRUE(observed.expired());
  EXPECT_EQ(copy->valueAsDouble(2, 1, 0, 0), 7.0);

  alignas(8) char bytes[16] = {};
  const auto at = [&](int offset) { return std::shared_ptr<void>(std::shared_ptr<void>(), bytes + offset); };
  EXPECT_NE(MemImage::create({PixelFloat, 1, 1}, at(4)), nullptr);
  EXPECT_THROW(MemImage::create({PixelDouble, 1, 1}, at(4)), std::invalid_argument);
  EXPECT_THROW(MemImage::create({PixelFloat, 1, 1}, nullptr), std::invalid_argument);
}

TEST(PointCloudTest, HasOneWeightAPointOrNone) {
  PointCloud cloud({{1, 2, 3}, {4, 5, 6}});
  cloud.setWeights({{1.0, 0.5}});
  EXPECT_THROW(cloud.setWeights({{1.0}}), std::invalid_argument);
  EXPECT_EQ(cloud.weights(), std::vector<double>({1.0, 0.5}));
}

TEST(SharedImageTest, MakesFormsOnDemandAndDropsStaleOnes) {
  DeviceImage::uploads = 0;
  SharedImage image(pixel(5));
  EXPECT_FALSE(image.hasForm(ImageForm::Device));
  const auto onDevice = image.sharedCustom<DeviceImage>();
  EXPECT_EQ(image.sharedCustom<DeviceImage>(), onDevice) << "made once";

  *static_cast<short*>(image.mem()->data()) = 6;
  image.setDirtyMem();
  EXPECT_FALSE(image.hasForm(ImageForm::Device));
  EXPECT_EQ(image.sharedCustom<DeviceImage>()->download()->valueAsDouble(0, 0, 0, 0), 6.0);
  EXPECT_EQ(DeviceImage::uploads, 2);

  image.setDirtyGl();
  EXPECT_TRUE(image.hasForm(ImageForm::Mem)) << "there is no texture that could be newer";

  image.assign(onDevice);
  EXPECT_FALSE(image.hasForm(ImageForm::Mem));
  EXPECT_EQ(image.temporaryMem()->valueAsDouble(0, 0, 0, 0), 5.0);
  EXPECT_FALSE(image.hasForm(ImageForm::Mem));
  EXPECT_EQ(image.mem()->valueAsDouble(0, 0, 0, 0), 5.0);
  EXPECT_EQ(image.temporaryMem(), image.mem()) << "no further transfer";
}

TEST(SharedImageTest, ClonesWithAndWithoutPixels) {
  SharedImage image(pixel(5));
  image.setModality(Data::Ultrasound);
  image.setMatrix(Eigen::Matrix4d::Constant(2.0));
  image.setMask(std::make_shared<IntensityMask>(PixelInt16, -32768.0));
  const auto copy = image.clone(1), bare = image.clone(4);
  for (const SharedImage* clone : {copy.get(), bare.get()}) {
    EXPECT_EQ(clone->modality(), Data::Ultrasound);
    EXPECT_EQ(clone->matrix(), image.matrix());
    EXPECT_EQ(clone->mask(), image.mask());
    EXPECT_TRUE(clone->descriptor().isApprox(image.descriptor()));
  }
  EXPECT_NE(copy->mem()->data(), image.mem()->data());
  EXPECT_THROW(bare->mem(), std::runtime_error);
  EXPECT_THROW(image.clone(2), std::invalid_argument);
}

struct Label : DataComponent<Label> {
  explicit Label(std::string s = {}) : text(std::move(s)) {}
  std::string id() const override { return "Label"; }
  bool operator==(const Label& other) const { return text == other.text; }
  std::string text;
};
struct SpecialLabel : DataComponent<SpecialLabel> {
  std::string id() const override { return "Label"; }
  bool operator==(const SpecialLabel&) const { return true; }
};

TEST(SharedImageSetTest, ClonesItsStateAndSharesItsImages) {
  SharedImageSet set;
  set.setName("scan");
  set.setModality(Data::Ultrasound);
  set.properties().setParam("depth", 40.0);
  set.components().add<Label>("set");
  set.add(std::make_shared<SharedImage>(pixel(1)), 12.5);
  set.elementwiseComponents().components(0).add<Label>("first");
  for (const int option : {1, 3, 4}) {
    const auto copy = set.clone(option);
    EXPECT_EQ(copy->name(), "scan");
    EXPECT_EQ(copy->modality(), Data::Ultrasound);
    EXPECT_EQ(copy->properties(), set.properties());
    EXPECT_EQ(copy->components().get<Label>()->text, "set");
    EXPECT_EQ(copy->size(), option == 4 ? 1 : 0);
  }
  const auto copy = set.clone(4);
  EXPECT_EQ(copy->shared(0), set.shared(0));
  EXPECT_EQ(copy->timestamp(0), 12.5);
  EXPECT_EQ(copy->elementwiseComponents().components(0).get<Label>()->text, "first");
  EXPECT_THROW(set.clone(2), std::invalid_argument);
  EXPECT_THROW(set.get(1), std::out_of_range);
  EXPECT_THROW(set.setTimestamp(0.0, 1), std::out_of_range);
  EXPECT_THROW(set.elementwiseComponents().components(-1), std::out_of_range);
}

TEST(DataComponentListTest, HoldsOneOfATypeAndCopiesDeeply) {
  DataComponentList list;
  list.add<Label>("a");
  list.add<SpecialLabel>();
  list.add<Label>("b");
  EXPECT_EQ(list.size(), 2u);
  EXPECT_EQ(list.get<Label>()->text, "b") << "replaced in its place";
  EXPECT_EQ(list.begin()->get(), list.get<Label>());

  const DataComponentList copy = list;
  list.get<Label>()->text = "c";
  EXPECT_EQ(copy.get<Label>()->text, "b");
  list.add(copy);
  EXPECT_EQ(list.get<Label>()->text, "b");
  EXPECT_FALSE(list.get<Label>()->equals(*list.get<SpecialLabel>())) << "the exact type counts";
}

TEST(ImageProcessing, CropsAndPads) {
  for (const int type : {PixelInt16, PixelDouble}) {
    ImageDescriptor descriptor(type, 5, 4, 3, 2);
    descriptor.setSpacing({0.5, 0.25, 2.0});
    descriptor.setScale(4.0);
    SharedImage image(std::shared_ptr<Image>(Tests::noiseImage(descriptor)));
    image.setMask(std::make_shared<IntensityMask>(type, 7.0));
    const auto samples = image.mem();
    const auto value = [&](int x, int y, int z, int channel) {
      const bool inside = x >= 0 && x < 5 && y >= 0 && y < 4 && z >= 0 && z < 3;
      return inside ? samples->valueAsDouble(x, y, z, channel) : 0.0;
    };
    const auto expectShifted = [&](const SharedImage& result, const Eigen::Vector3i& extent,
                                   const Eigen::Vector3i& by) {
      const ImageDescriptor& d = result.descriptor();
      EXPECT_EQ(Eigen::Vector3i(d.width(), d.height(), d.slices()), extent);
      EXPECT_EQ(d.spacing(), descriptor.spacing());
      EXPECT_EQ(d.scale(), 4.0);
      EXPECT_EQ(result.mask(), image.mask());
      EXPECT_EQ(Tests::worstError(*result.mem(),
                                  [&](int x, int y, int z, int channel) {
                                    return value(x + by.x(), y + by.y(), z + by.z(), channel);
                                  }),
                0.0);
    };
    expectShifted(*ImageProcessing::createCropped(image, {1, 2, 1}, {3, 2, 1}), {3, 2, 1}, {1, 2, 1});
    expectShifted(*ImageProcessing::createPadded(image, {2, 1, 1}, {1, 0, 2}), {8, 5, 6}, {-2, -1, -1});
    EXPECT_THROW(ImageProcessing::createCropped(image, {0, 1, 0}, {5, 4, 3}), std::invalid_argument);
    EXPECT_THROW(ImageProcessing::createCropped(image, {-1, 0, 0}, {1, 1, 1}), std::invalid_argument);
    EXPECT_THROW(ImageProcessing::createCropped(image, {0, 0, 0}, {5, 0, 3}), std::invalid_argument);
    EXPECT_THROW(ImageProcessing::createPadded(image, {0, 0, 0}, {0, -1, 0}), std::invalid_argument);
  }
}

} // namespace
} // namespace Kelvaris
