#include "GL/ImageResamplingAlgorithm.h"

#include "Core/Log.h"
#include "GL/ContextManager.h"
#include "GL/GlImage.h"
#include "GL/ImageProgram.h"
#include "GL/PixelStore.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <type_traits>
#include <vector>

namespace Kelvaris {
namespace {

constexpr const char* kCategory = "ImageResamplingAlgorithm";

/// Positions are whole multiples of 1 / (2 N) pixels, so that they are exact. With the defines LAYERED (if the input
/// has several slices) and NEAREST.
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
uniform ivec3 u_inputSize;
uniform ivec3 u_outputSize;
layout(location = 0) out vec4 result;
#abstract_include output
void main() {
  ivec3 pixel = ivec3(gl_FragCoord.xy, u_slice), unit = 2 * u_outputSize;
#ifdef NEAREST
  ivec3 first = (2 * pixel + 1) * u_inputSize / unit, second = first;
  vec3 weight = vec3(0.0);
#else
  ivec3 place = clamp((2 * pixel + 1) * u_inputSize - u_outputSize, ivec3(0), unit * (u_inputSize - 1));
  ivec3 first = place / unit, rest = place - first * unit, second = first + min(rest, ivec3(1));
  vec3 weight = vec3(rest) / vec3(unit);
#endif
  vec4 sum = vec4(0.0);
  for (int z = first.z; z <= second.z; ++z)
    for (int y = first.y; y <= second.y; ++y)
      for (int x = first.x; x <= second.x; ++x) {
        vec3 share = mix(1.0 - weight, weight, greaterThan(ivec3(x, y, z), first));
        sum += share.x * share.y * share.z * texelFetch(u_input, TEXEL(ivec3(x, y, z)), 0);
      }
  result = outputStored(sum);
}
)";

/// Extent and spacing of the output; nothing, with a logged error, if there is none.
std::optional<ImageDescriptor> resampled(const ImageDescriptor& input, const Eigen::Vector3d& target) {
  const auto usable = [](const Eigen::Vector3d& spacing) {
    return spacing.array().isFinite().all() && (spacing.array() > 0.0).all();
  };
  const auto refuse = [](const char* what, const Eigen::Vector3d& s) {
    Log::error(kCategory, "{} ({}, {}, {}) must be positive and finite", what, s.x(), s.y(), s.z());
    return std::nullopt;
  };
  if (!usable(target)) return refuse("The target spacing", target);
  if (!usable(input.spacing())) return refuse("The image's spacing", input.spacing());

  Eigen::Vector3i dimensions = input.dimensions();
  Eigen::Vector3d spacing = input.spacing();
  for (int axis = 0; axis < 3; ++axis) {
    // Halves go up although the quotient carries rounding errors.
    const double wanted = dimensions[axis] * (spacing[axis] / target[axis]),
                 number = std::max(std::floor(wanted * (1.0 + 1e-9) + 0.5), 1.0);
    if (!(number <= std::numeric_limits<int>::max())) {
      Log::error(kCategory, "The target spacing {} is too small: it makes {:.4g} pixels of {} at {}", target[axis],
                 number, dimensions[axis], spacing[axis]);
      return std::nullopt;
    }
    if (number == dimensions[axis]) continue;
    spacing[axis] *= dimensions[axis] / number;
    dimensions[axis] = static_cast<int>(number);
  }
  ImageDescriptor output = input;
  output.setDimensions(dimensions);
  output.setSpacing(spacing);
  return output;
}

/// Where an output pixel lies on one axis of the input: between `first` and, if it has a share, the pixel after it.
struct Place {
  int first, nearest;
  double share;
};

std::vector<Place> places(int input, int output, int mode) {
  std::vector<Place> all;
  all.reserve(static_cast<std::size_t>(output));
  const std::int64_t n = input, unit = 2 * static_cast<std::int64_t>(output);
  for (std::int64_t j = 0; j < output; ++j) {
    const int nearest = static_cast<int>((2 * j + 1) * n / unit);
    const std::int64_t place = std::clamp<std::int64_t>((2 * j + 1) * n - output, 0, unit * (n - 1));
    if (mode == ImageResamplingAlgorithm::Nearest)
      all.push_back({nearest, nearest, 0.0});
    else
      all.push_back(
          {static_cast<int>(place / unit), nearest, static_cast<double>(place % unit) / static_cast<double>(unit)});
  }
  return all;
}

template <typename T> T stored(double value) {
  if constexpr (std::is_integral_v<T>)
    return static_cast<T>(std::round(value)); // a mean of values of the type
  else
    return static_cast<T>(value);
}

std::vector<unsigned char> validPixels(const MemImage& image, const Mask& mask) {
  const auto width = static_cast<std::size_t>(image.width());
  std::vector<unsigned char> valid(width * static_cast<std::size_t>(image.height()) *
                                   static_cast<std::size_t>(image.slices()));
  unsigned char* row = valid.data();
  for (int z = 0; z < image.slices(); ++z)
    for (int y = 0; y < image.height(); ++y, row += width)
      mask.evaluate(image, 0, y, z, image.width(), row);
  return valid;
}

template <typename T> void resample(const MemImage& input, const Mask* mask, int mode, MemImage& output) {
  const T* const source = static_cast<const T*>(input.data());
  T* target = static_cast<T*>(output.data());
  const auto channels = static_cast<std::size_t>(input.channels());
  const std::vector<Place> columns = places(input.width(), output.width(), mode),
                           rows = places(input.height(), output.height(), mode),
                           slices = places(input.slices(), output.slices(), mode);
  const std::vector<unsigned char> valid = mask ? validPixels(input, *mask) : std::vector<unsigned char>();
  const auto isValid = [&](std::size_t sample) { return valid.empty() || valid[sample / channels] != 0; };

  struct Neighbour {
    std::size_t sample;
    double share;
  };
  std::array<Neighbour, 8> neighbours;
  for (const Place& z : slices)
    for (const Place& y : rows)
      for (const Place& x : columns) {
        std::size_t count = 0;
        double total = 0.0;
        const std::size_t nearest = input.index(x.nearest, y.nearest, z.nearest, 0);
        if (isValid(nearest))
          for (int corner = 0; corner < 8; ++corner) {
            const int right = corner & 1, below = corner >> 1 & 1, behind = corner >> 2;
            const double share = (right ? x.share : 1.0 - x.share) * (below ? y.share : 1.0 - y.share) *
                                 (behind ? z.share : 1.0 - z.share);
            if (share == 0.0) continue;
            const std::size_t sample = input.index(x.first + right, y.first + below, z.first + behind, 0);
            if (!isValid(sample)) continue;
            neighbours[count++] = {sample, share};
            total += share;
          }
        else
          neighbours[count++] = {nearest, total = 1.0};
        for (std::size_t channel = 0; channel < channels; ++channel) {
          double sum = 0.0;
          for (std::size_t i = 0; i < count; ++i)
            sum += neighbours[i].share * static_cast<double>(source[neighbours[i].sample + channel]);
          *target++ = stored<T>(valid.empty() ? sum : sum / total);
        }
      }
}

} // namespace

