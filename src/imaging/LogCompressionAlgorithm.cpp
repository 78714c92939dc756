#include "imaging/LogCompressionAlgorithm.h"

#include "Core/Log.h"
#include "US/FrameGeometryMetadata.h"
#include "model/AlgorithmFrame.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
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

/// Pixels that are worked on at once; small enough for the nearest cache.
constexpr std::size_t kBlock = 1024;
using Block = std::array<double, kBlock>;

/// Real value = stored value / scale - shift, here and on the output.
struct Scaling {
  double shift;
  double scale;
};

bool hasOneOrTwoChannels(const SharedImage& image) {
  const int channels = image.descriptor().channels();
  if (channels == 1 || channels == 2) return true;
  Log::error(kFrame.className, "Expected 1 or 2 channels, got {}", channels);
  return false;
}

template <typename T>
void readAmplitudes(const T* samples, std::size_t count, int channels, const Scaling& scaling, Block& amplitudes) {
  const auto value = [&](std::size_t i) { return static_cast<double>(samples[i]) / scaling.scale - scaling.shift; };
  if (channels == 1)
    for (std::size_t i = 0; i < count; ++i)
      amplitudes[i] = std::abs(value(i));
  else
    for (std::size_t i = 0; i < count; ++i)
      amplitudes[i] = std::sqrt(value(2 * i) * value(2 * i) + value(2 * i + 1) * value(2 * i + 1));
}

/// Amplitudes become decibels in [-dynamicRange, 0]; NaN stays NaN.
void toDecibels(std::size_t count, const LogCompressionAlgorithm::Parameters& parameters, Block& values) {
  const double reference = static_cast<float>(parameters.referenceAmplitude), lowest = -parameters.dynamicRange;
  for (std::size_t i = 0; i < count; ++i)
    values[i] = std::max(values[i], static_cast<double>(kFloor)) / reference;
  for (std::size_t i = 0; i < count; ++i)
    values[i] = std::log(values[i]);
  for (std::size_t i = 0; i < count; ++i)
    values[i] = std::min(std::max(values[i] / kLn10 * static_cast<double>(kDecibelsPerDecade), lowest), 0.0);
}

template <typename T>
void maskPixels(const T* samples, std::size_t count, int channels, const IntensityMask& mask, double invalid,
                Block& values) {
  for (std::size_t i = 0; i < count; ++i)
    for (int channel = 0; channel < channels; ++channel)
      if (mask.isMasked(
              static_cast<double>(samples[i * static_cast<std::size_t>(channels) + static_cast<std::size_t>(channel)])))
        values[i] = invalid;
}

void store(const Block& values, std::size_t count, const Scaling& scaling, float* output) {
  for (std::size_t i = 0; i < count; ++i)
    output[i] = static_cast<float>((values[i] + scaling.shift) * scaling.scale);
}

/// Rounded half away from zero, held within the type; NaN becomes 0.
void store(const Block& values, std::size_t count, const Scaling& scaling, unsigned char* output) {
  for (std::size_t i = 0; i < count; ++i) {
    const double stored = (values[i] + scaling.shift) * scaling.scale;
    const double held = std::min(std::max(0.0, stored), 255.0); // in this order of the operands NaN gives 0
    const int below = static_cast<int>(held);
    output[i] = static_cast<unsigned char>(below + (held - below >= 0.5));
  }
}

