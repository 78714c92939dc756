#include "Stream/StreamAlgorithmExecutor.h"

#include "Core/Log.h"
#include "Lib/FactoryRegistry.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace Kelvaris {
namespace {

constexpr const char* kCategory = "StreamAlgorithmExecutor";

std::unique_ptr<ImageStream> makeOutput(const ImageStream& input) {
  auto output = std::make_unique<ImageStream>(input.name());
  output->setKind(input.kind());
  output->setModality(input.modality());
  return output;
}

} // namespace

StreamAlgorithmExecutor::StreamAlgorithmExecutor(ImageStream& input, std::unique_ptr<Algorithm> algorithm)
    : StreamAlgorithm(makeOutput(input)), m_input(input) {
  registerParameter(&autoStart);
  registerParameter(&mode, &m_mutex);
  if (algorithm) setAlgorithm(std::move(algorithm));
  m_autoStartConnection = autoStart.changed.connect([this] {
    if (autoStart)
      listen();
    else
      m_inputConnection.disconnect();
  });
  listen();
}

void StreamAlgorithmExecutor::listen() {
  if (!m_inputConnection.connected())
    m_inputConnection =
        m_input.dataSignal.connect([this](const std::shared_ptr<const StreamData>& data) { onData(data); });
}

void StreamAlgorithmExecutor::setStreamAlgorithmName(const std::string& name) {
  const std::scoped_lock lock(m_mutex);
  m_name = name;
}

std::string StreamAlgorithmExecutor::streamAlgorithmName() const {
  const std::scoped_lock lock(m_mutex);
  return m_name;
}

Algorithm* StreamAlgorithmExecutor::streamAlgorithm() const {
  const std::scoped_lock lock(m_mutex);
  return m_algorithm.get();
}

void StreamAlgorithmExecutor::compute() {
  {
    const std::scoped_lock lock(m_mutex);
    if (!m_processor && m_name.empty()) {
      Log::error(kCategory, "Neither an algorithm nor the name of one is given");
      m_status = IncompleteInput;
      return;
    }
  }
  listen();
  m_status = Success;
}

void StreamAlgorithmExecutor::setAlgorithm(std::unique_ptr<Algorithm> algorithm) {
  m_processor = dynamic_cast<SequentialImageProcessor*>(algorithm.get());
  if (!m_processor) {
    Log::error(kCategory, "The algorithm {} can't process images one by one", algorithm->factoryInfo().displayName);
    return;
  }
  m_processor->setSequentialMode(true);
  m_algorithm = std::move(algorithm);
}

void StreamAlgorithmExecutor::instantiateAlgorithm(const SharedImageSet& images) {
  const auto named = FactoryRegistry::get().descriptorsNamed(m_name);
  m_example = images.clone(4);
  // An entry for streams alone may have the name too.
  std::unique_ptr<Algorithm> algorithm;
  for (auto descriptor = named.begin(); descriptor != named.end() && !algorithm; ++descriptor)
    algorithm = descriptor->create({m_example.get()});
  if (algorithm)
    setAlgorithm(std::move(algorithm));
  else
    Log::error(kCategory, "Could not create the algorithm \"{}\": {}", m_name,
               named.empty() ? "no factory has one of this name" : "it doesn't work on the images of this stream");
  if (m_processor) return;
  m_example.reset();
  m_name.clear();
}

void StreamAlgorithmExecutor::onData(const std::shared_ptr<const StreamData>& data) {
  const auto imageData = std::dynamic_pointer_cast<const ImageStreamData>(data);
  if (!imageData || imageData->images()->size() == 0) return;
  const SharedImageSet& images = *imageData->images();

  auto results = std::make_shared<SharedImageSet>();
  {
    const std::scoped_lock lock(m_mutex);
    try {
      if (!m_processor && !m_name.empty()) instantiateAlgorithm(images);
    } catch (const std::exception& error) { // the next emission may do
      Log::error(kCategory, "Could not create the algorithm \"{}\": {}", m_name, error.what());
      m_example.reset();
    }
    if (!m_processor) return;
    const int count = mode == EveryImage ? images.size() : 1;
    for (int i = 0; i < count; ++i)
      try {
        const auto [image, components] =
            m_processor->processImage(images.get(i), images.elementwiseComponents().components(i));
        if (!image) continue;
        results->elementwiseComponents().add(components, results->size());
        results->add(image, images.timestamp(i));
      } catch (const std::exception& error) { // for want of memory or of a device; the stream must not see it
        Log::error(kCategory, "An image of the stream \"{}\" is dropped: {}", m_input.name(), error.what());
      }
  }
  if (results->size() == 0 || !stream()) return;
  results->setModality(images.modality());
  results->setVolumetric(images.isVolumetric());

  auto output = std::make_shared<ImageStreamData>(std::move(results));
  output->setTimestampDevice(data->timestampDevice());
  output->setTimestampArrival(data->timestampArrival());
  stream()->dataSignal.emitSignal(output);
}

} // namespace Kelvaris
