#include "apps/Amplitudes.h"
#include "apps/Program.h"
#include "support/PngPicture.h"
#ifdef KELVARIS_HAVE_GL
#include "GL/RequireGL.h"
#endif

#include "Lib/SampleFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>

namespace Kelvaris::Tests {
namespace {

namespace fs = std::filesystem;

/// A copy of the folder of an example, and commands that a page of the documentation gives for it.
class Example {
public:
  explicit Example(const std::string& name) : m_source(fs::path(KELVARIS_EXAMPLES) / "recordings" / name) {
    for (const auto& entry : fs::directory_iterator(m_source))
      if (entry.path().filename() != "acquisition.xml") fs::copy(entry.path(), m_folder.path());
  }

  /// Runs the commands of the page, of which there must be three; the last result is written as picture.kvx too.
  void run(const fs::path& page) const {
    const std::vector<std::string> commands = commandsOf(page);
    ASSERT_EQ(commands.size(), 3u);
    for (const std::string& command : commands)
      runSuccessfully(command + (&command == &commands.back() ? " --output picture.kvx" : ""), folder());
  }

  void runReadme() const {
    ASSERT_NO_FATAL_FAILURE(run(m_source / "README.md"));
    EXPECT_EQ(readFile(folder() / "acquisition.xml"), readFile(m_source / "acquisition.xml"));
  }

  const fs::path& folder() const { return m_folder.path(); }

private:
  fs::path m_source;
  TemporaryFolder m_folder;
};

double correlation(const std::vector<double>& a, const std::vector<double>& b) {
  const auto n = static_cast<double>(a.size());
  const double meanA = std::accumulate(a.begin(), a.end(), 0.0) / n,
               meanB = std::accumulate(b.begin(), b.end(), 0.0) / n;
  double ab = 0.0, aa = 0.0, bb = 0.0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    ab += (a[i] - meanA) * (b[i] - meanB);
    aa += (a[i] - meanA) * (a[i] - meanA);
    bb += (b[i] - meanB) * (b[i] - meanB);
  }
  return ab / std::sqrt(aa * bb);
}

/// Holds a picture of the disk, of 30 dB, against the one that comes with the recording. That has pixels 0.1 mm apart
/// from (-12.5, 10) mm on. A picture 0.3 mm deeper would correlate by 0.88, one demodulated at 5 MHz by 0.74.
void expectTheDisk(const Amplitudes& ours, const fs::path& folder) {
  const auto reference = SampleFile::open(folder / "bmode_PWI_disk.mat")->array("I")->readAll();
  const auto correlationWith = [&](double sideways) {
    std::vector<double> a, b;
    for (int row = 0; row < 251; ++row)
      for (int column = 0; column < 251; ++column) {
        const double amplitude = ours.interpolated(sideways * (-12.5 + 0.1 * column), 10.0 + 0.1 * row);
        a.push_back(20.0 * std::log10(std::max(amplitude, 0.03)));
        b.push_back(reference[static_cast<std::size_t>(row + 251 * column)]);
      }
    return correlation(a, b);
  };
  const double r = correlationWith(1.0);
  testing::Test::RecordProperty("correlation", std::to_string(r));
  EXPECT_GE(r, 0.9);
  EXPECT_LT(correlationWith(-1.0), 0.75) << "left and right are told apart";
}

TEST(ExampleRecordings, RotatingDiskMatchesTheReferencePicture) {
  const Example example("rotating_disk");
  ASSERT_NO_FATAL_FAILURE(example.runReadme());
  const KelvarisFile::Reader recording(example.folder() / "disk.kvx");
  EXPECT_EQ(recording.size(), 32);
  EXPECT_DOUBLE_EQ(recording.timestamp(31), 3.1);
  const Amplitudes picture(example.folder() / "picture.kvx", 30.0, 25.0, 35.0);
  for (int i = 0; i < picture.width; ++i)
    EXPECT_EQ(picture.at(i, 98), 0.0) << "nothing was recorded above 10 mm";
  expectTheDisk(picture, example.folder());
}

TEST(ExampleRecordings, NotchAndBackWallLieWhereTheyWereMeasured) {
  const Example example("aluminium_notch");
  ASSERT_NO_FATAL_FAILURE(example.runReadme());
  const Amplitudes image(example.folder() / "picture.kvx", 40.0, 20.0, 45.0);
  const auto notch = image.peak(4.0, 9.0, 17.0, 22.0); // mm
  EXPECT_NEAR(notch.x, 6.64, 0.15);
  EXPECT_NEAR(notch.z, 19.58, 0.15);
  EXPECT_NEAR(notch.lateral, 1.53, 0.2 * 1.53);
  EXPECT_NEAR(notch.axial, 0.66, 0.2 * 0.66);
  for (const auto& [x, decibels] : {std::pair(0.0, 4.9), {-8.0, -7.9}}) {
    const auto wall = image.peak(x - 0.1, x + 0.1, 38.0, 43.0);
    EXPECT_NEAR(wall.z, 40.73, 0.15) << x;
    EXPECT_NEAR(20.0 * std::log10(wall.value / notch.value), decibels, 1.5) << x;
  }
}

#ifdef KELVARIS_HAVE_GL
TEST(ExampleRecordings, ScanConversionMakesTheDiskRound) {
  KELVARIS_REQUIRE_GL();
  const Example example("rotating_disk");
  ASSERT_NO_FATAL_FAILURE(example.run(fs::path(KELVARIS_EXAMPLES) / "../docs/scan-conversion.md"));
  const PngPicture picture = readPng(example.folder() / "fan.png"), lines = readPng(example.folder() / "lines.png");
  EXPECT_FALSE(lines.hasDensity);
  EXPECT_EQ(std::pair(lines.width, lines.height), std::pair(250, 350));
  ASSERT_EQ(picture.colorType, PNG_COLOR_TYPE_RGB);
  EXPECT_EQ(std::vector<int>(picture.samples.begin(), picture.samples.begin() + 3), (std::vector<int>{0, 0, 128}));
  const double behindArray = 20.0 * (1.0 - std::cos(25.0 * std::numbers::pi / 180.0));
  expectTheDisk({example.folder() / "picture.kvx", 30.0, 0.0, 0.0, -behindArray}, example.folder());
}
#endif

} // namespace
} // namespace Kelvaris::Tests
