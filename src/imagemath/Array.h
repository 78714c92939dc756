#pragma once

#include "Lib/MemImage.h"
#include "Lib/SharedImage.h"
#include "imagemath/ArrayAccess.h"
#include "imagemath/Block.h"
#include "imagemath/Evaluation.h"
#include "imagemath/ExprBase.h"
#include "imagemath/GlExprInterface.h"
#include "imagemath/ImageReader.h"
#include "imagemath/InputLeaf.h"

#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace Kelvaris {
class GlImage;
}

namespace Kelvaris::ImageMath {
namespace internal {

/// 0 for images that a float texel can't hold: of doubles, of 32-bit integers, of more than four channels; otherwise 2.
int imageStrategy(const ImageDescriptor& descriptor);
/// Throws std::invalid_argument if the extents differ.
void checkSameExtent(const ImageDescriptor& image, const ImageDescriptor& target);

std::shared_ptr<const MemImage> memOf(const SharedImage& image);
std::shared_ptr<const MemImage> memOf(const MemImage& image); ///< not owned

/// A texture. That of a SharedImage is made when it is first needed and then stays with the image, until something else
/// in it is changed; that of an image in main memory is made for each evaluation.
class ArrayGl : public GlLeaf {
public:
  ArrayGl(SharedImage& image, const ArrayAccess& access) : m_target(&image), m_shared(&image), m_access(access) {}
  ArrayGl(const SharedImage& image, const ArrayAccess& access) : m_shared(&image), m_access(access) {}
  ArrayGl(const MemImage& image, const ArrayAccess& access) : m_mem(&image), m_access(access) {}

  std::string evalString(bool stored) const override;
  int channels() const override;

  /// Evaluates the expression, by a shader, into the SharedImage that this leaf stands for. False, with the reason in
  /// the log, if that isn't possible; main memory must do it then. Makes a context current for itself.
  bool assignGl(const GlExprInterface& expr) const;

  const void* image() const { return m_shared ? static_cast<const void*>(m_shared) : m_mem; }
  /// For masks, as texts: the sample's place in texture coordinates, and whether it isn't the border.
  std::string positionString() const;
  std::string isInsideString() const;

protected:
  TaggingIndex tag() const override;
  void defineUniforms(std::string& list) const override;
  void setUniforms(GL::Program& program) const override;

private:
  const ImageDescriptor& descriptor() const;
  bool isScaled() const;
  std::string pixelString() const;

  SharedImage* m_target = nullptr;
  const SharedImage* m_shared = nullptr;
  const MemImage* m_mem = nullptr;
  ArrayAccess m_access;
  mutable std::shared_ptr<const GlImage> m_texture; ///< from setArguments() on
};

} // namespace internal

/// A leaf on an image, or the target of an assignment. `Image` is SharedImage or TypedImage<T>, const or not.
///
/// A read gives the real value sample / scale - shift, as float if `ValueType` is float, else as double; a raw leaf
/// gives the sample. Without `Mapped` it is the sample at the pixel being computed, and the image must have the
/// target's extent. With `Mapped`, the offset is added to (x, y, z) and the axes are permuted: axis k of the image is
/// read at coordinate axes[k] of the sum. Then coordinates outside the image are pinned to its edge, so that an image
/// of extent 1 along an axis follows one of any extent; or, with clamp to border, they read the border's sample of the
/// channel. An image of one channel goes with any number of them.
template <typename Image, typename ValueType_ = void, bool Mapped = false>
class Array : public ExprBaseTpl<Array<Image, ValueType_, Mapped>>, public internal::InputLeaf {
public:
  using ValueType = std::conditional_t<std::is_same_v<ValueType_, float>, float, double>;
  static constexpr bool hasLog = false;

  explicit Array(Image& image) : m_image(&image), m_strategy(internal::imageStrategy(image.descriptor())) {
    m_access.mapped = Mapped;
  }
  /// Throws std::invalid_argument unless `axes` is a permutation of 0, 1, 2.
  Array(Image& image, const Eigen::Vector3i& offset, const Eigen::Vector3i& axes = {0, 1, 2}) requires Mapped
      : Array(image) {
    m_access.offset = offset;
    m_access.axes = axes;
    m_access.checkAxes();
  }
  Array(const Array&) = default;

