#include "model/AlgorithmFrame.h"

#include "Core/Log.h"
#include "Stream/StreamAlgorithmExecutor.h"

#include <fmt/format.h>

#include <utility>

namespace Kelvaris::US {

bool isVolumeStream(const ImageStream& stream) {
  return stream.kind() == Data::VolumeStreamKind;
}

bool isImageOrVolumeStream(const ImageStream& stream) {
  return stream.kind() == Data::ImageStreamKind || stream.kind() == Data::VolumeStreamKind;
}

bool holdsImages(const SharedImageSet& images) {
  return images.kind() >= Data::OneImage && images.kind() <= Data::Volumes;
}

bool holdsVolumes(const SharedImageSet& images) {
  return images.kind() == Data::OneVolume || images.kind() == Data::Volumes;
}

int channelsOfFirst(const SharedImageSet& images) {
  return images.size() == 0 ? 0 : images.get(0).descriptor().channels();
}

CompatibleInput compatibleInput(const AlgorithmFrame& frame, const DataList& data) {
  if (data.size() != 1) return {};
  if (auto* stream = dynamic_cast<ImageStream*>(data[0]))
    return {frame.acceptsStream(*stream) ? stream : nullptr, nullptr};
  const auto images = data.getImages(Data::UnknownKind, Data::Ultrasound);
  return {nullptr, images.size() == 1 && frame.acceptsImages(*images[0]) ? images[0] : nullptr};
}

std::unique_ptr<Algorithm> makeStreamExecutor(ImageStream& stream, std::unique_ptr<Algorithm> algorithm,
                                              const std::string& displayName) {
  auto executor = std::make_unique<StreamAlgorithmExecutor>(stream, std::move(algorithm));
  executor->autoStart = false;
  executor->mode = StreamAlgorithmExecutor::EveryImage;
  executor->setStreamAlgorithmName(displayName);
  return executor;
}

void computeImages(const AlgorithmFrame& frame, const SequentialImageProcessor& processor, const SharedImageSet* input,
                   Progress* progress, int& status, std::unique_ptr<SharedImageSet>& output) {
  status = Algorithm::Failure;
  output.reset();
  if (!input) {
    Log::error(frame.className, "No input image given");
    return;
  }
  const auto task = frame.hasProgress && progress ? progress->addTask(frame.displayName, input->size()) : nullptr;
  auto results = frame.keepsSetState ? input->clone(3) : std::make_unique<SharedImageSet>();
  for (int i = 0; i < input->size(); ++i) {
    if (task) {
      if (task->wasCanceled()) {
        status = Algorithm::Canceled;
        return;
      }
      task->incrementStep(1);
    }
    DataComponentList components = input->elementwiseComponents().components(i);
    if (frame.addsSetWide) components.add(input->components());
    auto [image, imageComponents] = processor.processImage(input->get(i), components);
    if (!image) {
      Log::error(frame.className, "{}{}{}{}", frame.errorText, i, frame.errorOf, input->size());
      return;
    }
    results->add(std::move(image), frame.carriesTimestamps ? input->timestamp(i) : 0.0);
    results->elementwiseComponents().add(imageComponents, i);
  }
  results->setModality(input->modality());
  results->setVolumetric(input->isVolumetric());
  if (frame.finish) frame.finish(*results);
  output = std::move(results);
  status = Algorithm::Success;
}

void setFrequencyAttributes(ParameterBase& parameter, const char* max) {
  parameter.setAttribute("suffix", "MHz");
  parameter.setAttribute("decimals", "3");
  parameter.setAttribute("min", "0.01");
  parameter.setAttribute("max", max);
}

void setDynamicRangeAttributes(ParameterBase& parameter) {
  parameter.setAttribute("suffix", "dB");
  parameter.setAttribute("decimals", "1");
  parameter.setAttribute("min", "5");
  parameter.setAttribute("max", "100");
}

OwningDataList takeImages(std::unique_ptr<SharedImageSet>& output) {
  OwningDataList list;
  if (output) list.add(std::move(output));
  return list;
}

} // namespace Kelvaris::US
