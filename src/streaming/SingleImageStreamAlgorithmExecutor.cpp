#include "streaming/SingleImageStreamAlgorithmExecutor.h"

#include "Core/Log.h"
#include "GL/ContextManager.h"
#include "GL/Program.h"
#include "Lib/FactoryRegistry.h"
#include "streaming/SingleImageAlgorithmExecutorStream.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <thread>
#include <utility>

namespace Kelvaris::US {
namespace {

constexpr const char* kCategory = "SingleImageStreamAlgorithmExecutor";

const std::string& nameOf(const Algorithm& algorithm) {
  return algorithm.factoryInfo().displayName;
}

/// Calls `f`; what it throws is logged and costs the frame.
template <typename F> void guarded(F&& f) {
  try {
    f();
  } catch (const std::exception& error) {
    Log::error(kCategory, "A frame is lost: {}", error.what());
  } catch (...) {
    Log::error(kCategory, "A frame is lost: unknown exception");
  }
}

/// The set-wide state, and of the images the one of that index.
std::unique_ptr<SharedImageSet> reducedTo(const SharedImageSet& images, int index) {
  auto reduced = images.clone(4);
  reduced->removeImages();
  reduced->add(images.shared(index), images.timestamp(index));
  reduced->elementwiseComponents().add(images.elementwiseComponents().components(index), 0);
  return reduced;
}

} // namespace

SingleImageStreamAlgorithmExecutor::SingleImageStreamAlgorithmExecutor(ImageStream& input,
                                                                       std::unique_ptr<Algorithm> algorithm)
    : StreamAlgorithm(std::make_unique<SingleImageAlgorithmExecutorStream>(input.topDown(), input.kind(), &input)),
      m_input(&input),
      m_output(static_cast<SingleImageAlgorithmExecutorStream*>(stream())),
      m_algorithm(std::move(algorithm)) {
  for (ParameterBase* parameter :
       std::initializer_list<ParameterBase*>{&forceBlocking, &processOnGpu, &queueSize, &imageIndex})
    registerParameter(parameter, &m_parameterMutex);
  if (m_algorithm) {
    m_processor = dynamic_cast<SequentialImageProcessor*>(m_algorithm.get());
    if (m_processor) m_processor->setSequentialMode(true);
    m_name = nameOf(*m_algorithm);
  }
  m_queue = std::make_unique<BackgroundThreadQueue<Payload>>(this, queueSize.current());
  m_outputGoneConnection = m_output->goneSignal.connectBlocking([this] {
    m_inputConnection.disconnect();
    m_queue->stop();
    m_output = nullptr;
  });
  // Algorithms that need OpenGL say so themselves where there is none; the others work without.
  m_queue->start(GL::ContextManager::get().isAvailable());
  m_inputGoneConnection = input.closedSignal.connectBlocking([this] { m_input = nullptr; });
  m_inputConnection = input.dataSignal.connectBlocking(
      [this](const std::shared_ptr<const StreamData>& data) { guarded([&] { onStreamData(data); }); });
  m_queueSizeConnection = queueSize.changed.connect([this] { m_queue->setMaximumQueueSize(queueSize.current()); });
}

SingleImageStreamAlgorithmExecutor::~SingleImageStreamAlgorithmExecutor() {
  goneSignal.emitSignal();
  m_outputGoneConnection.disconnect();
  m_inputConnection.disconnect();
  m_inputGoneConnection.disconnect();
  m_queue->stop();
}

bool SingleImageStreamAlgorithmExecutor::createCompatible(const DataList& data, Algorithm** algorithm) {
  if (data.size() != 1) return false;
  auto* const input = dynamic_cast<ImageStream*>(data[0]);
  if (!input || input->kind() == Data::OtherStreamKind) return false;
  if (algorithm) *algorithm = std::make_unique<SingleImageStreamAlgorithmExecutor>(*input, nullptr).release();
  return true;
}

void SingleImageStreamAlgorithmExecutor::compute() {
  const auto lock = lockInTurn();
  const bool incomplete = !m_algorithm && m_name.empty();
  if (incomplete) Log::error(kCategory, "Algorithm name required to instantiate algorithm!");
  m_currentStatus = incomplete ? IncompleteInput : Success;
}

Algorithm* SingleImageStreamAlgorithmExecutor::streamAlgorithm() const {
  const auto lock = lockInTurn();
  return m_algorithm.get();
}

std::string SingleImageStreamAlgorithmExecutor::streamAlgorithmName() const {
  const auto lock = lockInTurn();
  return m_name;
}

void SingleImageStreamAlgorithmExecutor::setStreamAlgorithmName(const std::string& name) {
  const auto lock = lockInTurn();
  m_name = name;
  m_pendingConfiguration.reset();
  m_listening = true;
}

void SingleImageStreamAlgorithmExecutor::waitUntilCompleted() {
  while (!m_queue->isEmpty() && !m_queue->hasEnded()) {
    m_queue->wakeUp();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

void SingleImageStreamAlgorithmExecutor::configure(const Properties* properties) {
  if (!properties) return;
  StreamAlgorithm::configure(properties);
  const Properties* const settings = properties->findSubProperties("algorithmConfig");
  const auto lock = lockInTurn();
  std::string name = m_name;
  properties->param("algorithmName", name);
  if (m_algorithm && (name == m_name || name == nameOf(*m_algorithm))) {
    if (settings) m_algorithm->configure(settings);
    m_pendingConfiguration.reset();
    return;
  }
  if (name != m_name) m_pendingConfiguration.reset(); // that was for another algorithm
  m_name = std::move(name);
  if (settings) m_pendingConfiguration = *settings;
}

void SingleImageStreamAlgorithmExecutor::configuration(Properties* properties) const {
  if (!properties) return;
  StreamAlgorithm::configuration(properties);
  const auto lock = lockInTurn();
  properties->setParam("algorithmName", m_algorithm ? nameOf(*m_algorithm) : m_name);
  if (m_algorithm)
    m_algorithm->configuration(&properties->subProperties("algorithmConfig"));
  else if (m_pendingConfiguration)
    properties->subProperties("algorithmConfig") = *m_pendingConfiguration;
}

void SingleImageStreamAlgorithmExecutor::onStreamData(const std::shared_ptr<const StreamData>& data) {
  const auto imageData = std::dynamic_pointer_cast<const ImageStreamData>(data);
  if (!m_listening || !imageData || imageData->size() == 0) return;
  const bool hasContext = GL::ContextManager::hasCurrent();
  auto payload = std::make_shared<Payload>();
  if (imageData->containsGlImage()) {
    if (hasContext) {
      payload->sync.emplace();
      GL::flush();
    } else {
      Log::warning(kCategory, "ImageStreamData contains GL images, but the emitting thread does not have a GL context. "
                              "Cannot synchronize GL contexts. Results may be incomplete");
    }
  }
  payload->images = imageData->shallowCloneToSharedImageSet();
  TimestampedPayload<Payload> item{data->timestampDevice(), data->timestampArrival(), std::move(payload)};
  if (!forceBlocking.current())
    m_queue->push(std::move(item));
  else if (hasContext || !GL::ContextManager::get().isAvailable())
    process(std::move(item));
  else
    GL::ContextManager::get().runWithOpenGL([&] { process(std::move(item)); });
}

void SingleImageStreamAlgorithmExecutor::process(TimestampedPayload<Payload> item) {
  guarded([&] { processOrThrow(item); });
}

void SingleImageStreamAlgorithmExecutor::processOrThrow(const TimestampedPayload<Payload>& item) {
  if (!item.payload || !item.payload->images) return;
  if (item.payload->sync) item.payload->sync->wait();
  if (processOnGpu.current()) item.payload->images->prepareForGpu();

  std::shared_ptr<SharedImageSet> results = processedImages(*item.payload->images);
  if (!results || !m_output) return;
  auto data = std::make_shared<ImageStreamData>(std::move(results));
  m_output->setKind(data->streamKind());
  m_output->setModality(data->images()->modality());
  data->setTimestampDevice(item.timestampDevice);
  data->setTimestampArrival(item.timestampArrival);
  m_output->dataSignal.emitSignal(data);
}

std::shared_ptr<SharedImageSet> SingleImageStreamAlgorithmExecutor::processedImages(const SharedImageSet& images) {
  std::unique_lock lock = lockInTurn();
  if (!m_processor) {
    if (!instantiateAlgorithm(images)) {
      m_currentStatus = IncompleteInput;
      return nullptr;
    }
    lock.unlock();
    outputChanged.emitSignal();
    lock = lockInTurn();
  }
  const int index = imageIndex.current();
  if (index < 0 || index >= images.size()) {
    Log::error(kCategory,
               "Image index {} out of bounds for SharedImageSet with {} images. No processing will be performed.",
               index, images.size());
    return nullptr;
  }
  const auto [image, components] =
      m_processor->processImage(images.get(index), images.elementwiseComponents().components(index));
  if (!image) return nullptr;
  auto results = std::make_shared<SharedImageSet>();
  results->setModality(images.modality());
  // Channel data of one event stay a volume on their way; many events that have become one picture don't.
  results->setVolumetric(images.isVolumetric() &&
                         image->descriptor().slices() == images.get(index).descriptor().slices());
  results->add(image, images.timestamp(index));
  results->elementwiseComponents().add(components, 0);
  return results;
}

/// With the mutex held. False, with a logged error unless there is no name, if there is no algorithm to work with.
bool SingleImageStreamAlgorithmExecutor::instantiateAlgorithm(const SharedImageSet& images) {
  if (m_name.empty()) return false;
  const int index = imageIndex.current();
  if (index < 0 || index >= images.size()) {
    Log::error(kCategory, "Image index {} out of bounds for SharedImageSet with {} images.", index, images.size());
    return false;
  }
  m_algorithm = createAlgorithm(images, index);
  if (!m_algorithm) {
    m_listening = false; // only seemingly disconnected: to disconnect would be to wait for the emitter, in turn
    m_pendingConfiguration.reset();
    Log::error(kCategory, "Could not factory-create algorithm {}", std::exchange(m_name, {}));
    return false;
  }
  Log::info(kCategory, "Created algorithm: {}", nameOf(*m_algorithm));
  guarded([&] {
    if (const auto settings = std::exchange(m_pendingConfiguration, std::nullopt)) m_algorithm->configure(&*settings);
  });
  m_processor = dynamic_cast<SequentialImageProcessor*>(m_algorithm.get());
  if (!m_processor) {
    Log::error(kCategory,
               "Algorithm {} is not capable of processing images sequentially. Implement the "
               "SequentialImageProcessor interface.",
               nameOf(*m_algorithm));
    m_algorithm.reset();
    m_name.clear();
    return false;
  }
  m_processor->setSequentialMode(true);
  return true;
}

/// Null if no factory has the algorithm, it doesn't work on the image, or its creation throws, which is logged.
std::unique_ptr<Algorithm> SingleImageStreamAlgorithmExecutor::createAlgorithm(const SharedImageSet& images,
                                                                               int index) {
  m_algorithm.reset();
  m_example = reducedTo(images, index);
  try {
    const auto descriptor = FactoryRegistry::get().algorithmDescriptor(m_name, true);
    return descriptor ? descriptor->create({m_example.get()}) : nullptr;
  } catch (const std::exception& error) {
    Log::error(kCategory, "The creation of the algorithm {} failed: {}", m_name, error.what());
    return nullptr;
  }
}

} // namespace Kelvaris::US
