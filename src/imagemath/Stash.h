#pragma once

#include "imagemath/Block.h"
#include "imagemath/CombineImageDescriptors.h"
#include "imagemath/ExprBase.h"
#include "imagemath/GlExprInterface.h"
#include "imagemath/InputLeaf.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

namespace Kelvaris::ImageMath {
namespace internal {

/// The parameter "varval" of the function that StashGl writes.
class VariableGl : public GlExprInterface {
public:
  explicit VariableGl(int channels) : m_channels(channels) {}
  std::string evalString(bool stored) const override;
  int channels() const override { return m_channels; }

private:
  int m_channels;
};

/// Writes the cheap expression as a function of the expensive one's value.
class StashGl : public GlLeaf {
public:
  StashGl(GlExpr cheap, GlExpr expensive) : m_cheap(std::move(cheap)), m_expensive(std::move(expensive)) {}

  std::string evalString(bool stored) const override;
  void getVariableDefinitionList(std::string& list) const override;
  std::vector<const GlExprInterface*> children() const override { return {m_expensive.get(), m_cheap.get()}; }
  int channels() const override { return m_cheap->channels(); }

protected:
  TaggingIndex tag() const override;
  void defineUniforms(std::string&) const override {}
  void setUniforms(GL::Program&) const override {}

private:
  GlExpr m_cheap;
  GlExpr m_expensive;
};

/// The values of all channels of the expensive expression at one block.
template <typename V> struct StashSlot { std::vector<BlockValues<V>> channels; };

/// Throws std::logic_error outside of a stash.
const void* insideStash(const EvaluationContext& context);

/// Stands for the result of the expensive expression of the stash around it, the innermost one.
template <typename V> class StashVariable : public ExprBaseTpl<StashVariable<V>> {
public:
  using ValueType = V;
  static constexpr bool hasLog = false;

  /// A variable for results like this one.
  StashVariable(const ImageDescriptor& shape, int numImgs) : m_shape(shape), m_numImgs(numImgs) {}

  ImageDescriptor imgDesc() const override { return m_shape; }
  int numImgs() const override { return m_numImgs; }
  int deviceStrategy() const override { return 2; }
  std::vector<const ExprInterface*> children() const override { return {}; }
  GlExpr glExpr() const { return std::make_unique<VariableGl>(m_shape.channels()); }

  class Evaluator {
  public:
    Evaluator(const StashVariable&, const EvaluationContext& context)
        : m_slot(*static_cast<const StashSlot<V>*>(insideStash(context))) {}
    void load(const Block&, int channel) {
      m_values = m_slot.channels[std::min(static_cast<std::size_t>(channel), m_slot.channels.size() - 1)].data();
    }
    V operator[](int i) const { return m_values[i]; }
    V exact(int i) const { return m_values[i]; }

  private:
    const StashSlot<V>& m_slot;
    const V* m_values = nullptr;
  };

private:
  ImageDescriptor m_shape;
  int m_numImgs;
};

template <typename Cheap, typename Expensive> class StashTpl : public ExprBaseTpl<StashTpl<Cheap, Expensive>> {
  static_assert(!std::is_same_v<typename Expensive::ValueType, bool>, "a comparison is only good for Select");

public:
  using ValueType = typename Cheap::ValueType;
  static constexpr bool hasLog = Cheap::hasLog;

  StashTpl(Cheap cheap, Expensive expensive) : m_cheap(std::move(cheap)), m_expensive(std::move(expensive)) {}

  ImageDescriptor imgDesc() const override {
    const ImageDescriptor cheap = m_cheap.imgDesc();
    return cheap.isValid() ? cheap : m_expensive.imgDesc();
  }
  int numImgs() const override { return std::max(m_cheap.numImgs(), m_expensive.numImgs()); }
  int deviceStrategy() const override { return combinedStrategy(children()); }
  std::vector<const ExprInterface*> children() const override { return {&m_cheap, &m_expensive}; }
  GlExpr glExpr() const { return std::make_unique<StashGl>(m_cheap.glExpr(), m_expensive.glExpr()); }

  class Evaluator {
  public:
    Evaluator(const StashTpl& node, const EvaluationContext& context)
        : m_slot{std::vector<BlockValues<typename Expensive::ValueType>>(
              static_cast<std::size_t>(node.m_expensive.imgDesc().channels()))},
          m_expensive(node.m_expensive, context),
          m_cheap(node.m_cheap, {context.target, &m_slot}) {}
    Evaluator(const Evaluator&) = delete;
    Evaluator& operator=(const Evaluator&) = delete;
    void load(const Block& block, int channel) {
      if (m_loaded != block)
        for (std::size_t c = 0; c < m_slot.channels.size(); ++c) {
          m_expensive.load(block, static_cast<int>(c));
          for (int i = 0; i < block.count; ++i)
            m_slot.channels[c][static_cast<std::size_t>(i)] = m_expensive[i];
        }
      m_loaded = block;
      m_cheap.load(block, channel);
    }
    ValueType operator[](int i) const { return m_cheap[i]; }
    ValueType exact(int i) const { return m_cheap.exact(i); }

  private:
    Block m_loaded;
    StashSlot<typename Expensive::ValueType> m_slot;
    typename Expensive::Evaluator m_expensive;
    typename Cheap::Evaluator m_cheap;
  };

private:
  Cheap m_cheap;
  Expensive m_expensive;
};

} // namespace internal

/// An expression that uses the result of an expensive one several times: `cheap` makes it from a variable that stands
/// for that result, which is computed once.
///
///   Stash(sqrt(x), [](auto root) { return root * root + root; })
template <Expression Expensive, typename MakeCheap> auto Stash(const Expensive& expensive, const MakeCheap& cheap) {
  const internal::StashVariable<typename Expensive::ValueType> variable(expensive.imgDesc(), expensive.numImgs());
  return internal::StashTpl<decltype(cheap(variable)), Expensive>(cheap(variable), expensive);
}

} // namespace Kelvaris::ImageMath
