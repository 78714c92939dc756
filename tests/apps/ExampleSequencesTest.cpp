#include "apps/Amplitudes.h"
#include "apps/Program.h"
#include "support/ErrorOf.h"
#ifdef KELVARIS_HAVE_GL
#include "GL/RequireGL.h"
#endif

#include <fmt/format.h>

#include <cmath>
#include <numbers>

namespace Kelvaris::Tests {
namespace {

namespace fs = std::filesystem;

const fs::path kSequences = fs::path(KELVARIS_EXAMPLES) / "sequences";

TEST(ExampleSequences, AreWhatTheirCommandsWrite) {
  const TemporaryFolder folder;
  for (const std::string& command : commandsOf(kSequences / "README.md"))
    runSuccessfully(command, folder.path());
  int files = 0;
  for (const auto& entry : fs::directory_iterator(kSequences)) {
    if (entry.path().extension() != ".xml") continue;
    ++files;
    EXPECT_EQ(readFile(folder / entry.path().filename().string()), readFile(entry.path())) << entry.path();
  }
  EXPECT_EQ(files, 5);
}

#ifdef KELVARIS_HAVE_GL
TEST(ExampleSequences, ThePageOnSimulationWorks) {
  KELVARIS_REQUIRE_GL();
  const TemporaryFolder folder;
  fs::create_directory_symlink(KELVARIS_EXAMPLES, folder / "examples");
  for (const std::string& command : commandsOf(fs::path(KELVARIS_EXAMPLES) / "../docs/simulation.md")) {
    const std::string messages = runSuccessfully(command, folder.path()).error;
    for (const char* bad : {"error ", "warning "})
      ASSERT_EQ(messages.find(bad), std::string::npos) << command << "\n" << messages;
  }
  EXPECT_EQ(KelvarisFile::Reader(folder / "sequence.kvx").size(), 6);
  EXPECT_EQ(KelvarisFile::Reader(folder / "frames/frame-1.kvx").descriptor(2).slices(), 8);
}
#endif

TEST(SequenceCommand, SaysWhatIsInASequenceAndWhatIsWrong) {
  const TemporaryFolder folder;
  writeFile(folder / "broken.xml", "<properties><param>");
  writeFile(folder / "images.xml", "\x89HDF");
  const std::string examples = kSequences.string() + "/";
  const struct {
    std::string line;
    int status;
    const char* text; // on standard output or standard error
  } cases[] = {
      {"info " + examples + "interleaved-ensemble.xml", 0, "firings (frame.event): 0.0 1.0 0.1 1.1 0.2"},
      {"info " + examples + "interleaved-ensemble.xml", 0, "frame 1: 3 plane waves of 3 MHz"},
      {"info " + examples + "convex.xml", 0, "convex array (radius 60 mm) of 64 elements, 0.72 mm apart"},
      {"info images.xml", 1, "images.xml doesn't hold an acquisition or a sequence"},
      {"sequence . --output s.xml", 1, ". can't be read"},
      {"sequence broken.xml --output s.xml", 1, "broken.xml doesn't hold an acquisition"},
      {"sequence " + examples + "convex.xml --output s.xml", 1, "The acquisition is broken: it has no \"transducer\""},
      {"sequence --output s.xml", 2, "ACQUISITION"}};
  for (const auto& c : cases) {
    const ProgramResult result = runKelvaris(c.line, folder.path());
    EXPECT_EQ(result.status, c.status) << c.line;
    EXPECT_CONTAINS(c.status == 0 ? result.output : result.error, c.text);
    EXPECT_FALSE(fs::exists(folder / "s.xml"));
  }
}

#ifdef KELVARIS_HAVE_GL
struct PictureOfPoints {
  const char* sequence;
  int frame;
  double fNumber;
  const char* size;
  double brightest; ///< at least the amplitude of the brightest point
  double halfAngle; ///< of the sector, degrees
  double radius;    ///< of its top, mm
  double beamWidth; ///< mm
};
void PrintTo(const PictureOfPoints& picture, std::ostream* stream) {
  *stream << picture.sequence << ", frame " << picture.frame;
}

constexpr double kWavelength = 1540.0 / 3e3; // mm
/// An echo begins where its point is and ends a pulse of two cycles later.
constexpr double kEchoBehindPoint = kWavelength * 2.0 / 4.0;

class PicturesOfPoints : public testing::TestWithParam<PictureOfPoints> {
protected:
  /// Scan-converted, from x = 0 in the middle and the depth of the upper edge on.
  static Amplitudes simulate(const std::string& phantom) {
    const PictureOfPoints& p = GetParam();
    const TemporaryFolder folder;
    runSuccessfully("simulate --sequence " + (kSequences / p.sequence).string() + " --pixel float --output . " +
                        phantom,
                    folder.path());
    runSuccessfully(fmt::format("run frame-{}.kvx --step IqDemodulation --step Beamforming:fNumber={},outputSize={} "
                                "--step LogCompression:dynamicRange=50,referenceAmplitude={} "
                                "--step ScanConversionUltrafastImaging --output picture.kvx",
                                p.frame, p.fNumber, p.size, p.brightest),
                    folder.path());
    const double top = p.radius * (std::cos(p.halfAngle * std::numbers::pi / 180.0) - 1.0);
    return {folder / "picture.kvx", 50.0, 0.0, 0.0, top};
  }

  /// The brightest pixel within `box` mm around the place of a point lies at its echo.
  static void expectPoint(const Amplitudes& picture, double x, double z, double box) {
    const auto [i, j] = picture.brightest(x - box, x + box, z - box, z + box);
    EXPECT_NEAR(picture.x(i), x, GetParam().beamWidth) << "point at " << x << ", " << z;
    EXPECT_NEAR(picture.z(j), z + kEchoBehindPoint, 0.5 * kWavelength) << "point at " << x << ", " << z;
  }
};

TEST_P(PicturesOfPoints, HaveThemInTheirPlaces) {
  KELVARIS_REQUIRE_GL();
  expectPoint(simulate("--origin 7,22,0 --transmit 0"), 7.0, 22.0, 60.0);
  const Amplitudes picture = simulate("--phantom grid --transmit 0");
  for (int i = -5; i <= 5; ++i)
    for (int j = 0; j <= 5; ++j)
      expectPoint(picture, 5.0 * i, 10.0 + 5.0 * j, 2.2);
}

// The beam widths: wavelength times F-number, of the transmit aperture for focused beams.
INSTANTIATE_TEST_SUITE_P(
    Examples, PicturesOfPoints,
    testing::Values(PictureOfPoints{"focused.xml", 0, 2.0, "64x512", 1e4, 0.0, 0.0, kWavelength * 25.0 / (12 * 0.85)},
                    PictureOfPoints{"plane-wave.xml", 0, 1.5, "256x512", 3e4, 12.0, 126.0, kWavelength * 1.5},
                    PictureOfPoints{"diverging-wave.xml", 0, 1.5, "256x512", 3e4, 30.0, 38.2, kWavelength * 1.5},
                    PictureOfPoints{"convex.xml", 0, 2.0, "64x512", 1e4, 22.0, 60.0, kWavelength * 25.0 / (12 * 0.72)},
                    PictureOfPoints{"interleaved-ensemble.xml", 0, 1.5, "256x512", 3e4, 12.0, 126.0, kWavelength * 1.5},
                    PictureOfPoints{"interleaved-ensemble.xml", 1, 1.5, "256x512", 1e5, 12.0, 126.0,
                                    kWavelength * 1.5}));
#endif

} // namespace
} // namespace Kelvaris::Tests
