#pragma once

#include "Core/Properties.h"

#include <string>

namespace Kelvaris {

class MemImage;

/// Tells which pixels of an image are valid.
class Mask {
public:
  virtual ~Mask() = default;

  /// 0 if only main memory can be asked, through evaluate(); otherwise shaders can be, too (GL::maskInclude).
  virtual int deviceStrategy() const = 0;
  /// Writes 1 for a valid and 0 for an invalid pixel, for the `count` pixels of one row from (x, y, z) on. `image` is
  /// the one that the mask belongs to. May run on several threads at once.
  virtual void evaluate(const MemImage& image, int x, int y, int z, int count, unsigned char* valid) const = 0;

  /// The id under which the MaskFactory makes this kind of mask; empty for one that can't be made anew.
  virtual std::string id() const { return {}; }
  /// What, with the descriptor of its image, makes the mask anew.
  virtual Properties configuration() const { return {}; }
};

} // namespace Kelvaris
