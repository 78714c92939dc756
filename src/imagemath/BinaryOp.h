#pragma once

#include "imagemath/Block.h"
#include "imagemath/CombineImageDescriptors.h"
#include "imagemath/ExprBase.h"
#include "imagemath/GlExprInterface.h"
#include "imagemath/ImgOps.h"
#include "imagemath/InputLeaf.h"

#include <algorithm>
#include <type_traits>
#include <utility>
#include <vector>

namespace Kelvaris::ImageMath::internal {

using BinaryText = std::string (*)(const std::string&, const std::string&);

class BinaryOpGl : public GlExprInterface {
public:
  BinaryOpGl(BinaryText text, GlExpr lhs, GlExpr rhs) : m_text(text), m_lhs(std::move(lhs)), m_rhs(std::move(rhs)) {}

  std::string evalString(bool stored) const override {
    return m_text(m_lhs->evalString(stored), m_rhs->evalString(stored));
  }
  std::vector<const GlExprInterface*> children() const override { return {m_lhs.get(), m_rhs.get()}; }
  int channels() const override { return std::max(m_lhs->channels(), m_rhs->channels()); }

private:
  BinaryText m_text;
  GlExpr m_lhs;
  GlExpr m_rhs;
};

/// Values of two types are widened to the wider one, as C++ does. An operand of one channel goes with each channel of
/// the other.
template <typename Op, typename Lhs, typename Rhs> class BinaryOpTpl : public ExprBaseTpl<BinaryOpTpl<Op, Lhs, Rhs>> {
  using Common = std::common_type_t<typename Lhs::ValueType, typename Rhs::ValueType>;
  static_assert(!std::is_same_v<typename Lhs::ValueType, bool> && !std::is_same_v<typename Rhs::ValueType, bool>,
                "a comparison is only good for Select");

public:
  using ValueType = decltype(Op::apply(Common(), Common()));
  static constexpr bool hasLog = Lhs::hasLog || Rhs::hasLog;

  BinaryOpTpl(Lhs lhs, Rhs rhs) : m_lhs(std::move(lhs)), m_rhs(std::move(rhs)) {}

  ImageDescriptor imgDesc() const override {
    return combineImageDescriptors({m_lhs.imgDesc(), m_rhs.imgDesc()}, false, std::nullopt);
  }
  int numImgs() const override { return std::max(m_lhs.numImgs(), m_rhs.numImgs()); }
  int deviceStrategy() const override { return combinedStrategy(children()); }
  std::vector<const ExprInterface*> children() const override { return {&m_lhs, &m_rhs}; }
  GlExpr glExpr() const { return std::make_unique<BinaryOpGl>(&Op::evalString, m_lhs.glExpr(), m_rhs.glExpr()); }

  class Evaluator {
  public:
    Evaluator(const BinaryOpTpl& node, const EvaluationContext& context)
        : m_lhs(node.m_lhs, context), m_rhs(node.m_rhs, context) {}
    void load(const Block& block, int channel) {
      m_lhs.load(block, channel);
      m_rhs.load(block, channel);
    }
    ValueType operator[](int i) const {
      return Op::apply(static_cast<Common>(m_lhs[i]), static_cast<Common>(m_rhs[i]));
    }
    ValueType exact(int i) const {
      return Op::apply(static_cast<Common>(m_lhs.exact(i)), static_cast<Common>(m_rhs.exact(i)));
    }

  private:
    typename Lhs::Evaluator m_lhs;
    typename Rhs::Evaluator m_rhs;
  };

private:
  Lhs m_lhs;
  Rhs m_rhs;
};

} // namespace Kelvaris::ImageMath::internal
