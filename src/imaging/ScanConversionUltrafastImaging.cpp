#include "imaging/ScanConversionUltrafastImaging.h"

#include "Core/Log.h"
#include "GL/AbstractInclude.h"
#include "GL/Check.h"
#include "GL/ContextManager.h"
#include "GL/GlImage.h"
#include "GL/ImageProgram.h"
#include "GL/MaskInclude.h"
#include "Lib/IntensityMask.h"
#include "Stream/ImageStream.h"
#include "US/FanMask.h"
#include "US/FrameGeometryMetadata.h"
#include "US/UltrasoundMetadata.h"
#include "US/UltrasoundSweep.h"
#include "model/AlgorithmFrame.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <limits>
#include <optional>
#include <tuple>

namespace Kelvaris::US {
namespace {

constexpr const char* kCategory = "ScanConversionUltrafastImaging";
constexpr const char* kDisplayName = "Scan-conversion for Ultrafast Imaging";
constexpr const char* kNoTransform = "Cannot perform scanconversion without geometric transform.";

/// Pixels along one side of the output; no texture is larger.
constexpr int kMaxSide = 1 << 16;

/// What is written outside of the valid region.
float outputMaskValue(int pixelType) {
  switch (pixelType) {
  case PixelInt16:
    return -32768.0f;
  case PixelFloat:
    return std::numeric_limits<float>::quiet_NaN();
  default:
    return 0.0f;
  }
}

bool isFloatingPoint(int pixelType) {
  return pixelType == PixelFloat || pixelType == PixelDouble || pixelType == PixelHalf;
}

/// The value of the type that comes after the mask's.
float besideMaskValue(int pixelType) {
  if (pixelType == PixelHalf) return std::ldexp(1.0f, -14);
  if (pixelType == PixelDouble) return std::numeric_limits<float>::min();
  return outputMaskValue(pixelType) + 1.0f;
}

const FrameGeometry* geometryOf(const DataComponentList& components) {
  const auto* const metadata = components.get<FrameGeometryMetadata>();
  return metadata ? metadata->frameGeometry() : nullptr;
}

/// Those of the set, then of the sweep, then of the first image; null where there are none.
std::pair<const FrameGeometry*, const UltrasoundMetadata*> getGeometryAndMetadata(const SharedImageSet* set) {
  const FrameGeometry* geometry = geometryOf(set->components());
  const auto* metadata = set->components().get<UltrasoundMetadata>();
  const auto* const sweep = dynamic_cast<const UltrasoundSweep*>(set);
  const DataComponentList& first = set->elementwiseComponents().components(0);
  if (!geometry && sweep) geometry = sweep->frameGeometry();
  if (!geometry) geometry = geometryOf(first);
  if (!metadata) metadata = first.get<UltrasoundMetadata>();
  return {geometry, metadata};
}

/// Logs what is missing.
bool haveBoth(const FrameGeometry* geometry, const UltrasoundMetadata* metadata) {
  if (!geometry)
    Log::error(kCategory, "No frame geometry metadata found.");
  else if (!metadata)
    Log::error(kCategory, "No ultrasound metadata found.");
  return geometry && metadata;
}

/// Of the image that the conversion gives: the geometry with its Cartesian image in mm, and the metadata. No geometry,
/// with a logged error, if there is no such image.
std::pair<std::unique_ptr<FrameGeometry>, std::unique_ptr<UltrasoundMetadata>>
createOutputGeometryAndMetadata(const SharedImage& image, const FrameGeometry& geometry,
                                const UltrasoundMetadata& metadata) {
  std::unique_ptr<FrameGeometry> output = geometry.clone();
  auto outputMetadata = std::make_unique<UltrasoundMetadata>(metadata);
  outputMetadata->scanConverted = !metadata.scanConverted;
  if (metadata.scanConverted) { // the way back
    if (!output->imgDesc().isValid()) output->setImgDesc(image.descriptor());
    return {std::move(output), std::move(outputMetadata)};
  }

  if (!output->imgDescPrescan().isValid()) output->setImgDescPrescan(image.descriptor());
  if (output->imgDesc().isValid()) {
    if (output->coordinateSystem() != CoordinateSystem::Image) output = output->convertTo(CoordinateSystem::Image);
    return {std::move(output), std::move(outputMetadata)};
  }

  if (output->coordinateSystem() != CoordinateSystem::Image)
    Log::warning(kCategory, "Input frame geometry is not in image coordinate system, but no spacing was given. "
                            "Resulting geometry might be incorrect.");
  const ImageDescriptor& prescan = output->imgDescPrescan();
  const double s = prescan.spacing()[1];
  const Geometry::AlignedBox bounds = output->bounds();
  const double width = std::ceil(bounds.extent().x() / s);
  const double height = std::ceil(bounds.extent().y() / s);
  if (!(width >= 1.0 && width <= kMaxSide && height >= 1.0 && height <= kMaxSide)) {
    Log::error(kCategory,
               "A frame of {} x {} mm with pixels of {} mm can't be made into an image: each side must have 1 to {} "
               "pixels",
               bounds.extent().x(), bounds.extent().y(), s, kMaxSide);
    return {};
  }
  ImageDescriptor descriptor = prescan;
  descriptor.setDimensions({static_cast<int>(width), static_cast<int>(height), std::max(prescan.slices(), 1)});
  descriptor.setSpacing({s, s, 1.0});
  descriptor.setMetric(true);
  output->setImgDesc(descriptor);
  const Eigen::Vector2d centre = bounds.center();
  output->setOffset(output->offset() - Eigen::Vector3d(centre.x(), centre.y(), 0.0));
  return {std::move(output), std::move(outputMetadata)};
}

bool canConvert(const ImageDescriptor& input, const ImageDescriptor& output) {
  if (input.pixelType() != output.pixelType()) {
    Log::error(kCategory, "Pixel type of input and output image descriptors do not match.");
    return false;
  }
  if (input.channels() != output.channels() || std::max(input.slices(), 1) != output.slices()) {
    Log::error(kCategory, "An image of {} can't be converted to one of {}: channels and slices must be the same",
               input.toString(), output.toString());
    return false;
  }
  return true;
}

/// Brings the image into `texture`: the image's own if it has one, else the present one or, if that is another kind's,
/// a new one. (A new one for each image would leave holes in the heap, where a driver on the processor has them.)
void bringToTexture(const SharedImage& image, std::shared_ptr<GlImage>& texture) {
  if (image.hasForm(ImageForm::Gl)) {
    texture = image.sharedCustom<GlImage>();
    return;
  }
  const auto pixels = image.temporaryMem();
  const auto isLike = [](const ImageDescriptor& a, const ImageDescriptor& b) {
    return a.pixelType() == b.pixelType() && a.dimensions() == b.dimensions() && a.channels() == b.channels();
  };
  if (texture && texture.use_count() == 1 && isLike(texture->descriptor(), pixels->descriptor()))
    texture->upload(*pixels);
  else
    texture = std::make_shared<GlImage>(*pixels);
}

/// Keeps the program in use while it lives. A context must be current.
class EnabledProgram {
public:
  explicit EnabledProgram(GL::ImageProgram& program) : m_program(program) { m_program.enable(); }
  ~EnabledProgram() {
    try {
      m_program.disable();
    } catch (const GL::Error& error) {
      Log::error(kCategory, "The program can't be put away: {}", error.what());
    }
  }
  EnabledProgram(const EnabledProgram&) = delete;
  EnabledProgram& operator=(const EnabledProgram&) = delete;

private:
  GL::ImageProgram& m_program;
};

} // namespace

/// What the images of one run have in common.
struct ScanConversionUltrafastImaging::Conversion {
  std::unique_ptr<FrameGeometry> geometry; ///< of the output
  std::unique_ptr<UltrasoundMetadata> metadata;
  std::unique_ptr<GL::AbstractInclude> transform;
  std::shared_ptr<Mask> mask; ///< of the output

