#pragma once

#include "imagemath/Block.h"
#include "imagemath/ExprBase.h"
#include "imagemath/GlExprInterface.h"

#include <memory>
#include <string>
#include <type_traits>
#include <vector>

namespace Kelvaris::ImageMath {

template <typename T>
concept Number = std::is_same_v<T, int> || std::is_same_v<T, float> || std::is_same_v<T, double>;

namespace internal {

/// A uniform of the type float, whatever the number's type.
class ScalarGl : public GlLeaf {
public:
  ScalarGl(std::string typeName, double value) : m_typeName(std::move(typeName)), m_value(value) {}

  std::string evalString(bool) const override { return name(); }
  int channels() const override { return 1; }

protected:
  TaggingIndex tag() const override;
  void defineUniforms(std::string& list) const override;
  void setUniforms(GL::Program& program) const override;

private:
  std::string m_typeName;
  double m_value;
};

} // namespace internal

/// A constant. In main memory it keeps its own type, without widening; in a shader all are floats.
template <typename T> class Scalar : public ExprBaseTpl<Scalar<T>> {
  static_assert(Number<T>);

public:
  using ValueType = T;
  static constexpr bool hasLog = false;

  explicit Scalar(T value) : m_value(value) {}
  T value() const { return m_value; }

  ImageDescriptor imgDesc() const override { return {}; }
  int numImgs() const override { return 0; }
  int deviceStrategy() const override { return 2; }
  std::vector<const ExprInterface*> children() const override { return {}; }
  internal::GlExpr glExpr() const {
    const char* const typeName = std::is_same_v<T, int> ? "int" : std::is_same_v<T, float> ? "float" : "double";
    return std::make_unique<internal::ScalarGl>(typeName, static_cast<double>(m_value));
  }

  class Evaluator {
  public:
    Evaluator(const Scalar& node, const internal::EvaluationContext&) : m_value(node.m_value) {}
    void load(const internal::Block&, int) {}
    T operator[](int) const { return m_value; }
    T exact(int) const { return m_value; }

  private:
    T m_value;
  };

private:
  T m_value;
};

} // namespace Kelvaris::ImageMath