struct ImageResamplingAlgorithm::TextureProgram {
  std::unique_ptr<GL::ImageProgram> program;

  std::shared_ptr<GlImage> resample(const GlImage& input, const ImageDescriptor& descriptor, bool isNearest) {
    const GL::ContextManager::ActivationGuard guard;
    auto output = std::make_shared<GlImage>(descriptor);
    if (!program)
      program = GL::ImageProgram::createFromText("ImageResampling", kText, "", GL::CompilationMode::Deferred);
    program->addDefine(input.descriptor().slices() > 1 ? "#define LAYERED" : "#undef LAYERED");
    program->addDefine(isNearest ? "#define NEAREST" : "#undef NEAREST");
    const GL::PixelStore store(descriptor.pixelType());
    program->addAbstractIncludeDefinition(store, "output");
    program->enable();
    store.setArguments(*program, "output");
    program->setUniform("u_inputSize", input.descriptor().dimensions());
    program->setUniform("u_outputSize", descriptor.dimensions());
    program->bindTexture("u_input", input);
    program->compute(*output);
    program->disable();
    return output;
  }
};

ImageResamplingAlgorithm::ImageResamplingAlgorithm(const SharedImageSet* input, const SharedImage* reference)
    : m_targetSpacing(reference ? reference->descriptor().spacing()
                                : Eigen::Vector3d::Constant(std::numeric_limits<double>::quiet_NaN())),
      m_input(input),
      m_program(std::make_unique<TextureProgram>()) {
  registerParameter(&mode, &m_mutex);
  mode.setAttribute("values", "Linear,Nearest");
}

ImageResamplingAlgorithm::~ImageResamplingAlgorithm() = default;

void ImageResamplingAlgorithm::setTargetSpacing(const Eigen::Vector3d& spacing) {
  const std::scoped_lock lock(m_mutex);
  m_targetSpacing = spacing;
}

void ImageResamplingAlgorithm::compute() {
  m_status = Failure;
  m_output.reset();
  if (!m_input) {
    Log::error(kCategory, "No input image given");
    return;
  }
  auto results = m_input->clone(3);
  for (int i = 0; i < m_input->size(); ++i) {
    auto [image, components] = processImage(m_input->get(i), m_input->elementwiseComponents().components(i));
    if (!image) return;
    results->add(std::move(image), m_input->timestamp(i));
    results->elementwiseComponents().add(components, i);
  }
  m_output = std::move(results);
  m_status = Success;
}

OwningDataList ImageResamplingAlgorithm::takeOutput() {
  OwningDataList list;
  if (m_output) list.add(std::move(m_output));
  return list;
}

std::pair<std::shared_ptr<SharedImage>, DataComponentList>
ImageResamplingAlgorithm::processImage(const SharedImage& image, const DataComponentList& components) const {
  Eigen::Vector3d target;
  int chosenMode = Linear;
  {
    const std::scoped_lock lock(m_mutex);
    target = m_targetSpacing;
    chosenMode = mode;
  }
  if (chosenMode != Linear && chosenMode != Nearest) {
    Log::error(kCategory, "Unknown mode {}; 0 (linear) or 1 (nearest) is needed", chosenMode);
    return {};
  }
  const auto descriptor = resampled(image.descriptor(), target);
  if (!descriptor) return {};

  std::shared_ptr<Image> output;
  const int pixelType = descriptor->pixelType();
  const bool texelIsExact = pixelType != PixelInt32 && pixelType != PixelUInt32 && pixelType != PixelDouble;
  if (image.hasForm(ImageForm::Gl) && texelIsExact && !image.mask()) {
    output = m_program->resample(*image.sharedCustom<GlImage>(), *descriptor, chosenMode == Nearest);
  } else {
    const auto input = image.mem();
    std::shared_ptr<MemImage> mem = MemImage::create(*descriptor);
    dispatchPixelType(pixelType, [&]<typename T>() { resample<T>(*input, image.mask().get(), chosenMode, *mem); });
    output = std::move(mem);
  }
  auto result = std::make_shared<SharedImage>(std::move(output));
  result->setModality(image.modality());
  result->setMatrix(image.matrix());
  result->setMask(image.mask());
  return {std::move(result), components};
}

} // namespace Kelvaris
