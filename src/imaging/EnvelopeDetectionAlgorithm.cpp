#include "imaging/EnvelopeDetectionAlgorithm.h"

#include "Core/Log.h"
#include "GL/ContextManager.h"
#include "Lib/Mask.h"
#include "imaging/DecibelComponents.h"
#include "imaging/LogCompressionAlgorithm.h"
#include "model/AlgorithmFrame.h"
#include "processing/IqDemodulation.h"

#include <cmath>
#include <cstddef>
#include <stdexcept>
#include <vector>

namespace Kelvaris::US {
namespace {

constexpr AlgorithmFrame kFrame = {
    .className = "EnvelopeDetectionAlgorithm",
    .displayName = "Envelope Detection",
    .acceptsStream = &isImageOrVolumeStream,
    .acceptsImages = &holdsImages,
    .keepsSetState = false,
    .hasProgress = true,
    .errorText = "Error while filtering image ",
    .errorOf = "of",
};

constexpr double kCutoffRatio = 1.0;
constexpr int kFilterLength = 101;

/// A copy whose invalid pixels are 0: the marks that they carry, NaN or the lowest value, would spread over the
/// filter's length into the valid ones.
std::unique_ptr<SharedImage> copyWithoutInvalid(const SharedImage& image) {
  auto copy = image.clone(1);
  const auto mask = image.mask();
  if (!mask) return copy;
  const auto mem = copy->mem();
  const double zero = copy->descriptor().shift() * copy->descriptor().scale();
  std::vector<unsigned char> valid(static_cast<std::size_t>(mem->width()));
  dispatchPixelType(copy->descriptor().pixelType(), [&]<typename T>() {
    T* sample = static_cast<T*>(mem->data());
    for (int z = 0; z < mem->slices(); ++z)
      for (int y = 0; y < mem->height(); ++y) {
        mask->evaluate(*mem, 0, y, z, mem->width(), valid.data());
        for (const unsigned char isValid : valid)
          for (int channel = 0; channel < mem->channels(); ++channel, ++sample)
            if (!isValid) *sample = static_cast<T>(zero);
      }
  });
  copy->setDirtyMem();
  return copy;
}

/// Null, with a logged error, for parameters or an image that can't be demodulated.
std::shared_ptr<SharedImage> demodulated(const IqDemodulation& demodulator, const SharedImage& image,
                                         double samplingFrequency, double demodulationFrequency, int decimationFactor) {
  if (!std::isfinite(samplingFrequency) || samplingFrequency <= 0.0 || !std::isfinite(demodulationFrequency)) {
    Log::error(kFrame.className,
               "Expected a positive sampling frequency and a finite demodulation frequency, got {} and {}",
               samplingFrequency, demodulationFrequency);
    return nullptr;
  }
  if (decimationFactor < 1) {
    Log::error(kFrame.className, "Expected a decimation factor of at least 1, got {}", decimationFactor);
    return nullptr;
  }
  try {
    const auto copy = copyWithoutInvalid(image);
    return demodulator.demodulate(*copy, samplingFrequency, demodulationFrequency, decimationFactor, kCutoffRatio,
                                  kFilterLength);
  } catch (const std::invalid_argument& error) {
    Log::error(kFrame.className, "{}", error.what());
  } catch (const std::runtime_error& error) { // no pixels, or OpenGL
    Log::error(kFrame.className, "{}", error.what());
  }
  return nullptr;
}

} // namespace

EnvelopeDetectionAlgorithm::EnvelopeDetectionAlgorithm(const SharedImageSet* input)
    : m_input(input), m_demodulator(std::make_shared<IqDemodulation>()) {
  registerParameter(&m_samplingFrequency, &m_mutex);
  registerParameter(&m_demodulationFrequency, &m_mutex);
  registerParameter(&m_decimationFactor, &m_mutex);
  registerParameter(&m_logCompression, &m_mutex);
  registerParameter(&m_dynamicRange, &m_mutex);
  registerParameter(&m_referenceAmplitude, &m_mutex);
  registerParameter(&m_normalizeEnvelope, &m_mutex);
  setFrequencyAttributes(m_samplingFrequency, "200");
  setFrequencyAttributes(m_demodulationFrequency, "50");
  m_decimationFactor.setAttribute("min", "1");
  m_decimationFactor.setAttribute("max", "20");
  setDynamicRangeAttributes(m_dynamicRange);
}

EnvelopeDetectionAlgorithm::~EnvelopeDetectionAlgorithm() = default;

bool EnvelopeDetectionAlgorithm::createCompatible(const DataList& data, Algorithm** algorithm) {
  return createCompatibleAlgorithm<EnvelopeDetectionAlgorithm>(kFrame, data, algorithm);
}

void EnvelopeDetectionAlgorithm::compute() {
  computeImages(kFrame, *this, m_input, m_progress, m_status, m_output);
}

OwningDataList EnvelopeDetectionAlgorithm::takeOutput() {
  return takeImages(m_output);
}

std::pair<std::shared_ptr<SharedImage>, DataComponentList>
EnvelopeDetectionAlgorithm::processImage(const SharedImage& image, const DataComponentList& components) const {
  double samplingFrequency = 0.0, demodulationFrequency = 0.0;
  int decimationFactor = 1;
  bool isCompressed = true;
  LogCompressionAlgorithm::Parameters parameters;
  std::shared_ptr<IqDemodulation> demodulator;
  {
    const std::scoped_lock lock(m_mutex);
    samplingFrequency = m_samplingFrequency;
    demodulationFrequency = m_demodulationFrequency;
    decimationFactor = m_decimationFactor;
    isCompressed = m_logCompression;
    parameters = {m_dynamicRange, m_referenceAmplitude, m_normalizeEnvelope};
    demodulator = m_demodulator;
  }
  if (!demodulator) {
    Log::error(kFrame.className, "Filter not instantiated, cannot compute");
    return {};
  }
  const auto compressed = [&](const SharedImage& iq) -> std::pair<std::shared_ptr<SharedImage>, DataComponentList> {
    try {
      auto decibels = LogCompressionAlgorithm::logCompression(iq, parameters);
      decibels->setModality(image.modality());
      return {std::move(decibels),
              decibelComponents(components, parameters.normalizeEnvelope ? PixelUInt8 : PixelFloat)};
    } catch (const std::runtime_error& error) { // no pixels, or OpenGL
      Log::error(kFrame.className, "{}", error.what());
      return {};
    }
  };
  if (image.descriptor().channels() == 2) return compressed(image);

  GL::ContextManager& contexts = GL::ContextManager::get();
  if (!contexts.isAvailable()) {
    Log::error(kFrame.className, "Real samples can't be demodulated: {}", contexts.unavailableReason());
    return {};
  }
  const GL::ContextManager::ActivationGuard guard;
  const auto iq = demodulated(*demodulator, image, samplingFrequency, demodulationFrequency, decimationFactor);
  if (!iq) {
    Log::error(kFrame.className, "Filter did not produce an output");
    return {};
  }
  if (isCompressed) return compressed(*iq);
  iq->setModality(image.modality());
  return {iq, components};
}

} // namespace Kelvaris::US
