#pragma once

#include "GL/RequireGL.h"
#include "SimulationCases.h"

#include "Core/Resource.h"
#include "plugin/Repository_KelvarisUSImgFormationPlugin.h"
#include "simulation/SimulatedChannelDataStream.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace Kelvaris::Tests {

using US::SimulatedChannelDataStream;

/// The shader is at hand; skipped without OpenGL.
class SimulatedStream : public ::testing::Test {
protected:
  SimulatedStream() { Resource::addRepository(&m_repository); }
  void SetUp() override { KELVARIS_REQUIRE_GL(); }

private:
  const Repository_KelvarisUSImgFormationPlugin m_repository;
};

/// A stream of simple echoes and no noise, unless `noise` says otherwise.
inline std::unique_ptr<SimulatedChannelDataStream> streamOf(const AcquisitionSequence& sequence, double noise = 0.0) {
  auto stream = std::make_unique<SimulatedChannelDataStream>();
  stream->setUseSIMUS(false);
  stream->setNoiseAmplitude(noise);
  if (sequence.numFrameAcquisitions() > 0) stream->setAcquisitionSequence(sequence);
  return stream;
}

/// The images of the next acquisition in main memory.
inline std::vector<std::shared_ptr<MemImage>> nextImages(SimulatedChannelDataStream& stream) {
  std::vector<std::shared_ptr<MemImage>> images;
  for (const auto& [image, components] : stream.getNextAcquisition())
    images.push_back(image->mem());
  return images;
}

} // namespace Kelvaris::Tests
