#pragma once

#include "Lib/SharedImage.h"
#include "imagemath/Block.h"
#include "imagemath/ExprBase.h"
#include "imagemath/GlExprInterface.h"
#include "imagemath/Scalar.h"

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace Kelvaris::ImageMath {

enum class NoiseType : int { Gaussian = 0, Uniform = 1 };

namespace internal {

/// What a noise's values are computed from, besides mean and deviation.
struct NoiseSource {
  NoiseType type;
  std::uint32_t seed; ///< hashed
  ImageDescriptor shape;

  NoiseSource(NoiseType noiseType, int frame, const ImageDescriptor& noiseShape);
  /// Channels, rounded up to an even number: two numbers come from one draw.
  std::uint32_t indicesPerPixel() const { return static_cast<std::uint32_t>(shape.channels() + 1) / 2 * 2; }
  void fill(const Block& block, int channel, float mean, float deviation, float* values) const;
};

class NoiseGlBase : public GlLeaf {
public:
  explicit NoiseGlBase(const NoiseSource& source) : m_source(source) {}
  int channels() const override { return m_source.shape.channels(); }

protected:
  TaggingIndex tag() const override;
  void defineUniforms(std::string& list) const override;
  void setUniforms(GL::Program& program) const override;
  /// The value of one channel, of zero mean and unit variance.
  std::string unitString(int channel) const;

private:
  NoiseSource m_source;
};

class NoiseGl : public NoiseGlBase {
public:
  NoiseGl(const NoiseSource& source, GlExpr mean, GlExpr deviation)
      : NoiseGlBase(source), m_mean(std::move(mean)), m_deviation(std::move(deviation)) {}

  std::string evalString(bool stored) const override;
  std::vector<const GlExprInterface*> children() const override { return {m_mean.get(), m_deviation.get()}; }

private:
  GlExpr m_mean;
  GlExpr m_deviation;
};

} // namespace internal

/// Random values in the shape of an image, independent from pixel to pixel, channel to channel and frame to frame. A
/// value depends on type, mean, deviation, frame, shape and the pixel's place alone: it is the same in main memory and
/// in shaders, bit for bit, on any number of threads.
///
/// With s = hash(frame) and i = x c + y c W + z c W H + channel modulo 2^32 (c: the channels rounded up to an even
/// number), a Gaussian value is mean + deviation * sqrt(-2 ln a) * cos(b) for even i and sin(b) for odd ones, where
/// a = u(i') + 1e-12, b = 2 pi u(i' + 1), i' = i without its lowest bit, and u(i) = hash(s + i) / 2^32. A uniform one
/// is mean + deviation * sqrt(12) * (u(i) - 1/2). See NoiseFunctions.h for the hash and the rounding.
template <typename Image, typename Mean, typename Deviation>
class Noise : public ExprBaseTpl<Noise<Image, Mean, Deviation>> {
public:
  using ValueType = float;
  static constexpr bool hasLog = false;

  Noise(const Image& image, NoiseType type, int frame, Mean mean, Deviation deviation)
      : m_source(type, frame, image.descriptor()), m_mean(std::move(mean)), m_deviation(std::move(deviation)) {}

  ImageDescriptor imgDesc() const override { return m_source.shape; }
  int numImgs() const override { return 1; }
  int deviceStrategy() const override { return m_source.shape.channels() > 4 ? 0 : 2; }
  std::vector<const ExprInterface*> children() const override { return {&m_mean, &m_deviation}; }
  internal::GlExpr glExpr() const {
    return std::make_unique<internal::NoiseGl>(m_source, m_mean.glExpr(), m_deviation.glExpr());
  }

  class Evaluator {
  public:
    Evaluator(const Noise& node, const internal::EvaluationContext&)
        : m_source(node.m_source),
          m_mean(static_cast<float>(node.m_mean.value())),
          m_deviation(static_cast<float>(node.m_deviation.value())) {}
    void load(const internal::Block& block, int channel) {
      m_source.fill(block, channel, m_mean, m_deviation, m_values.data());
    }
    float operator[](int i) const { return m_values[static_cast<std::size_t>(i)]; }
    float exact(int i) const { return (*this)[i]; }

  private:
    internal::NoiseSource m_source;
    float m_mean;
    float m_deviation;
    internal::BlockValues<float> m_values;
  };

private:
  internal::NoiseSource m_source;
  Mean m_mean;
  Deviation m_deviation;
};

/// Noise for an image: `frame`, a frame counter, is the seed. The image's pixels aren't read, so it need not have any.
inline auto makeNoise(const SharedImage& image, NoiseType type, float mean, float deviation, int frame) {
  return Noise<SharedImage, Scalar<float>, Scalar<float>>(image, type, frame, Scalar<float>(mean),
                                                          Scalar<float>(deviation));
}

} // namespace Kelvaris::ImageMath
