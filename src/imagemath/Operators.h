#pragma once

#include "imagemath/BinaryOp.h"
#include "imagemath/ExprBase.h"
#include "imagemath/ImgOps.h"
#include "imagemath/Scalar.h"
#include "imagemath/UnaryOp.h"

namespace Kelvaris::ImageMath {

/// Operands of an operation: expressions, of which one may be a plain number.
template <typename Lhs, typename Rhs>
concept Operands = (Expression<Lhs> && (Expression<Rhs> || Number<Rhs>)) || (Number<Lhs> && Expression<Rhs>);

namespace internal {

/// A number becomes a Scalar of its own type.
template <Expression Expr> const Expr& asExpression(const Expr& expr) {
  return expr;
}
template <Number T> Scalar<T> asExpression(T number) {
  return Scalar<T>(number);
}
template <typename T> using AsExpression = std::remove_cvref_t<decltype(asExpression(std::declval<const T&>()))>;

template <typename Op, typename Lhs, typename Rhs> auto makeBinary(const Lhs& lhs, const Rhs& rhs) {
  return BinaryOpTpl<Op, AsExpression<Lhs>, AsExpression<Rhs>>(asExpression(lhs), asExpression(rhs));
}
template <typename Op, typename Operand> auto makeUnary(const Operand& operand) {
  return UnaryOpTpl<Op, Operand>(operand);
}

} // namespace internal

template <typename Lhs, typename Rhs>
requires Operands<Lhs, Rhs>
auto operator+(const Lhs& lhs, const Rhs& rhs) {
  return internal::makeBinary<ImgOps::add>(lhs, rhs);
}
template <typename Lhs, typename Rhs>
requires Operands<Lhs, Rhs>
auto operator*(const Lhs& lhs, const Rhs& rhs) {
  return internal::makeBinary<ImgOps::mult>(lhs, rhs);
}
template <typename Lhs, typename Rhs>
requires Operands<Lhs, Rhs>
auto operator/(const Lhs& lhs, const Rhs& rhs) {
  return internal::makeBinary<ImgOps::divide>(lhs, rhs);
}
template <typename Lhs, typename Rhs>
requires Operands<Lhs, Rhs>
auto operator>(const Lhs& lhs, const Rhs& rhs) {
  return internal::makeBinary<ImgOps::greater>(lhs, rhs);
}
template <typename Lhs, typename Rhs>
requires Operands<Lhs, Rhs>
auto max(const Lhs& lhs, const Rhs& rhs) {
  return internal::makeBinary<ImgOps::max>(lhs, rhs);
}
template <typename Lhs, typename Rhs>
requires Operands<Lhs, Rhs>
auto min(const Lhs& lhs, const Rhs& rhs) {
  return internal::makeBinary<ImgOps::min>(lhs, rhs);
}
template <Expression Operand> auto abs(const Operand& operand) {
  return internal::makeUnary<ImgOps::abs>(operand);
}
template <Expression Operand> auto sqrt(const Operand& operand) {
  return internal::makeUnary<ImgOps::sqrt>(operand);
}
template <Expression Operand> auto log(const Operand& operand) {
  return internal::makeUnary<ImgOps::log>(operand);
}
template <Expression Operand> auto pow2(const Operand& operand) {
  return internal::makeUnary<ImgOps::pow2>(operand);
}

template <typename Derived>
template <typename Lower, typename Upper>
auto ExprBaseTpl<Derived>::clamp(const Lower& lower, const Upper& upper) const {
  return min(max(derived(), lower), upper);
}

} // namespace Kelvaris::ImageMath
