#include "Lib/DataComponent.h"
#include "Lib/IntensityMask.h"
#include "Lib/MemImage.h"
#include "Lib/PointCloud.h"
#include "Lib/SharedImage.h"
#include "Lib/SharedImageSet.h"
#include "support/ErrorOf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

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
  const struct {
    ImageDescriptor descriptor;
    bool valid;
    const char* text;
  } cases[] = {{{PixelInt16, 3, 2, 4, 2}, true, "int16, 3 x 2 x 4, 2 channels"},
               {{5127, 1, 1}, false, "unknown type 5127, 1 x 1 x 1, 1 channel"},
               {{PixelHalf, 1, -1}, false, "half, 1 x -1 x 1, 1 channel"},
               {{PixelFloat, 1, 1, 1, 0}, false, "float, 1 x 1 x 1, 0 channels"},
               {ImageDescriptor(), false, "unknown type 0, 0 x 0 x 0, 1 channel"}};
  for (const auto& c : cases) {
    EXPECT_EQ(c.descriptor.isValid(), c.valid) << c.text;
    EXPECT_EQ(c.descriptor.toString(), c.text);
    EXPECT_EQ(Tests::errorOf<std::invalid_argument>([&] { MemImage::create(c.descriptor); }).empty(), c.valid);
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
  EXPECT_THROW(MemImage::create({PixelFloat, 0, 1}, at(0)), std::invalid_argument);
}

TEST(PointCloudTest, HasOneWeightAPointOrNone) {
  PointCloud cloud({{1, 2, 3}, {4, 5, 6}});
  EXPECT_EQ(cloud.weights(), std::nullopt);
  cloud.setWeights({{1.0, 0.5}});
  EXPECT_EQ(Tests::errorOf<std::invalid_argument>([&] { cloud.setWeights({{1.0}}); }),
            "1 weights for 2 points; expected one a point");
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
  for (const int option : {1, 4}) {
    const auto copy = image.clone(option);
    EXPECT_EQ(copy->modality(), Data::Ultrasound);
    EXPECT_EQ(copy->matrix(), image.matrix());
    EXPECT_EQ(copy->mask(), image.mask());
    EXPECT_TRUE(copy->descriptor().isApprox(image.descriptor()));
    if (option == 1)
      EXPECT_NE(copy->mem()->data(), image.mem()->data());
    else
      EXPECT_THROW(copy->mem(), std::runtime_error);
  }
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
    ASSERT_EQ(copy->size(), option == 4 ? 1 : 0);
    if (option != 4) continue;
    EXPECT_EQ(copy->shared(0), set.shared(0));
    EXPECT_EQ(copy->timestamp(0), 12.5);
    EXPECT_EQ(copy->elementwiseComponents().components(0).get<Label>()->text, "first");
  }
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

} // namespace
} // namespace Kelvaris
