#pragma once

#include "imagemath/VectorLog.h"

#include <cmath>
#include <string>

/// The operations of expressions. Each gives its result for values in main memory, and the text that says the same in a
/// shader; the shader's prelude makes functions of these names treat NaN and infinities as C++ does.
namespace Kelvaris::ImageMath::ImgOps {

struct add {
  template <typename T> static auto apply(T a, T b) { return a + b; }
  static std::string evalString(const std::string& a, const std::string& b) { return "(" + a + ")+(" + b + ")"; }
};

struct mult {
  template <typename T> static auto apply(T a, T b) { return a * b; }
  static std::string evalString(const std::string& a, const std::string& b) { return "(" + a + ")*(" + b + ")"; }
};

struct divide {
  template <typename T> static auto apply(T a, T b) { return a / b; }
  static std::string evalString(const std::string& a, const std::string& b) { return "(" + a + ")/(" + b + ")"; }
};

/// The first operand if either is NaN, as std::max.
struct max {
  template <typename T> static T apply(T a, T b) { return a < b ? b : a; }
  static std::string evalString(const std::string& a, const std::string& b) { return "max((" + a + "), (" + b + "))"; }
};

/// The first operand if either is NaN, as std::min.
struct min {
  template <typename T> static T apply(T a, T b) { return b < a ? b : a; }
  static std::string evalString(const std::string& a, const std::string& b) { return "min((" + a + "), (" + b + "))"; }
};

struct greater {
  template <typename T> static bool apply(T a, T b) { return a > b; }
  static std::string evalString(const std::string& a, const std::string& b) {
    return "greaterThan((" + a + "), (" + b + "))";
  }
};

struct abs {
  template <typename T> static T apply(T a) { return std::abs(a); }
  static std::string evalString(const std::string& a) { return "abs(" + a + ")"; }
};

struct sqrt {
  template <typename T> static auto apply(T a) { return std::sqrt(a); }
  static std::string evalString(const std::string& a) { return "sqrt(" + a + ")"; }
};

/// Natural logarithm.
struct log {
  template <typename T> static auto apply(T a) { return std::log(a); }
  /// For many values at once, within one unit in the last place; `count` is a multiple of 4.
  static void applyToBlock(double* values, std::size_t count) { vectorLog(values, count); }
  static std::string evalString(const std::string& a) { return "log(" + a + ")"; }
};

struct pow2 {
  template <typename T> static auto apply(T a) { return a * a; }
  static std::string evalString(const std::string& a) { return "(" + a + ")*(" + a + ")"; }
};

} // namespace Kelvaris::ImageMath::ImgOps
