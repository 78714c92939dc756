// The stream with echoes from the interpreter.
#include "SimulatedStreamCases.h"
#include "WithFakePython.h"
#include "support/ExpectedLog.h"
#include "support/Images.h"
#include "support/LongWorkReports.h"
#include "support/Samples.h"

#include "Lib/MemImage.h"
#include "Lib/PointCloud.h"

#include <gtest/gtest.h>

#include <thread>

namespace Kelvaris::US {
namespace {

using Kelvaris::Tests::AcquisitionSequence;
using Kelvaris::Tests::ExpectedLog;
using Kelvaris::Tests::FakePython;
using Kelvaris::Tests::nextImages;
using Kelvaris::Tests::sameBytes;
using Kelvaris::Tests::shortFrame;
using Kelvaris::Tests::WithFakePython;
using Kelvaris::Tests::worstError;
using Messages = std::vector<std::string>;

class SimusStreamTest : public ::testing::Test {
protected:
  void SetUp() override {
    KELVARIS_REQUIRE_GL();
    host.python().answer = [this]() -> FakePython::Results {
      if (host.python().evaluated.size() > answers) throw std::runtime_error("no more");
      auto set = std::make_shared<SharedImageSet>();
      set->setVolumetric(true);
      set->add(std::make_shared<SharedImage>(
          std::shared_ptr<Image>(Kelvaris::Tests::noiseImage(ImageDescriptor(PixelFloat, 16, height, 3)))));
      echoes = set->get(0).mem();
      return {set};
    };
  }
  /// Echoes alone.
  std::unique_ptr<SimulatedChannelDataStream> silentStream() {
    auto stream = std::make_unique<SimulatedChannelDataStream>();
    stream->setNoiseAmplitude(0.0);
    stream->setTransmitAmplitude(0.0);
    stream->setPixelType(PixelFloat);
    return stream;
  }
  std::size_t simulations() { return host.python().evaluated.size(); }

