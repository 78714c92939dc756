#include "simulation/PulseOverlay.h"

#include "GL/Check.h"
#include "GL/GlImage.h"
#include "GL/ShaderStorageBuffer.h"

namespace Kelvaris::US {
namespace {
constexpr const char* kResource = "KelvarisUSImgFormationPlugin/SimulatedChannelDataAddWaveforms.comp";
constexpr int kGroupSize = 8; // channels, and events, of one work group
} // namespace

PulseOverlay::PulseOverlay() : m_program(GL::Program::createCompute(kResource)) {
  if (!m_program) throw GL::Error(std::string("the program of ") + kResource + " can't be made");
}

void PulseOverlay::overlayPulses(SharedImage& layer, const GlImage& pulse, const GL::ShaderStorageBuffer& locations,
                                 int numPulses, int numChannels, int numEvents) {
  const ImageDescriptor& size = layer.descriptor();
  const std::shared_ptr<GlImage> texture = layer.sharedCustom<GlImage>();
  GL::memoryBarrier(GL::kImageAccessBarrier);
  // An image of one slice is a texture of another kind.
  m_program->addDefine(size.slices() == 1 ? "#define ONE_EVENT" : "#undef ONE_EVENT");
  m_program->enable();
  m_program->bindImage("u_channelData", *texture, GL::ImageAccess::ReadWrite);
  m_program->setUniform("u_channelDataSize", size.dimensions());
  m_program->bindImage("u_pulse", pulse, GL::ImageAccess::ReadOnly);
  m_program->setUniform("u_pulseLength", static_cast<int>(pulse.descriptor().elementCount()));
  m_program->setUniform("u_numPulses", Eigen::Vector3i(numPulses, numChannels, numEvents));
  m_program->bindStorageBuffer("_pulseLocations", locations);
  m_program->dispatchCompute((numChannels + kGroupSize - 1) / kGroupSize, (numEvents + kGroupSize - 1) / kGroupSize, 1);
  m_program->disable();
  GL::memoryBarrier(GL::kAllBarriers);
  layer.setDirtyGl();
}

} // namespace Kelvaris::US
