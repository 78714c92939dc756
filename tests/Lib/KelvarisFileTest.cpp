#include "Lib/KelvarisFile.h"

#include "Lib/DataComponentFactory.h"
#include "Lib/DataComponentsIO.h"
#include "Lib/Hdf5.h"
#include "Lib/IntensityMask.h"
#include "Lib/MaskFactory.h"
#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"
#include "support/Images.h"
#include "support/IntensityMaskOf.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <csignal>
#include <functional>
#include <limits>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Kelvaris {
namespace {

using Tests::errorOf;
using Tests::ExpectedLog;
using Tests::readFile;
using Tests::TemporaryFolder;
using Tests::writeFile;

std::shared_ptr<SharedImage> randomImage(const ImageDescriptor& descriptor, unsigned seed = 1) {
  return std::make_shared<SharedImage>(Tests::randomBytes(descriptor, seed));
}

/// A component that is registered, unlike those the files otherwise carry.
class Probe : public DataComponent<Probe> {
public:
  std::string id() const override { return "Probe"; }
  void configure(const Properties* properties) override { properties->param("depth", depth); }
  void configuration(Properties* properties) const override { properties->setParam("depth", depth); }
  bool operator==(const Probe& other) const { return depth == other.depth; }
  double depth = 0.0;
};

class RegisteredProbe {
public:
  RegisteredProbe() {
    for (const char* id : {"Probe", "OldProbe"})
      DataComponentFactory::get().registerComponent(id, [] { return std::make_unique<Probe>(); });
  }
  ~RegisteredProbe() {
    for (const char* id : {"Probe", "OldProbe"})
      DataComponentFactory::get().unregisterComponent(id);
  }
};

class PixelTypes : public testing::TestWithParam<int> {};

TEST_P(PixelTypes, RoundTripBitForBit) {
  const TemporaryFolder folder;
  for (const Eigen::Vector4i& e : {Eigen::Vector4i(1, 1, 1, 1), Eigen::Vector4i(7, 5, 3, 2),
                                   Eigen::Vector4i(64, 1, 90, 1), Eigen::Vector4i(700, 900, 2, 1)}) {
    SharedImageSet set;
    set.add(randomImage(ImageDescriptor(GetParam(), e[0], e[1], e[2], e[3])));
    KelvarisFile::save(folder / "a.kvx", set);
    const auto loaded = KelvarisFile::load(folder / "a.kvx");
    ASSERT_EQ(loaded->size(), 1);
    const auto original = set.get(0).mem(), copy = loaded->get(0).mem();
    ASSERT_TRUE(copy->descriptor().isApprox(original->descriptor())) << copy->descriptor().toString();
    EXPECT_TRUE(Tests::sameBytes(*copy, *original)) << copy->descriptor().toString();
  }
}

INSTANTIATE_TEST_SUITE_P(All, PixelTypes,
                         testing::Values(PixelInt8, PixelUInt8, PixelInt16, PixelUInt16, PixelInt32, PixelUInt32,
                                         PixelFloat, PixelDouble, PixelHalf),
                         [](const auto& param) { return ImageDescriptor::pixelTypeName(param.param); });

TEST(KelvarisFile, KeepsEverythingThatDescribesTheImages) {
  const TemporaryFolder folder;
  const RegisteredProbe registered;
  SharedImageSet set;
  set.setModality(Data::Ultrasound);
  set.properties().setParam("topDown", true);
  set.properties().subProperties("scan").setParam("name", "A & B <\"äµ\"> \t x");
  set.components().add<Probe>().depth = 0.1;
  for (int i = 0; i < 12; ++i) {
    ImageDescriptor descriptor(PixelFloat, 3, 2);
    descriptor.setSpacing({0.1 * i, std::numeric_limits<double>::infinity(), 1e-300});
    descriptor.setMetric(i % 2 == 0);
    descriptor.setShift(-1.5);
    descriptor.setScale(1.0 / 3.0);
    auto image = randomImage(descriptor, static_cast<unsigned>(i));
    image->setModality(Data::Ultrasound);
    if (i % 3 == 0) image->setMask(std::make_shared<IntensityMask>(PixelFloat, std::nan("")));
    image->setMatrix(Eigen::Matrix4d::Identity() * (i + 0.1) +
                     Eigen::Matrix4d::Ones().triangularView<Eigen::Upper>().toDenseMatrix());
    set.add(image, 40.1 * i);
    set.elementwiseComponents().components(i).add<Probe>().depth = i;
    auto foreign = std::make_unique<UnknownDataComponent>("NobodyKnowsMe");
    Properties inside;
    inside.setParam("values", std::vector<double>{1.0 / 3.0, std::nan(""), -0.0});
    inside.addSubProperties("event").setParam("number", i);
    inside.addSubProperties("event");
    foreign->configure(&inside);
    set.elementwiseComponents().components(i).add(std::move(foreign));
  }
  KelvarisFile::save(folder / "a.kvx", set);
  // Twice, so that what was kept of an unknown component is seen to be enough for writing it again.
  KelvarisFile::save(folder / "b.kvx", *KelvarisFile::load(folder / "a.kvx"));
  const auto loaded = KelvarisFile::load(folder / "b.kvx");

  EXPECT_EQ(loaded->kind(), Data::Images);
  EXPECT_EQ(loaded->modality(), Data::Ultrasound);
  EXPECT_TRUE(loaded->properties() == set.properties());
  ASSERT_NE(loaded->components().get<Probe>(), nullptr);
  EXPECT_EQ(loaded->components().get<Probe>()->depth, 0.1);
  ASSERT_EQ(loaded->size(), set.size());
  for (int i = 0; i < set.size(); ++i) {
    const SharedImage &a = set.get(i), &b = loaded->get(i);
    EXPECT_TRUE(b.descriptor().isApprox(a.descriptor(), 0.0)) << i;
    EXPECT_EQ(b.matrix(), a.matrix()) << i;
    EXPECT_EQ(b.modality(), Data::Ultrasound) << i;
    EXPECT_EQ(loaded->timestamp(i), set.timestamp(i)) << i;
    ASSERT_EQ(b.mask() != nullptr, a.mask() != nullptr) << i;
    if (b.mask()) {
      EXPECT_TRUE(std::isnan(intensityMask(b).value()) && intensityMask(b).pixelType() == PixelFloat) << i;
    }
    const auto &componentsA = set.elementwiseComponents().components(i),
               &componentsB = loaded->elementwiseComponents().components(i);
    ASSERT_EQ(componentsB.size(), 2U) << i;
    EXPECT_TRUE(std::equal(componentsA.begin(), componentsA.end(), componentsB.begin(),
                           [](const auto& x, const auto& y) { return x->equals(*y); }))
        << i;
  }
}

/// Marks the columns from `first` on as valid.
class ColumnMask : public Mask {
public:
  explicit ColumnMask(int first, std::string name = "ColumnMask") : m_first(first), m_name(std::move(name)) {}
  int deviceStrategy() const override { return 0; }
  void evaluate(const MemImage&, int x, int, int, int count, unsigned char* valid) const override {
    for (int i = 0; i < count; ++i)
      valid[i] = x + i >= m_first;
  }
  std::string id() const override { return m_name; }
  Properties configuration() const override {
    Properties properties;
    properties.setParam("first", m_first);
    return properties;
  }

private:
  int m_first;
  std::string m_name;
};

class RegisteredMask {
public:
  RegisteredMask() {
    MaskFactory::get().registerMask("ColumnMask", [](const Properties& p, const ImageDescriptor& d) {
      int first = -1;
      if (!p.param("first", first)) return std::shared_ptr<const Mask>();
      if (first < 0 || first > d.width()) throw std::invalid_argument("no column " + std::to_string(first));
      return std::shared_ptr<const Mask>(std::make_shared<ColumnMask>(first));
    });
  }
  ~RegisteredMask() { MaskFactory::get().unregisterMask("ColumnMask"); }
};

TEST(KelvarisFile, RegisteredMasksComeBackAndOthersAreErrorsThatCostTheMaskOnly) {
  const TemporaryFolder folder;
  const RegisteredMask registered;
  struct Case {
    std::string name;
    int first;
    std::string content; ///< of the attribute, instead of what was written
    std::string log;     ///< empty: the mask comes back
  };
  const std::vector<Case> table = {{"ColumnMask", 2, "", ""},
                                   {"ColumnMask", 9, "", "no column 9"},
                                   {"OtherMask", 2, "", "no kind of mask \"OtherMask\""},
                                   {"", 2, "", "can't be stored"},
                                   {"ColumnMask", 2, "<mask id='ColumnMask'/>", "The ColumnMask can't be made"},
                                   {"ColumnMask", 2, "<mask id='ColumnMask'><b/></mask>", "<b>"},
                                   {"ColumnMask", 2, "<mask/>", "no kind of mask \"\""},
                                   {"ColumnMask", 2, "<components/>", "<components>"},
                                   {"ColumnMask", 2, "2", "Broken XML"}};
  for (const Case& c : table) {
    const ExpectedLog log;
    const auto path = folder / "a.kvx";
    SharedImageSet set;
    const auto written = randomImage(ImageDescriptor(PixelUInt8, 5, 4));
    written->setMask(std::make_shared<ColumnMask>(c.first, c.name));
    set.add(written);
    KelvarisFile::save(path, set);
    if (!c.content.empty()) {
      const Hdf5::Handle file(H5Fopen(path.c_str(), H5F_ACC_RDWR, H5P_DEFAULT), H5Fclose);
      const Hdf5::Handle image(H5Dopen2(file, "/images/00000", H5P_DEFAULT), H5Dclose);
      H5Adelete(image, "maskShape");
      Hdf5::writeText(image, "maskShape", c.content);
    }
    const auto loaded = KelvarisFile::load(path);
    EXPECT_EQ(std::memcmp(loaded->get(0).mem()->data(), set.get(0).mem()->data(), 20), 0) << c.log;
    EXPECT_EQ(loaded->get(0).mask() != nullptr, c.log.empty()) << c.log;
    EXPECT_EQ(KelvarisFile::Reader(path).mask(0) != nullptr, c.log.empty()) << c.log;
    if (c.log.empty()) {
      unsigned char valid[5];
      loaded->get(0).mask()->evaluate(*loaded->get(0).mem(), 0, 0, 0, 5, valid);
      EXPECT_EQ(std::vector<int>(valid, valid + 5), (std::vector<int>{0, 0, 1, 1, 1}));
    } else {
      EXPECT_TRUE(log.contains(c.log)) << c.log;
      EXPECT_TRUE(log.contains("a.kvx, image 0")) << c.log;
    }
  }
}

TEST(KelvarisFile, SecondIdOpensAsTheRegisteredClassAndIsWrittenUnderItsOwnId) {
  const RegisteredProbe registered;
  const auto components = DataComponentsIO::fromXml(
      R"(<components><component id="OldProbe"><param key="depth">3</param></component></components>)");
  ASSERT_TRUE(components);
  ASSERT_NE(components->get<Probe>(), nullptr);
  EXPECT_CONTAINS(DataComponentsIO::toXml(*components), R"(<component id="Probe">)");
}

TEST(KelvarisFile, BrokenComponentXmlIsRefused) {
  std::string tooDeep = "<components><component id='a'>";
  for (int i = 0; i < 100000; ++i)
    tooDeep += "<properties key='x'>";
  for (const char* xml : {"<components>", "<properties/>", "<components><part id='a'/></components>",
                          "<components><component/></components>", "<components><component id=''/></components>",
                          "<components><component id='a'><b/></component></components>", tooDeep.c_str()}) {
    const ExpectedLog log;
    EXPECT_FALSE(DataComponentsIO::fromXml(xml)) << std::string(xml).substr(0, 80);
    EXPECT_TRUE(log.contains("4 ")) << std::string(xml).substr(0, 80);
  }
}

TEST(KelvarisFile, WriterLeavesNothingBehindUntilItFinishes) {
  const TemporaryFolder folder;
  {
    KelvarisFile::Writer writer(folder / "a.kvx");
    writer.append(*randomImage(ImageDescriptor(PixelFloat, 300, 200)), {}, 0.0);
    EXPECT_FALSE(std::filesystem::exists(folder / "a.kvx"));
  }
  EXPECT_TRUE(folder.names().empty());

  KelvarisFile::save(folder / "a.kvx", SharedImageSet());
  EXPECT_EQ(folder.names(), std::vector<std::string>{"a.kvx"});
  EXPECT_EQ(KelvarisFile::load(folder / "a.kvx")->size(), 0);
}

TEST(KelvarisFile, UnwritablePlacesAreNamed) {
  const TemporaryFolder folder;
  std::filesystem::create_directory(folder / "folder");
  const std::pair<std::filesystem::path, const char*> table[] = {{folder / "no/such/a.kvx", "there is no folder"},
                                                                 {folder / "folder", "not a regular file"},
                                                                 {"/dev/full", "not a regular file"}};
  for (const auto& [path, reason] : table) {
    const std::string error = errorOf([&] { KelvarisFile::Writer writer(path); });
    EXPECT_CONTAINS(error, path.string());
    EXPECT_CONTAINS(error, reason);
  }
}

/// Runs `action` in a child that may write files of at most `bytes`; the exit status is what `action` returns.
int withFileSizeLimit(rlim_t bytes, const std::function<int()>& action) {
  const pid_t child = fork();
  if (child == 0) {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{bytes, bytes};
    setrlimit(RLIMIT_FSIZE, &limit);
    _exit(action());
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

TEST(KelvarisFile, FullDiskIsAnErrorAndLeavesNothing) {
  const TemporaryFolder folder;
  writeFile(folder / "a.kvx", "what was there before");
  SharedImageSet set;
  for (unsigned i = 0; i < 3; ++i)
    set.add(randomImage(ImageDescriptor(PixelInt16, 200, 200), i));
  for (const rlim_t bytes : {0, 10, 900, 5000, 70000, 100000, 160000, 200000, 235000}) {
    const int status = withFileSizeLimit(bytes, [&] {
      const std::string error = errorOf([&] { KelvarisFile::save(folder / "a.kvx", set); });
      return error.empty() ? 0 : error.find("File too large") != std::string::npos ? 1 : 2;
    });
    EXPECT_EQ(status, 1) << bytes;
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

TEST(KelvarisFile, ForeignFilesAreErrors) {
  const TemporaryFolder folder;
  writeFile(folder / "text.kvx", "This is not an image.");
  const std::pair<std::filesystem::path, const char*> table[] = {
      {folder / "text.kvx", "not an HDF5 file"}, {folder.path(), "not a regular file"}, {folder / "none", "no file"}};
  for (const auto& [path, reason] : table)
    EXPECT_CONTAINS(errorOf([&, file = path] { KelvarisFile::Reader reader(file); }), reason);
}

/// What a case does to a valid file through HDF5 itself.
using Change = std::function<void(hid_t file, hid_t image)>;
using Extent = std::vector<hsize_t>;

/// Another array in the place of image 0.
Change image(hid_t type, const Extent& extent, const Extent& chunk = {}) {
  return [=](hid_t file, hid_t) {
    H5Ldelete(file, "/images/00000", H5P_DEFAULT);
    const Hdf5::Handle layout(H5Pcreate(H5P_DATASET_CREATE), H5Pclose);
    if (!chunk.empty()) H5Pset_chunk(layout, static_cast<int>(chunk.size()), chunk.data());
    const Extent unlimited(extent.size(), H5S_UNLIMITED);
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
  const std::vector<double> nine(9);
  const hid_t bytes = H5T_NATIVE_UCHAR, floats = H5T_NATIVE_FLOAT;
  const struct {
    const char* what;
    Change change;
    const char* error;
  } table[] = {
      {"foreign format", [](hid_t f, hid_t) { Hdf5::writeText(f, "format", "photos"); }, "not a file of images"},
      {"no format", [](hid_t f, hid_t) { H5Adelete(f, "format"); }, "not a file of images"},
      {"format of another type", [](hid_t f, hid_t) { Hdf5::writeInteger(f, "format", 1); }, "not a text"},
      {"later version", [](hid_t f, hid_t) { Hdf5::writeInteger(f, "version", 2); }, "version 2"},
      {"no version", [](hid_t f, hid_t) { H5Adelete(f, "version"); }, "\"version\" is missing"},
      {"properties", [](hid_t f, hid_t) { Hdf5::writeText(f, "properties", "<properties><param>"); }, "\"properties\""},
      {"no images", [](hid_t f, hid_t) { H5Ldelete(f, "images", H5P_DEFAULT); }, "/images"},
      {"no image 0", [](hid_t f, hid_t) { H5Ldelete(f, "/images/00000", H5P_DEFAULT); }, "/images/00000"},
      {"broken components", [](hid_t, hid_t i) { Hdf5::writeText(i, "components", "<components"); }, "\"components\""},
      {"pixel type that does not fit", [](hid_t, hid_t i) { Hdf5::writeInteger(i, "pixelType", PixelInt16); }, "5122"},
      {"unknown pixel type", [](hid_t, hid_t i) { Hdf5::writeInteger(i, "pixelType", -7); }, "-7"},
      {"matrix of nine", [&](hid_t, hid_t i) { Hdf5::writeDoubles(i, "matrix", nine); }, "holds 9 values, expected 16"},
      {"shift as text", [](hid_t, hid_t i) { Hdf5::writeText(i, "shift", "1"); }, "no numbers"},
      {"rank 2", image(bytes, {5, 9}), "2 dimensions"},
      {"rank 0", image(bytes, {}), "0 dimensions"},
      {"nothing in it", image(bytes, {1, 0, 9, 1}), "extent is 0"},
      {"64-bit integers", image(H5T_NATIVE_LLONG, {1, 5, 9, 1}), "elements"},
      {"a text", image(H5T_C_S1, {1, 5, 9, 1}), "elements"},
      {"terabytes", image(floats, {1000, 30000, 30000, 1}, {1, 10, 10, 1}), "the file holds 0"},
      {"beyond the address space", image(floats, {INT_MAX, INT_MAX, INT_MAX, 1}, {1, 9, 9, 1}), "exceeds the address"},
      {"extent over int", image(floats, {1, 1, 4294967297, 1}, {1, 1, 10, 1}), "4294967297"},
      {"huge chunk", image(floats, {1, 5, 9, 1}, {1, 30000, 30000, 1}), "chunks are larger"},
  };
  for (const auto& c : table) {
    writeFile(folder / "t.kvx", whole);
    {
      const Hdf5::Handle file(H5Fopen((folder / "t.kvx").c_str(), H5F_ACC_RDWR, H5P_DEFAULT), H5Fclose);
      const Hdf5::Handle image(H5Dopen2(file, "/images/00000", H5P_DEFAULT), H5Dclose);
      c.change(file, image);
    }
    const ExpectedLog log;
    const std::string error = errorOf([&] { KelvarisFile::load(folder / "t.kvx"); });
    EXPECT_CONTAINS(error, c.error) << c.what;
    EXPECT_CONTAINS(error, "t.kvx") << c.what;
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
  const auto path = folder / "script.kvx";
  {
    const Hdf5::Handle file(H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT), H5Fclose);
    const Hdf5::Handle fixed(H5Tcopy(H5T_C_S1), H5Tclose);
    H5Tset_size(fixed, 20);
    H5Tset_strpad(fixed, H5T_STR_SPACEPAD);
    const long long version = 1;
    addAttribute(file, "format", fixed, fixed, "kelvaris-images     ");
    addAttribute(file, "version", H5T_STD_I64BE, H5T_NATIVE_LLONG, &version);
    const Hdf5::Handle images(H5Gcreate2(file, "images", H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT), H5Gclose);
    const hsize_t extent[] = {1, 1, 3, 1};
    const Hdf5::Handle space(H5Screate_simple(4, extent, nullptr), H5Sclose);
    const Hdf5::Handle image(H5Dcreate2(images, "00000", H5T_STD_I16BE, space, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT),
                             H5Dclose);
    const short samples[] = {-32768, 2, 513};
    H5Dwrite(image, H5T_NATIVE_SHORT, H5S_ALL, H5S_ALL, H5P_DEFAULT, samples);
    const int mask = -32768;
    addAttribute(image, "mask", H5T_STD_I32LE, H5T_NATIVE_INT, &mask);
  }
  const auto loaded = KelvarisFile::load(path);
  ASSERT_EQ(loaded->size(), 1);
  EXPECT_EQ(loaded->modality(), Data::UnknownModality);
  EXPECT_TRUE(loaded->get(0).descriptor().isApprox(ImageDescriptor(PixelInt16, 3, 1)));
  EXPECT_EQ(loaded->get(0).mem()->valueAsDouble(2, 0, 0, 0), 513.0);
  ASSERT_NE(loaded->get(0).mask(), nullptr);
  EXPECT_TRUE(intensityMask(loaded->get(0)).isMasked(-32768.0));
}

} // namespace
} // namespace Kelvaris
