#include "apps/Program.h"
#include "apps/TestAlgorithms.h"
#include "support/ErrorOf.h"
#include "support/PngPicture.h"

#include "Lib/DataComponentsIO.h"
#include "Lib/KelvarisFile.h"
#include "US/FrameGeometryLinear.h"
#include "US/FrameGeometryMetadata.h"
#include "US/FrameGeometrySector.h"
#include "US/UltrasoundMetadata.h"

#include <cmath>

namespace Kelvaris {
namespace {

using Tests::floatImage;
using Tests::readFile;
using Tests::writeFile;

/// A folder with in.kvx: five float images with the values 1 to 5, the first sample NaN.
class Program : public testing::Test {
protected:
  Program() {
    SharedImageSet set;
    set.setModality(Data::Ultrasound);
    set.properties().setParam("session", 7);
    set.components().add<UnknownDataComponent>("OfTheSet");
    for (int i = 0; i < 5; ++i) {
      auto image = floatImage(40, 30, static_cast<float>(i + 1));
      static_cast<float*>(image->mem()->data())[0] = std::nanf("");
      set.add(image, 10.0 * i);
      set.elementwiseComponents().components(i).add<UnknownDataComponent>("OfTheImage");
    }
    KelvarisFile::save(m_folder / "in.kvx", set);
    m_sector.setDepth(60.0);
    m_sector.setOpeningAngle(30.0);
  }

  Tests::ProgramResult run(const std::string& line, const std::string& before = {}) const {
    return Tests::runKelvaris(line, m_folder.path(), before);
  }
  /// Writes frame.kvx: 40 x 30 levels, of 1 x 0.5 mm by the image's own spacing, all invalid.
  void saveFrame(const US::FrameGeometry* geometry, bool scanConverted, bool ofTheSet = false) const {
    ImageDescriptor descriptor(PixelUInt8, 40, 30);
    descriptor.setSpacing({1.0, 0.5, 1.0});
    SharedImageSet set;
    set.add(std::make_shared<SharedImage>(Tests::imageOf(descriptor, [](int, int, int, int) { return 0; })));
    set.shared(0)->setMask(std::make_shared<IntensityMask>(PixelUInt8, 0.0));
    if (geometry) {
      DataComponentList& components = ofTheSet ? set.components() : set.elementwiseComponents().components(0);
      components.add<US::FrameGeometryMetadata>(*geometry);
      components.add<US::UltrasoundMetadata>().scanConverted = scanConverted;
    }
    KelvarisFile::save(m_folder / "frame.kvx", set);
  }
  std::set<std::string> names() const {
    const auto all = m_folder.names();
    return {all.begin(), all.end()};
  }

