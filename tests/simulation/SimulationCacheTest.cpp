#include "simulation/SimulationCache.h"

#include "beamforming/BeamformingCases.h"
#include "support/EnvironmentVariable.h"
#include "support/Images.h"
#include "support/TemporaryFolder.h"

#include "Lib/KelvarisFile.h"
#include "Lib/PropertiesFile.h"
#include "model/ChannelDataLayout.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <functional>
#include <limits>
#include <set>

namespace Kelvaris::US {
namespace {

namespace fs = std::filesystem;
using Kelvaris::Tests::EnvironmentVariable;
using Kelvaris::Tests::readFile;
using Kelvaris::Tests::TemporaryFolder;
using Kelvaris::Tests::writeFile;
using Points = std::vector<Eigen::Vector3d>;

/// The parameters of a simulation.
struct Simulation {
  FrameAcquisition frame = Tests::planeWaves(2);
  ChannelDataLayout layout;
  Points scatterers = {{0.1, 10.0, 0.0}, {-2.5, 1.0 / 3.0, 1e-300}};
  Points offsets = {{0.0, 0.0, 0.0}, {0.0, -1e-5, 0.0}};

  void store(const SharedImageSet& result) const { cacheSimusResult(frame, layout, scatterers, offsets, result); }
  std::unique_ptr<SharedImageSet> load() const { return loadSimusResult(frame, layout, scatterers, offsets); }
  fs::path file(const std::string& suffix) const {
    return streamCacheDirectoryThisVersion().path() / (*cacheFilenameBase(frame, layout, scatterers, offsets) + suffix);
  }
  fs::path image() const { return file("_simus.kvx"); }
  fs::path parameters() const { return file("_parametrization.xml"); }
};

/// The cache in a folder of the test's own.
class SimulationCache : public ::testing::Test {
protected:
  SimulationCache() {
    result.setModality(Data::Ultrasound);
    result.setVolumetric(true);
    result.add(std::make_shared<SharedImage>(Kelvaris::Tests::randomBytes(ImageDescriptor(PixelFloat, 3, 7, 2))));
  }
  void expectResult(const std::unique_ptr<SharedImageSet>& loaded) const {
    ASSERT_TRUE(loaded);
    EXPECT_EQ(loaded->size(), 1);
    EXPECT_EQ(loaded->kind(), Data::OneVolume);
    EXPECT_TRUE(Kelvaris::Tests::sameBytes(*loaded->get(0).mem(), *result.get(0).mem()));
  }
  fs::path root() const { return temporary / "Kelvaris/USImgFormation/SimulatedChannnelDataStream_cache"; }