template <typename Sample, typename Out>
void compress(const Sample* samples, std::size_t pixels, int channels, const IntensityMask* mask,
              const Scaling& scaling, const LogCompressionAlgorithm::Parameters& parameters, Out* output) {
  constexpr bool levels = std::is_same_v<Out, unsigned char>;
  // With a mask, level 0 is kept for the invalid pixels.
  const double factor = (mask ? 254.0 : 255.0) / parameters.dynamicRange, offset = mask ? 1.0 : 0.0;
  const double invalid = levels ? 0.0 : std::numeric_limits<double>::quiet_NaN();

  const auto blocks = static_cast<std::ptrdiff_t>((pixels + kBlock - 1) / kBlock);
#pragma omp parallel for schedule(static) if (blocks > 8)
  for (std::ptrdiff_t block = 0; block < blocks; ++block) {
    const std::size_t first = static_cast<std::size_t>(block) * kBlock, count = std::min(kBlock, pixels - first);
    const Sample* const source = samples + first * static_cast<std::size_t>(channels);
    Block values;
    readAmplitudes(source, count, channels, scaling, values);
    toDecibels(count, parameters, values);
    if constexpr (levels)
      for (std::size_t i = 0; i < count; ++i)
        values[i] = (values[i] + parameters.dynamicRange) * factor + offset;
    if (mask) maskPixels(source, count, channels, *mask, invalid, values);
    store(values, count, scaling, output + first);
  }
}

template <typename Out>
std::shared_ptr<SharedImage> compress(const SharedImage& image, const LogCompressionAlgorithm::Parameters& parameters) {
  ImageDescriptor descriptor = image.descriptor();
  const int channels = descriptor.channels(), pixelType = descriptor.pixelType();
  descriptor.setPixelType(pixelTypeOf<Out>());
  descriptor.setChannels(1);
  auto output = std::make_shared<TypedImage<Out>>(descriptor);
  const auto input = image.mem();
  const auto mask = image.mask();
  dispatchPixelType(pixelType, [&]<typename Sample>() {
    compress(static_cast<const Sample*>(input->data()), output->size(), channels, mask.get(),
             {descriptor.shift(), descriptor.scale()}, parameters, output->pointer());
  });

  auto result = std::make_shared<SharedImage>(output);
  result->setModality(image.modality());
  result->setMatrix(image.matrix());
  if (mask)
    result->setMask(std::make_shared<IntensityMask>(
        pixelTypeOf<Out>(), std::is_same_v<Out, float> ? std::numeric_limits<double>::quiet_NaN() : 0.0));
  return result;
}

/// The image descriptors of the frame geometry follow the new pixel type.
void updateGeometry(int pixelType, DataComponentList& components) {
  auto* const metadata = components.get<FrameGeometryMetadata>();
  if (!metadata || !metadata->frameGeometry()) return;
  auto geometry = metadata->frameGeometry()->clone();
  const auto updated = [&](ImageDescriptor descriptor) {
    if (descriptor.isValid()) {
      descriptor.setPixelType(pixelType);
      descriptor.setChannels(1);
    }
    return descriptor;
  };
  geometry->setImgDesc(updated(geometry->imgDesc()));
  geometry->setImgDescPrescan(updated(geometry->imgDescPrescan()));
  metadata->setFrameGeometry(std::move(geometry));
}

} // namespace

LogCompressionAlgorithm::LogCompressionAlgorithm(const SharedImageSet* input) : m_input(input) {
  registerParameter(&m_dynamicRange, &m_mutex);
  registerParameter(&m_referenceAmplitude, &m_mutex);
  registerParameter(&m_normalizeEnvelope, &m_mutex);
  m_dynamicRange.setAttribute("suffix", "dB");
  m_dynamicRange.setAttribute("decimals", "1");
  m_dynamicRange.setAttribute("min", "5");
  m_dynamicRange.setAttribute("max", "100");
}

bool LogCompressionAlgorithm::createCompatible(const DataList& data, Algorithm** out) {
  return createCompatibleAlgorithm<LogCompressionAlgorithm>(kFrame, data, out, true);
}

std::shared_ptr<SharedImage> LogCompressionAlgorithm::logCompression(const SharedImage& image,
                                                                     const Parameters& parameters) {
  if (!hasOneOrTwoChannels(image)) return nullptr;
  return parameters.normalizeEnvelope ? compress<unsigned char>(image, parameters) : compress<float>(image, parameters);
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
  DataComponentList updated = components;
  updateGeometry(compressed->descriptor().pixelType(), updated);
  return {std::move(compressed), std::move(updated)};
}

} // namespace Kelvaris::US
