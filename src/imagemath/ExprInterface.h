#pragma once

#include "Lib/ImageDescriptor.h"

#include <vector>

namespace Kelvaris::ImageMath {

/// What a node of an expression tells about itself at run time.
class ExprInterface {
public:
  virtual ~ExprInterface() = default;
  /// The shape of the node's result; invalid for one that has no shape of its own (a number).
  virtual ImageDescriptor imgDesc() const = 0;
  /// Images of the result; 0 for a number.
  virtual int numImgs() const = 0;
  /// 0 if the node can only be evaluated in main memory, otherwise 1 or 2: shaders can evaluate it, too.
  virtual int deviceStrategy() const = 0;
  virtual std::vector<const ExprInterface*> children() const = 0;

protected:
  ExprInterface() = default;
  ExprInterface(const ExprInterface&) = default;
  ExprInterface& operator=(const ExprInterface&) = default;
};

} // namespace Kelvaris::ImageMath
