#include "imaging/LogCompressionAlgorithm.h"

#include "Core/Log.h"
#include "Lib/IntensityMask.h"
#include "imagemath/VectorLog.h"
#include "imaging/DecibelComponents.h"
#include "model/AlgorithmFrame.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>

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
  const auto read = [&](auto value) {
    if (channels == 1)
      for (std::size_t i = 0; i < count; ++i)
        amplitudes[i] = std::abs(value(i));
    else
      for (std::size_t i = 0; i < count; ++i)
        amplitudes[i] = std::sqrt(value(2 * i) * value(2 * i) + value(2 * i + 1) * value(2 * i + 1));
  };
  if (scaling.scale == 1.0 && scaling.shift == 0.0)
    read([samples](std::size_t i) { return static_cast<double>(samples[i]); });
  else
    read([samples, scaling](std::size_t i) { return static_cast<double>(samples[i]) / scaling.scale - scaling.shift; });
}

/// From amplitudes to what is stored, for one set of parameters.
class Mapping {
public:
  Mapping(const LogCompressionAlgorithm::Parameters& parameters, bool masked, const Scaling& scaling)
      : m_reference(static_cast<float>(parameters.referenceAmplitude)),
        m_range(parameters.dynamicRange),
        m_factor((masked ? 254.0 : 255.0) / parameters.dynamicRange),
        m_offset(masked ? 1.0 : 0.0),
        m_scaling(scaling) {}

  double ratio(double amplitude) const { return std::max(amplitude, static_cast<double>(kFloor)) / m_reference; }
  double decibels(double logarithm) const {
    return std::min(std::max(logarithm / kLn10 * static_cast<double>(kDecibelsPerDecade), -m_range), 0.0);
  }
  /// With a mask, level 0 is kept for the invalid pixels.
  double level(double decibels) const { return (decibels + m_range) * m_factor + m_offset; }
  double stored(double value) const { return (value + m_scaling.shift) * m_scaling.scale; }

private:
  double m_reference;
  double m_range;
  double m_factor;
  double m_offset;
  Scaling m_scaling;
};

template <typename T, typename Out>
void maskPixels(const T* samples, std::size_t count, int channels, const IntensityMask& mask, Out invalid,
                Out* output) {
  const auto n = static_cast<std::size_t>(channels);
  for (std::size_t i = 0; i < count; ++i)
    for (std::size_t channel = 0; channel < n; ++channel)
      if (mask.isMasked(static_cast<double>(samples[i * n + channel]))) output[i] = invalid;
}

/// A value to be stored in 8 bits: rounded half away from zero, held within the type; NaN becomes 0.
struct Byte {
  explicit Byte(double value)
      : held(std::min(std::max(0.0, value), 255.0)), // in this order of the operands NaN gives 0
        below(static_cast<int>(held)),
        rest(held - below) {}
  unsigned char rounded() const { return static_cast<unsigned char>(below + (rest >= 0.5)); }
  /// So close to the border between two levels, the last digit of the logarithm decides.
  bool isNearHalf() const { return std::abs(rest - 0.5) < 1e-6; }

  double held;
  int below;
  double rest;
};

/// Decibels, or display levels for 8-bit output, of `count` amplitudes.
template <typename Out> void map(const Mapping& mapping, std::size_t count, Block& values, Out* output) {
  Block ratios;
  for (std::size_t i = 0; i < count; ++i)
    ratios[i] = mapping.ratio(values[i]);
  std::fill(ratios.begin() + static_cast<std::ptrdiff_t>(count), ratios.end(), 1.0);
  values = ratios;
  ImageMath::vectorLog(values.data(), (count + 3) / 4 * 4);
  for (std::size_t i = 0; i < count; ++i)
    values[i] = mapping.decibels(values[i]);
  if constexpr (std::is_same_v<Out, float>) {
    for (std::size_t i = 0; i < count; ++i)
      output[i] = static_cast<float>(mapping.stored(values[i]));
  } else {
    int near = 0;
    for (std::size_t i = 0; i < count; ++i) {
      values[i] = mapping.stored(mapping.level(values[i]));
      const Byte byte(values[i]);
      output[i] = byte.rounded();
      near += byte.isNearHalf();
    }
    for (std::size_t i = 0; near > 0 && i < count; ++i)
      if (Byte(values[i]).isNearHalf())
        output[i] = Byte(mapping.stored(mapping.level(mapping.decibels(std::log(ratios[i]))))).rounded();
  }
}

template <typename Sample, typename Out>
void compress(const Sample* samples, std::size_t pixels, int channels, const IntensityMask* mask,
              const Mapping& mapping, const Scaling& scaling, Out* output) {
  const Out invalid =
      static_cast<Out>(mapping.stored(std::is_same_v<Out, float> ? std::numeric_limits<double>::quiet_NaN() : 0.0));
  const auto blocks = static_cast<std::ptrdiff_t>((pixels + kBlock - 1) / kBlock);
#pragma omp parallel for schedule(static) if (blocks > 8)
  for (std::ptrdiff_t block = 0; block < blocks; ++block) {
    const std::size_t first = static_cast<std::size_t>(block) * kBlock, count = std::min(kBlock, pixels - first);
    const Sample* const source = samples + first * static_cast<std::size_t>(channels);
    Block values;
    readAmplitudes(source, count, channels, scaling, values);
    map(mapping, count, values, output + first);
    if (mask) maskPixels(source, count, channels, *mask, invalid, output + first);
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
  const auto mask = std::dynamic_pointer_cast<const IntensityMask>(image.mask());
  const Scaling scaling = {descriptor.shift(), descriptor.scale()};
  const Mapping mapping(parameters, mask != nullptr, scaling);
  dispatchPixelType(pixelType, [&]<typename Sample>() {
    compress(static_cast<const Sample*>(input->data()), output->size(), channels, mask.get(), mapping, scaling,
             output->pointer());
  });

  auto result = std::make_shared<SharedImage>(output);
  result->setModality(image.modality());
  result->setMatrix(image.matrix());
  if (mask)
    result->setMask(std::make_shared<IntensityMask>(
        pixelTypeOf<Out>(), std::is_same_v<Out, float> ? std::numeric_limits<double>::quiet_NaN() : 0.0));
  return result;
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
  auto updated = decibelComponents(components, compressed->descriptor().pixelType());
  return {std::move(compressed), std::move(updated)};
}

} // namespace Kelvaris::US
