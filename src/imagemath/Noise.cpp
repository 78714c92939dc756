#include "imagemath/Noise.h"

#include "GL/Program.h"
#include "imagemath/NoiseFunctions.h"

#include <fmt/format.h>

#include <array>

namespace Kelvaris::ImageMath::internal {

NoiseSource::NoiseSource(NoiseType noiseType, int frame, const ImageDescriptor& noiseShape)
    : type(noiseType), seed(NoiseFunctions().noiseHash(static_cast<std::uint32_t>(frame))), shape(noiseShape) {}

void NoiseSource::fill(const Block& block, int channel, float mean, float deviation, float* values) const {
  NoiseFunctions functions;
  const std::uint32_t step = indicesPerPixel();
  const std::uint32_t pixel = static_cast<std::uint32_t>(block.slice) * static_cast<std::uint32_t>(shape.width()) *
                                  static_cast<std::uint32_t>(shape.height()) +
                              static_cast<std::uint32_t>(block.first);
  const std::uint32_t first = pixel * step + static_cast<std::uint32_t>(channel);
  const auto fillWith = [&](const auto& noise) {
    for (std::uint32_t i = 0; i < static_cast<std::uint32_t>(block.count); ++i)
      values[i] = functions.scaledNoise(mean, deviation, noise(first + i * step));
  };
  if (type == NoiseType::Uniform)
    fillWith([&](std::uint32_t index) { return functions.uniformNoise(seed, index); });
  else
    fillWith([&](std::uint32_t index) { return functions.gaussianNoise(seed, index); });
}

TaggingIndex NoiseGlBase::tag() const {
  const auto number = [](int value) { return static_cast<std::uint64_t>(value); };
  return {"noise",
          {number(static_cast<int>(m_source.type)), m_source.seed, number(m_source.shape.width()),
           number(m_source.shape.height()), number(m_source.shape.slices()), number(channels())}};
}

void NoiseGlBase::defineUniforms(std::string& list) const {
  list += glUniform("int", name() + "Seed") + glUniform("ivec3", name() + "Steps");
}

void NoiseGlBase::setUniforms(GL::Program& program) const {
  program.setUniform(name() + "Seed", static_cast<int>(m_source.seed));
  const std::uint32_t x = m_source.indicesPerPixel(), y = x * static_cast<std::uint32_t>(m_source.shape.width()),
                      z = y * static_cast<std::uint32_t>(m_source.shape.height());
  program.setUniform(name() + "Steps", Eigen::Vector3i(static_cast<int>(x), static_cast<int>(y), static_cast<int>(z)));
}

std::string NoiseGlBase::unitString(int channel) const {
  const std::string index =
      fmt::format("uint(pixel.x) * uint({0}Steps.x) + uint(pixel.y) * uint({0}Steps.y) + uint(pixel.z) * "
                  "uint({0}Steps.z) + {1}u",
                  name(), channel);
  return fmt::format("{}(uint({}Seed), {})", m_source.type == NoiseType::Uniform ? "uniformNoise" : "gaussianNoise",
                     name(), index);
}

std::string NoiseGl::evalString(bool stored) const {
  std::string text = glType(channels()) + "(";
  for (int channel = 0; channel < channels(); ++channel)
    text += fmt::format("{}scaledNoise({}, {}, {})", channel == 0 ? "" : ", ", m_mean->evalString(stored),
                        m_deviation->evalString(stored), unitString(channel));
  return text + ")";
}

} // namespace Kelvaris::ImageMath::internal
