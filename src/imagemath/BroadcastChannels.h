#pragma once

#include "imagemath/Block.h"
#include "imagemath/ExprBase.h"
#include "imagemath/GlExprInterface.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Kelvaris::ImageMath {
namespace internal {

/// A node whose channels are chosen from those of its operand.
class ChannelSwizzleViewBase {
public:
  explicit ChannelSwizzleViewBase(int channels) : m_channels(channels) {}

protected:
  /// Throws std::invalid_argument unless the operand has one channel and the result at least one.
  void checkBroadcast(const ImageDescriptor& operand) const {
    if (m_channels < 1 || operand.channels() != 1)
      throw std::invalid_argument(
          fmt::format("An expression of {} channels can't be repeated to {} channels; it must have 1, the result at "
                      "least 1",
                      operand.channels(), m_channels));
  }
  int m_channels;
};

class ChannelSwizzleGl : public GlExprInterface {
public:
  ChannelSwizzleGl(GlExpr operand, int channels) : m_operand(std::move(operand)), m_channels(channels) {}

  std::string evalString(bool stored) const override {
    return glType(m_channels) + "(" + m_operand->evalString(stored) + ")";
  }
  std::vector<const GlExprInterface*> children() const override { return {m_operand.get()}; }
  int channels() const override { return m_channels; }

private:
  GlExpr m_operand;
  int m_channels;
};

template <typename Operand>
class BroadcastChannelsTpl : public ExprBaseTpl<BroadcastChannelsTpl<Operand>>, private ChannelSwizzleViewBase {
public:
  using ValueType = typename Operand::ValueType;
  static constexpr bool hasLog = Operand::hasLog;

  BroadcastChannelsTpl(Operand operand, int channels)
      : ChannelSwizzleViewBase(channels), m_operand(std::move(operand)) {
    checkBroadcast(m_operand.imgDesc());
  }

  ImageDescriptor imgDesc() const override {
    ImageDescriptor descriptor = m_operand.imgDesc();
    descriptor.setChannels(m_channels);
    return descriptor;
  }
  int numImgs() const override { return m_operand.numImgs(); }
  int deviceStrategy() const override { return m_channels > 4 ? 0 : std::min(m_operand.deviceStrategy(), 2); }
  std::vector<const ExprInterface*> children() const override { return {&m_operand}; }
  GlExpr glExpr() const { return std::make_unique<ChannelSwizzleGl>(m_operand.glExpr(), m_channels); }

  /// Computes the operand once a pixel, whatever the number of channels.
  class Evaluator {
  public:
    Evaluator(const BroadcastChannelsTpl& node, const EvaluationContext& context)
        : m_operand(node.m_operand, context) {}
    void load(const Block& block, int) {
      if (m_loaded == block) return;
      m_operand.load(block, 0);
      for (int i = 0; i < block.count; ++i)
        m_values[static_cast<std::size_t>(i)] = m_operand[i];
      m_loaded = block;
    }
    ValueType operator[](int i) const { return m_values[static_cast<std::size_t>(i)]; }
    ValueType exact(int i) const { return m_operand.exact(i); }

  private:
    typename Operand::Evaluator m_operand;
    Block m_loaded;
    BlockValues<ValueType> m_values;
  };

private:
  Operand m_operand;
};

} // namespace internal

/// The operand, of one channel, repeated to `channels` channels. Throws std::invalid_argument for other operands.
template <Expression Operand> auto BroadcastChannels(const Operand& operand, int channels) {
  return internal::BroadcastChannelsTpl<Operand>(operand, channels);
}

} // namespace Kelvaris::ImageMath