  WithFakePython host;
  std::size_t answers = 1000; ///< from the next evaluation on the script fails
  int height = 100;
  std::shared_ptr<MemImage> echoes; ///< the last ones
};

TEST_F(SimusStreamTest, AddsTheEchoesCutOrPaddedToTheFrame) {
  const auto stream = silentStream();
  stream->setCacheSIMUSechos(false);
  for (const int h : {1, 100, 10000}) {
    height = h;
    for (const PixelType type : {PixelFloat, PixelInt16}) {
      stream->setPixelType(type);
      stream->setEchoAmplitude(3.0);
      stream->setAcquisitionSequence(AcquisitionSequence({shortFrame(1)}));
      const auto image = nextImages(*stream).at(0);
      EXPECT_EQ(image->width(), 16);
      EXPECT_EQ(image->slices(), 3);
      EXPECT_LT(worstError(*image,
                           [&](int x, int y, int z, int) {
                             return y < h ? Kelvaris::Tests::stored(3.0 * echoes->valueAsDouble(x, y, z, 0), type)
                                          : 0.0;
                           }),
                1e-4)
          << h;
    }
  }
  // They need no new simulation for another amplitude, and are left out without any.
  const std::size_t before = simulations();
  stream->setPixelType(PixelFloat);
  stream->setEchoAmplitude(-1.0);
  EXPECT_EQ(worstError(*nextImages(*stream).at(0), [](int, int, int, int) { return 0.0; }), 0.0);
  EXPECT_EQ(simulations(), before);
}

TEST_F(SimusStreamTest, SimulatesOnChangesOnly) {
  const auto stream = silentStream();
  EXPECT_EQ(simulations(), 0u);
  const auto expectSimulations = [&](std::size_t count, const char* after) {
    EXPECT_EQ(simulations(), count) << after;
    host.python().evaluated.clear();
  };
  stream->setAcquisitionSequence(AcquisitionSequence({shortFrame(1), shortFrame(2)}));
  expectSimulations(2, "sequence");
  stream->setAcquisitionSequence(AcquisitionSequence({shortFrame(1), shortFrame(2)}));
  expectSimulations(0, "the same sequence, kept");
  nextImages(*stream);
  nextImages(*stream);
  expectSimulations(0, "emissions");
  stream->setPhantomOrigin({1.0, 9.0, 0.0});
  expectSimulations(2, "origin");
  const auto& scatterers = dynamic_cast<const PointCloud&>(*host.python().variables.at("scatterers"));
  EXPECT_EQ(scatterers.points(), (std::vector<Eigen::Vector3d>{{1.0, 9.0, 0.0}}));
  stream->setPhantomType(PhantomType::Grid5mm);
  expectSimulations(2, "phantom");
  stream->setChannelDataLayout(ChannelDataLayout(ChannelDataLayout::Axis::FastTime, ChannelDataLayout::Axis::Channels,
                                                 ChannelDataLayout::Axis::SlowTime));
  expectSimulations(2, "layout");
  EXPECT_EQ(nextImages(*stream).at(0)->height(), 16);
  stream->setCacheSIMUSechos(false);
  stream->setUseSIMUS(true);
  stream->setUseSIMUS(true);
  expectSimulations(4, "without a cache");
}

TEST_F(SimusStreamTest, ThePhantomMovesWithTheEvents) {
  const auto stream = silentStream();
  stream->setInterEventPhantomMotion({0.0, 2.0, 0.0});
  stream->setAcquisitionSequence(
      AcquisitionSequence({shortFrame(1)}, {1}, {AcquisitionSequence::EnsembleMode::PerFrame}, {0.25}));
  const auto& offsets = dynamic_cast<const PointCloud&>(*host.python().variables.at("scatterer_offsets"));
  EXPECT_EQ(offsets.points(), (std::vector<Eigen::Vector3d>{{0, 0, 0}, {0, 0.5, 0}, {0, 1, 0}}));
}

TEST_F(SimusStreamTest, OneFrameThatFailsBringsSimpleEchoesForAllUntilSimusIsAskedForAgain) {
  const Messages failed = {"4 SimulatedChannelDataStream: Python interpreter could not execute the script: no more",
                           "3 SimulatedChannelDataStream: SIMUS simulation failed, falling back to simple echos"};
  const AcquisitionSequence sequence({shortFrame(1), shortFrame(2)});
  const auto stream = silentStream(), simple = silentStream();
  simple->setUseSIMUS(false);
  simple->setAcquisitionSequence(sequence);
  const auto expectSimple = [&] {
    EXPECT_FALSE(stream->useSIMUS());
    const auto images = nextImages(*stream), expected = nextImages(*simple);
    ASSERT_EQ(images.size(), 2u);
    for (std::size_t i = 0; i < 2; ++i)
      EXPECT_TRUE(sameBytes(*images[i], *expected[i])) << i;
  };
  answers = 1;
  {
    const ExpectedLog log;
    stream->setAcquisitionSequence(sequence);
    EXPECT_EQ(log.messages(), failed);
  }
  expectSimple();
  answers = 1000;
  stream->setPhantomOrigin({1.0, 8.0, 0.0});
  simple->setPhantomOrigin({1.0, 8.0, 0.0});
  expectSimple();
  EXPECT_EQ(simulations(), 2u);
  stream->setUseSIMUS(true);
  EXPECT_TRUE(stream->useSIMUS());
  EXPECT_FALSE(sameBytes(*nextImages(*stream).at(0), *nextImages(*simple).at(0)));
  {
    const ExpectedLog log;
    std::thread([&] { stream->setPhantomType(PhantomType::Point); }).join();
    EXPECT_EQ(log.messages(),
              (Messages{"4 SimulatedChannelDataStream: Simulation must be performed on the main thread", failed[1]}));
  }
  expectSimple();
}

TEST_F(SimusStreamTest, ReportsOneWorkForAllFramesAndFallsBackWhenItIsGivenUp) {
  const auto stream = silentStream();
  const auto echoesOf = host.python().answer;
  host.python().answer = [&]() -> FakePython::Results {
    for (const double fraction : {0.0, 0.5, -1.0})
      if (!LongWork::report("simulates", fraction)) throw std::runtime_error("Canceled: given up");
    return echoesOf();
  };
  Kelvaris::Tests::LongWorkReports window;
  stream->setAcquisitionSequence(AcquisitionSequence({shortFrame(1), shortFrame(2)}));
  EXPECT_TRUE(stream->useSIMUS());
  EXPECT_EQ(window.fractions, (std::vector{0.0, 0.25, -1.0, 0.5, 0.75, -1.0}));
  EXPECT_EQ(window.ends, 1);

  window.granted = 4;
  {
    const ExpectedLog log;
    stream->setPhantomOrigin({1.0, 8.0, 0.0});
    EXPECT_EQ(log.messages(), (Messages{"4 SimulatedChannelDataStream: Python interpreter could not execute the "
                                        "script: Canceled: given up",
                                        "3 SimulatedChannelDataStream: SIMUS simulation failed, falling back to simple "
                                        "echos"}));
  }
  EXPECT_FALSE(stream->useSIMUS());
  EXPECT_EQ(window.ends, 2);
  EXPECT_FALSE(LongWork::isGoingOn());
  window.granted = 100;
  stream->setUseSIMUS(true);
  EXPECT_TRUE(stream->useSIMUS()) << "what was given up doesn't last";
}

} // namespace
} // namespace Kelvaris::US
