#pragma once

#include "imagemath/ExprBase.h"
#include "imagemath/GlExprInterface.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace Kelvaris::ImageMath {
namespace internal {

class DeviceStrategyWrapperGl : public GlExprInterface {
public:
  explicit DeviceStrategyWrapperGl(GlExpr operand) : m_operand(std::move(operand)) {}

  std::string evalString(bool stored) const override { return m_operand->evalString(stored); }
  std::vector<const GlExprInterface*> children() const override { return {m_operand.get()}; }
  int channels() const override { return m_operand->channels(); }

private:
  GlExpr m_operand;
};

template <typename Operand> class DeviceStrategyWrapperTpl : public ExprBaseTpl<DeviceStrategyWrapperTpl<Operand>> {
public:
  using ValueType = typename Operand::ValueType;
  using Evaluator = typename Operand::Evaluator;
  static constexpr bool hasLog = Operand::hasLog;

  DeviceStrategyWrapperTpl(Operand operand, int strategy) : m_operand(std::move(operand)), m_strategy(strategy) {}
  operator const Operand&() const { return m_operand; } ///< what its evaluator is made from

  ImageDescriptor imgDesc() const override { return m_operand.imgDesc(); }
  int numImgs() const override { return m_operand.numImgs(); }
  int deviceStrategy() const override { return std::min({m_strategy, m_operand.deviceStrategy(), 2}); }
  std::vector<const ExprInterface*> children() const override { return {&m_operand}; }
  GlExpr glExpr() const { return std::make_unique<DeviceStrategyWrapperGl>(m_operand.glExpr()); }

private:
  Operand m_operand;
  int m_strategy;
};

} // namespace internal

/// The operand with a strategy of its own: 0 keeps the expression around it in main memory.
template <Expression Operand> auto DeviceStrategyWrapper(const Operand& operand, int strategy) {
  return internal::DeviceStrategyWrapperTpl<Operand>(operand, strategy);
}

} // namespace Kelvaris::ImageMath
