#include "Lib/DataComponent.h"
#include "Lib/IntensityMask.h"
#include "Lib/MemImage.h"
#include "Lib/SharedImage.h"
#include "Lib/SharedImageSet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <memory>
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
  std::unique_ptr<MemImage> download() const override {
    ++downloads;
    return m_pixels->clone();
  }
  static inline int uploads = 0, downloads = 0;

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
               {{PixelHalf, 1, 1}, true, "half, 1 x 1 x 1, 1 channel"},
               {{5127, 1, 1}, false, "unknown type 5127, 1 x 1 x 1, 1 channel"},
               {{PixelFloat, 0, 1}, false, "float, 0 x 1 x 1, 1 channel"},
               {{PixelFloat, 1, -1}, false, "float, 1 x -1 x 1, 1 channel"},
               {{PixelFloat, 1, 1, 1, 0}, false, "float, 1 x 1 x 1, 0 channels"},
               {ImageDescriptor(), false, "unknown type 0, 0 x 0 x 0, 1 channel"}};
  for (const auto& c : cases) {
    EXPECT_EQ(c.descriptor.isValid(), c.valid) << c.text;
    EXPECT_EQ(c.descriptor.toString(), c.text);
  }
  EXPECT_EQ(ImageDescriptor(PixelHalf, 3, 2, 4, 2).byteSize(), 3u * 2 * 4 * 2 * 4) << "halves lie as floats";
  EXPECT_THROW(ImageDescriptor(PixelInt8, big, big, big).byteSize(), std::length_error);
  EXPECT_THROW(ImageDescriptor(PixelDouble, big, big, 2).byteSize(), std::length_error);
  EXPECT_THROW(MemImage::create({PixelDouble, big, big, 2}), std::length_error);
  EXPECT_THROW(MemImage::create({5127, 1, 1}), std::invalid_argument);
  EXPECT_THROW(MemImage::create({PixelInt8, 1, -1}), std::invalid_argument);
}

TEST(ImageDescriptorTest, ComparesWithinATolerance) {
  const ImageDescriptor a(PixelInt16, 3, 2);
  const struct {
    const char* what;
    void (*change)(ImageDescriptor&);
    bool approx;
  } cases[] = {
      {"nothing", [](auto&) {}, true},
      {"spacing a little", [](auto& d) { d.setSpacing(Eigen::Vector3d(1, 1 + 1e-12, 1)); }, true},
      {"spacing", [](auto& d) { d.setSpacing(Eigen::Vector3d(1, 1.001, 1)); }, false},
      {"type", [](auto& d) { d.setPixelType(PixelFloat); }, false},
      {"channels", [](auto& d) { d.setChannels(2); }, false},
      {"extent", [](auto& d) { d.setDimensions(Eigen::Vector3i(3, 2, 2)); }, false},
      {"metric", [](auto& d) { d.setMetric(false); }, false},
      {"shift", [](auto& d) { d.setShift(0.1); }, false},
      {"scale", [](auto& d) { d.setScale(std::nan("")); }, false},
  };
  for (const auto& c : cases) {
    ImageDescriptor b = a;
    c.change(b);
    EXPECT_EQ(a.isApprox(b), c.approx) << c.what;
    EXPECT_TRUE(b.isApprox(b)) << c.what << ": equal to itself, NaN and infinity included";
  }
}

TEST(MemImageTest, OrdersComponentsThenWidthHeightSlices) {
  const TypedImage<int> image(3, 2, 4, 2);
  EXPECT_EQ(image.index(2, 1, 3, 1), ((3u * 2 + 1) * 3 + 2) * 2 + 1);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(image.data()) % 64, 0u);
}

TEST(SharedImageTest, MakesFormsOnDemandAndDropsStaleOnes) {
  DeviceImage::uploads = DeviceImage::downloads = 0;
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
  DeviceImage::downloads = 0;
  EXPECT_EQ(image.mem()->valueAsDouble(0, 0, 0, 0), 5.0);
  EXPECT_EQ(image.temporaryMem(), image.mem());
  image.mem();
  EXPECT_EQ(DeviceImage::downloads, 1);
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

TEST(SharedImageSetTest, ItsKindFollowsItsImages) {
  const struct {
    std::vector<int> slices;
    Data::Kind kind;
  } cases[] = {{{}, Data::UnknownKind}, {{1}, Data::OneImage},   {{3}, Data::OneVolume},
               {{1, 1}, Data::Images},  {{3, 3}, Data::Volumes}, {{1, 3}, Data::Volumes}};
  for (const auto& c : cases) {
    SharedImageSet set;
    for (const int slices : c.slices)
      set.add(std::make_shared<SharedImage>(pixel(1, slices)));
    EXPECT_EQ(set.kind(), c.kind);
  }
}

class Label : public DataComponent<Label> {
public:
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
    if (option == 4) {
      EXPECT_EQ(copy->shared(0), set.shared(0));
      EXPECT_EQ(copy->timestamp(0), 12.5);
      EXPECT_EQ(copy->elementwiseComponents().components(0).get<Label>()->text, "first");
    }
  }
  EXPECT_THROW(set.clone(2), std::invalid_argument);
  EXPECT_THROW(set.get(1), std::out_of_range);
  EXPECT_THROW(set.get(-1), std::out_of_range);
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
  list.erase<Label>();
  EXPECT_EQ(list.get<Label>(), nullptr);
  EXPECT_NE(list.get<SpecialLabel>(), nullptr);
}

TEST(DataListTest, SelectsAndHandsOver) {
  SharedImageSet ultrasound, other;
  ultrasound.setModality(Data::Ultrasound);
  ultrasound.add(std::make_shared<SharedImage>(pixel(1)));
  const DataList list = {&ultrasound, &other};
  EXPECT_EQ(list.getImages(Data::UnknownKind, Data::UnknownModality).size(), 2u);
  EXPECT_EQ(list.getImages(Data::UnknownKind, Data::Ultrasound).size(), 1u);
  EXPECT_EQ(list.getImages(Data::OneImage, Data::UnknownModality).size(), 1u);
  EXPECT_TRUE(list.getImages(Data::Volumes, Data::Ultrasound).empty());

  OwningDataList owned;
  owned.add(std::make_unique<SharedImageSet>());
  EXPECT_NE(owned.extract<SharedImageSet>(), nullptr);
  EXPECT_EQ(owned.extract<SharedImageSet>(), nullptr);
}

} // namespace
} // namespace Kelvaris