  /// For images like this one; nothing, with a logged error, if they can't be converted.
  static std::optional<Conversion> create(const ScanConversionUltrafastImaging& algorithm, const SharedImage& image,
                                          const FrameGeometry& geometry, const UltrasoundMetadata& metadata) {
    if (metadata.scanConverted) {
      Log::error(kCategory, "Inverse scanconversion not currently implemented.");
      return std::nullopt;
    }
    Conversion conversion;
    std::tie(conversion.geometry, conversion.metadata) = createOutputGeometryAndMetadata(image, geometry, metadata);
    if (!conversion.geometry || !canConvert(image.descriptor(), conversion.geometry->imgDesc())) return std::nullopt;
    conversion.transform = conversion.geometry->transformInclude();
    if (!conversion.transform) {
      Log::error(kCategory, "{}", kNoTransform);
      return std::nullopt;
    }
    conversion.mask = algorithm.createOutputMask(image, *conversion.geometry);
    return conversion;
  }

  /// The result has what the input has beside its pixels.
  std::shared_ptr<SharedImage> wrap(std::shared_ptr<Image> pixels, const SharedImage& input) const {
    auto image = std::make_shared<SharedImage>(std::move(pixels));
    image->setModality(input.modality());
    image->setMatrix(input.matrix());
    image->setMask(mask);
    return image;
  }
};

ScanConversionUltrafastImaging::ScanConversionUltrafastImaging(const SharedImageSet* input)
    : m_input(input),
      m_program(GL::ImageProgram::create("KelvarisUSImgFormationPlugin/ScanConversionUltrafastImagingForward.frag", {},
                                         GL::CompilationMode::Deferred)) {
  if (!input) return;
  const auto [geometry, metadata] = getGeometryAndMetadata(input);
  if (!geometry || !metadata || metadata->scanConverted)
    Log::error(kCategory, "Input sweep does not have required metadata.");
}

ScanConversionUltrafastImaging::~ScanConversionUltrafastImaging() = default;

bool ScanConversionUltrafastImaging::createCompatible(const DataList& data, Algorithm** algorithm) {
  if (data.size() != 1) return false;
  if (auto* const stream = dynamic_cast<ImageStream*>(data[0])) {
    if (algorithm) *algorithm = makeStreamExecutor(*stream, nullptr, kDisplayName).release();
    return true;
  }
  const auto* const images = dynamic_cast<const SharedImageSet*>(data[0]);
  if (!images) return false;
  const bool isUltrasound = images->modality() == Data::Ultrasound && holdsImages(*images);
  if (!isUltrasound && !dynamic_cast<const UltrasoundSweep*>(images)) return false;
  const auto [geometry, metadata] = getGeometryAndMetadata(images);
  if (!geometry || !metadata) return false;
  if (algorithm) *algorithm = std::make_unique<ScanConversionUltrafastImaging>(images).release();
  return true;
}

std::shared_ptr<Mask> ScanConversionUltrafastImaging::createOutputMask(const SharedImage& input,
                                                                       const FrameGeometry& geometry) const {
  const int pixelType = geometry.imgDesc().pixelType();
  if (input.mask()) return std::make_shared<IntensityMask>(pixelType, outputMaskValue(pixelType));
  return std::make_shared<FanMask>(geometry);
}

bool ScanConversionUltrafastImaging::attachMask(const std::shared_ptr<const Mask>& mask) const {
  const auto fail = [&](const char* message) {
    Log::error(kCategory, "{}", message);
    m_program->removeAbstractIncludeDefinition("mask");
    m_program->disable();
    return false;
  };
  if (!mask) {
    m_program->removeAbstractIncludeDefinition("mask");
    return true;
  }
  const auto include = GL::maskInclude(mask);
  if (!include) return fail("Mask is not a GL mask, cannot use it for scan conversion.");
  if (!m_program->addAbstractIncludeDefinition(*include, "mask")) return fail("Cannot attach mask to scan conversion.");
  include->setArguments(*m_program, "mask");
  return true;
}

void ScanConversionUltrafastImaging::setShaderDefines(const ImageDescriptor& descriptor) const {
  if (descriptor.slices() > 1)
    m_program->addDefine("#define MULTIPLE_IMAGES");
  else if (descriptor.slices() == 1)
    m_program->addDefine("#undef MULTIPLE_IMAGES");
}

/// Calls `work` with the program in use and set up for the conversion, under a context. False if that or `work` fails;
/// the log says why.
bool ScanConversionUltrafastImaging::withProgram(const Conversion& conversion,
                                                 const std::function<bool()>& work) const {
  if (!m_program) {
    Log::error(kCategory, "There is no fragment program; the log says why where the algorithm was made");
    return false;
  }
  try {
    const GL::ContextManager::ActivationGuard guard;
    const EnabledProgram enabled(*m_program);
    setShaderDefines(conversion.geometry->imgDesc());
    if (!m_program->addAbstractIncludeDefinition(*conversion.transform, "transform")) {
      Log::error(kCategory, "{}", kNoTransform);
      return false;
    }
    return work();
  } catch (const std::exception& error) {
    Log::error(kCategory, "Scan conversion failed: {}", error.what());
    return false;
  }
}

/// Fills a texture of the conversion's imgDesc(). The program must be in use. False, with a logged error, if the image
/// isn't like the one that the conversion was made for.
bool ScanConversionUltrafastImaging::convert(const SharedImage& image, const Conversion& conversion,
                                             std::shared_ptr<GlImage>& texture, const GlImage& output) const {
  const ImageDescriptor& descriptor = output.descriptor();
  if (!canConvert(image.descriptor(), descriptor) || !attachMask(image.mask())) return false;
  conversion.transform->setArguments(*m_program, "transform");
  bringToTexture(image, texture);
  const int pixelType = descriptor.pixelType();
  const float maskValue = outputMaskValue(pixelType);
  m_program->bindTexture("u_prescanInput", *texture);
  m_program->setUniform("u_textureToImageMatrix", Eigen::Matrix4f(descriptor.textureToImageMatrix().cast<float>()));
  m_program->setUniform("u_outputSize", Eigen::Vector2f(descriptor.dimensions().head<2>().cast<float>()));
  m_program->setUniform("u_outputMaskValue", maskValue);
  m_program->setUniform("u_besideMaskValue", image.mask() ? besideMaskValue(pixelType) : maskValue);
  m_program->setUniform("u_roundsToIntegers", isFloatingPoint(pixelType) ? 0 : 1);
  m_program->setUniform("u_channels", descriptor.channels());
  m_program->compute(output);
  return true;
}

std::pair<std::shared_ptr<SharedImage>, DataComponentList>
ScanConversionUltrafastImaging::processImage(const SharedImage& image, const DataComponentList& components) const {
  const FrameGeometry* const geometry = geometryOf(components);
  const auto* const metadata = components.get<UltrasoundMetadata>();
  if (!haveBoth(geometry, metadata)) return {};
  const auto conversion = Conversion::create(*this, image, *geometry, *metadata);
  if (!conversion) return {};
  std::shared_ptr<GlImage> pixels;
  const auto convertOne = [&] {
    std::shared_ptr<GlImage> texture;
    pixels = std::make_shared<GlImage>(conversion->geometry->imgDesc());
    return convert(image, *conversion, texture, *pixels);
  };
  if (!withProgram(*conversion, convertOne)) return {};

  DataComponentList updated = components;
  updated.add<UltrasoundMetadata>(*conversion->metadata);
  updated.getOrCreate<FrameGeometryMetadata>().setFrameGeometry(*conversion->geometry);
  return {conversion->wrap(std::move(pixels), image), std::move(updated)};
}

void ScanConversionUltrafastImaging::compute() {
  m_status = Failure;
  m_output.reset();
  if (!m_input) {
    m_status = InvalidInput;
    Log::error(kCategory, "Input sweep is not set.");
    return;
  }
  if (m_input->size() == 0) {
    m_status = Success;
    return;
  }
  const auto [geometry, metadata] = getGeometryAndMetadata(m_input);
  if (!haveBoth(geometry, metadata)) return;
  const auto conversion = Conversion::create(*this, m_input->get(0), *geometry, *metadata);
  if (!conversion) return;

  std::unique_ptr<SharedImageSet> output = m_input->clone(1);
  const auto convertAll = [&] {
    std::shared_ptr<GlImage> texture;
    const GlImage pixels(conversion->geometry->imgDesc());
    for (int i = 0; i < m_input->size(); ++i) {
      const SharedImage& image = m_input->get(i);
      if (!convert(image, *conversion, texture, pixels)) return false;
      output->add(conversion->wrap(pixels.download(), image), m_input->timestamp(i));
      output->elementwiseComponents().add(m_input->elementwiseComponents().components(i), i);
    }
    return true;
  };
  if (!withProgram(*conversion, convertAll)) return;

  const auto update = [&](DataComponentList& components) {
    if (auto* const present = components.get<UltrasoundMetadata>()) *present = *conversion->metadata;
    if (auto* const present = components.get<FrameGeometryMetadata>()) present->setFrameGeometry(*conversion->geometry);
  };
  output->elementwiseComponents().forEach(update);
  update(output->components());
  if (auto* const sweep = dynamic_cast<UltrasoundSweep*>(output.get()))
    sweep->setFrameGeometry(*conversion->geometry);
  else
    output->components().getOrCreate<FrameGeometryMetadata>().setFrameGeometry(*conversion->geometry);
  m_output = std::move(output);
  m_status = Success;
}

OwningDataList ScanConversionUltrafastImaging::takeOutput() {
  return takeImages(m_output);
}

} // namespace Kelvaris::US
