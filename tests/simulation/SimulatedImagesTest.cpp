// What the stream's images hold, against the sum of its layers in double precision.

#include "SimulatedStreamCases.h"
#include "simulation/PulseLocations.h"
#include "support/Samples.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <span>
#include <vector>

namespace Kelvaris::US {
namespace {

using Tests::changed;
using Tests::shortFrame;
using Tests::stored;
using Tests::streamOf;
using Axis = ChannelDataLayout::Axis;

/// The sum of the pulses that begin at `locations`, as (channels, samples, events).
std::vector<double> layerOf(const FrameAcquisition& frame, const std::vector<std::int32_t>& locations,
                            double amplitude) {
  const FrameSizes sizes(frame);
  const PulseEchoEvent& first = frame.events().front();
  const std::size_t columns = static_cast<std::size_t>(sizes.events * sizes.channels),
                    pulses = locations.size() / columns, width = static_cast<std::size_t>(sizes.channels);
  std::vector<double> layer(columns * static_cast<std::size_t>(sizes.samples));
  for (std::size_t k = 0; k < locations.size(); ++k) {
    const std::size_t column = k / pulses, event = column / width;
    if (locations[k] < 0) continue;
    for (int i = 0; i < sizes.pulseLength && locations[k] < sizes.samples - i; ++i) {
      const auto row = event * static_cast<std::size_t>(sizes.samples) + static_cast<std::size_t>(locations[k] + i);
      layer[row * width + column % width] += amplitude * std::sin(2 * std::numbers::pi * first.transmit.pulseFrequency *
                                                                  i / first.receive.samplingFrequency);
    }
  }
  return layer;
}

class SimulatedImages : public Tests::SimulatedStream {};

struct Expected {
  double value;
  bool isSure; ///< no layer leaves it so near to the border between two integers that a float's rounding decides
};

Expected sumOf(double noise, double transmit, double echo, int pixelType) {
  Expected sum = {0.0, true};
  for (const double layer : {noise, transmit, echo}) {
    const double exact = sum.value + layer, fraction = std::abs(exact) - std::floor(std::abs(exact));
    sum.isSure = sum.isSure && std::abs(fraction - 0.5) > 1e-3;
    sum.value = stored(exact, pixelType);
  }
  return sum;
}

TEST_F(SimulatedImages, AreTheSumOfTheirLayersInEveryPixelTypeAndLayout) {
  // The grid's first row echoes while elements still transmit, its third where the recordings end. In the second frame,
  // of one event, half of the elements transmit.
  const auto endsAtThirdRow = [](PulseEchoEvent& event, int) { event.receive.endTime = 2 * 10.4 / 1.54e6; };
  const FrameAcquisition few(Tests::kStraight, {shortFrame(2, 8).events().front()});
  const AcquisitionSequence sequence({changed(shortFrame(1), endsAtThirdRow), changed(few, endsAtThirdRow)});
  const Eigen::Vector3d origin(0.5, 0.3, 0.0);
  const auto scatterers = phantomScatterers(PhantomType::Grid5mm, origin);
  std::vector<std::vector<double>> transmits, echoes;
  for (const FrameAcquisition& frame : sequence.frameAcquisitions()) {
    const FrameSizes sizes(frame);
    const std::vector<Eigen::Vector3d> still(frame.events().size(), Eigen::Vector3d::Zero());
    transmits.push_back(layerOf(frame, transmitPulseLocations(frame, sizes), 50.0));
    echoes.push_back(layerOf(frame, echoPulseLocations(frame, sizes, scatterers, still), 30.0));
  }
  const auto lastRow = std::span(echoes[0]).last(16);
  EXPECT_TRUE(std::any_of(lastRow.begin(), lastRow.end(), [](double sample) { return sample != 0.0; }));
  for (const int pixelType : {5120, 5121, 5122, 5123, 5124, 5125, 5126, 5130, 5131})
    for (const ChannelDataLayout& layout :
         {ChannelDataLayout(), ChannelDataLayout(Axis::FastTime, Axis::Channels, Axis::SlowTime),
          ChannelDataLayout(Axis::SlowTime, Axis::FastTime, Axis::Channels)}) {
      SCOPED_TRACE(ImageDescriptor::pixelTypeName(pixelType));
      // The same noise in every stream: it depends on the number of the acquisition and the sizes alone.
      const auto noiseAlone = streamOf(sequence, 2.0), stream = streamOf(sequence, 2.0);
      noiseAlone->setPixelType(PixelFloat);
      noiseAlone->setTransmitAmplitude(0.0);
      noiseAlone->setEchoAmplitude(0.0);
      const auto noise = Tests::nextImages(*noiseAlone);
      stream->setPixelType(static_cast<PixelType>(pixelType));
      stream->setPhantomType(PhantomType::Grid5mm);
      stream->setPhantomOrigin(origin);
      stream->setEchoAmplitude(30.0);
      stream->setChannelDataLayout(layout);
      const auto images = Tests::nextImages(*stream);
      ASSERT_EQ(images.size(), 2u);
      for (std::size_t f = 0; f < images.size(); ++f) {
        const FrameSizes sizes(sequence.frameAcquisitions()[f]);
        ASSERT_EQ(images[f]->descriptor().pixelType(), pixelType);
        ASSERT_EQ(images[f]->descriptor().dimensions(), layout.packVec(sizes.channels, sizes.samples, sizes.events));
        const double tolerance = pixelType == PixelHalf ? 0.5 : 1e-3;
        int wrong = 0, sure = 0;
        std::size_t i = 0;
        Tests::forEachSample(noise[f]->descriptor(), [&](int channel, int sample, int event, int) {
          const Eigen::Vector3i at = layout.packVec(channel, sample, event);
          const auto [value, isSure] =
              sumOf(noise[f]->valueAsDouble(channel, sample, event, 0), transmits[f][i], echoes[f][i], pixelType);
          ++i;
          if (!isSure) return;
          ++sure;
          wrong += std::abs(images[f]->valueAsDouble(at.x(), at.y(), at.z(), 0) - value) > tolerance;
        });
        EXPECT_EQ(wrong, 0) << "frame " << f;
        EXPECT_GT(sure, static_cast<int>(i) * 9 / 10);
      }
    }
}

TEST_F(SimulatedImages, HaveAllEchoesOfATableInPortions) {
  // 64 firings x 64 channels x 64 transmit elements: 1 MiB a scatterer, so the grid's 66 go in two portions.
  PulseEchoEvent event = PulseEchoEvent::createPlaneWave(Transducer::createLinear(64, 0.3), {0, 0, 0}, 0.1, 64, 64);
  event.transmit.pulseFrequency = 4e6;
  event.transmit.pulseLength = 0.5;
  event.transmit.speedOfSound = 1.54e6;
  event.receive.samplingFrequency = 2e7;
  event.receive.endTime = 600.5 / 2e7;
  const AcquisitionSequence sequence({FrameAcquisition(Transducer::createLinear(64, 0.3), {event})}, {64},
                                     {AcquisitionSequence::EnsembleMode::PerEvent}, {{}});
  const auto stream = streamOf(sequence);
  stream->setPixelType(PixelFloat);
  stream->setTransmitAmplitude(0.0);
  stream->setPhantomType(PhantomType::Grid5mm);
  stream->setPhantomOrigin(
      {0, -20, 0}); // so that the last points of each column, whose portions differ, are the nearest
  const auto image = Tests::nextImages(*stream).at(0);

  const FrameAcquisition frame = sequence.effectiveFrameAcquisition(0);
  const std::vector<Eigen::Vector3d> still(64, Eigen::Vector3d::Zero());
  const auto scatterers = phantomScatterers(PhantomType::Grid5mm, {0, -20, 0});
  const auto expected = layerOf(frame, echoPulseLocations(frame, FrameSizes(frame), scatterers, still), 10.0);
  std::size_t i = 0;
  EXPECT_LT(Tests::worstError(*image, [&](int, int, int, int) { return expected[i++]; }), 1e-2);
}

} // namespace
} // namespace Kelvaris::US
