#include "simulation/SimusBridge.h"

#include "SimulationCases.h"
#include "WithFakePython.h"
#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"
#include "support/Images.h"
#include "support/LongWorkReports.h"
#include "support/Samples.h"

#include "Core/Log.h"
#include "Lib/MemImage.h"
#include "Lib/PointCloud.h"
#include "model/ChannelDataLayout.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <optional>
#include <thread>

namespace Kelvaris::US {
namespace {

using Kelvaris::Tests::ExpectedLog;
using Kelvaris::Tests::FakePython;
using Kelvaris::Tests::kStraight;
using Kelvaris::Tests::LongWorkReports;
using Kelvaris::Tests::sameBytes;
using Kelvaris::Tests::shortFrame;
using Kelvaris::Tests::WithFakePython;
using Messages = std::vector<std::string>;

const std::vector<Eigen::Vector3d> kScatterers = {{0.5, 10.0, 0.0}, {-2.0, 7.0, 1.0}};
const std::vector<Eigen::Vector3d> kOffsets = {{0.0, 0.0, 0.0}, {0.0, 0.1, 0.0}, {0.0, 0.2, 0.0}};

std::shared_ptr<SharedImageSet> setOf(int images, int slices = 3, bool volumetric = false) {
  auto set = std::make_shared<SharedImageSet>();
  set->setVolumetric(volumetric);
  for (int i = 0; i < images; ++i)
    set->add(std::make_shared<SharedImage>(
        Kelvaris::Tests::noiseImage(ImageDescriptor(PixelFloat, 16, 50, slices), static_cast<unsigned>(i))));
  return set;
}

class SimusBridgeTest : public ::testing::Test {
protected:
  SimusBridgeTest() {
    host.python().answer = [this] { return FakePython::Results{result}; };
  }
  std::unique_ptr<SharedImage> simulate(const SimusBridge& bridge, bool cache = true) const {
    return bridge.simulateFrame(frame, ChannelDataLayout(), kScatterers, kOffsets, cache);
  }

