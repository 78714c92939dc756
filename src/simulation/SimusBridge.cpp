#include "simulation/SimusBridge.h"

#include "Core/Log.h"
#include "Core/LongWork.h"
#include "Core/Resource.h"
#include "Lib/MemImage.h"
#include "Lib/PluginManager.h"
#include "Lib/PointCloud.h"
#include "Python/PythonInterpreter.h"
#include "Python/PythonPlugin.h"
#include "model/FrameAcquisition.h"
#include "simulation/SimulationCache.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <exception>
#include <map>
#include <optional>
#include <utility>

namespace Kelvaris::US {
namespace {

constexpr const char* kCategory = "SimulatedChannelDataStream";

/// That of the first plugin that brings one; null if there is none.
PythonInterpreter* hostInterpreter() {
  for (const PluginManager::Entry& entry : PluginManager::get().entries())
    if (entry.state == PluginManager::Loaded)
      if (auto* python = dynamic_cast<PythonPlugin*>(entry.plugin)) return python->interpreter();
  return nullptr;
}

template <typename T> std::unique_ptr<SharedImageSet> setOf(std::shared_ptr<TypedImage<T>> image) {
  auto set = std::make_unique<SharedImageSet>();
  set->add(std::make_shared<SharedImage>(std::move(image)));
  return set;
}

/// The radius in m as an expression of Python.
std::string radiusText(const std::optional<double>& radius) {
  return radius && std::isfinite(*radius / 1000.0) ? fmt::format("{:f}", *radius / 1000.0) : "np.inf";
}

/// Calls f(event, channel of the simulation, channel that the event names) for all elements that receive.
template <typename F> void forEachChannel(const FrameAcquisition& frame, int channels, F&& f) {
  for (std::size_t e = 0; e < frame.events().size(); ++e) {
    const PulseEchoEvent::Receive& receive = frame.events()[e].receive;
    const auto& mapping = receive.elementToChannelMapping;
    const std::int64_t width = std::int64_t{receive.apertureLast} - receive.apertureFirst + 1;
    const int count =
        static_cast<int>(std::clamp<std::int64_t>(width, 0, std::min(channels, static_cast<int>(mapping.size()))));
    for (int i = 0; receive.apertureFirst >= 0 && i < count; ++i)
      f(static_cast<int>(e), (receive.apertureFirst + i) % channels, mapping[static_cast<std::size_t>(i)]);
  }
}

bool hasChannelsInOrder(const FrameAcquisition& frame, int channels) {
  bool inOrder = std::all_of(frame.events().begin(), frame.events().end(), [&](const PulseEchoEvent& event) {
    return static_cast<int>(event.receive.elementToChannelMapping.size()) >= channels;
  });
  forEachChannel(frame, channels, [&](int, int simulated, int named) { inOrder = inOrder && simulated == named; });
  return inOrder;
}

std::unique_ptr<MemImage> inOrderOfChannels(const MemImage& simulated, const FrameAcquisition& frame) {
  auto ordered = MemImage::create(simulated.descriptor());
  std::memset(ordered->data(), 0, ordered->byteSize());
  const auto bytes = static_cast<std::size_t>(simulated.descriptor().bytesPerComponent());
  forEachChannel(frame, simulated.width(), [&](int event, int from, int to) {
    if (to < 0 || to >= simulated.width()) return;
    for (int y = 0; y < simulated.height(); ++y)
      std::memcpy(static_cast<char*>(ordered->data()) + ordered->index(to, y, event, 0) * bytes,
                  static_cast<const char*>(simulated.data()) + simulated.index(from, y, event, 0) * bytes, bytes);
  });
  return ordered;
}

} // namespace

SimusBridge::SimusBridge() {
  prepareSimus();
}

void SimusBridge::prepareSimus() {
  const auto script = Resource::query("KelvarisUSImgFormationPlugin", "python/SimusForSimulatedChannelDataStream.py");
  if (!script) {
    m_errorText = "Could not load the SIMUS python script";
    return;
  }
  m_interpreter = hostInterpreter();
  if (!m_interpreter) {
    m_errorText = "Python Interpreter was not found. Please specify one in the Application Settings.";
    return;
  }
  if (!importAhead("pymust")) {
    m_errorText = "Loading it was cancelled. A new stream tries again";
    return;
  }
  for (const char* module : {"kelvaris", "pymust", "numpy"}) {
    try {
      m_interpreter->execute(fmt::format("import {}", module));
    } catch (const std::exception& error) {
      m_errorText =
          fmt::format("Python interpreter could not import {}. Make sure that the package is installed for the "
                      "selected interpreter. Python error: {}",
                      module, error.what());
      return;
    }
  }
  try {
    m_interpreter->execute(std::string(script->text()));
    m_simusAvailable = true;
  } catch (const std::exception& error) {
    m_errorText = fmt::format("Python interpreter could not execute the script: {}", error.what());
  }
}

/// What takes seconds would keep a window from being drawn, so it is done on another thread first: importing it again
/// takes no time, or fails in the same way. False if the user gives up; the import goes on all the same.
bool SimusBridge::importAhead(const char* module) {
  if (!LongWork::handler()) return true;
  m_import = std::async(std::launch::async, [python = m_interpreter, statement = fmt::format("import {}", module)] {
    python->execute(statement); // nobody asks for what it throws
  });
  const LongWork work;
  while (m_import.wait_for(std::chrono::milliseconds(30)) != std::future_status::ready)
    if (!LongWork::report("Loading the SIMUS simulator")) return false;
  return true;
}

std::unique_ptr<SharedImage> SimusBridge::simulateFrame(const FrameAcquisition& frame, const ChannelDataLayout& layout,
                                                        const std::vector<Eigen::Vector3d>& scatterers,
                                                        const std::vector<Eigen::Vector3d>& offsets, bool cache) const {
  if (std::this_thread::get_id() != m_mainThread) {
    Log::error(kCategory, "Simulation must be performed on the main thread");
    return nullptr;
  }
  if (!m_simusAvailable) {
    Log::warning(kCategory, "SIMUS simulation is not available: {}", m_errorText);
    return nullptr;
  }
  if (frame.events().empty()) {
    Log::debug(kCategory, "FrameAcquisition is empty, skipping simulation of echos");
    return nullptr;
  }
  std::unique_ptr<SharedImageSet> result;
  if (cache)
    result = loadSimusResult(frame, layout, scatterers, offsets);
  else
    cleanupSimulationCache(true);
  if (!result) {
    result = simulate(frame, scatterers, offsets);
    if (!result) return nullptr;
    if (cache) cacheSimusResult(frame, layout, scatterers, offsets, *result);
  }
  return result->get(0).clone(1);
}

std::unique_ptr<SharedImageSet> SimusBridge::simulate(const FrameAcquisition& frame,
                                                      const std::vector<Eigen::Vector3d>& scatterers,
                                                      const std::vector<Eigen::Vector3d>& offsets) const {
  std::map<std::string, std::shared_ptr<Data>> variables;
  try {
    const auto points = std::make_shared<PointCloud>(scatterers);
    points->setWeights(std::vector<double>(scatterers.size(), 1.0));
    variables = {{"delays_image", createDelaysImage(frame)},
                 {"receive_aperture_indices", createReceiveApertureIndexImage(frame)},
                 {"scatterers", points},
                 {"scatterer_offsets", std::make_shared<PointCloud>(offsets)}};
  } catch (const std::exception& error) { // a transmit aperture beyond the array
    Log::error(kCategory, "FrameAcquisition can't be simulated: {}", error.what());
    return nullptr;
  }
  const PulseEchoEvent& first = frame.events().front();
  const Transducer& transducer = frame.transducer();
  const std::string command =
      fmt::format("simulate(delays_image, receive_aperture_indices, scatterers, scatterer_offsets, {}, {}, {}, {}, {}, "
                  "{}, {})",
                  first.transmit.speedOfSound, first.receive.samplingFrequency, first.transmit.pulseLength,
                  first.transmit.pulseFrequency, transducer.numElements(), transducer.pitch(),
                  radiusText(transducer.radiusCurvature()));
  std::vector<std::shared_ptr<Data>> results;
  try {
    results = m_interpreter->evaluate(command, variables);
  } catch (const std::exception& error) {
    Log::error(kCategory, "Python interpreter could not execute the script: {}", error.what());
    return nullptr;
  }
  const auto unexpected = [] {
    Log::error(kCategory, "Python interpreter did not return the expected number of results");
    return nullptr;
  };
  if (results.size() != 1) return unexpected();
  const auto set = std::dynamic_pointer_cast<SharedImageSet>(results.front());
  if (!set) {
    Log::error(kCategory, "Python interpreter did not return the results");
    return nullptr;
  }
  if (set->kind() != Data::OneVolume || set->size() != 1) return unexpected();
  return set->clone(4);
}

std::unique_ptr<SharedImage> simulateByChannel(const SimusBridge& simus, const FrameAcquisition& frame,
                                               const ChannelDataLayout& layout,
                                               const std::vector<Eigen::Vector3d>& scatterers,
                                               const std::vector<Eigen::Vector3d>& offsets, bool cache) {
  auto image = simus.simulateFrame(frame, layout, scatterers, offsets, cache);
  if (!image) return nullptr;
  const ImageDescriptor& d = image->descriptor();
  const PulseEchoEvent::Receive& first = frame.events().front().receive;
  const std::int64_t channels = std::int64_t{first.apertureLast} - first.apertureFirst + 1;
  const int events = static_cast<int>(frame.events().size());
  if (d.width() != channels || d.slices() != events || d.channels() != 1) {
    Log::error(
        kCategory,
        "The SIMUS simulation has {} channels, {} events and {} components a sample, but the frame has {} channels, "
        "{} events and 1 component",
        d.width(), d.slices(), d.channels(), channels, events);
    return nullptr;
  }
  if (hasChannelsInOrder(frame, d.width())) return image;
  try {
    image->assign(inOrderOfChannels(*image->mem(), frame));
  } catch (const std::exception& error) {
    Log::error(kCategory, "The SIMUS simulation can't be brought into the order of the channels: {}", error.what());
    return nullptr;
  }
  return image;
}

std::unique_ptr<SharedImageSet> createDelaysImage(const FrameAcquisition& frame) {
  const auto& events = frame.events();
  if (events.empty()) return nullptr;
  const int numElements = frame.transducer().numElements();
  auto image = std::make_shared<TypedImage<double>>(numElements, static_cast<int>(events.size()));
  std::fill_n(image->pointer(), image->size(), -1.0);
  for (std::size_t e = 0; e < events.size(); ++e) {
    const PulseEchoEvent::Transmit& transmit = events[e].transmit;
    const std::vector<double> delays = transmit.calculateDelays(frame.transducer());
    for (std::size_t i = 0; i < delays.size(); ++i)
      image->setValue(delays[i], transmit.apertureFirst + static_cast<int>(i), static_cast<int>(e));
  }
  return setOf(std::move(image));
}

std::unique_ptr<SharedImageSet> createReceiveApertureIndexImage(const FrameAcquisition& frame) {
  const auto& events = frame.events();
  if (events.empty()) return nullptr;
  auto image = std::make_shared<TypedImage<int>>(2, static_cast<int>(events.size()));
  for (std::size_t e = 0; e < events.size(); ++e) {
    image->setValue(events[e].receive.apertureFirst, 0, static_cast<int>(e));
    image->setValue(events[e].receive.apertureLast, 1, static_cast<int>(e));
  }
  return setOf(std::move(image));
}

} // namespace Kelvaris::US