  Image& image() const { return *m_image; }
  const std::string& name() const { return m_name; }
  void setName(std::string name) { m_name = std::move(name); }
  bool isRaw() const { return m_access.raw; }
  void setRaw(bool raw) { m_access.raw = raw; }

  /// GL values: nearest (9728, the default) or linear (9729), which are the same here since reads are at the samples'
  /// centres; clamp to edge (33071, the default) or clamp to border (33069). Throw std::invalid_argument for others.
  unsigned magFilter() const { return m_access.magFilter; }
  void setMagFilter(unsigned filter) {
    m_access.magFilter = filter;
    m_access.checkFilter();
  }
  unsigned wrap() const { return m_access.wrap; }
  void setWrap(unsigned wrap) {
    m_access.wrap = wrap;
    m_access.checkWrap();
  }
  /// What is read outside with clamp to border, one sample a channel, those from the fourth on the same.
  void setBorderColor(const Eigen::Vector4f& samples) { m_access.border = samples; }

  /// Evaluates the expression into the image, at all its pixels. A value is stored as (value + shift) x scale, or as it
  /// is if this leaf is raw; into integers rounded half away from zero, clamped to the type, NaN as 0. The image may
  /// occur in the expression.
  ///
  /// With the strategies of expression and target above 0, a SharedImage is evaluated by a shader, in 32-bit floats, if
  /// an OpenGL context is current on this thread or OpenGL runs on real hardware; it then lies in a texture, and so do
  /// the images it was made from. If that fails, the log says why, and it is evaluated like all others: in main memory,
  /// with more than 8 slices by all threads.
  ///
  /// Throws std::invalid_argument if shapes don't fit, and what the images' conversions between their forms throw.
  template <Expression Expr> Array& operator=(const Expr& expr) requires(!std::is_const_v<Image>) {
    internal::checkShapes(expr, m_image->descriptor());
    if constexpr (std::is_same_v<Image, SharedImage>) {
      if (expr.deviceStrategy() != 0 && m_strategy != 0 && internal::shadersAreUsed() &&
          internal::ArrayGl(*m_image, m_access).assignGl(*expr.glExpr()))
        return *this;
      internal::MemTarget target(*m_image, internal::isReadElsewhere(expr, m_image));
      internal::evaluateInMem(expr, target.mem(), m_access.raw);
      target.finish();
    } else {
      internal::evaluateInMem(expr, *m_image, m_access.raw);
    }
    return *this;
  }
  Array& operator=(const Array& other) requires(!std::is_const_v<Image>) {
    if (this == &other) return *this;
    return operator=<Array>(other);
  }

  ImageDescriptor imgDesc() const override { return m_image->descriptor(); }
  int numImgs() const override { return 1; }
  int deviceStrategy() const override { return m_strategy; }
  std::vector<const ExprInterface*> children() const override { return {}; }
  std::unique_ptr<internal::ArrayGl> glExpr() const { return std::make_unique<internal::ArrayGl>(*m_image, m_access); }

  const void* inputImage() const override { return m_image; }
  bool isMapped() const override { return Mapped; }
  void checkShape(const ImageDescriptor& target) const override {
    if (!Mapped) internal::checkSameExtent(imgDesc(), target);
  }
  void bringToMem() const override { internal::memOf(*m_image); }
  const internal::ArrayAccess& access() const { return m_access; }

  class Evaluator {
  public:
    Evaluator(const Array& node, const internal::EvaluationContext&)
        : m_reader(internal::memOf(*node.m_image), node.m_access),
          m_hasOneChannel(node.m_image->descriptor().channels() == 1) {}
    void load(const internal::Block& block, int channel) {
      if (m_hasOneChannel && m_loaded == block) return;
      m_reader.read(block, channel, m_values.data());
      m_loaded = block;
    }
    ValueType operator[](int i) const { return m_values[static_cast<std::size_t>(i)]; }
    ValueType exact(int i) const { return (*this)[i]; }

  private:
    internal::ImageReader m_reader;
    bool m_hasOneChannel;
    internal::Block m_loaded;
    internal::BlockValues<ValueType> m_values;
  };

private:
  Image* m_image;
  internal::ArrayAccess m_access;
  std::string m_name = "uninitialized";
  int m_strategy;
};

template <typename Image> Array(Image&) -> Array<Image>;

} // namespace Kelvaris::ImageMath
