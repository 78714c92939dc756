#include "imagemath/Evaluation.h"

#include "GL/ContextManager.h"
#include "imagemath/InputLeaf.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <exception>
#include <limits>
#include <mutex>
#include <omp.h>
#include <stdexcept>

namespace Kelvaris::ImageMath::internal {
namespace {

/// With fewer slices, a team of threads costs more than it gives, and images of a stream come one by one.
constexpr int kFewestSlicesForThreads = 9;

/// The nearest integer of type T, halves away from zero, held within the type; NaN gives 0.
template <typename T> struct Rounded {
  using Whole = std::conditional_t<sizeof(T) < 4, int, std::int64_t>;

  explicit Rounded(double value)
      : held(std::min(std::max(static_cast<double>(std::numeric_limits<T>::lowest()), numberOf(value)),
                      static_cast<double>(std::numeric_limits<T>::max()))),
        whole(static_cast<Whole>(held)),
        rest(held - static_cast<double>(whole)) {}
  T value() const { return static_cast<T>(whole + (rest >= 0.5) - (std::is_signed_v<T> && rest <= -0.5)); }
  bool isClose() const { return std::abs(std::abs(rest) - 0.5) < 1e-6; }

  static double numberOf(double value) {
    return std::is_signed_v<T> && std::isnan(value) ? 0.0 : value; // std::max gives 0 for NaN if that is the lowest
  }

  double held;
  Whole whole;
  double rest;
};

} // namespace

void checkHasShape(const ImageDescriptor& descriptor) {
  if (!descriptor.isValid())
    throw std::invalid_argument("An expression of numbers alone, or of empty images, has no shape to make an image of");
}

void checkShapes(const ExprInterface& expr, const ImageDescriptor& target) {
  const int channels = expr.imgDesc().channels();
  if (channels != 1 && channels != target.channels())
    throw std::invalid_argument(fmt::format("An expression of {} channels can't be assigned to an image of {}; the "
                                            "numbers must be the same, or the expression's 1",
                                            channels, target.toString()));
  for (const InputLeaf* leaf : inputLeaves(expr))
    leaf->checkShape(target);
}

bool isReadElsewhere(const ExprInterface& expr, const void* image) {
  const auto leaves = inputLeaves(expr);
  return std::any_of(leaves.begin(), leaves.end(),
                     [&](const InputLeaf* leaf) { return leaf->isMapped() && leaf->inputImage() == image; });
}

bool shadersAreUsed() {
  if (GL::ContextManager::hasCurrent()) return true;
  auto& contexts = GL::ContextManager::get();
  return contexts.isAvailable() && !contexts.isSoftware();
}

MemTarget::MemTarget(SharedImage& image, bool asCopy)
    : m_image(image), m_isNew(asCopy || !image.hasForm(ImageForm::Mem)) {
  m_mem = m_isNew ? std::shared_ptr<MemImage>(MemImage::create(image.descriptor())) : image.mem();
}

void MemTarget::finish() {
  if (m_isNew)
    m_image.assign(m_mem);
  else
    m_image.setDirtyMem();
}

void forSliceRanges(int slices, const std::function<void(int, int)>& run) {
  if (slices < kFewestSlicesForThreads) {
    run(0, slices);
    return;
  }
  std::exception_ptr failure;
  std::mutex mutex;
#pragma omp parallel
  {
    const int threads = omp_get_num_threads(), thread = omp_get_thread_num();
    const auto begin = [&](int t) { return static_cast<int>(std::int64_t{slices} * t / threads); };
    try {
      if (begin(thread) < begin(thread + 1)) run(begin(thread), begin(thread + 1));
    } catch (...) {
      const std::scoped_lock lock(mutex);
      failure = std::current_exception();
    }
  }
  if (failure) std::rethrow_exception(failure);
}

template <typename V> template <typename T> struct BlockWriter<V>::Typed {
  static T* begin(BlockWriter& self, const Block& block, int channel) {
    const bool direct = self.m_interleaved.empty();
    return reinterpret_cast<T*>(direct ? self.destination(block) : self.m_interleaved.data()) + channel;
  }

  template <typename Stored>
  static bool write(const V* values, int count, std::ptrdiff_t stride, T* out, const Stored& stored) {
    int close = 0;
    for (int i = 0; i < count; ++i)
      if constexpr (std::is_floating_point_v<T>) {
        out[i * stride] = static_cast<T>(stored(values[i]));
      } else {
        const Rounded<T> rounded(stored(values[i]));
        out[i * stride] = rounded.value();
        close += rounded.isClose();
      }
    return close > 0;
  }

  static bool writeBlock(BlockWriter& self, const Block& block, int channel, const V* values) {
    T* const out = begin(self, block, channel);
    const int channels = self.m_output.channels();
    const auto storedAs = [&](const auto& stored) {
      return channels == 1 ? write(values, block.count, 1, out, stored)
                           : write(values, block.count, channels, out, stored);
    };
    if (self.m_shift == 0.0 && self.m_scale == 1.0)
      return storedAs([](V value) { return value + V(0); }); // no negative zero, as with any shift
    return storedAs([&](V value) { return self.stored(value); });
  }

  // The same bits on any processor: nothing here but sums, products, comparisons and conversions.
  [[gnu::flatten, gnu::target("avx2")]] static bool writeOnAvx2(BlockWriter& self, const Block& block, int channel,
                                                                const V* values) {
    return writeBlock(self, block, channel, values);
  }
  [[gnu::flatten, gnu::target("arch=x86-64-v4,prefer-vector-width=512")]] static bool
  writeOnAvx512(BlockWriter& self, const Block& block, int channel, const V* values) {
    return writeBlock(self, block, channel, values);
  }
  static auto bestWrite() {
    return __builtin_cpu_supports("x86-64-v4") ? &writeOnAvx512
           : __builtin_cpu_supports("avx2")    ? &writeOnAvx2
                                               : &writeBlock;
  }

  static void writeOne(BlockWriter& self, const Block& block, int channel, int i, V value) {
    write(&value, 1, 1, begin(self, block, channel) + std::ptrdiff_t{i} * self.m_output.channels(),
          [&](V v) { return self.stored(v); });
  }

  static bool isClose(double stored) {
    if constexpr (std::is_floating_point_v<T>)
      return false;
    else
      return Rounded<T>(stored).isClose();
  }
};

template <typename V>
BlockWriter<V>::BlockWriter(MemImage& output, bool raw)
    : m_output(output),
      m_shift(raw ? 0.0 : output.descriptor().shift()),
      m_scale(raw ? 1.0 : output.descriptor().scale()),
      m_pixelSize(static_cast<std::size_t>(output.descriptor().bytesPerComponent()) *
                  static_cast<std::size_t>(output.channels())) {
  if (output.channels() > 1) m_interleaved.resize(kBlockSize * m_pixelSize);
  dispatchPixelType(output.descriptor().pixelType(), [&]<typename T>() {
    m_write = Typed<T>::bestWrite();
    m_writeOne = &Typed<T>::writeOne;
    m_isClose = &Typed<T>::isClose;
  });
}

template <typename V> void BlockWriter<V>::finish(const Block& block) {
  if (!m_interleaved.empty())
    std::memcpy(destination(block), m_interleaved.data(), static_cast<std::size_t>(block.count) * m_pixelSize);
}

template <typename V> char* BlockWriter<V>::destination(const Block& block) const {
  const auto pixel = static_cast<std::size_t>(block.slice) * static_cast<std::size_t>(m_output.width()) *
                         static_cast<std::size_t>(m_output.height()) +
                     static_cast<std::size_t>(block.first);
  return static_cast<char*>(m_output.data()) + pixel * m_pixelSize;
}

template class BlockWriter<float>;
template class BlockWriter<double>;

} // namespace Kelvaris::ImageMath::internal
