#include "apps/Program.h"
#include "support/ErrorOf.h"
#include "support/TemporaryFolder.h"

#include "Lib/KelvarisFile.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

namespace Kelvaris::Tests {
namespace {

std::vector<std::string> words(const std::string& line) {
  std::istringstream stream(line);
  std::vector<std::string> all;
  for (std::string word; stream >> word;)
    all.push_back(word);
  return all;
}

void useRealPlugin() {
  setenv("KELVARIS_PLUGIN_PATH", KELVARIS_REAL_PLUGIN, 1);
}

const std::string kPlane = "acquisition --wave plane --elements 4 --pitch 0.3 --frequency 5 --sampling-frequency 20 "
                           "--depth 1 --samples 6 --start-time 1 --output a.xml";

TEST(ImportCommand, BringsInRawSamplesWithTheirDescription) {
  const TemporaryFolder folder;
  ASSERT_EQ(runKelvaris(words(kPlane), folder.path()).status, 0);
  std::string raw; // 3 frames of 4 channels of 6 samples
  for (char i = 0; i < 72; ++i)
    raw += i;
  writeFile(folder / "rf.raw", raw);
  const auto result = runKelvaris(words("import rf.raw --shape 3,4,6 --type int8 --layout frames,channels,fastTime "
                                        "--acquisition a.xml --frame-rate 500 --output rf.kvx"),
                                  folder.path(), useRealPlugin);
  ASSERT_EQ(result.status, 0) << result.error;
  EXPECT_CONTAINS(result.output, "3 frames of 6 samples, 4 channels, 1 event");

  const KelvarisFile::Reader reader(folder / "rf.kvx");
  ASSERT_EQ(reader.size(), 3);
  EXPECT_EQ(reader.set().modality(), Data::Ultrasound);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(reader.timestamp(i), 2.0 * i);
    const auto image = reader.image(i)->mem();
    EXPECT_EQ(image->descriptor().pixelType(), PixelInt16);
    EXPECT_EQ(image->descriptor().dimensions(), Eigen::Vector3i(6, 4, 1));
    EXPECT_EQ(image->valueAsDouble(5, 2, 0, 0), 24.0 * i + 17.0);
    std::string ids;
    for (const auto& component : reader.components(i))
      ids += component->id() + " ";
    EXPECT_EQ(ids, "FrameAcquisition ChannelDataLayout ");
  }
}

TEST(ImportCommand, SaysWhatIsWrongAndLeavesNothing) {
  const TemporaryFolder folder;
  ASSERT_EQ(runKelvaris(words(kPlane), folder.path()).status, 0);
  writeFile(folder / "rf.raw", std::string(24, 'x'));
  writeFile(folder / "none.xml", "<properties/>");
  writeFile(folder / "broken.xml", readFile(folder / "a.xml").substr(0, 200));
  const auto before = folder.names();
  const struct {
    std::string arguments;
    const char* part;
  } cases[] = {
      {"rf.raw --acquisition a.xml", "raw binary samples need their shape and type"},
      {"rf.raw --shape 4,6 --acquisition a.xml", "both --shape and --type"},
      {"rf.raw --shape 4,6 --type uint8 --acquisition a.xml", "Layouts that fit: channels,fastTime"},
      {"rf.raw --shape 6,4 --type uint8 --layout depth,channels --acquisition a.xml", "\"depth\" is no axis"},
      {"rf.raw --shape 6,4 --type uint8 --acquisition none.xml", "no \"transducer\""},
      {"rf.raw --shape 6,4 --type uint8 --acquisition broken.xml", "broken.xml"},
      {"rf.raw --shape 6,4 --type uint8 --acquisition nowhere.xml", "nowhere.xml can't be read"},
      {"rf.raw --shape 6,4 --type uint8 --acquisition a.xml --frame-rate nan", "frame rate is nan"},
      {"rf.raw --shape 6,4 --type uint8 --acquisition a.xml --offset some", "\"some\""},
  };
  for (const auto& c : cases) {
    const auto result = runKelvaris(words("import --output out.kvx " + c.arguments), folder.path(), useRealPlugin);
    EXPECT_EQ(result.status, 1) << c.arguments;
    EXPECT_CONTAINS(result.error, c.part) << c.arguments;
    EXPECT_EQ(folder.names().size(), before.size()) << c.arguments;
  }
}

} // namespace
} // namespace Kelvaris::Tests
