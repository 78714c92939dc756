#pragma once

#include "imagemath/Block.h"
#include "imagemath/ExprBase.h"
#include "imagemath/GlExprInterface.h"
#include "imagemath/ImgOps.h"

#include <algorithm>
#include <type_traits>
#include <utility>
#include <vector>

namespace Kelvaris::ImageMath::internal {

/// An operation that is quicker for many values at once.
template <typename Op>
concept BlockOperation = requires(double* values) {
  Op::applyToBlock(values, std::size_t{4});
};

/// The text of an operation for the texts of its operands.
using UnaryText = std::string (*)(const std::string&);

class UnaryOpGl : public GlExprInterface {
public:
  UnaryOpGl(UnaryText text, GlExpr operand) : m_text(text), m_operand(std::move(operand)) {}

  std::string evalString(bool stored) const override { return m_text(m_operand->evalString(stored)); }
  std::vector<const GlExprInterface*> children() const override { return {m_operand.get()}; }
  int channels() const override { return m_operand->channels(); }

private:
  UnaryText m_text;
  GlExpr m_operand;
};

template <typename Op, typename Operand> class UnaryOpTpl : public ExprBaseTpl<UnaryOpTpl<Op, Operand>> {
  static_assert(!std::is_same_v<typename Operand::ValueType, bool>, "a comparison is only good for Select");

public:
  using ValueType = decltype(Op::apply(std::declval<typename Operand::ValueType>()));
  static constexpr bool hasLog = BlockOperation<Op> || Operand::hasLog;

  explicit UnaryOpTpl(Operand operand) : m_operand(std::move(operand)) {}

  ImageDescriptor imgDesc() const override { return m_operand.imgDesc(); }
  int numImgs() const override { return m_operand.numImgs(); }
  int deviceStrategy() const override { return std::min(m_operand.deviceStrategy(), 2); }
  std::vector<const ExprInterface*> children() const override { return {&m_operand}; }
  GlExpr glExpr() const { return std::make_unique<UnaryOpGl>(&Op::evalString, m_operand.glExpr()); }

  /// load() makes the values of one channel of a block ready; then [] gives them by the pixel's place within the block.
  /// exact() does, too, with the standard library's logarithm.
  class Evaluator {
  public:
    Evaluator(const UnaryOpTpl& node, const EvaluationContext& context) : m_operand(node.m_operand, context) {}
    void load(const Block& block, int channel) {
      m_operand.load(block, channel);
      if constexpr (BlockOperation<Op>) {
        for (int i = 0; i < block.count; ++i)
          m_values[static_cast<std::size_t>(i)] = static_cast<double>(m_operand[i]);
        const int padded = (block.count + 3) / 4 * 4;
        std::fill(m_values.begin() + block.count, m_values.begin() + padded, 1.0);
        Op::applyToBlock(m_values.data(), static_cast<std::size_t>(padded));
      }
    }
    ValueType operator[](int i) const {
      if constexpr (BlockOperation<Op>)
        return static_cast<ValueType>(m_values[static_cast<std::size_t>(i)]);
      else
        return Op::apply(m_operand[i]);
    }
    ValueType exact(int i) const { return Op::apply(m_operand.exact(i)); }

  private:
    struct Nothing {};
    typename Operand::Evaluator m_operand;
    [[no_unique_address]] std::conditional_t<BlockOperation<Op>, BlockValues<double>, Nothing> m_values;
  };

private:
  Operand m_operand;
};

} // namespace Kelvaris::ImageMath::internal
