#pragma once

#include "GL/MaskInclude.h"
#include "Lib/Mask.h"
#include "imagemath/Array.h"
#include "imagemath/Block.h"
#include "imagemath/ExprBase.h"
#include "imagemath/GlExprInterface.h"
#include "imagemath/ImageReader.h"

#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Kelvaris::ImageMath {
namespace internal {

/// The mask's own piece of GLSL, asked with the texel that an ArrayGl reads.
class MaskLeafGl : public GlLeaf {
public:
  MaskLeafGl(std::unique_ptr<ArrayGl> array, const std::shared_ptr<const Mask>& mask)
      : m_array(std::move(array)), m_mask(mask), m_include(GL::maskInclude(mask)) {}

  std::string evalString(bool stored) const override;
  std::vector<const GlExprInterface*> children() const override { return {m_array.get()}; }
  int channels() const override { return 1; }

protected:
  TaggingIndex tag() const override;
  void defineUniforms(std::string& list) const override;
  void setUniforms(GL::Program& program) const override;

private:
  std::unique_ptr<ArrayGl> m_array;
  std::shared_ptr<const Mask> m_mask;
  std::shared_ptr<const GL::AbstractInclude> m_include;
};

} // namespace internal

/// 1 where the mask calls the pixel that `array` reads valid, 0 elsewhere; 0 on a border.
template <typename ArrayType> class MaskLeaf : public ExprBaseTpl<MaskLeaf<ArrayType>>, public internal::InputLeaf {
public:
  using ValueType = double;
  static constexpr bool hasLog = false;

  /// Throws std::invalid_argument, "No mask provided!", for a null mask.
  MaskLeaf(const ArrayType& array, std::shared_ptr<const Mask> mask) : m_array(array), m_mask(std::move(mask)) {
    if (!m_mask) throw std::invalid_argument("No mask provided!");
  }

  ImageDescriptor imgDesc() const override {
    ImageDescriptor descriptor = m_array.imgDesc();
    descriptor.setChannels(1);
    return descriptor;
  }
  int numImgs() const override { return m_array.numImgs(); }
  int deviceStrategy() const override {
    return m_mask->deviceStrategy() == 0 || !GL::maskInclude(m_mask) ? 0 : m_array.deviceStrategy();
  }
  std::vector<const ExprInterface*> children() const override { return {&m_array}; }
  internal::GlExpr glExpr() const { return std::make_unique<internal::MaskLeafGl>(m_array.glExpr(), m_mask); }

  const void* inputImage() const override { return m_array.inputImage(); }
  bool isMapped() const override { return m_array.isMapped(); }
  void checkShape(const ImageDescriptor& target) const override { m_array.checkShape(target); }
  void bringToMem() const override { m_array.bringToMem(); }

  class Evaluator {
  public:
    Evaluator(const MaskLeaf& node, const internal::EvaluationContext&)
        : m_reader(internal::memOf(node.m_array.image()), node.m_array.access()), m_mask(node.m_mask) {}
    void load(const internal::Block& block, int) {
      if (m_loaded == block) return;
      m_reader.readMask(*m_mask, block, m_values.data());
      m_loaded = block;
    }
    double operator[](int i) const { return m_values[static_cast<std::size_t>(i)]; }
    double exact(int i) const { return (*this)[i]; }

  private:
    internal::ImageReader m_reader;
    std::shared_ptr<const Mask> m_mask;
    internal::Block m_loaded;
    internal::BlockValues<double> m_values;
  };

private:
  ArrayType m_array;
  std::shared_ptr<const Mask> m_mask;
};

/// The mask of the array's image, or another one for it. Throws std::invalid_argument, "No mask provided!", without
/// one.
template <typename ArrayType> auto makeMaskLeaf(const ArrayType& array, std::shared_ptr<const Mask> mask) {
  return MaskLeaf<ArrayType>(array, std::move(mask));
}
template <typename ArrayType> auto makeMaskLeaf(const ArrayType& array) {
  return MaskLeaf<ArrayType>(array, array.image().mask());
}

} // namespace Kelvaris::ImageMath