  const Tests::TemporaryFolder m_folder;
  US::FrameGeometrySector m_sector;
};

TEST_F(Program, RunsAChainIntoSeveralOutputs) {
  const auto result = run("run in.kvx --images 1:4 --output cut.kvx --step Gain:factor=10 --output gained.kvx "
                          "--step Test.Levels --output picture.png --save-chain chain.xml");
  ASSERT_EQ(result.status, 0) << result.error;
  EXPECT_EQ(result.error, "");
  EXPECT_CONTAINS(result.output, "Gain: float, 40 x 30 x 1, 1 channel -> float, 40 x 30 x 1, 1 channel; 3 images in ");
  EXPECT_CONTAINS(result.output, "Wrote picture_0000.png to picture_0002.png (3 pictures)");
  EXPECT_EQ(names(), (std::set<std::string>{"in.kvx", "cut.kvx", "gained.kvx", "chain.xml", "picture_0000.png",
                                            "picture_0001.png", "picture_0002.png"}));

  const auto gained = KelvarisFile::load(m_folder / "gained.kvx");
  ASSERT_EQ(gained->size(), 3);
  EXPECT_TRUE(gained->properties().hasParam("session") && gained->properties().hasParam("gained"));
  EXPECT_EQ(gained->components().size(), 1U);
  EXPECT_EQ(gained->get(2).mem()->valueAsDouble(5, 5, 0, 0), 40.0);
  EXPECT_EQ(gained->timestamp(2), 30.0);
  EXPECT_EQ(gained->elementwiseComponents().components(2).size(), 1U);
  EXPECT_EQ(KelvarisFile::load(m_folder / "cut.kvx")->get(0).mem()->valueAsDouble(5, 5, 0, 0), 2.0);

  ASSERT_EQ(run("run in.kvx --images 3 --chain chain.xml --output one.png").status, 0);
  EXPECT_EQ(readFile(m_folder / "one.png"), readFile(m_folder / "picture_0002.png"));
  ASSERT_EQ(run("run in.kvx --step Gain:factor=2 --output in.kvx").status, 0) << "over its own input";
  EXPECT_EQ(KelvarisFile::load(m_folder / "in.kvx")->get(4).mem()->valueAsDouble(5, 5, 0, 0), 10.0);
}

TEST_F(Program, PicturesAreInMillimetresWhereTheirShapeIsKnown) {
  US::FrameGeometryLinear upright, steered;
  upright.setWidth(20.0);
  upright.setDepth(60.0);
  steered = upright;
  steered.setSteeringAngle(10.0);
  const struct {
    const US::FrameGeometry* geometry;
    bool scanConverted, ofTheSet;
    const char* pixels;
    int width, height;
    png_uint_32 densityX, densityY; ///< 0: none
  } table[] = {
      {&upright, false, true, "square", 40, 120, 2000, 2000}, {&upright, false, false, "as-is", 40, 30, 2000, 500},
      {&steered, false, false, "square", 40, 30, 0, 0},       {&m_sector, false, false, "square", 40, 30, 0, 0},
      {&m_sector, true, false, "as-is", 40, 30, 1000, 2000},  {nullptr, false, false, "square", 80, 30, 2000, 2000}};
  for (const auto& c : table) {
    SCOPED_TRACE(std::string(c.geometry ? c.geometry->type() : "no geometry") + " " + c.pixels);
    saveFrame(c.geometry, c.scanConverted, c.ofTheSet);
    const auto result =
        run(std::string("run frame.kvx --output a.png --mask-color '#Ff8001' --png-pixels ") + c.pixels);
    ASSERT_EQ(result.status, 0) << result.error;
    const Tests::PngPicture picture = Tests::readPng(m_folder / "a.png");
    EXPECT_EQ(std::pair(picture.width, picture.height), std::pair(c.width, c.height));
    EXPECT_EQ(std::tuple(picture.at(0, 0, 0), picture.at(0, 0, 1), picture.at(0, 0, 2)), std::tuple(255, 128, 1));
    EXPECT_EQ(std::pair(picture.densityX, picture.densityY), std::pair(c.densityX, c.densityY));
  }
}

TEST_F(Program, ListsAlgorithms) {
  EXPECT_EQ(run("algorithms").output, "Test.Gain    Test;Gain         Gain\n"
                                      "Test.Levels  Test;Make Levels  Make Levels\n");
  const auto fitting = run("algorithms in.kvx");
  EXPECT_CONTAINS(fitting.output, "Test.Gain ");
  EXPECT_CONTAINS(fitting.output, "  mode = 0 (one of 0 \"Plain\", 1 \"Hamming Das\", 2 \"Debug: Other\"; default 0)");
  EXPECT_CONTAINS(run("algorithms --help Gain").output, "  factor = 1 (a number; default 1)\n");
  ASSERT_EQ(run("run in.kvx --step Levels --output levels.kvx").status, 0);
  EXPECT_EQ(run("algorithms levels.kvx").output, "No algorithm works on levels.kvx\n");
  EXPECT_CONTAINS(run("algorithms levels.kvx --help Gain").output, "  doesn't work on levels.kvx\n");
}

TEST_F(Program, SaysWhatIsInAFile) {
  const auto expectInfo = [&](const char* line, std::initializer_list<const char*> parts) {
    const auto info = run(line);
    EXPECT_EQ(info.status, 0) << info.error;
    for (const char* part : parts)
      EXPECT_CONTAINS(info.output, part);
  };
  expectInfo("info in.kvx", {"images 0 to 4: float"});
  expectInfo("info in.kvx --values", {"in.kvx: 5 images, modality ultrasound", "image 4: float, 40 x 30 x 1, 1 channel",
                                      "samples 5 to 5, 1 invalid", "timestamps: 0 to 40 ms", "session: 7", "OfTheSet",
                                      "Components from image 0 on:\n  OfTheImage"});
  saveFrame(&m_sector, false);
  expectInfo("info frame.kvx", {"lines and depths (pre-scan)", "mask: the value 0 is invalid",
                                "from -30 to 30 mm along the array, from 0 to 60 mm in depth"});
  saveFrame(&m_sector, true);
  expectInfo("info frame.kvx", {"mm, scan-converted: 40 x 15 mm"});
}

TEST_F(Program, BadInputEndsInAMessageAndLeavesNothing) {
  writeFile(m_folder / "cut.kvx", readFile(m_folder / "in.kvx").substr(0, 3000));
  KelvarisFile::save(m_folder / "none.kvx", SharedImageSet());
  SharedImageSet unmarked;
  unmarked.add(floatImage(4, 3, 1.0F));
  KelvarisFile::save(m_folder / "unmarked.kvx", unmarked);
  const auto before = names();

  const struct {
    const char* line;
    int status;
    const char* message;
  } table[] = {
      {"", 2, "subcommand is required"},
      {"run in.kvx --step Gain", 1, "There is no --output"},
      {"run in.kvx --output a.kvx --step Gain", 1, "The result of Gain is not written"},
      {"run in.kvx --step Gain --output a.kvx --output a.kvx", 1, "given twice"},
      {"run in.kvx --step Gain --output a.jpg", 1, "a.jpg ends neither in .kvx nor in .png"},
      {"run in.kvx --step Gain --output no/a.png", 1, "there is no folder no"},
      {"run in.kvx --step Gain --output a.png", 1, "LogCompression"},
      {"run in.kvx --step Levels --mask-color '#1234567' --output a.png", 1,
       "\"#1234567\" is no colour of masked pixels; expected transparent, #rrggbb"},
      {"run in.kvx --step Levels --step Gain --output a.kvx", 1,
       "Gain does not work on this data (images of a file: uint8, 40 x 30 x 1, 1 channel, with OfTheSet, OfTheImage); "
       "what does: nothing"},
      {"run unmarked.kvx --step Gain --output a.kvx", 1, "not marked as ultrasound"},
      {"run in.kvx --step Gain --output a.kvx --step Gain:trouble=Fail,at=3 --output b.kvx", 1,
       "Gain failed on image 3"},
      {"run in.kvx --step Gain:trouble=Throw,at=2 --output b.kvx", 1, "the device is gone"},
      {"run in.kvx --step Gain --output a.kvx --step Gain:trouble=Interrupt,at=4 --output b.kvx", 130, "Canceled"},
      {"run none.kvx --output a.kvx", 1, "holds no images"},
      {"info cut.kvx", 1, "truncated"},
  };
  for (const auto& c : table) {
    const auto result = run(c.line);
    EXPECT_EQ(result.status, c.status) << c.line << "\n" << result.error;
    EXPECT_CONTAINS(result.error, c.message);
    EXPECT_EQ(names(), before) << c.line;
  }
}

TEST_F(Program, FullDiskLeavesNoFile) {
  const auto before = names();
  const auto result = run("run in.kvx --step Levels --output a.png", "ulimit -f 0;");
  EXPECT_EQ(result.status, 1);
  EXPECT_CONTAINS(result.error, "File too large");
  EXPECT_EQ(names(), before);
}

} // namespace
} // namespace Kelvaris
