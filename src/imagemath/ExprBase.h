#pragma once

#include "Lib/SharedImage.h"
#include "imagemath/ExprInterface.h"

#include <concepts>
#include <memory>

namespace Kelvaris::ImageMath {

namespace internal {
class GlExprInterface;
}

/// The base of all nodes of expressions. `Derived` has
///
///   ValueType            the type of its values in main memory: int, float, double, or bool for a comparison
///   hasLog               whether there is a logarithm in it
///   Evaluator            computes its values, block by block (see UnaryOp.h), made from the node and an
///                        EvaluationContext; each thread has its own
///   glExpr()             its counterpart that writes the shader
///
/// Nodes are values: a tree holds copies of its operands. Only leaves on images refer to something outside, their
/// image, which must outlive the expression.
template <typename Derived> class ExprBaseTpl : public ExprInterface {
public:
  /// min(max(x, lower), upper).
  template <typename Lower, typename Upper> auto clamp(const Lower& lower, const Upper& upper) const;

  /// Evaluates the expression into a new image of its shape and of the pixel type of T; with `normalize` its shift is 0
  /// and its scale 1. See Array::operator= for where that happens and what it throws.
  template <typename T> std::unique_ptr<SharedImage> evaluateIntoImage(bool normalize) const;

private:
  const Derived& derived() const { return static_cast<const Derived&>(*this); }
};

template <typename T>
concept Expression = std::derived_from<T, ExprInterface>;

} // namespace Kelvaris::ImageMath
