#include "Lib/KelvarisFile.h"

#include "Lib/DataComponentsIO.h"
#include "Lib/Hdf5.h"
#include "Lib/MaskFactory.h"
#include "Lib/PropertiesFile.h"
#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"
#include "support/Images.h"
#include "support/IntensityMaskOf.h"
#include "support/TemporaryFolder.h"

#include <climits>
#include <cmath>
#include <csignal>

#include <sys/resource.h>

namespace Kelvaris {
namespace {

using namespace Tests;

std::shared_ptr<SharedImage> randomImage(const ImageDescriptor& descriptor, unsigned seed = 1) {
  return std::make_shared<SharedImage>(randomBytes(descriptor, seed));
}

/// What comes back of `set` from a file.
std::unique_ptr<SharedImageSet> roundTrip(const SharedImageSet& set) {
  const TemporaryFolder folder;
  KelvarisFile::save(folder / "a.kvx", set);
  return KelvarisFile::load(folder / "a.kvx");
}

TEST(KelvarisFile, EveryPixelTypeRoundTripsBitForBit) {
  for (const int type :
       {PixelInt8, PixelUInt8, PixelInt16, PixelUInt16, PixelInt32, PixelUInt32, PixelFloat, PixelDouble, PixelHalf})
    for (const ImageDescriptor& descriptor : {ImageDescriptor(type, 7, 5, 3, 2), ImageDescriptor(type, 700, 900, 2)}) {
      SharedImageSet set;
      set.add(randomImage(descriptor));
      const auto copy = roundTrip(set)->get(0).mem();
      EXPECT_TRUE(copy->descriptor().isApprox(descriptor) && sameBytes(*copy, *set.get(0).mem()))
          << descriptor.toString();
    }
}

TEST(KelvarisFile, KeepsEverythingThatDescribesTheImages) {
  EXPECT_EQ(roundTrip(SharedImageSet())->size(), 0);
  UnknownDataComponent component("NobodyKnowsMe");
  Properties inside;
  inside.setParam("values", std::vector<double>{1.0 / 3.0, std::nan(""), -0.0});
  inside.addSubProperties("event").setParam("name", "A & B <\"äµ\"> \t x");
  component.configure(&inside);

  SharedImageSet set;
  set.setModality(Data::Ultrasound);
  set.properties() = inside;
  set.components().add(component.clone());
  for (int i = 0; i < 4; ++i) {
    ImageDescriptor descriptor(PixelFloat, 3, 2);
    descriptor.setSpacing({0.1 * i, INFINITY, 1e-300});
    descriptor.setMetric(i % 2 == 0);
    descriptor.setShift(-1.5);
    descriptor.setScale(1.0 / 3.0);
    auto image = randomImage(descriptor);
    if (i == 2) image->setMask(std::make_shared<IntensityMask>(PixelFloat, std::nan("")));
    image->setMatrix(Eigen::Matrix4d::Ones().triangularView<Eigen::Upper>().toDenseMatrix() * (i + 0.1));
    set.add(image, 40.1 * i);
    inside.setParam("number", i);
    component.configure(&inside);
    set.elementwiseComponents().components(i).add(component.clone());
  }
  // So that what was kept of an unknown component is seen to be enough for writing it again; an odd number of times, as
  // a matrix that is turned once each time comes back after two.
  const auto loaded = roundTrip(*roundTrip(*roundTrip(set)));

  const auto sameComponent = [](const DataComponentList& a, const DataComponentList& b) {
    return a.size() == 1 && b.size() == 1 && (*a.begin())->equals(**b.begin());
  };
  EXPECT_EQ(loaded->kind(), Data::Images);
  set.setVolumetric(true);
  EXPECT_EQ(roundTrip(set)->kind(), Data::Volumes) << "of one slice";
  EXPECT_EQ(loaded->modality(), Data::Ultrasound);
  EXPECT_TRUE(loaded->properties() == set.properties());
  EXPECT_TRUE(sameComponent(loaded->components(), set.components()));
  ASSERT_EQ(loaded->size(), set.size());
  for (int i = 0; i < set.size(); ++i) {
    const SharedImage &a = set.get(i), &b = loaded->get(i);
    EXPECT_TRUE(b.descriptor().isApprox(a.descriptor(), 0.0)) << i;
    EXPECT_EQ(b.matrix(), a.matrix()) << i;
    EXPECT_EQ(b.modality(), Data::Ultrasound) << i;
    EXPECT_EQ(loaded->timestamp(i), set.timestamp(i)) << i;
    ASSERT_EQ(b.mask() != nullptr, a.mask() != nullptr) << i;
    EXPECT_TRUE(!b.mask() || std::isnan(intensityMask(b).value())) << i;
    EXPECT_TRUE(sameComponent(loaded->elementwiseComponents().components(i), set.elementwiseComponents().components(i)))
        << i;
  }
}

/// What is done to a file through HDF5 itself.
using Change = std::function<void(hid_t file, hid_t image)>;

void withImage(const std::filesystem::path& path, const Change& change) {
  const Hdf5::Handle file(H5Fopen(path.c_str(), H5F_ACC_RDWR, H5P_DEFAULT), H5Fclose);
  const Hdf5::Handle image(H5Dopen2(file, "/images/00000", H5P_DEFAULT), H5Dclose);
  change(file, image);
}

/// One of any kind, or of none.
struct OtherMask : Mask {
  explicit OtherMask(std::string name) : m_name(std::move(name)) {}
  int deviceStrategy() const override { return 0; }
  void evaluate(const MemImage&, int, int, int, int, unsigned char*) const override {}
  std::string id() const override { return m_name; }
  std::string m_name;
};

TEST(KelvarisFile, AMaskThatCannotBeMadeIsAnErrorThatCostsTheMaskOnly) {
  const auto refusing = [](const Properties&, const ImageDescriptor& d) -> std::shared_ptr<const Mask> {
    if (d.width() == 5) throw std::invalid_argument("5 columns");
    return nullptr;
  };
  MaskFactory::get().registerMask("Refused", refusing);
  const TemporaryFolder folder;
  const struct {
    const char* kind;
    int width;
    const char* content; ///< of the attribute, instead of what was written
    const char* log;
  } table[] = {{"Refused", 4, nullptr, "The Refused can't be made"},
               {"Refused", 5, nullptr, "5 columns"},
               {"Other", 5, nullptr, "no kind of mask \"Other\""},
               {"", 5, nullptr, "can't be stored"},
               {"Refused", 5, "2", "Broken XML"}};
  for (const auto& c : table) {
    const ExpectedLog log;
    SharedImageSet set;
    set.add(randomImage(ImageDescriptor(PixelUInt8, c.width, 4)));
    set.shared(0)->setMask(std::make_shared<OtherMask>(c.kind));
    KelvarisFile::save(folder / "a.kvx", set);
    if (c.content) withImage(folder / "a.kvx", [&](hid_t, hid_t i) { Hdf5::writeText(i, "maskShape", c.content); });
    const auto loaded = KelvarisFile::load(folder / "a.kvx");
    EXPECT_TRUE(sameBytes(*loaded->get(0).mem(), *set.get(0).mem())) << c.log;
    EXPECT_EQ(loaded->get(0).mask(), nullptr) << c.log;
    EXPECT_TRUE(log.contains(c.log) && log.contains("a.kvx, image 0")) << c.log;
  }
  MaskFactory::get().unregisterMask("Refused");
}

TEST(KelvarisFile, BrokenComponentXmlIsRefused) {
  std::string tooDeep = "<components><component id='a'>";
  for (int i = 0; i < 100000; ++i)
    tooDeep += "<properties key='x'>";
  for (const char* xml : {"<components>", "<properties/>", "<components><part id='a'/></components>",
                          "<components><component id=''/></components>",
                          "<components><component id='a'><b/></component></components>", tooDeep.c_str()}) {
    const ExpectedLog log;
    EXPECT_FALSE(DataComponentsIO::fromXml(xml)) << std::string(xml).substr(0, 80);
    EXPECT_TRUE(log.contains("4 ")) << std::string(xml).substr(0, 80);
  }
}

TEST(KelvarisFile, FullDiskIsAnErrorAndLeavesWhatWasThere) {
  const TemporaryFolder folder;
  writeFile(folder / "a.kvx", "what was there before");
  SharedImageSet set;
  set.add(randomImage(ImageDescriptor(PixelInt16, 200, 600)));
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit whole{};
  getrlimit(RLIMIT_FSIZE, &whole);
  for (const rlim_t bytes : {0, 10, 900, 5000, 160000, 235000}) {
    const rlimit limit{bytes, whole.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
    const std::string error = errorOf([&] { KelvarisFile::save(folder / "a.kvx", set); });
    setrlimit(RLIMIT_FSIZE, &whole);
    EXPECT_CONTAINS(error, "File too large") << bytes;
    EXPECT_EQ(folder.names(), std::vector<std::string>{"a.kvx"}) << bytes;
  }
  EXPECT_EQ(readFile(folder / "a.kvx"), "what was there before");
}

/// A valid small file.
std::string smallFile(const TemporaryFolder& folder) {
  SharedImageSet set;
  set.properties().setParam("topDown", true);
  for (unsigned i = 0; i < 2; ++i) {
    set.add(randomImage(ImageDescriptor(PixelUInt8, 9, 5), i));
    set.elementwiseComponents().components(static_cast<int>(i)).add<UnknownDataComponent>("Anything");
  }
  KelvarisFile::save(folder / "small.kvx", set);
  return readFile(folder / "small.kvx");
}

TEST(KelvarisFile, EveryTruncationIsAnError) {
  const TemporaryFolder folder;
  const std::string whole = smallFile(folder);
  const auto path = folder / "cut.kvx";
  for (std::size_t length = 0; length < whole.size(); length += length < 100 ? 1 : 97) {
    writeFile(path, whole.substr(0, length));
    EXPECT_CONTAINS(errorOf([&] { KelvarisFile::load(path); }), path.string()) << length;
  }
}

TEST(KelvarisFile, PlacesThatCanNotBeReadOrWrittenAreNamed) {
  const TemporaryFolder folder;
  writeFile(folder / "text.kvx", "This is not an image.");
  const auto read = [](const std::filesystem::path& path) { KelvarisFile::Reader reader(path); };
  const auto write = [](const std::filesystem::path& path) { KelvarisFile::Writer writer(path); };
  const struct {
    std::function<void(const std::filesystem::path&)> action;
    std::filesystem::path path;
    const char* reason;
  } table[] = {{read, folder / "text.kvx", "not an HDF5 file"},
               {read, folder.path(), "not a regular file"},
               {read, folder / "none", "no file"},
               {write, folder / "no/such/a.kvx", "there is no folder"},
               {write, "/dev/full", "not a regular file"}};
  for (const auto& c : table) {
    const std::string error = errorOf([&] { c.action(c.path); });
    EXPECT_CONTAINS(error, c.path.string());
    EXPECT_CONTAINS(error, c.reason);
  }
}

/// Another array in the place of image 0.
Change image(hid_t type, const std::vector<hsize_t>& extent, const std::vector<hsize_t>& chunk = {}) {
  return [=](hid_t file, hid_t) {
    H5Ldelete(file, "/images/00000", H5P_DEFAULT);
    const Hdf5::Handle layout(H5Pcreate(H5P_DATASET_CREATE), H5Pclose);
    if (!chunk.empty()) H5Pset_chunk(layout, static_cast<int>(chunk.size()), chunk.data());
    const std::vector<hsize_t> unlimited(extent.size(), H5S_UNLIMITED);
    const Hdf5::Handle space(
        H5Screate_simple(static_cast<int>(extent.size()), extent.data(), chunk.empty() ? nullptr : unlimited.data()),
        H5Sclose);
    const Hdf5::Handle array(H5Dcreate2(file, "/images/00000", type, space, H5P_DEFAULT, layout, H5P_DEFAULT),
                             H5Dclose);
    ASSERT_TRUE(array.isValid());
  };
}

TEST(KelvarisFile, TamperedFilesAreErrors) {
  const TemporaryFolder folder;
  const std::string whole = smallFile(folder);
  const hid_t bytes = H5T_NATIVE_UCHAR, floats = H5T_NATIVE_FLOAT;
  const std::pair<Change, const char*> table[] = {
      {[](hid_t f, hid_t) { Hdf5::writeText(f, "format", "photos"); }, "not a file of images"},
      {[](hid_t f, hid_t) { Hdf5::writeInteger(f, "format", 1); }, "not a text"},
      {[](hid_t f, hid_t) { Hdf5::writeInteger(f, "version", 2); }, "version 2"},
      {[](hid_t f, hid_t) { Hdf5::writeText(f, "properties", "<properties><param>"); }, "\"properties\""},
      {[](hid_t f, hid_t) { H5Ldelete(f, "/images/00000", H5P_DEFAULT); }, "/images/00000"},
      {[](hid_t, hid_t i) { Hdf5::writeInteger(i, "pixelType", PixelInt16); }, "5122"},
      {[](hid_t, hid_t i) { Hdf5::writeText(i, "shift", "1"); }, "no numbers"},
      {image(bytes, {5, 9}), "2 dimensions"},
      {image(bytes, {1, 0, 9, 1}), "extent is 0"},
      {image(floats, {1000, 30000, 30000, 1}, {1, 10, 10, 1}), "the file holds 0"},
      {image(floats, {INT_MAX, INT_MAX, INT_MAX, 1}, {1, 9, 9, 1}), "exceeds the address"},
      {image(floats, {1, 1, 4294967297, 1}, {1, 1, 10, 1}), "4294967297"},
      {image(floats, {1, 5, 9, 1}, {1, 30000, 30000, 1}), "chunks are larger"},
  };
  for (const auto& [change, expected] : table) {
    writeFile(folder / "t.kvx", whole);
    withImage(folder / "t.kvx", change);
    const ExpectedLog log;
    const std::string error = errorOf([&] { KelvarisFile::load(folder / "t.kvx"); });
    EXPECT_CONTAINS(error, expected);
    EXPECT_CONTAINS(error, "t.kvx");
  }
}

/// An attribute of one value, stored as `type`, given as `memoryType`.
void addAttribute(hid_t object, const char* name, hid_t type, hid_t memoryType, const void* value) {
  const Hdf5::Handle scalar(H5Screate(H5S_SCALAR), H5Sclose);
  const Hdf5::Handle attribute(H5Acreate2(object, name, type, scalar, H5P_DEFAULT, H5P_DEFAULT), H5Aclose);
  H5Awrite(attribute, memoryType, value);
}

TEST(KelvarisFile, OptionalAttributesMayBeMissingAndTypesMayBeWider) {
  const TemporaryFolder folder;
  smallFile(folder);
  withImage(folder / "small.kvx", [](hid_t file, hid_t) {
    for (const char* name : {"format", "version", "modality", "kind", "properties"})
      H5Adelete(file, name);
    H5Ldelete(file, "/images/00001", H5P_DEFAULT);
    const Hdf5::Handle fixed(H5Tcopy(H5T_C_S1), H5Tclose);
    H5Tset_size(fixed, 20);
    H5Tset_strpad(fixed, H5T_STR_SPACEPAD);
    const long long version = 1;
    addAttribute(file, "format", fixed, fixed, "kelvaris-images     ");
    addAttribute(file, "version", H5T_STD_I64BE, H5T_NATIVE_LLONG, &version);
    image(H5T_STD_I16BE, {1, 1, 3, 1})(file, H5I_INVALID_HID);
  });
  withImage(folder / "small.kvx", [](hid_t, hid_t image) {
    const short samples[] = {-32768, 2, 513};
    H5Dwrite(image, H5T_NATIVE_SHORT, H5S_ALL, H5S_ALL, H5P_DEFAULT, samples);
    Hdf5::writeDoubles(image, "matrix", {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16});
    const int mask = -32768;
    addAttribute(image, "mask", H5T_STD_I32LE, H5T_NATIVE_INT, &mask);
  });
  const auto loaded = KelvarisFile::load(folder / "small.kvx");
  ASSERT_EQ(loaded->size(), 1);
  EXPECT_EQ(loaded->modality(), Data::UnknownModality);
  EXPECT_TRUE(loaded->get(0).descriptor().isApprox(ImageDescriptor(PixelInt16, 3, 1)));
  EXPECT_EQ(loaded->get(0).mem()->valueAsDouble(2, 0, 0, 0), 513.0);
  EXPECT_EQ(loaded->get(0).matrix()(1, 3), 8.0) << "row by row";
  ASSERT_NE(loaded->get(0).mask(), nullptr);
  EXPECT_TRUE(intensityMask(loaded->get(0)).isMasked(-32768.0));
}

TEST(PropertiesFile, ComesBackAndSaysInWhichFileTheFaultLies) {
  const TemporaryFolder folder;
  Properties properties;
  properties.setParam("delays", std::vector<double>{1.0 / 3.0, std::nan(""), -0.0});
  properties.addSubProperties("event").setParam("name", "<&>\n");
  PropertiesFile::save(folder / "a.xml", Properties());
  PropertiesFile::save(folder / "a.xml", properties);
  EXPECT_EQ(PropertiesFile::load(folder / "a.xml"), properties);
  EXPECT_EQ(folder.names(), std::vector<std::string>{"a.xml"});

  writeFile(folder / "broken.xml", "<properties><param/></properties>");
  writeFile(folder / "empty.xml", "");
  for (const char* name : {"missing.xml", "broken.xml", "empty.xml"})
    EXPECT_CONTAINS(errorOf<std::runtime_error>([&] { PropertiesFile::load(folder / name); }), name);
  EXPECT_CONTAINS(errorOf<std::runtime_error>([&] { PropertiesFile::save(folder / "no/a.xml", properties); }),
                  "no/a.xml");
}

} // namespace
} // namespace Kelvaris
