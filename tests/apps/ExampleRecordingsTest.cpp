#include "apps/Program.h"
#include "support/ErrorOf.h"
#include "support/PngPicture.h"
#include "support/TemporaryFolder.h"
#ifdef KELVARIS_HAVE_GL
#include "GL/RequireGL.h"
#endif

#include "Lib/KelvarisFile.h"
#include "Lib/SampleFile.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <numbers>
#include <numeric>
#include <sstream>

namespace Kelvaris::Tests {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> words(const std::string& line) {
  std::istringstream stream(line);
  std::vector<std::string> all;
  for (std::string word; stream >> word;)
    all.push_back(word);
  return all;
}

/// Runs one command line without its "kelvaris" and expects success.
void kelvaris(const std::string& line, const fs::path& folder) {
  const ProgramResult result =
      runKelvaris(words(line), folder, [] { setenv("KELVARIS_PLUGIN_PATH", KELVARIS_REAL_PLUGIN, 1); });
  ASSERT_EQ(result.status, 0) << line << "\n" << result.error;
}

/// A copy of the folder of an example, and commands that a page of the documentation gives for it.
class Example {
public:
  explicit Example(const std::string& name) : m_source(fs::path(KELVARIS_EXAMPLES) / "recordings" / name) {
    for (const auto& entry : fs::directory_iterator(m_source))
      if (entry.path().filename() != "acquisition.xml") fs::copy(entry.path(), m_folder.path());
  }

  /// Runs the commands of the page, of which there must be three.
  void run(const fs::path& page, const std::function<void(std::string&)>& change = {}) const {
    std::istringstream text(readFile(page));
    bool code = false;
    std::string command;
    int commands = 0;
    for (std::string line; std::getline(text, line);) {
      if (line == "```") {
        code = !code;
        continue;
      }
      if (!code) continue;
      const bool continues = line.ends_with('\\');
      command += continues ? line.substr(0, line.size() - 1) : line;
      if (continues) continue;
      ASSERT_TRUE(command.starts_with("kelvaris ")) << command;
      if (change) change(command);
      ASSERT_NO_FATAL_FAILURE(kelvaris(command.substr(9), m_folder.path()));
      ++commands;
      command.clear();
    }
    EXPECT_EQ(commands, 3);
  }

  /// The picture is written as .kvx, not as .png, so that it can be measured.
  void runReadme() const {
    ASSERT_NO_FATAL_FAILURE(run(m_source / "README.md", [](std::string& command) {
      if (const auto png = command.find(".png"); png != std::string::npos) command.replace(png, 4, "_picture.kvx");
    }));
    EXPECT_EQ(readFile(m_folder / "acquisition.xml"), readFile(m_source / "acquisition.xml"));
  }

  const TemporaryFolder& folder() const { return m_folder; }

private:
  fs::path m_source;
  TemporaryFolder m_folder;
};

/// From a level of a decibel picture: 0 is invalid, 1 to 255 span the range.
double amplitudeOf(double level, double dynamicRange) {
  return level == 0.0 ? 0.0 : std::pow(10.0, ((level - 1.0) / 254.0 - 1.0) * dynamicRange / 20.0);
}

/// The amplitudes of an image over a linear frame, from IQ samples or from a decibel picture of that range.
struct Amplitudes {
  int width, height;
  double frameWidth, frameDepth; // mm
  double depthAtTop = 0.0;       ///< of the upper edge
  std::vector<double> values;

  /// Of a picture in mm.
  Amplitudes(const PngPicture& picture, double upperEdge, double dynamicRange)
      : width(picture.width),
        height(picture.height),
        frameWidth(1e3 * width / picture.densityX),
        frameDepth(1e3 * height / picture.densityY),
        depthAtTop(upperEdge) {
    for (int j = 0; j < height; ++j)
      for (int i = 0; i < width; ++i)
        values.push_back(amplitudeOf(picture.at(i, j), dynamicRange));
  }

  Amplitudes(const fs::path& file, double w, double d, double dynamicRange = 0.0) : frameWidth(w), frameDepth(d) {
    const auto set = KelvarisFile::load(file);
    const auto image = set->get(0).mem();
    width = image->width();
    height = image->height();
    for (int j = 0; j < height; ++j)
      for (int i = 0; i < width; ++i) {
        const double first = image->valueAsDouble(i, j, 0, 0);
        if (image->channels() == 2)
          values.push_back(std::hypot(first, image->valueAsDouble(i, j, 0, 1)));
        else
          values.push_back(amplitudeOf(first, dynamicRange));
      }
  }

