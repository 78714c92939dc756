#include "imagemath/Noise.h"

#include "GL/Program.h"
#include "imagemath/NoiseFunctions.h"

#include <fmt/format.h>

#include <cstdint>

namespace Kelvaris::ImageMath::internal {

namespace {

/// Consecutive values of one channel.
struct Run {
  NoiseType type;
  std::uint32_t seed;
  std::uint32_t first; ///< index of the first value
  std::uint32_t step;  ///< from one index to the next
  int count;
  float mean;
  float deviation;
  float* values;
};

inline void fillRun(const Run& run) {
  NoiseFunctions functions;
  const auto fillWith = [&](const auto& noise) {
    for (int i = 0; i < run.count; ++i)
      run.values[i] =
          functions.scaledNoise(run.mean, run.deviation, noise(run.first + static_cast<std::uint32_t>(i) * run.step));
  };
  if (run.type == NoiseType::Uniform)
    fillWith([&](std::uint32_t index) { return functions.uniformNoise(run.seed, index); });
  else
    fillWith([&](std::uint32_t index) { return functions.gaussianNoise(run.seed, index); });
}

// The hash shifts each value by a number of its own, which vector units can do from AVX2 on. All of it in one function
// of its instruction set: inline functions that stayed by themselves would be those of any other file.
[[gnu::flatten]] void fillOnAny(const Run& run) {
  fillRun(run);
}
[[gnu::flatten, gnu::target("avx2")]] void fillOnAvx2(const Run& run) {
  fillRun(run);
}
[[gnu::flatten, gnu::target("arch=x86-64-v4,prefer-vector-width=512")]] void fillOnAvx512(const Run& run) {
  fillRun(run);
}

} // namespace

NoiseSource::NoiseSource(NoiseType noiseType, int frame, const ImageDescriptor& noiseShape)
    : type(noiseType), seed(NoiseFunctions().noiseHash(static_cast<std::uint32_t>(frame))), shape(noiseShape) {}

void NoiseSource::fill(const Block& block, int channel, float mean, float deviation, float* values) const {
  static const auto fillBest = __builtin_cpu_supports("x86-64-v4") ? &fillOnAvx512
                               : __builtin_cpu_supports("avx2")    ? &fillOnAvx2
                                                                   : &fillOnAny;
  const std::uint32_t step = indicesPerPixel();
  const std::uint32_t pixel = static_cast<std::uint32_t>(block.slice) * static_cast<std::uint32_t>(shape.width()) *
                                  static_cast<std::uint32_t>(shape.height()) +
                              static_cast<std::uint32_t>(block.first);
  fillBest(
      {type, seed, pixel * step + static_cast<std::uint32_t>(channel), step, block.count, mean, deviation, values});
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
