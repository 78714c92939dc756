#include "apps/Program.h"
#include "support/ErrorOf.h"

#include "Lib/KelvarisFile.h"

namespace Kelvaris::Tests {
namespace {

/// A folder with the acquisition of one plane wave, 4 channels of 6 samples.
class ImportCommand : public testing::Test {
protected:
  ImportCommand() {
    runSuccessfully("acquisition --wave plane --elements 4 --pitch 0.3 --frequency 5 --sampling-frequency 20 --depth 1 "
                    "--samples 6 --start-time 1 --output a.xml",
                    m_folder.path());
  }
  const TemporaryFolder m_folder;
};

TEST_F(ImportCommand, BringsInRawSamplesWithTheirDescription) {
  std::string raw; // 3 frames
  for (char i = 0; i < 72; ++i)
    raw += i;
  writeFile(m_folder / "rf.raw", raw);
  const auto result = runSuccessfully("import rf.raw --shape 3,4,6 --type int8 --layout frames,channels,fastTime "
                                      "--acquisition a.xml --frame-rate 500 --output rf.kvx",
                                      m_folder.path());
  EXPECT_CONTAINS(result.output, "3 frames of 6 samples, 4 channels, 1 event");

  const KelvarisFile::Reader reader(m_folder / "rf.kvx");
  ASSERT_EQ(reader.size(), 3);
  EXPECT_EQ(reader.set().modality(), Data::Ultrasound);
  EXPECT_EQ(reader.timestamp(2), 4.0);
  EXPECT_EQ(reader.image(2)->descriptor().pixelType(), PixelInt16);
  EXPECT_EQ(reader.image(2)->descriptor().dimensions(), Eigen::Vector3i(6, 4, 1));
  EXPECT_EQ(reader.image(2)->mem()->valueAsDouble(5, 2, 0, 0), 65.0);
  const DataComponentList components = reader.components(2);
  ASSERT_EQ(components.size(), 2U);
  EXPECT_EQ((*components.begin())->id() + " " + (*std::next(components.begin()))->id(),
            "FrameAcquisition ChannelDataLayout");
}

TEST_F(ImportCommand, SaysWhatIsWrongAndLeavesNothing) {
  writeFile(m_folder / "rf.raw", std::string(24, 'x'));
  const auto before = m_folder.names();
  for (const auto& [arguments, part] : {std::pair("", "raw binary samples need their shape and type"),
                                        {"--shape 6,4 --type uint8 --layout depth,channels", "\"depth\" is no axis"},
                                        {"--shape 6,4 --type uint8 --frame-rate nan", "frame rate is nan"},
                                        {"--shape 6,4 --type uint8 --offset some", "\"some\""}}) {
    const auto result =
        runKelvaris("import rf.raw --output out.kvx --acquisition a.xml " + std::string(arguments), m_folder.path());
    EXPECT_EQ(result.status, 1) << arguments;
    EXPECT_CONTAINS(result.error, part) << arguments;
    EXPECT_EQ(m_folder.names().size(), before.size()) << arguments;
  }
}

} // namespace
} // namespace Kelvaris::Tests