  const TemporaryFolder temporary;
  const EnvironmentVariable variable{"TMPDIR", temporary.path().string()};
  const Simulation simulation;
  SharedImageSet result;
};

TEST_F(SimulationCache, KnowsResultsByEverythingTheyDependOn) {
  const std::vector<std::pair<const char*, std::function<void(Simulation&)>>> changes = {
      {"one event", [](Simulation& s) { s.frame.events()[1].receive.elementToChannelMapping[0] = 5; }},
      {"layout",
       [](Simulation& s) {
         using Axis = ChannelDataLayout::Axis;
         s.layout = {Axis::FastTime, Axis::Channels, Axis::SlowTime};
       }},
      {"last digit of a scatterer", [](Simulation& s) { s.scatterers[0].x() = std::nextafter(0.1, 1.0); }},
      {"sign of a zero", [](Simulation& s) { s.scatterers[0].z() = -0.0; }},
      {"an offset", [](Simulation& s) { s.offsets[1].y() = 0.0; }},
      {"numbers that are none",
       [](Simulation& s) { s.scatterers[1].y() = s.offsets[0].x() = std::numeric_limits<double>::quiet_NaN(); }},
  };
  EXPECT_FALSE(simulation.load());
  simulation.store(result);
  EXPECT_EQ(simulation.image().parent_path(), root() / "0.0.0");
  std::set<fs::path> files{simulation.image()};
  for (const auto& [name, change] : changes) {
    SCOPED_TRACE(name);
    Simulation other = simulation;
    change(other);
    EXPECT_FALSE(other.load());
    EXPECT_TRUE(files.insert(other.image()).second);
    other.store(result);
    expectResult(other.load());
  }
  expectResult(simulation.load());
}

TEST_F(SimulationCache, TakesWhatIsDamagedOrOldForMissing) {
  const auto truncate = [](const fs::path& file) { fs::resize_file(file, fs::file_size(file) / 2); };
  const auto makeOlder = [&](std::chrono::hours age) {
    for (const fs::path& file : {simulation.image(), simulation.parameters()})
      fs::last_write_time(file, fs::file_time_type::clock::now() - age);
  };
  constexpr std::chrono::hours day{24};
  const struct {
    const char* name;
    std::function<void()> change;
    bool imageStays, parametersStay, isHit = false;
  } cases[] = {
      {"no result", [&] { fs::remove(simulation.image()); }, false, true},
      {"a folder for the result",
       [&] {
         fs::remove(simulation.image());
         fs::create_directory(simulation.image());
       },
       true, true},
      {"other parameters under the same hash",
       [&] {
         Properties stored = PropertiesFile::load(simulation.parameters());
         stored.setParam("scattererPositions", Points{{0.0, 10.0, 0.0}});
         PropertiesFile::save(simulation.parameters(), stored);
       },
       false, false},
      {"half a parametrization", [&] { truncate(simulation.parameters()); }, true, true},
      {"half a result", [&] { truncate(simulation.image()); }, true, true},
      {"a result without images", [&] { KelvarisFile::save(simulation.image(), SharedImageSet()); }, true, true},
      {"a result 15 days old", [&] { makeOlder(15 * day); }, false, false},
      {"a result an hour before its end", [&] { makeOlder(14 * day - std::chrono::hours(1)); }, true, true, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    cleanupSimulationCache(true);
    simulation.store(result);
    c.change();
    EXPECT_EQ(simulation.load() != nullptr, c.isHit);
    EXPECT_EQ(fs::exists(simulation.image()), c.imageStays);
    EXPECT_EQ(fs::exists(simulation.parameters()), c.parametersStay);
    if (fs::is_directory(simulation.image())) continue;
    simulation.store(result);
    expectResult(simulation.load());
  }
}

TEST_F(SimulationCache, DropsOtherVersionsBeforeEveryLoadAndStore) {
  for (const bool byStore : {false, true}) {
    // A version counts as this one where its text is part of the path.
    for (const char* version : {"9.9.9", "0.0", "10.0.0"}) {
      fs::create_directories(root() / version / "deeper");
      writeFile(root() / version / "1_simus.kvx", "x");
    }
    writeFile(root() / "note.txt", "x");
    if (byStore)
      simulation.store(result);
    else
      EXPECT_FALSE(simulation.load());
    std::set<std::string> left;
    for (const auto& entry : fs::directory_iterator(root()))
      left.insert(entry.path().filename());
    EXPECT_EQ(left, (std::set<std::string>{"0.0.0", "10.0.0", "note.txt"}));
  }
  expectResult(simulation.load());
}

TEST_F(SimulationCache, IsWipedForAllVersionsAndNothingElse) {
  simulation.store(result);
  fs::create_directories(root() / "10.0.0");
  writeFile(temporary / "Kelvaris/other.txt", "x");
  // A link is deleted, what it leads to stays.
  fs::create_directory_symlink(temporary / "Kelvaris", root() / "link");
  cleanupSimulationCache(true);
  EXPECT_FALSE(fs::exists(root()));
  EXPECT_TRUE(fs::exists(temporary / "Kelvaris/other.txt"));
}

TEST_F(SimulationCache, GoesWithoutAFolderToWriteTo) {
  writeFile(temporary / "Kelvaris", "a file where a folder is needed");
  simulation.store(result);
  EXPECT_FALSE(simulation.load());
  cleanupSimulationCache(true);
  EXPECT_EQ(readFile(temporary / "Kelvaris"), "a file where a folder is needed");
}

} // namespace
} // namespace Kelvaris::US