  double x(double i) const { return ((i + 0.5) / width - 0.5) * frameWidth; }
  double z(double j) const { return depthAtTop + (j + 0.5) / height * frameDepth; }
  double at(int i, int j) const {
    return values[static_cast<std::size_t>(j) * static_cast<std::size_t>(width) + static_cast<std::size_t>(i)];
  }

  /// Of the pixel whose centre is nearest.
  double near(double placeX, double placeZ) const {
    return at(static_cast<int>((placeX / frameWidth + 0.5) * width),
              static_cast<int>((placeZ - depthAtTop) / frameDepth * height));
  }

  struct Peak {
    double x, z, lateral, axial, value; // mm; full widths at half the value
  };

  /// The largest value in a box, refined by parabolas through its neighbours.
  Peak peak(double x0, double x1, double z0, double z1) const {
    int pi = -1, pj = -1;
    for (int j = 1; j + 1 < height; ++j)
      for (int i = 1; i + 1 < width; ++i)
        if (x(i) >= x0 && x(i) <= x1 && z(j) >= z0 && z(j) <= z1 && (pi < 0 || at(i, j) > at(pi, pj))) {
          pi = i;
          pj = j;
        }
    const auto vertex = [](double before, double top, double after) {
      return 0.5 * (before - after) / (before - 2.0 * top + after);
    };
    const auto half = [&](int di, int dj) {
      const double level = 0.5 * at(pi, pj);
      int n = 0;
      while (at(pi + (n + 1) * di, pj + (n + 1) * dj) >= level)
        ++n;
      const double inner = at(pi + n * di, pj + n * dj), outer = at(pi + (n + 1) * di, pj + (n + 1) * dj);
      return n + (inner - level) / (inner - outer);
    };
    return {x(pi + vertex(at(pi - 1, pj), at(pi, pj), at(pi + 1, pj))),
            z(pj + vertex(at(pi, pj - 1), at(pi, pj), at(pi, pj + 1))), (half(-1, 0) + half(1, 0)) * frameWidth / width,
            (half(0, -1) + half(0, 1)) * frameDepth / height, at(pi, pj)};
  }
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

TEST(ExampleRecordings, RotatingDiskMatchesTheReferencePicture) {
  const Example example("rotating_disk");
  ASSERT_NO_FATAL_FAILURE(example.runReadme());
  const fs::path folder = example.folder().path();
  EXPECT_EQ(KelvarisFile::Reader(folder / "disk.kvx").size(), 32);
  EXPECT_DOUBLE_EQ(KelvarisFile::Reader(folder / "disk.kvx").timestamp(31), 3.1);
  // Nothing was recorded of what lies above 10 mm; the disk is brighter than the water around it.
  const Amplitudes picture(folder / "disk_picture.kvx", 25.0, 35.0, 30.0);
  const auto mean = [&](double x0, double x1, double z0, double z1) {
    double sum = 0.0;
    int n = 0;
    for (int j = 0; j < picture.height; ++j)
      for (int i = 0; i < picture.width; ++i)
        if (picture.x(i) > x0 && picture.x(i) < x1 && picture.z(j) > z0 && picture.z(j) < z1) {
          sum += picture.at(i, j);
          ++n;
        }
    return sum / n;
  };
  EXPECT_EQ(mean(-12.5, 12.5, 0.0, 9.9), 0.0);
  EXPECT_GT(mean(-7.0, 5.0, 16.0, 29.0), 3.0 * mean(-12.5, 12.5, 10.0, 11.5));

  // A frame whose pixel centres are the reference's: 0.1 mm across, every second of its rows.
  constexpr double frameWidth = 25.1, frameDepth = 35.2;
  kelvaris("acquisition --wave plane --elements 128 --pitch 0.298 --speed-of-sound 1480 --frequency 5 "
           "--sampling-frequency 6.666666666666667 --start-time 9.95 --samples 334 --x -12.55:12.55 --depth 35.2 "
           "--output aligned.xml",
           folder);
  kelvaris("import PWI_disk.mat --dataset RF --layout fastTime,channels,frames --acquisition aligned.xml --output "
           "aligned.kvx",
           folder);
  kelvaris("run aligned.kvx --images 0:1 --step "
           "IqDemodulation:samplingFrequency=6666666.7,demodulationFrequency=-1666666.7 --step "
           "Beamforming:fNumber=1,outputSize=251x176 --output iq.kvx",
           folder);
  const Amplitudes image(folder / "iq.kvx", frameWidth, frameDepth);
  const auto reference = SampleFile::open(folder / "bmode_PWI_disk.mat")->array("I")->readAll();
  std::vector<double> ours, theirs;
  double strongest = 0.0;
  for (int row = 1; row < 251; row += 2)
    for (int i = 0; i < 251; ++i) {
      const int j = (row + 99) / 2; // z = 10 + 0.1 row = 0.2 (j + 0.5)
      ASSERT_NEAR(image.x(i), -12.5 + 0.1 * i, 1e-9);
      ASSERT_NEAR(image.z(j), 10.0 + 0.1 * row, 1e-9);
      ours.push_back(image.at(i, j));
      theirs.push_back(reference[static_cast<std::size_t>(row + 251 * i)]);
      strongest = std::max(strongest, ours.back());
    }
  for (double& value : ours)
    value = std::max(20.0 * std::log10(value / strongest), -30.0);
  const double r = correlation(ours, theirs);
  RecordProperty("correlation", std::to_string(r));
  EXPECT_GE(r, 0.88);
  // The same picture left to right must not fit: the array's direction is told apart.
  std::vector<double> mirrored = ours;
  for (std::size_t row = 0; row < mirrored.size(); row += 251)
    std::reverse(mirrored.begin() + static_cast<std::ptrdiff_t>(row),
                 mirrored.begin() + static_cast<std::ptrdiff_t>(row + 251));
  EXPECT_LT(correlation(mirrored, theirs), 0.75);
}

TEST(ExampleRecordings, NotchAndBackWallLieWhereTheyWereMeasured) {
  const Example example("aluminium_notch");
  ASSERT_NO_FATAL_FAILURE(example.runReadme());
  const fs::path folder = example.folder().path();
  const Amplitudes image(folder / "notch_picture.kvx", 20.0, 45.0, 40.0);
  const auto notch = image.peak(4.0, 9.0, 17.0, 22.0);
  EXPECT_NEAR(notch.x, 6.64, 0.15);
  EXPECT_NEAR(notch.z, 19.58, 0.15);
  EXPECT_NEAR(notch.lateral, 1.53, 0.2 * 1.53);
  EXPECT_NEAR(notch.axial, 0.66, 0.2 * 0.66);
  for (const auto& [x, z, decibels] : {std::array{0.0, 40.72, 4.9}, {-8.0, 40.74, -7.9}}) {
    const auto wall = image.peak(x - 0.1, x + 0.1, 38.0, 43.0);
    EXPECT_NEAR(wall.z, z, 0.15) << x;
    EXPECT_NEAR(20.0 * std::log10(wall.value / notch.value), decibels, 1.5) << x;
  }
}

#ifdef KELVARIS_HAVE_GL
/// A sector with its apex on the array.
struct Sector {
  double angle, radius;
  /// In mm; negative outside.
  double distanceFromEdge(double x, double z) const {
    const double r = std::hypot(x, z), t = std::abs(std::atan2(x, z));
    return std::min(radius - r, r * std::sin(angle - t));
  }
};

TEST(ExampleRecordings, ScanConversionPutsNotchAndBackWallInPlace) {
  KELVARIS_REQUIRE_GL();
  const Example example("aluminium_notch");
  const fs::path folder = example.folder().path();
  kelvaris("acquisition --wave single-element --elements 64 --pitch 0.3 --speed-of-sound 6300 --frequency 5 "
           "--sampling-frequency 25 --samples 750 --sector 40 --depth 45 --output sector.xml",
           folder);
  kelvaris("import contact_notch_aluminium.mat --dataset exp_data.time_data --layout fastTime,traces --pairs "
           "exp_data.tx,exp_data.rx --offset trace-mean --acquisition sector.xml --output notch.kvx",
           folder);
  const std::string beamform = "run notch.kvx --step IqDemodulation --step Beamforming:fNumber=0.1,outputSize=160x360",
                    logCompress = " --step LogCompression:dynamicRange=40,referenceAmplitude=1150",
                    scanConvert = " --step ScanConversionUltrafastImaging";
  kelvaris(beamform + " --output lines.kvx", folder);
  kelvaris("run lines.kvx" + logCompress + scanConvert + " --output after.png --output after.kvx", folder);
  kelvaris("run lines.kvx" + scanConvert + logCompress + " --output before.png", folder);
  kelvaris("run after.kvx --mask-color #Ff8001 --output colored.png", folder);
  const PngPicture colored = readPng(folder / "colored.png"), after = readPng(folder / "after.png");
  for (int channel = 0; channel < 3; ++channel) {
    EXPECT_EQ(colored.at(0, 0, channel), (std::array{255, 128, 1}[static_cast<std::size_t>(channel)]));
    EXPECT_EQ(colored.at(231, 325, channel), after.at(231, 325));
  }

  const double spacing = 45.0 / 359.0;
  const Sector sector{40.0 * std::numbers::pi / 180.0, 45.0};
  for (const char* name : {"after.png", "before.png"}) {
    const PngPicture picture = readPng(folder / name);
    EXPECT_EQ(picture.width, std::ceil(2.0 * 45.0 * std::sin(sector.angle) / spacing)) << name;
    EXPECT_EQ(picture.height, 359) << name;
    EXPECT_EQ(picture.densityX, std::lround(1e3 / spacing)) << name;
    EXPECT_EQ(picture.densityY, picture.densityX) << name;
    ASSERT_EQ(picture.colorType, PNG_COLOR_TYPE_GRAY_ALPHA) << name;

    const Amplitudes image(picture, 0.0, 40.0);
    for (int j = 0; j < image.height; ++j)
      for (int i = 0; i < image.width; ++i)
        if (const double inside = sector.distanceFromEdge(image.x(i), image.z(j)); std::abs(inside) > spacing) {
          ASSERT_EQ(picture.at(i, j, 1), inside > 0.0 ? 255 : 0) << name << " at " << i << ", " << j;
        }
    // To half a pixel more than in the picture of lines.
    const double tolerance = 0.15 + 0.5 * spacing;
    const auto notch = image.peak(4.0, 9.0, 17.0, 22.0);
    EXPECT_NEAR(notch.x, 6.64, tolerance) << name;
    EXPECT_NEAR(notch.z, 19.58, tolerance) << name;
    for (const double x : {-8.0, -4.0, 0.0, 4.0})
      EXPECT_NEAR(image.peak(x - 0.1, x + 0.1, 38.0, 43.0).z, 40.73, tolerance) << name << " at " << x;
  }

  // Where there is no OpenGL, an error says so.
  const ProgramResult without =
      runKelvaris(words("run lines.kvx" + logCompress + scanConvert + " --output without.png"), folder, [] {
        setenv("KELVARIS_PLUGIN_PATH", KELVARIS_REAL_PLUGIN, 1);
        setenv("__EGL_VENDOR_LIBRARY_DIRS", "/nonexistent", 1);
        setenv("__EGL_VENDOR_LIBRARY_FILENAMES", "/nonexistent/none.json", 1);
      });
  EXPECT_EQ(without.status, 1);
  EXPECT_CONTAINS(without.error, "OpenGL isn't available");
  EXPECT_FALSE(fs::exists(folder / "without.png"));
}

TEST(ExampleRecordings, ScanConversionMakesTheDiskRound) {
  KELVARIS_REQUIRE_GL();
  const Example example("rotating_disk");
  ASSERT_NO_FATAL_FAILURE(example.run(fs::path(KELVARIS_EXAMPLES) / "../docs/scan-conversion.md"));
  const PngPicture picture = readPng(example.folder() / "fan.png"), lines = readPng(example.folder() / "lines.png");
  EXPECT_FALSE(lines.hasDensity);
  EXPECT_EQ(std::pair(lines.width, lines.height), std::pair(250, 350));
  ASSERT_EQ(picture.colorType, PNG_COLOR_TYPE_RGB);
  EXPECT_EQ(std::vector<int>(picture.samples.begin(), picture.samples.begin() + 3), (std::vector<int>{0, 0, 128}));

  // At the same places, the picture of a linear frame shows the same: of the disk and what is around it.
  ASSERT_NO_FATAL_FAILURE(example.runReadme());
  const Amplitudes linear(example.folder() / "disk_picture.kvx", 25.0, 35.0, 30.0);
  const double behindArray = 20.0 * (1.0 - std::cos(25.0 * std::numbers::pi / 180.0));
  const Amplitudes fan(picture, -behindArray, 30.0);
  const auto decibels = [](double amplitude) { return 20.0 * std::log10(std::max(amplitude, 0.03)); };
  std::vector<double> expected, actual, mirrored, deeper;
  for (int j = 120; j < 340; ++j)
    for (int i = 10; i < 240; ++i) {
      expected.push_back(decibels(linear.at(i, j)));
      actual.push_back(decibels(fan.near(linear.x(i), linear.z(j))));
      mirrored.push_back(decibels(fan.near(-linear.x(i), linear.z(j))));
      deeper.push_back(decibels(fan.near(linear.x(i), linear.z(j) + 0.3)));
    }
  const double same = correlation(actual, expected);
  RecordProperty("correlations",
                 fmt::format("{} {} {}", same, correlation(mirrored, expected), correlation(deeper, expected)));
  EXPECT_GT(same, 0.95);
  EXPECT_LT(correlation(mirrored, expected), 0.75);
  EXPECT_LT(correlation(deeper, expected), 0.9);
}
#endif

} // namespace
} // namespace Kelvaris::Tests
