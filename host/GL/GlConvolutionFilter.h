#pragma once

#include "GL/GlImage.h"
#include "Lib/MemImage.h"

#include <memory>

namespace Kelvaris {

namespace GL {
class ImageProgram;
}

/// Convolves textures with a kernel along one axis:
///
///     out(c) = sum_k h(k) in(c + L / 2 - k),   k = 0 ... L - 1,   L / 2 truncated
///
/// for each component, row, column and slice across. So the kernel is reversed, and its middle tap (for an even L the
/// one behind the middle) meets the pixel itself. Sums are formed in single precision from stored values; shift and
/// scale play no part.
///
/// Makes a context current for itself. One object serves one thread at a time.
class GlConvolutionFilter {
public:
  /// What a line holds beyond its ends: nothing, as suits an echo trace (the sums are cut there, as those of the
  /// demodulator on the device are), or its end values again.
  enum Border : int { ZeroBorder = 0, EdgeBorder = 1 };

  /// With a kernel at once, or null for setKernel() later. Throws std::invalid_argument for an unknown border, else
  /// like setKernel().
  GlConvolutionFilter(const TypedImage<float>* kernel, int border);
  virtual ~GlConvolutionFilter();
  GlConvolutionFilter(const GlConvolutionFilter&) = delete;
  GlConvolutionFilter& operator=(const GlConvolutionFilter&) = delete;

  /// The taps h: one component, L pixels along one axis, which is the one that is filtered, and extent 1 along the
  /// others; a single pixel just scales. They are copied. Throws std::invalid_argument for any other shape, and what
  /// making a texture of L pixels throws (GlImage).
  void setKernel(const TypedImage<float>& kernel);

  /// Computes all pixels of `output`, of any pixel type: integers are rounded half away from zero and clamped, NaN
  /// becomes 0. Throws std::invalid_argument if there is no kernel, if extent or components of the images differ, or if
  /// they are the same texture; GL::Error if OpenGL isn't available or fails.
  virtual void apply(const GlImage& input, GlImage& output);

private:
  int m_border;
  int m_axis = 0;
  std::unique_ptr<GlImage> m_kernel; ///< a row
  std::unique_ptr<GL::ImageProgram> m_program;
};

} // namespace Kelvaris
