#include "beamforming/FramePositions.h"

#include "Core/Log.h"

#ifdef KELVARIS_HAVE_GL
#include "GL/AbstractInclude.h"
#include "GL/ContextManager.h"
#include "GL/GlImage.h"
#include "GL/Program.h"
#include "Lib/SharedImage.h"
#endif

#include <cmath>
#include <stdexcept>

namespace Kelvaris::US {
namespace {

ImageDescriptor positionsDescriptor(const FrameGeometry& geometry) {
  ImageDescriptor descriptor = geometry.imgDescPrescan();
  descriptor.setPixelType(PixelFloat);
  descriptor.setDimensions({descriptor.width(), descriptor.height(), 1}, 2);
  return descriptor;
}

} // namespace

#ifdef KELVARIS_HAVE_GL

std::shared_ptr<TypedImage<float>> framePositionsWithGL(const FrameGeometry& geometry) {
  static constexpr const char* programFailure = "Failed to create compute program for sampling position map";
  const auto fail = [] {
    Log::error("BeamformingAlgorithm", programFailure);
    throw std::runtime_error(programFailure);
  };

  const GL::ContextManager::ActivationGuard guard;
  const auto program = GL::Program::createCompute("KelvarisUSImgFormationPlugin/SamplingPositionMap.comp", {},
                                                  GL::CompilationMode::Deferred);
  if (!program) fail();

  auto positions = std::make_shared<GlImage>(positionsDescriptor(geometry));
  GL::memoryBarrier(GL::kImageAccessBarrier);
  program->enable();
  const auto transform = geometry.transformInclude();
  if (!transform || !program->addAbstractIncludeDefinition(*transform, "transform")) fail();
  transform->setArguments(*program, "transform");
  program->bindImage("u_samplePositionMap", *positions, GL::ImageAccess::WriteOnly);
  const auto groups = [](int pixels) { return static_cast<int>(std::ceil(static_cast<float>(pixels) * 0.125f)); };
  program->dispatchCompute(groups(positions->descriptor().width()), groups(positions->descriptor().height()), 1);
  program->unbindImages();
  program->disable();
  GL::memoryBarrier(GL::kAllBarriers);
  return std::static_pointer_cast<TypedImage<float>>(SharedImage(positions).mem());
}

#else

std::shared_ptr<TypedImage<float>> framePositionsWithGL(const FrameGeometry&) {
  throw std::runtime_error("this build has no OpenGL");
}

#endif

std::shared_ptr<TypedImage<float>> framePositionsOnHost(const FrameGeometry& geometry) {
  auto positions = std::make_shared<TypedImage<float>>(positionsDescriptor(geometry));
  const int width = positions->width();
  const int height = positions->height();
#pragma omp parallel for
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const Eigen::Vector2d position =
          geometry.convertPoint({(x + 0.5) / width, (y + 0.5) / height}, FrameGeometry::NormalizedToPhysical);
      positions->setValue(static_cast<float>(position.x()), x, y, 0, 0);
      positions->setValue(static_cast<float>(position.y()), x, y, 0, 1);
    }
  return positions;
}

} // namespace Kelvaris::US
