#include "Stream/StreamAlgorithmExecutor.h"

#include "Core/Log.h"
#include "Lib/FactoryRegistry.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace Kelvaris {
namespace {

constexpr const char* kCategory = "StreamAlgorithmExecutor";
constexpr const char* kAlgorithmConfig = "algorithmConfig";

/// Like its input to look at, but for the kind, which is that of the results once there are some. Its own worker has
/// nothing to do.
class Output : public ImageStream {
public:
  explicit Output(const ImageStream& input) : ImageStream(input.name()), m_topDown(input.topDown()) {
    setKind(input.kind());
    setModality(input.modality());
  }
  ~Output() override { closeAsync().wait(); }
  bool workerThreadRequiresOpenGl() const override { return false; }
  bool topDown() const override { return m_topDown; }

private:
  bool m_topDown;
};

} // namespace

StreamAlgorithmExecutor::StreamAlgorithmExecutor(ImageStream& input, std::unique_ptr<Algorithm> algorithm)
    : StreamAlgorithm(std::make_unique<Output>(input)), m_input(&input), m_inputName(input.name()) {
  registerParameter(&autoStart);
  registerParameter(&mode, &m_mutex);
  if (algorithm) setAlgorithm(std::move(algorithm));
  m_inputClosedConnection = input.closedSignal.connect([this] { m_input = nullptr; });
  m_outputClosedConnection = stream()->closedSignal.connect([this] { m_inputConnection.disconnect(); });
  m_autoStartConnection = autoStart.changed.connect([this] {
    if (autoStart)
      listen();
    else
      m_inputConnection.disconnect();
  });
  listen();
}

void StreamAlgorithmExecutor::listen() {
  if (m_input && !m_inputConnection.connected())
    m_inputConnection =
        m_input->dataSignal.connectBlocking([this](const std::shared_ptr<const StreamData>& data) { onData(data); });
}

void StreamAlgorithmExecutor::setStreamAlgorithmName(const std::string& name) {
  const std::scoped_lock lock(m_mutex);
  m_name = name;
  m_pendingConfiguration.reset();
  m_hasComplained = false;
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
  if (!m_input) {
    Log::error(kCategory, "The input stream \"{}\" is gone", m_inputName);
    m_status = IncompleteInput;
    return;
  }
  listen();
  m_status = Success;
}

void StreamAlgorithmExecutor::configure(const Properties* properties) {
  StreamAlgorithm::configure(properties);
  const Properties* const settings = properties ? properties->findSubProperties(kAlgorithmConfig) : nullptr;
  if (!settings) return;
  const std::scoped_lock lock(m_mutex);
  if (m_algorithm)
    m_algorithm->configure(settings);
  else
    m_pendingConfiguration = *settings;
}

void StreamAlgorithmExecutor::configuration(Properties* properties) const {
  StreamAlgorithm::configuration(properties);
  if (!properties) return;
  const std::scoped_lock lock(m_mutex);
  if (m_algorithm)
    m_algorithm->configuration(&properties->subProperties(kAlgorithmConfig));
  else if (m_pendingConfiguration)
    properties->subProperties(kAlgorithmConfig) = *m_pendingConfiguration;
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
  std::string reason;
  try {
    const auto named = FactoryRegistry::get().descriptorsNamed(m_name);
    m_example = images.clone(4);
    // An entry for streams alone may have the name too.
    std::unique_ptr<Algorithm> algorithm;
    for (auto descriptor = named.begin(); descriptor != named.end() && !algorithm; ++descriptor)
      algorithm = descriptor->create({m_example.get()});
    if (algorithm) {
      if (m_pendingConfiguration) algorithm->configure(&*m_pendingConfiguration);
      m_pendingConfiguration.reset();
      setAlgorithm(std::move(algorithm));
      if (!m_processor) m_name.clear(); // nor will it be one with the next emission
      return;
    }
    reason = named.empty() ? "no factory has one of this name" : "it doesn't work on the images of this stream";
  } catch (const std::exception& error) {
    reason = error.what();
  }
  m_example.reset();
  if (!m_hasComplained) Log::error(kCategory, "Could not create the algorithm \"{}\" so far: {}", m_name, reason);
  m_hasComplained = true;
}

void StreamAlgorithmExecutor::onData(const std::shared_ptr<const StreamData>& data) {
  Stream* const output = stream(); // stays while this function runs: its end disconnects, which waits
  const auto imageData = std::dynamic_pointer_cast<const ImageStreamData>(data);
  if (!output || !imageData || imageData->size() == 0) return;
  const SharedImageSet& images = *imageData->images();

  int count = 1;
  bool isNew = false;
  {
    const std::scoped_lock lock(m_mutex);
    if (!m_processor && !m_name.empty()) {
      instantiateAlgorithm(images);
      isNew = m_processor != nullptr;
    }
    if (!m_processor) return;
    if (mode == EveryImage) count = images.size();
  }
  if (isNew) outputChanged.emitSignal();
  auto results = std::make_shared<SharedImageSet>();
  // Channel data of one event stay a volume on their way; many events that have become one picture don't.
  bool volumetric = images.isVolumetric();
  for (int i = 0; i < count; ++i)
    try {
      const auto [image, components] =
          m_processor->processImage(images.get(i), images.elementwiseComponents().components(i));
      if (!image) continue;
      volumetric = volumetric && image->descriptor().slices() == images.get(i).descriptor().slices();
      results->elementwiseComponents().add(components, results->size());
      results->add(image, images.timestamp(i));
    } catch (const std::exception& error) { // for want of memory or of a device; the stream must not see it
      Log::error(kCategory, "An image of the stream \"{}\" is dropped: {}", m_inputName, error.what());
    }
  if (results->size() == 0) return;
  results->setModality(images.modality());
  results->setVolumetric(volumetric);

  auto outputData = std::make_shared<ImageStreamData>(std::move(results));
  output->setKind(outputData->streamKind());
  outputData->setTimestampDevice(data->timestampDevice());
  outputData->setTimestampArrival(data->timestampArrival());
  output->dataSignal.emitSignal(outputData);
}

} // namespace Kelvaris
