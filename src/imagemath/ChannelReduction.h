#pragma once

#include "imagemath/BinaryOp.h"
#include "imagemath/Block.h"
#include "imagemath/ExprBase.h"
#include "imagemath/GlExprInterface.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace Kelvaris::ImageMath {
namespace internal {

class ChannelReductionGl : public GlExprInterface {
public:
  ChannelReductionGl(BinaryText text, GlExpr operand) : m_text(text), m_operand(std::move(operand)) {}

  std::string evalString(bool stored) const override;
  std::vector<const GlExprInterface*> children() const override { return {m_operand.get()}; }
  int channels() const override { return 1; }

private:
  BinaryText m_text;
  GlExpr m_operand;
};

template <typename Op, typename Operand>
class ChannelReductionTpl : public ExprBaseTpl<ChannelReductionTpl<Op, Operand>> {
public:
  using ValueType = decltype(Op::apply(typename Operand::ValueType(), typename Operand::ValueType()));
  static constexpr bool hasLog = false; ///< none that could be computed anew for one pixel

  explicit ChannelReductionTpl(Operand operand) : m_operand(std::move(operand)) {}

  ImageDescriptor imgDesc() const override {
    ImageDescriptor descriptor = m_operand.imgDesc();
    descriptor.setChannels(1);
    return descriptor;
  }
  int numImgs() const override { return m_operand.numImgs(); }
  int deviceStrategy() const override { return std::min(m_operand.deviceStrategy(), 2); }
  std::vector<const ExprInterface*> children() const override { return {&m_operand}; }
  GlExpr glExpr() const { return std::make_unique<ChannelReductionGl>(&Op::evalString, m_operand.glExpr()); }

  class Evaluator {
  public:
    Evaluator(const ChannelReductionTpl& node, const EvaluationContext& context)
        : m_operand(node.m_operand, context), m_channels(node.m_operand.imgDesc().channels()) {}
    void load(const Block& block, int) {
      if (m_loaded == block) return;
      m_operand.load(block, 0);
      for (int i = 0; i < block.count; ++i)
        m_values[static_cast<std::size_t>(i)] = m_operand[i];
      for (int channel = 1; channel < m_channels; ++channel) {
        m_operand.load(block, channel);
        for (int i = 0; i < block.count; ++i)
          m_values[static_cast<std::size_t>(i)] =
              Op::apply(m_values[static_cast<std::size_t>(i)], static_cast<ValueType>(m_operand[i]));
      }
      m_loaded = block;
    }
    ValueType operator[](int i) const { return m_values[static_cast<std::size_t>(i)]; }
    ValueType exact(int i) const { return (*this)[i]; }

  private:
    typename Operand::Evaluator m_operand;
    int m_channels;
    Block m_loaded;
    BlockValues<ValueType> m_values;
  };

private:
  Operand m_operand;
};

} // namespace internal

/// The channels of each pixel folded into one by an operation of ImgOps, from the first to the last.
template <typename Op, Expression Operand> auto ChannelReduction(const Operand& operand) {
  return internal::ChannelReductionTpl<Op, Operand>(operand);
}

} // namespace Kelvaris::ImageMath
