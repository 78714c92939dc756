#include "imaging/LogCompressionAlgorithm.h"

#include "Core/Log.h"
#include "Lib/IntensityMask.h"
#include "imagemath/ImageMath.h"
#include "imaging/DecibelComponents.h"
#include "model/AlgorithmFrame.h"

#include <bit>
#include <cstdint>
#include <limits>

namespace Kelvaris::US {
namespace {

constexpr AlgorithmFrame kFrame = {
    .className = "LogCompressionAlgorithm",
    .displayName = "Log Compression",
    .acceptsStream = &isImageOrVolumeStream,
    .acceptsImages =
        [](const SharedImageSet& images) {
          const int channels = channelsOfFirst(images);
          return holdsImages(images) && (channels == 1 || channels == 2);
        },
    .keepsSetState = false,
    .hasProgress = true,
    .errorText = "Error while filtering image ",
    .errorOf = "of",
};

/// Ten times the smallest normal float: keeps the logarithm of a zero sample finite.
constexpr float kFloor = std::bit_cast<float>(std::uint32_t{0x02200000});
constexpr double kLn10 = 2.302585092994046;
constexpr float kDecibelsPerDecade = 20.0f;

bool hasOneOrTwoChannels(const SharedImage& image) {
  const int channels = image.descriptor().channels();
  if (channels == 1 || channels == 2) return true;
  Log::error(kFrame.className, "Expected 1 or 2 channels, got {}", channels);
  return false;
}

/// The decibels of an amplitude, clamped to the dynamic range.
template <typename Amplitude>
auto decibels(const Amplitude& amplitude, const LogCompressionAlgorithm::Parameters& parameters) {
  using namespace ImageMath;
  const auto ratio = max(amplitude, kFloor) / static_cast<float>(parameters.referenceAmplitude);
  return (log(ratio) / kLn10 * kDecibelsPerDecade).clamp(-parameters.dynamicRange, 0);
}

/// Float decibels, NaN where the input is invalid.
struct Decibels {
  using Type = float;
  static constexpr float invalid = std::numeric_limits<float>::quiet_NaN();
  static auto map(const auto& dB, const LogCompressionAlgorithm::Parameters&, bool) { return dB; }
};

/// Display levels. With a mask, level 0 is kept for the invalid pixels.
struct Levels {
  using Type = unsigned char;
  static constexpr float invalid = 0.0f;
  static auto map(const auto& dB, const LogCompressionAlgorithm::Parameters& parameters, bool isMasked) {
    return (dB + parameters.dynamicRange) * ((isMasked ? 254.0 : 255.0) / parameters.dynamicRange) +
           (isMasked ? 1.0f : 0.0f);
  }
};

template <typename Output>
std::shared_ptr<SharedImage> compress(const SharedImage& image, const LogCompressionAlgorithm::Parameters& parameters) {
  using namespace ImageMath;
  const auto mask = image.mask();
  const Array<const SharedImage> x(image);
  const auto evaluate = [&](const auto& amplitude) {
    const auto value = Output::map(decibels(amplitude, parameters), parameters, mask != nullptr);
    return mask ? Select(makeMaskLeaf(x) > 0, value, Output::invalid)
                      .template evaluateIntoImage<typename Output::Type>(false)
                : value.template evaluateIntoImage<typename Output::Type>(false);
  };
  std::shared_ptr<SharedImage> result =
      image.descriptor().channels() == 1 ? evaluate(abs(x)) : evaluate(sqrt(ChannelReduction<ImgOps::add>(pow2(x))));
  result->setModality(image.modality());
  result->setMatrix(image.matrix());
  if (mask) result->setMask(std::make_shared<IntensityMask>(result->descriptor().pixelType(), Output::invalid));
  return result;
}

} // namespace

LogCompressionAlgorithm::LogCompressionAlgorithm(const SharedImageSet* input) : m_input(input) {
  registerParameter(&m_dynamicRange, &m_mutex);
  registerParameter(&m_referenceAmplitude, &m_mutex);
  registerParameter(&m_normalizeEnvelope, &m_mutex);
  setDynamicRangeAttributes(m_dynamicRange);
}

bool LogCompressionAlgorithm::createCompatible(const DataList& data, Algorithm** out) {
  return createCompatibleAlgorithm<LogCompressionAlgorithm>(kFrame, data, out, true);
}

std::shared_ptr<SharedImage> LogCompressionAlgorithm::logCompression(const SharedImage& image,
                                                                     const Parameters& parameters) {
  if (!hasOneOrTwoChannels(image)) return nullptr;
  return parameters.normalizeEnvelope ? compress<Levels>(image, parameters) : compress<Decibels>(image, parameters);
}

void LogCompressionAlgorithm::compute() {
  computeImages(kFrame, *this, m_input, m_progress, m_status, m_output);
}

OwningDataList LogCompressionAlgorithm::takeOutput() {
  return takeImages(m_output);
}

std::pair<std::shared_ptr<SharedImage>, DataComponentList>
LogCompressionAlgorithm::processImage(const SharedImage& image, const DataComponentList& components) const {
  Parameters parameters;
  {
    const std::scoped_lock lock(m_mutex);
    parameters = {m_dynamicRange, m_referenceAmplitude, m_normalizeEnvelope};
  }
  auto compressed = logCompression(image, parameters);
  if (!compressed) return {};
  auto updated = decibelComponents(components, compressed->descriptor().pixelType());
  return {std::move(compressed), std::move(updated)};
}

} // namespace Kelvaris::US
