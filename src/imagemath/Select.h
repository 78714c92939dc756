#pragma once

#include "imagemath/Block.h"
#include "imagemath/CombineImageDescriptors.h"
#include "imagemath/ExprBase.h"
#include "imagemath/GlExprInterface.h"
#include "imagemath/InputLeaf.h"
#include "imagemath/Operators.h"

#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

namespace Kelvaris::ImageMath {
namespace internal {

class SelectGl : public GlExprInterface {
public:
  SelectGl(GlExpr condition, GlExpr lhs, GlExpr rhs)
      : m_condition(std::move(condition)), m_lhs(std::move(lhs)), m_rhs(std::move(rhs)) {}

  std::string evalString(bool stored) const override;
  std::vector<const GlExprInterface*> children() const override {
    return {m_condition.get(), m_lhs.get(), m_rhs.get()};
  }
  int channels() const override;

private:
  GlExpr m_condition;
  GlExpr m_lhs;
  GlExpr m_rhs;
};

template <typename Condition, typename Lhs, typename Rhs>
class SelectTpl : public ExprBaseTpl<SelectTpl<Condition, Lhs, Rhs>> {
  static_assert(std::is_same_v<typename Condition::ValueType, bool>, "the condition must be a comparison");

public:
  using ValueType = std::common_type_t<typename Lhs::ValueType, typename Rhs::ValueType>;
  static constexpr bool hasLog = Condition::hasLog || Lhs::hasLog || Rhs::hasLog;

  SelectTpl(Condition condition, Lhs lhs, Rhs rhs)
      : m_condition(std::move(condition)), m_lhs(std::move(lhs)), m_rhs(std::move(rhs)) {}

  ImageDescriptor imgDesc() const override {
    return combineImageDescriptors({m_condition.imgDesc(), m_lhs.imgDesc(), m_rhs.imgDesc()}, false, std::nullopt);
  }
  int numImgs() const override { return std::max({m_condition.numImgs(), m_lhs.numImgs(), m_rhs.numImgs()}); }
  int deviceStrategy() const override { return combinedStrategy(children()); }
  std::vector<const ExprInterface*> children() const override { return {&m_condition, &m_lhs, &m_rhs}; }
  GlExpr glExpr() const { return std::make_unique<SelectGl>(m_condition.glExpr(), m_lhs.glExpr(), m_rhs.glExpr()); }

  class Evaluator {
  public:
    Evaluator(const SelectTpl& node, const EvaluationContext& context)
        : m_condition(node.m_condition, context), m_lhs(node.m_lhs, context), m_rhs(node.m_rhs, context) {}
    void load(const Block& block, int channel) {
      m_condition.load(block, channel);
      m_lhs.load(block, channel);
      m_rhs.load(block, channel);
    }
    ValueType operator[](int i) const {
      const auto lhs = static_cast<ValueType>(m_lhs[i]), rhs = static_cast<ValueType>(m_rhs[i]);
      return m_condition[i] ? lhs : rhs;
    }
    ValueType exact(int i) const {
      return m_condition.exact(i) ? static_cast<ValueType>(m_lhs.exact(i)) : static_cast<ValueType>(m_rhs.exact(i));
    }

  private:
    typename Condition::Evaluator m_condition;
    typename Lhs::Evaluator m_lhs;
    typename Rhs::Evaluator m_rhs;
  };

private:
  Condition m_condition;
  Lhs m_lhs;
  Rhs m_rhs;
};

} // namespace internal

/// Pixel by pixel, `lhs` where the condition (a comparison) is true and `rhs` where it is false; both may be numbers.
template <Expression Condition, typename Lhs, typename Rhs>
auto Select(const Condition& condition, const Lhs& lhs, const Rhs& rhs) {
  return internal::SelectTpl<Condition, internal::AsExpression<Lhs>, internal::AsExpression<Rhs>>(
      condition, internal::asExpression(lhs), internal::asExpression(rhs));
}

} // namespace Kelvaris::ImageMath