  WithFakePython host;
  FrameAcquisition frame = shortFrame(1);
  std::shared_ptr<SharedImageSet> result = setOf(1);
};

TEST_F(SimusBridgeTest, SaysWhatIsMissing) {
  const std::string reinstall =
      ". Make sure that the package is installed for the selected interpreter. Python error: ";
  const std::string none = "Python Interpreter was not found. Please specify one in the Application Settings.";
  const auto failing = [this](const char* text) { return [this, text] { host.python().failing = text; }; };
  const struct {
    std::function<void()> withdraw;
    std::string reason;
    std::size_t executed;
  } cases[] = {
      {failing("import kelvaris"),
       "Python interpreter could not import kelvaris" + reinstall + "NoWay: import kelvaris", 1},
      {failing("import pymust"), "Python interpreter could not import pymust" + reinstall + "NoWay: import pymust", 2},
      {failing("import numpy"), "Python interpreter could not import numpy" + reinstall + "NoWay: import numpy", 3},
      {failing("def simulate"), "Python interpreter could not execute the script: NoWay: def simulate", 4},
      {[this] { host.plugin().hasInterpreter = false; }, none, 0},
      {[this] { host.withdrawPlugin(); }, none, 0},
      {[this] { host.withdrawScript(); }, "Could not load the SIMUS python script", 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.reason);
    const bool pluginIsThere = c.reason != none && c.executed > 0;
    c.withdraw();
    for (const bool hasWindow : {false, true}) { // then pymust is imported on another thread before
      std::optional<LongWorkReports> window;
      if (hasWindow) window.emplace();
      if (pluginIsThere) host.python().executed.clear();
      const SimusBridge bridge;
      if (pluginIsThere) {
        EXPECT_EQ(host.python().executed.size(), c.executed + (hasWindow ? 1 : 0));
      }
      const ExpectedLog log;
      EXPECT_FALSE(simulate(bridge));
      EXPECT_EQ(log.messages(),
                Messages{"3 SimulatedChannelDataStream: SIMUS simulation is not available: " + c.reason});
    }
  }
}

TEST_F(SimusBridgeTest, ReportsWhileItImportsAndCanBeGivenUp) {
  for (const bool givesUp : {false, true}) {
    LongWorkReports window;
    window.granted = givesUp ? 0 : 1;
    std::vector<std::thread::id> threads;
    host.python().executed.clear();
    host.python().importing = [&] {
      threads.push_back(std::this_thread::get_id());
      while (threads.size() == 1 && window.granted == (givesUp ? 0 : 1))
        std::this_thread::yield();
    };
    std::optional<SimusBridge> bridge(std::in_place);
    EXPECT_GT(window.fractions.size(), 0u);
    EXPECT_EQ(window.ends, 1);
    EXPECT_EQ(host.python().executed[0], "import pymust");
    EXPECT_NE(threads[0], std::this_thread::get_id());
    const ExpectedLog log;
    EXPECT_EQ(!simulate(*bridge), givesUp);
    if (givesUp) {
      EXPECT_CONTAINS(log.messages().at(0), "SIMUS simulation is not available: Loading it was cancelled");
    }
    bridge.reset();
    EXPECT_EQ(threads.size(), givesUp ? 1u : 4u);
    host.python().importing = nullptr;
  }
}

TEST_F(SimusBridgeTest, HandsOverTheFrame) {
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  const struct {
    Transducer array;
    const char* numbers;
  } cases[] = {
      {kStraight, "1540000, 20000000, 2, 4000000, 16, 0.3, np.inf"},
      {Transducer::createConvex(16, 1.0 / 3.0, 60.0),
       "1540000, 20000000, 2, 4000000, 16, 0.3333333333333333, 0.060000"},
      {Transducer::createConvex(16, 0.3, nan), "1540000, 20000000, 2, 4000000, 16, 0.3, np.inf"},
  };
  const SimusBridge bridge;
  const auto script = Resource::query("KelvarisUSImgFormationPlugin/python/SimusForSimulatedChannelDataStream.py");
  const Messages prepared{"import kelvaris", "import pymust", "import numpy", std::string(script->text())};
  EXPECT_EQ(host.python().executed, prepared);
  for (const auto& c : cases) {
    const ExpectedLog log; // about the delays: the events are those of another array
    frame.transducer() = c.array;
    EXPECT_TRUE(simulate(bridge, false));
    EXPECT_EQ(host.python().evaluated.back(),
              std::string("simulate(delays_image, receive_aperture_indices, scatterers, scatterer_offsets, ") +
                  c.numbers + ")");
  }

  EXPECT_EQ(host.python().executed, prepared) << "once";
  const FakePython::Variables& variables = host.python().variables;
  ASSERT_EQ(variables.size(), 4u);
  const auto& scatterers = dynamic_cast<const PointCloud&>(*variables.at("scatterers"));
  EXPECT_EQ(scatterers.points(), kScatterers);
  EXPECT_EQ(scatterers.weights(), (std::vector<double>{1.0, 1.0}));
  EXPECT_EQ(scatterers.name(), "");
  const auto& offsets = dynamic_cast<const PointCloud&>(*variables.at("scatterer_offsets"));
  EXPECT_EQ(offsets.points(), kOffsets);
  EXPECT_FALSE(offsets.weights());
  for (const char* name : {"delays_image", "receive_aperture_indices"})
    EXPECT_EQ(dynamic_cast<const SharedImageSet&>(*variables.at(name)).size(), 1) << name;
}

TEST_F(SimusBridgeTest, DelaysAndAperturesAreImages) {
  frame = shortFrame(0, 5, 7);
  const auto delays = createDelaysImage(frame)->get(0).mem();
  const auto apertures = createReceiveApertureIndexImage(frame)->get(0).mem();
  EXPECT_EQ(delays->descriptor().toString(), ImageDescriptor(PixelDouble, 16, 3).toString());
  EXPECT_EQ(apertures->descriptor().toString(), ImageDescriptor(PixelInt32, 2, 3).toString());
  for (int e = 0; e < 3; ++e) {
    const PulseEchoEvent& event = frame.events()[static_cast<std::size_t>(e)];
    const std::vector<double> expected = event.transmit.calculateDelays(frame.transducer());
    ASSERT_EQ(expected.size(), 5u);
    for (int k = 0; k < 16; ++k) {
      const int i = k - event.transmit.apertureFirst;
      EXPECT_EQ(delays->valueAsDouble(k, e, 0, 0), i < 0 || i > 4 ? -1.0 : expected[static_cast<std::size_t>(i)]);
    }
    EXPECT_EQ(apertures->valueAsDouble(0, e, 0, 0), event.receive.apertureFirst);
    EXPECT_EQ(apertures->valueAsDouble(1, e, 0, 0), event.receive.apertureLast);
  }
  frame.events().clear();
  EXPECT_FALSE(createDelaysImage(frame) || createReceiveApertureIndexImage(frame));
}

TEST_F(SimusBridgeTest, RefusesWhatIsNoResult) {
  const std::string number = "4 SimulatedChannelDataStream: Python interpreter did not return the expected number of "
                             "results";
  const std::string missing = "4 SimulatedChannelDataStream: Python interpreter did not return the results";
  const struct {
    const char* name;
    FakePython::Results results;
    std::string message;
  } cases[] = {
      {"nothing", {}, number},
      {"a set of two volumes", {setOf(2)}, number},
      {"an empty set", {setOf(0)}, number},
      {"one image that is no volume", {setOf(1, 1)}, number},
      {"null", {nullptr}, missing},
  };
  const SimusBridge bridge;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    host.python().answer = [&] { return c.results; };
    const ExpectedLog log;
    EXPECT_FALSE(simulate(bridge));
    EXPECT_EQ(log.messages(), Messages{c.message});
  }
  host.python().answer = []() -> FakePython::Results { throw std::runtime_error("ValueError: no pitch"); };
  {
    const ExpectedLog log;
    EXPECT_FALSE(simulate(bridge));
    EXPECT_EQ(log.messages(), Messages{"4 SimulatedChannelDataStream: Python interpreter could not execute the script: "
                                       "ValueError: no pitch"});
  }
  host.python().answer = [] { return FakePython::Results{setOf(1, 1, true)}; };
  const std::size_t before = host.python().evaluated.size();
  EXPECT_TRUE(simulate(bridge));
  EXPECT_EQ(host.python().evaluated.size(), before + 1) << "none of them was kept";
}

TEST_F(SimusBridgeTest, RefusesWhatCanNotBeSimulated) {
  const SimusBridge bridge;
  {
    const ExpectedLog log;
    std::thread([&] { EXPECT_FALSE(simulate(bridge)); }).join();
    EXPECT_EQ(log.messages(),
              Messages{"4 SimulatedChannelDataStream: Simulation must be performed on the main thread"});
  }
  {
    const ExpectedLog log;
    frame.events()[1].transmit.apertureLast = 16;
    EXPECT_FALSE(simulate(bridge));
    EXPECT_TRUE(log.contains("4 SimulatedChannelDataStream: FrameAcquisition can't be simulated: "))
        << log.messages()[0];
  }
  frame.events().clear();
  std::string message;
  const int sink = Log::addSink([&](const Log::Entry& entry) {
    if (entry.level == Log::Debug) message = entry.message;
  });
  EXPECT_FALSE(simulate(bridge));
  Log::removeSink(sink);
  EXPECT_EQ(message, "FrameAcquisition is empty, skipping simulation of echos");
  EXPECT_TRUE(host.python().evaluated.empty());
}

TEST_F(SimusBridgeTest, TakesKeptResultsOrDeletesThem) {
  const SimusBridge bridge;
  const auto simulations = [&] { return host.python().evaluated.size(); };
  const auto folder = host.temporary() / "Kelvaris/USImgFormation/SimulatedChannnelDataStream_cache";
  for (int i = 0; i < 2; ++i) {
    const auto image = simulate(bridge);
    ASSERT_TRUE(image);
    EXPECT_TRUE(sameBytes(*image->mem(), *result->get(0).mem()));
    EXPECT_NE(image->mem(), result->get(0).mem());
    EXPECT_EQ(simulations(), 1u);
  }
  std::filesystem::create_directories(folder / "9.9.9");
  for (std::size_t i = 2; i < 4; ++i) {
    EXPECT_TRUE(simulate(bridge, false));
    EXPECT_EQ(simulations(), i);
    EXPECT_FALSE(std::filesystem::exists(folder));
  }
  EXPECT_TRUE(simulate(bridge));
  EXPECT_EQ(simulations(), 4u);
}

TEST_F(SimusBridgeTest, BringsChannelsIntoTheirOrder) {
  const SimusBridge bridge;
  const auto byChannel = [&] {
    return simulateByChannel(bridge, frame, ChannelDataLayout(), kScatterers, kOffsets, false);
  };
  const auto samples = result->get(0).mem();
  EXPECT_TRUE(sameBytes(*byChannel()->mem(), *samples));

  // The first event's channels run backwards; the last one's lowest two elements have none.
  frame = Kelvaris::Tests::changed(shortFrame(1), [](PulseEchoEvent& event, int index) {
    std::vector<int>& channels = event.receive.elementToChannelMapping;
    if (index == 0) std::reverse(channels.begin(), channels.end());
    if (index == 2) channels[0] = channels[1] = -1;
  });
  EXPECT_EQ(Kelvaris::Tests::worstError(*byChannel()->mem(),
                                        [&](int x, int y, int z, int) {
                                          if (z == 2 && x < 2) return 0.0;
                                          return samples->valueAsDouble(z == 0 ? 15 - x : x, y, z, 0);
                                        }),
            0.0);

  for (const auto& wrong : {ImageDescriptor(PixelFloat, 15, 50, 3), ImageDescriptor(PixelFloat, 16, 50, 4),
                            ImageDescriptor(PixelFloat, 16, 50, 3, 2)}) {
    result = std::make_shared<SharedImageSet>();
    result->add(std::make_shared<SharedImage>(std::shared_ptr<Image>(Kelvaris::Tests::noiseImage(wrong))));
    const ExpectedLog log;
    EXPECT_FALSE(byChannel());
    ASSERT_EQ(log.messages().size(), 1u);
    EXPECT_CONTAINS(log.messages()[0], "but the frame has 16 channels, 3 events and 1 component");
  }
}

} // namespace
} // namespace Kelvaris::US
