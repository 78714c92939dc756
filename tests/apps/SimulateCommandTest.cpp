#include "apps/Program.h"
#include "support/ErrorOf.h"
#ifdef KELVARIS_HAVE_GL
#include "GL/RequireGL.h"
#endif

#include "Lib/KelvarisFile.h"

#include <cmath>

namespace Kelvaris::Tests {
namespace {

namespace fs = std::filesystem;

const std::string kSequences = (fs::path(KELVARIS_EXAMPLES) / "sequences").string() + "/";
const std::string kInterleaved = "simulate --sequence " + kSequences + "interleaved-ensemble.xml";

TEST(SimulateCommand, RefusesWhatItCannotSimulate) {
  const TemporaryFolder folder;
  const std::string good = readFile(kSequences + "plane-wave.xml");
  writeFile(folder / "good.xml", good);
  writeFile(folder / "broken.xml", good.substr(0, good.size() / 2));
  writeFile(folder / "acquisition.xml", "<properties><param key=\"eventType\">1</param></properties>");
  const struct {
    std::string line;
    int status;
    const char* text;
  } cases[] = {{"--sequence broken.xml", 1, "broken.xml doesn't hold a sequence"},
               {"--sequence acquisition.xml", 1, "The sequence is broken: it has no \"frameAcquisitions\""},
               {"--sequence good.xml --phantom cyst", 2, "--phantom"},
               {"--sequence good.xml --origin 0,10", 1, "\"0,10\" is no place; expected x,y,z"},
               {"--sequence good.xml --rate 0", 1, "The rate is 0 per second"},
               {"--sequence good.xml --noise -1", 1, "The amplitude of the noise is -1"}};
  for (const auto& c : cases)
    for (const std::string command : {"simulate --output out ", "stream simulated "}) {
      const ProgramResult result = runKelvaris(command + c.line, folder.path());
      EXPECT_EQ(result.status, c.status) << command << c.line;
      EXPECT_CONTAINS(result.error, c.text);
      EXPECT_FALSE(fs::exists(folder / "out"));
    }
  for (const auto& [line, text] :
       {std::pair("simulate --output out --frames 0", "There are 0 frames to simulate"),
        {"simulate --output out --layout channels,fastTime", "must name channels, fastTime and slowTime"},
        {"stream simulated --seconds 0", "can't run for 0 seconds"}})
    EXPECT_CONTAINS(runKelvaris(line + std::string(" --sequence good.xml"), folder.path()).error, text);
}

#ifdef KELVARIS_HAVE_GL
std::string bytesOf(const KelvarisFile::Reader& file, int image) {
  const auto pixels = file.image(image)->mem();
  return {static_cast<const char*>(pixels->data()), pixels->byteSize()};
}

TEST(SimulateCommand, WritesEveryEmission) {
  KELVARIS_REQUIRE_GL();
  const TemporaryFolder folder;
  const std::string options = " --frames 2 --rate 10Hz --pixel float";
  runSuccessfully(kInterleaved + options + " --output all.kvx", folder.path());
  EXPECT_CONTAINS(runSuccessfully(kInterleaved + options + " --output each", folder.path()).output,
                  "Wrote each/frame-1.kvx (2 images)");
  runSuccessfully(kInterleaved + " --frames 1 --pixel short --layout slowTime,channels,fastTime --output other.kvx",
                  folder.path());
  const KelvarisFile::Reader other(folder / "other.kvx");
  EXPECT_EQ(other.descriptor(1).width(), 12);
  EXPECT_EQ(other.descriptor(1).pixelType(), PixelInt16);
  const KelvarisFile::Reader all(folder / "all.kvx"), frame0(folder / "each/frame-0.kvx"),
      frame1(folder / "each/frame-1.kvx");
  ASSERT_EQ(all.size(), 4);
  for (int i = 0; i < 4; ++i) {
    const KelvarisFile::Reader& frame = i % 2 ? frame1 : frame0;
    EXPECT_EQ(all.descriptor(i).slices(), i % 2 ? 12 : 5);
    EXPECT_EQ(all.timestamp(i), 100.0 * (i / 2));
    EXPECT_EQ(bytesOf(all, i), bytesOf(frame, i / 2)) << "the noise of an emission is that of its number";
  }
  EXPECT_NE(bytesOf(frame0, 0), bytesOf(frame0, 1)) << "the noise of each emission is its own";
  EXPECT_TRUE(all.set().isVolumetric());
}

TEST(SimulateCommand, ReportsWhatOnlyShowsAtWork) {
  KELVARIS_REQUIRE_GL();
  const TemporaryFolder folder;
  fs::create_directory(folder / "x.kvx");
  writeFile(folder / "file", "");
  const std::string acquisition =
      "acquisition --wave plane --elements 64 --pitch 0.3 --frequency 3 --depth 40 --output a.xml ";
  runSuccessfully(acquisition + "--sampling-frequency 1e6", folder.path());
  runSuccessfully("sequence a.xml --output huge.xml", folder.path());
  for (const auto& [line, text] :
       {std::pair(kInterleaved + " --output x.kvx", "x.kvx"),
        {kInterleaved + " --output file", "file can't be made a folder, and a file must end in .kvx"},
        {std::string("simulate --sequence huge.xml --output folder"), "samples"},
        {std::string("stream simulated --sequence huge.xml"), "samples"}}) {
    const ProgramResult result = runKelvaris(line, folder.path());
    EXPECT_EQ(result.status, 1) << line;
    EXPECT_CONTAINS(result.error, text);
  }
  EXPECT_EQ(folder.names().size(), 4u) << "nothing but a.xml, huge.xml, file and x.kvx";
}

TEST(SimulateCommand, EndsWithoutAFileWhenInterrupted) {
  KELVARIS_REQUIRE_GL();
  const TemporaryFolder folder;
  // The shell gives background processes no Ctrl-C, but the signal of kill means the same.
  const ProgramResult result = runKelvaris(
      kInterleaved + " --frames 1000000 --output x.kvx & until ls .kelvaris* || ! kill -0 $!; do sleep 0.01; done; "
                     "kill -TERM $!; wait $!; }",
      folder.path(), "{ ");
  EXPECT_EQ(result.status, 130);
  EXPECT_CONTAINS(result.error, "Canceled; nothing was written");
  EXPECT_TRUE(folder.names().empty());
}

const std::string kStream = "stream simulated --sequence " + kSequences + "interleaved-ensemble.xml";
const std::string kSteps = " --step IqDemodulation --step Beamforming:outputSize=16x64";

TEST(StreamCommand, ShowsAndRecordsWhatTheStepsMakeOfALiveStream) {
  KELVARIS_REQUIRE_GL();
  const TemporaryFolder folder;
  const std::string phantom = " --noise 0 --origin 2,20,0 --pixel float";
  const std::string output =
      runSuccessfully(kStream + phantom + " --rate 20 --seconds 1 --frame 1" + kSteps + " --record live.kvx",
                      folder.path())
          .output;
  for (const char* text : {"per second (20 asked for)", "the period is 50.00 ms",
                           "IqDemodulation: ", "Beamforming: ", "All steps: ", " in, ", " dropped", "Wrote live.kvx"})
    EXPECT_CONTAINS(output, text);
  runSuccessfully(kInterleaved + phantom + " --output files", folder.path());
  runSuccessfully("run files/frame-1.kvx" + kSteps + " --output run.kvx", folder.path());
  const KelvarisFile::Reader live(folder / "live.kvx"), run(folder / "run.kvx");
  ASSERT_GT(live.size(), 0);
  for (int i = 0; i < live.size(); ++i)
    EXPECT_EQ(bytesOf(live, i), bytesOf(run, 0));
  EXPECT_EQ(std::fmod(live.timestamp(live.size() - 1), 50.0), 0.0);
}

TEST(StreamCommand, EndsWithWhatItHasWhenInterrupted) {
  KELVARIS_REQUIRE_GL();
  const TemporaryFolder folder;
  const ProgramResult result = runKelvaris(
      kStream + " --seconds 1000 --step IqDemodulation --step LogCompression --record x.kvx --png-every 1s p & "
                "until ls p/*.png || ! kill -0 $!; do sleep 0.01; done; kill -TERM $!; wait $!; }",
      folder.path(), "{ ");
  EXPECT_EQ(result.status, 0) << result.error;
  EXPECT_GT(KelvarisFile::Reader(folder / "x.kvx").size(), 0);
  EXPECT_EQ(folder.names().size(), 2u);
}

TEST(StreamCommand, TellsWhatIsWrongWithStepsAndRecordings) {
  KELVARIS_REQUIRE_GL();
  const TemporaryFolder folder;
  const struct {
    const char* options;
    int status;
    const char* text;
  } cases[] = {{"--frame 2", 1, "There is no frame 2 in the sequence, its frames are 0 to 1"},
               {"--step Beamformin", 1, "There is no algorithm \"Beamformin\" (did you mean"},
               {"--step ScanConversionUltrafastImaging", 1, "ScanConversionUltrafastImaging"},
               {"--step IqDemodulation --chain chain.xml", 2, "excludes"},
               {"--record x.png", 1, "The recording x.png doesn't end in .kvx"},
               {"--png-every soon folder", 1, "\"soon\" is no time"},
               {"--png-every 1s pictures", 1, "A PNG can't show an image of int16"}};
  for (const auto& c : cases) {
    const ProgramResult result = runKelvaris(kStream + " --seconds 60 " + c.options, folder.path());
    EXPECT_EQ(result.status, c.status) << c.options;
    EXPECT_CONTAINS(result.error, c.text);
  }
}
#endif

} // namespace
} // namespace Kelvaris::Tests
