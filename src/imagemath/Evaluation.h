#pragma once

#include "Lib/MemImage.h"
#include "Lib/SharedImage.h"
#include "imagemath/Block.h"
#include "imagemath/ExprInterface.h"
#include "imagemath/InputLeaf.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <type_traits>
#include <vector>

/// How an expression becomes a loop: one pass over the pixels in blocks. An evaluator of the tree's own type gives the
/// values of a block, which are then stored as the target's type asks for.
namespace Kelvaris::ImageMath::internal {

/// Throws std::invalid_argument for the descriptor of an expression that has no shape of its own.
void checkHasShape(const ImageDescriptor& descriptor);
/// Throws std::invalid_argument if the expression can't be computed at all pixels of `target`.
void checkShapes(const ExprInterface& expr, const ImageDescriptor& target);
/// Whether a mapped leaf of the expression reads this image.
bool isReadElsewhere(const ExprInterface& expr, const void* image);
/// Whether this thread lets shaders evaluate: with a current OpenGL context, or with OpenGL on real hardware.
bool shadersAreUsed();

/// The memory of a SharedImage that is written as a whole.
class MemTarget {
public:
  /// With `asCopy`, or if they lie in another form, the image keeps its pixels until finish().
  MemTarget(SharedImage& image, bool asCopy);
  MemImage& mem() { return *m_mem; }
  void finish();

private:
  SharedImage& m_image;
  std::shared_ptr<MemImage> m_mem;
  bool m_isNew;
};

/// Calls run(first, last) for ranges of slices: all at once for up to 8 slices, otherwise a contiguous range in each
/// thread. Rethrows what a range threw.
void forSliceRanges(int slices, const std::function<void(int first, int last)>& run);

/// Writes values of type V (float or double) into an image in main memory.
template <typename V> class BlockWriter {
public:
  BlockWriter(MemImage& output, bool raw);

  /// Stores the values of one channel. Returns whether one of them is so close to the border between two integers that
  /// the last digits of a logarithm decide.
  bool write(const Block& block, int channel, const V* values) { return m_write(*this, block, channel, values); }
  bool isClose(V value) const { return m_isClose(stored(value)); }
  /// Stores one value of the block anew.
  void rewrite(const Block& block, int channel, int i, V value) { m_writeOne(*this, block, channel, i, value); }
  /// To be called after all channels of a block.
  void finish(const Block& block);

private:
  template <typename T> struct Typed;

  double stored(V value) const { return (static_cast<double>(value) + m_shift) * m_scale; }
  char* destination(const Block& block) const;

  MemImage& m_output;
  double m_shift;
  double m_scale;
  std::size_t m_pixelSize;
  std::vector<char> m_interleaved; ///< the block's pixels, if they have several channels
  bool (*m_write)(BlockWriter&, const Block&, int, const V*) = nullptr;
  void (*m_writeOne)(BlockWriter&, const Block&, int, int, V) = nullptr;
  bool (*m_isClose)(double) = nullptr;
};

template <typename Expr> void evaluateInMem(const Expr& expr, MemImage& output, bool raw) {
  using V = std::conditional_t<std::is_same_v<typename Expr::ValueType, float>, float, double>;
  const std::ptrdiff_t pixels = std::ptrdiff_t{output.width()} * output.height();
  // Here and not in the threads of the loop: once one of those has used OpenGL, the EGL library frees what it keeps of
  // it twice if the process ends while the thread does, and nobody waits for the end of such a thread.
  for (const InputLeaf* leaf : inputLeaves(expr))
    leaf->bringToMem();
  forSliceRanges(output.slices(), [&](int firstSlice, int lastSlice) {
    typename Expr::Evaluator evaluator(expr, {output.descriptor()});
    BlockWriter<V> writer(output, raw);
    BlockValues<V> values;
    for (int slice = firstSlice; slice < lastSlice; ++slice)
      for (std::ptrdiff_t first = 0; first < pixels; first += kBlockSize) {
        const Block block = {slice, first, static_cast<int>(std::min<std::ptrdiff_t>(kBlockSize, pixels - first)),
                             output.width()};
        for (int channel = 0; channel < output.channels(); ++channel) {
          evaluator.load(block, channel);
          for (int i = 0; i < block.count; ++i)
            values[static_cast<std::size_t>(i)] = static_cast<V>(evaluator[i]);
          const bool hasClose = writer.write(block, channel, values.data());
          if (Expr::hasLog && hasClose)
            for (int i = 0; i < block.count; ++i)
              if (writer.isClose(values[static_cast<std::size_t>(i)]))
                writer.rewrite(block, channel, i, static_cast<V>(evaluator.exact(i)));
        }
        writer.finish(block);
      }
  });
}

} // namespace Kelvaris::ImageMath::internal
