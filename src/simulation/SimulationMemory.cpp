#include "simulation/SimulationMemory.h"

#include "GL/Check.h"
#include "GL/ContextManager.h"
#include "GL/ShaderStorageBuffer.h"

#include <epoxy/gl.h>
#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <string>

namespace Kelvaris::US {
namespace {

constexpr std::uint64_t kUnlimited = std::numeric_limits<std::uint64_t>::max();

/// Products of sizes may exceed what 64 bits hold, so they are formed in floating point; a bit more or less of a size
/// in gigabytes doesn't matter.
double product(const FrameSizes& sizes, double perEntry) {
  return static_cast<double>(sizes.events) * sizes.channels * perEntry;
}

double tableBytes(const FrameSizes& sizes) {
  return product(sizes, static_cast<double>(sizes.transmitElements) * sizeof(std::int32_t));
}

std::string inGigabytes(double bytes) {
  return fmt::format("{:.3g} GB", bytes * 1e-9);
}

std::uint64_t limitIn(const char* file) {
  std::uint64_t bytes = 0;
  return std::ifstream(file) >> bytes ? bytes : kUnlimited; // "max" where there is no limit
}

std::uint64_t availableToSystem() {
  std::ifstream file("/proc/meminfo");
  for (std::string line; std::getline(file, line);)
    if (line.starts_with("MemAvailable:")) return std::stoull(line.substr(line.find(':') + 1)) * 1024;
  return kUnlimited;
}

void checkTextures(const FrameSizes& sizes, std::size_t frame, const SimulationLimits& limits) {
  if (sizes.channels > limits.textureSide || sizes.samples > limits.textureSide || sizes.events > limits.textureSlices)
    throw std::length_error(fmt::format(
        "FrameAcquisition {} would give an image of {} channels, {} samples and {} events; OpenGL's largest here has "
        "{}, "
        "{} and {}. Fewer channels, a shorter recording or lower sampling frequency, or fewer events and repetitions "
        "would make it smaller",
        frame, sizes.channels, sizes.samples, sizes.events, limits.textureSide, limits.textureSide,
        limits.textureSlices));
}

} // namespace

std::uint64_t availableMemory() {
  return std::min({availableToSystem(), limitIn("/sys/fs/cgroup/memory.max"),
                   limitIn("/sys/fs/cgroup/memory/memory.limit_in_bytes")});
}

SimulationLimits SimulationLimits::ofThisMachine() {
  SimulationLimits limits{};
  limits.memoryBytes = availableMemory();
  limits.storageBufferBytes = GL::ShaderStorageBuffer::maxByteSize();
  KELVARIS_GL_CHECKED(glGetIntegerv(GL_MAX_TEXTURE_SIZE, &limits.textureSide));
  KELVARIS_GL_CHECKED(glGetIntegerv(GL_MAX_ARRAY_TEXTURE_LAYERS, &limits.textureSlices));
  return limits;
}

std::size_t scatterersAtOnce(const FrameSizes& sizes, const SimulationLimits& limits) {
  const auto most = static_cast<double>(std::min(kMostTableBytes, limits.storageBufferBytes));
  return static_cast<std::size_t>(std::max(most / std::max(tableBytes(sizes), 1.0), 1.0));
}

void checkMemory(const std::vector<FrameSizes>& frames, int bytesPerSample, const SimulationLimits& limits) {
  double images = 0.0, tables = 0.0;
  for (std::size_t i = 0; i < frames.size(); ++i) {
    const FrameSizes& sizes = frames[i];
    checkTextures(sizes, i, limits);
    if (tableBytes(sizes) > static_cast<double>(limits.storageBufferBytes))
      throw std::length_error(fmt::format(
          "The location table of FrameAcquisition {}, {} events x {} channels x {} transmit elements x 4 bytes = {} "
          "for "
          "each scatterer, is larger than what a shader can read here, {}. Fewer events and repetitions, or smaller "
          "apertures, would make it smaller",
          i, sizes.events, sizes.channels, sizes.transmitElements, inGigabytes(tableBytes(sizes)),
          inGigabytes(static_cast<double>(limits.storageBufferBytes))));
    images += product(sizes, static_cast<double>(sizes.samples) * (24.0 + 3.0 * bytesPerSample));
    tables = std::max(tables, tableBytes(sizes) * static_cast<double>(scatterersAtOnce(sizes, limits)));
  }
  if (const double bytes = images + 2.0 * tables; bytes > static_cast<double>(limits.memoryBytes))
    throw std::length_error(fmt::format("The AcquisitionSequence takes {} to simulate, {} of it for images and {} for "
                                        "location tables (events x channels "
                                        "x transmit elements x scatterers); {} are available. Fewer events and "
                                        "repetitions, smaller apertures, a shorter "
                                        "recording or a lower sampling frequency would make it smaller",
                                        inGigabytes(bytes), inGigabytes(images), inGigabytes(2.0 * tables),
                                        inGigabytes(static_cast<double>(limits.memoryBytes))));
}

} // namespace Kelvaris::US
