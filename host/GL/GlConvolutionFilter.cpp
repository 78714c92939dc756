#include "GL/GlConvolutionFilter.h"

#include "GL/Check.h"
#include "GL/ContextManager.h"
#include "GL/ImageProgram.h"
#include "GL/PixelStore.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

namespace Kelvaris {
namespace {

/// With the defines AXIS (0 to 2), LAYERED (if the images have several slices) and CLAMPED (for the edge border).
constexpr const char* kText = R"(#version 450 core
#ifdef LAYERED
#define SAMPLER sampler2DArray
#define TEXEL(position) position
#else
#define SAMPLER sampler2D
#define TEXEL(position) position.xy
#endif
uniform int u_slice;
uniform SAMPLER u_input;
uniform sampler2D u_kernel;
uniform int u_taps;
uniform int u_extent;
layout(location = 0) out vec4 result;
#abstract_include output
void main() {
  ivec3 position = ivec3(gl_FragCoord.xy, u_slice);
  int last = position[AXIS] + u_taps / 2;
#ifdef CLAMPED
  int begin = 0, end = u_taps;
#else
  int begin = max(0, last - u_extent + 1), end = min(u_taps, last + 1);
#endif
  vec4 sum = vec4(0.0);
  for (int k = begin; k < end; ++k) {
    position[AXIS] = clamp(last - k, 0, u_extent - 1);
    sum += texelFetch(u_kernel, ivec2(k, 0), 0).r * texelFetch(u_input, TEXEL(position), 0);
  }
  result = outputStored(sum);
}
)";

std::string sizeOf(const ImageDescriptor& d) {
  return fmt::format("{} x {} x {} pixels of {}", d.width(), d.height(), d.slices(), d.channels());
}

} // namespace

GlConvolutionFilter::GlConvolutionFilter(const TypedImage<float>* kernel, int border) : m_border(border) {
  if (border != ZeroBorder && border != EdgeBorder)
    throw std::invalid_argument(
        fmt::format("Unknown border {} of a convolution; 0 (zeros) or 1 (values of the edge) is needed", border));
  if (kernel) setKernel(*kernel);
}

GlConvolutionFilter::~GlConvolutionFilter() = default;

void GlConvolutionFilter::setKernel(const TypedImage<float>& kernel) {
  const Eigen::Vector3i& extent = kernel.descriptor().dimensions();
  int axis = 0;
  const int taps = extent.maxCoeff(&axis);
  if (kernel.channels() != 1 || extent.minCoeff() < 1 || extent.sum() != taps + 2)
    throw std::invalid_argument(fmt::format(
        "A kernel of {} can't filter along one axis; it needs one component and one axis that is longer than 1",
        kernel.descriptor().toString()));
  TypedImage<float> row(taps, 1);
  std::copy_n(kernel.pointer(), taps, row.pointer());
  m_kernel = std::make_unique<GlImage>(row);
  m_axis = axis;
}

void GlConvolutionFilter::apply(const GlImage& input, GlImage& output) {
  const ImageDescriptor &in = input.descriptor(), &out = output.descriptor();
  if (!m_kernel) throw std::invalid_argument("A convolution needs a kernel first");
  if (in.dimensions() != out.dimensions() || in.channels() != out.channels())
    throw std::invalid_argument(
        fmt::format("The result of a convolution has the size of its input, {} components, not {} components",
                    sizeOf(in), sizeOf(out)));
  if (input.texture() == output.texture())
    throw std::invalid_argument("A convolution can't write into the texture that it reads");

  const GL::ContextManager::ActivationGuard guard;
  if (!m_program)
    m_program = GL::ImageProgram::createFromText("GlConvolutionFilter", kText, "", GL::CompilationMode::Deferred);
  m_program->addDefine(fmt::format("#define AXIS {}", m_axis));
  m_program->addDefine(in.slices() > 1 ? "#define LAYERED" : "#undef LAYERED");
  m_program->addDefine(m_border == EdgeBorder ? "#define CLAMPED" : "#undef CLAMPED");
  const GL::PixelStore store(out.pixelType());
  m_program->addAbstractIncludeDefinition(store, "output");
  m_program->enable();
  store.setArguments(*m_program, "output");
  m_program->setUniform("u_taps", m_kernel->descriptor().width());
  m_program->setUniform("u_extent", in.dimensions()[m_axis]);
  m_program->bindTexture("u_input", input);
  m_program->bindTexture("u_kernel", *m_kernel);
  m_program->compute(output);
  m_program->disable();
}

} // namespace Kelvaris
