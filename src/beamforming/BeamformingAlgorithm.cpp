#include "beamforming/BeamformingAlgorithm.h"

#include "CUDA/DeviceBufferPool.h"
#include "Core/Log.h"
#include "US/FrameGeometryMetadata.h"
#include "US/UltrasoundMetadata.h"
#include "beamforming/SamplingPositionMap.h"
#include "gpu/Beamforming.h"
#include "model/AlgorithmFrame.h"
#include "model/BeamformingRois.h"
#include "model/ChannelDataLayout.h"
#include "model/FrameAcquisition.h"
#include "model/Utils.h"

#include <fmt/format.h>

#include <exception>
#include <mutex>
#include <optional>
#include <utility>

namespace Kelvaris::US {
namespace {

constexpr const char* kCategory = "BeamformingAlgorithm";

/// Pixels along one side of the output; what lies beyond is a slip of the keyboard.
constexpr int kMaxSide = 1 << 16;

bool acceptsImages(const SharedImageSet& images) {
  const int channels = channelsOfFirst(images);
  return holdsImages(images) && (channels == 1 || channels == 2) && isChannelData(images);
}

void markTopDown(SharedImageSet& output) {
  output.properties().setParam("topDown", true);
  output.setVolumetric(false); // slices are pictures from here on
}

const AlgorithmFrame kFrame{.className = kCategory,
                            .displayName = "Beamforming",
                            .acceptsStream = isVolumeStream,
                            .acceptsImages = acceptsImages,
                            .keepsSetState = true,
                            .hasProgress = true,
                            .errorText = "Error while beamforming image ",
                            .errorOf = " of ",
                            .addsSetWide = true,
                            .finish = markTopDown};

/// A frame of events 0, 1, ... counts as focused by its first two.
bool isFocused(const FrameAcquisition& acquisition) {
  const auto& events = acquisition.events();
  const auto focused = [&](std::size_t i) {
    return events[i].transmit.eventType == PulseEchoEvent::EventType::Focused;
  };
  return events.size() > 1 && focused(0) && focused(1);
}

/// True if `geometry` is `base` but for its depth.
bool changesDepthOnly(const FrameGeometry& geometry, const FrameGeometry& base) {
  const std::unique_ptr<FrameGeometry> moved = base.clone();
  moved->setDepth(geometry.depth());
  return geometry.isApprox(*moved, 1e-7);
}

/// True if both are lines and `line` lies within `base`.
bool liesWithin(const Geometry::Polygon2D& line, const Geometry::Polygon2D& base) {
  constexpr double tolerance = 1e-7;
  if (line.points().size() != 2 || base.points().size() != 2) return false;
  const Eigen::Vector2d start = base.points()[0];
  const Eigen::Vector2d direction = (base.points()[1] - start).normalized();
  const double length = (base.points()[1] - start).norm();
  for (const Eigen::Vector2d& vertex : line.points()) {
    const double along = direction.dot(vertex - start);
    const double beside = ((vertex - start) - along * direction).norm();
    if (!(beside <= tolerance && along >= -tolerance && along <= length + tolerance)) return false;
  }
  return true;
}

bool changesDepthOnly(const BeamformingRois& rois, const BeamformingRois* base) {
  if (!base || rois.size() != base->size()) return false;
  for (int i = 0; i < rois.size(); ++i)
    if (!liesWithin(rois.roi(i), base->roi(i))) return false;
  return true;
}

/// The comparison is with the regions of the acquisition, also where others are in use: a map that was built from an
/// override doesn't pass and is built again for every frame.
bool fits(const SamplingPositionMap& map, const FrameGeometry& geometry, const BeamformingRois* acquisitionRois) {
  if (!map.frameGeometry || !map.image) return false;
  if ((map.rois == nullptr) != (acquisitionRois == nullptr)) return false;
  if (acquisitionRois && *map.rois != *acquisitionRois) return false;
  return map.frameGeometry->isApprox(geometry, 1e-7) && map.frameGeometry->imgDesc().isApprox(geometry.imgDesc()) &&
         map.frameGeometry->imgDescPrescan().isApprox(geometry.imgDescPrescan());
}

} // namespace

struct BeamformingAlgorithm::Impl {
  CUDA::DeviceBufferPool::ActivationGuard poolGuard;
  int numEvents = 0;
  bool focused = false;
  std::shared_ptr<GPU::Beamforming> beamforming;
  std::optional<SamplingPositionMap> samplingMap;
  std::optional<FrameAcquisition> frameAcquisition; ///< that the fields above but samplingMap were built from
  std::mutex mutex;                                 ///< guards all of the above and the reading of the parameters
};

/// What one call of processImage works with.
struct BeamformingAlgorithm::Setup {
  double fNumber;
  bool coherentCompounding;
  Eigen::Vector2i outputSize;
  double outputValueScaling;
  BeamformerType beamformerType;
  int numEvents;
  bool focused;
  std::shared_ptr<const GPU::Beamforming> beamforming;
  std::optional<SamplingPositionMap> samplingMap;
};

BeamformingAlgorithm::BeamformingAlgorithm(const SharedImageSet* input)
    : m_input(input), m_impl(std::make_unique<Impl>()) {
  for (ParameterBase* parameter : std::initializer_list<ParameterBase*>{&fNumber, &coherentCompounding, &outputSize,
                                                                        &outputValueScaling, &beamformerType})
    registerParameter(parameter, &m_impl->mutex);
  fNumber.setAttribute("min", "0.1");
  fNumber.setAttribute("max", "4");
  fNumber.setAttribute("step", "0.1");
  outputValueScaling.setAttribute("min", "0");
  outputValueScaling.setAttribute("max", "10");
  outputValueScaling.setAttribute("step", "0.01");
  beamformerType.setAttribute("values", "Unweighted Das, Hamming Das, Tukey Das, Debug: Aperture Size, Debug: Aperture "
                                        "Start, Debug: ApertureEnd");
}

BeamformingAlgorithm::~BeamformingAlgorithm() = default;

bool BeamformingAlgorithm::createCompatible(const DataList& data, Algorithm** algorithm) {
  return createCompatibleAlgorithm<BeamformingAlgorithm>(kFrame, data, algorithm);
}

void BeamformingAlgorithm::compute() {
  computeImages(kFrame, *this, m_input, m_progress, m_status, m_output);
}

OwningDataList BeamformingAlgorithm::takeOutput() {
  return takeImages(m_output);
}

void BeamformingAlgorithm::updateCacheFromFrameAcquisition(const FrameAcquisition& acquisition) const {
  Log::debug(kCategory, "Preparing the beamformer for {} events", acquisition.events().size());
  m_impl->beamforming = std::make_shared<GPU::Beamforming>(acquisition);
  m_impl->numEvents = static_cast<int>(acquisition.events().size());
  m_impl->focused = isFocused(acquisition);
}

BeamformingAlgorithm::Setup BeamformingAlgorithm::setupFor(const FrameAcquisition& acquisition) const {
  const std::scoped_lock lock(m_impl->mutex);
  if (!m_impl->frameAcquisition || *m_impl->frameAcquisition != acquisition) {
    updateCacheFromFrameAcquisition(acquisition);
    m_impl->frameAcquisition = acquisition;
  }
  return {.fNumber = fNumber,
          .coherentCompounding = coherentCompounding,
          .outputSize = outputSize,
          .outputValueScaling = outputValueScaling,
          .beamformerType = beamformerType,
          .numEvents = m_impl->numEvents,
          .focused = m_impl->focused,
          .beamforming = m_impl->beamforming,
          .samplingMap = m_impl->samplingMap};
}

std::pair<std::shared_ptr<SharedImage>, DataComponentList>
BeamformingAlgorithm::processImage(const SharedImage& input, const DataComponentList& components) const {
  const auto fail = [](const std::string& message) {
    Log::error(kCategory, "{}", message);
    return std::pair<std::shared_ptr<SharedImage>, DataComponentList>();
  };

  if (!isChannelData(components)) return fail("Input data is not channel data");
  const ImageDescriptor& inputDescriptor = input.descriptor();
  if (inputDescriptor.pixelType() != PixelInt16 && inputDescriptor.pixelType() != PixelFloat)
    return fail("Unsupported input type: " + inputDescriptor.toString());
  const FrameAcquisition& acquisition = *getFrameAcquisition(components);
  const Setup setup = setupFor(acquisition);
  DataComponentList out = components;

  const FrameGeometry* const base = acquisition.frameGeometry().frameGeometry();
  const auto* const geometryComponent = out.get<FrameGeometryMetadata>();
  const FrameGeometry* const geometryOverride = geometryComponent ? geometryComponent->frameGeometry() : nullptr;
  if (setup.focused && geometryOverride && !(base && changesDepthOnly(*geometryOverride, *base)))
    return fail("In focused mode, a frame geometry override must only change the depth");
  const FrameGeometry* const chosen = geometryOverride ? geometryOverride : base;
  if (!chosen) return fail("Neither the frame acquisition nor the image has a frame geometry");

  const int width = setup.focused ? setup.numEvents : setup.outputSize.x();
  const int height = setup.outputSize.y();
  if (width < 1 || width > kMaxSide || height < 1 || height > kMaxSide)
    return fail(fmt::format("An image of {} x {} pixels can't be formed: each side must have 1 to {}", width, height,
                            kMaxSide));
  const int slices = setup.focused || setup.coherentCompounding ? 1 : setup.numEvents;
  ImageDescriptor descriptor(inputDescriptor.pixelType(), width, height, slices, inputDescriptor.channels());
  descriptor.setSpacing({1.0, chosen->depth() / (height - 1), 1.0});
  const std::shared_ptr<FrameGeometry> geometry = chosen->clone();
  geometry->setImgDescPrescan(descriptor);

  const BeamformingRois* const acquisitionRois = acquisition.rois();
  const auto* const roisOverride = out.get<BeamformingRois>();
  if (setup.focused && roisOverride && !changesDepthOnly(*roisOverride, acquisitionRois))
    return fail("In focused mode, a ROI override must only change the depth");
  const BeamformingRois* const rois = roisOverride ? roisOverride : acquisitionRois;
  if (rois && rois->size() != setup.numEvents)
    return fail("Number of ROIs in the BeamformingRois DataComponent does not match number of events");

  std::optional<SamplingPositionMap> map = setup.samplingMap;
  if (!map || !fits(*map, *geometry, acquisitionRois)) {
    Log::debug(kCategory, "Building the sampling position map");
    try {
      map.emplace(geometry->clone(), rois ? std::make_shared<const BeamformingRois>(*rois) : nullptr);
    } catch (const std::exception& error) {
      return fail(std::string("Failed to create sampling position map: ") + error.what());
    }
  }

  ChannelDataLayout layout;
  if (const auto* given = out.get<ChannelDataLayout>()) layout = *given;
  out.erase<ChannelDataLayout>();

  auto image = setup.beamforming->beamform(input, layout, *geometry, *map->image, setup.fNumber,
                                           setup.outputValueScaling, setup.beamformerType, setup.coherentCompounding);
  out.add<FrameGeometryMetadata>(*geometry);
  out.add<UltrasoundMetadata>(acquisition.ultrasoundMetadata());
  {
    const std::scoped_lock lock(m_impl->mutex);
    m_impl->samplingMap = std::move(map);
  }
  return {std::move(image), std::move(out)};
}

} // namespace Kelvaris::US
