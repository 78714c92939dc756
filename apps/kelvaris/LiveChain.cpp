#include "kelvaris/LiveChain.h"

#include "kelvaris/ExampleData.h"

#include "Stream/StreamAlgorithm.h"

#include <fmt/format.h>

#include <stdexcept>

namespace Kelvaris::CommandLine {
namespace {

using Clock = StageStatistics::Clock;

/// As the algorithm reads them, checked where it can be made for example data; else as they are.
Properties settingsOf(const Step& step, const AlgorithmFactory::Descriptor& descriptor) {
  for (const auto& set : exampleData())
    if (const auto algorithm = descriptor.create(DataList{set.get()})) return settingsFor(step, *algorithm);
  Properties settings;
  for (const auto& [key, value] : step.values)
    settings.setParam(key, value);
  return settings;
}

BlockingConnection enter(ImageStream& stream, StageStatistics& statistics) {
  return stream.dataSignal.connectBlocking([&statistics](const std::shared_ptr<const StreamData>& data) {
    statistics.enter(data->timestampDevice(), Clock::now());
  });
}

BlockingConnection leave(ImageStream& stream, StageStatistics& statistics) {
  return stream.dataSignal.connectBlocking([&statistics](const std::shared_ptr<const StreamData>& data) {
    statistics.leave(data->timestampDevice(), Clock::now());
  });
}

} // namespace

LiveChain::LiveChain(ImageStream& source, const std::vector<Step>& steps, int image) : m_output(&source) {
  m_whole.name = "All steps";
  m_whole.entering = enter(source, m_whole.statistics);
  for (const Step& step : steps) {
    const AlgorithmFactory::Descriptor descriptor = findAlgorithm(step.id);
    Properties settings;
    settings.setParam("algorithmName", descriptor.id);
    settings.setParam("imageIndex", m_stages.empty() ? image : 0);
    settings.subProperties("algorithmConfig") = settingsOf(step, descriptor);

    Stage& stage = *m_stages.emplace_back(std::make_unique<Stage>());
    stage.name = step.id;
    stage.entering = enter(*m_output, stage.statistics);
    stage.executor = findAlgorithm("SingleImageStreamAlgorithmExecutor").create(DataList{m_output});
    auto* executor = dynamic_cast<StreamAlgorithm*>(stage.executor.get());
    auto* output = executor ? dynamic_cast<ImageStream*>(executor->stream()) : nullptr;
    if (!output) throw std::runtime_error(fmt::format("{} can't be executed on this stream", step.id));
    executor->configure(&settings);
    stage.leaving = leave(*output, stage.statistics);
    m_output = output;
  }
}

void LiveChain::watchOutput() {
  m_whole.leaving = leave(*m_output, m_whole.statistics);
}

LiveChain::~LiveChain() {
  m_whole.leaving.disconnect();
  while (!m_stages.empty())
    m_stages.pop_back();
}

void LiveChain::waitUntilEmpty() {
  m_whole.statistics.waitUntilEmpty(std::chrono::seconds(5));
}

std::string LiveChain::report() const {
  std::string text;
  for (const auto& stage : m_stages)
    text += fmt::format("{}: {}\n", stage->name, stage->statistics.report());
  if (m_stages.size() > 1) text += fmt::format("{}: {}\n", m_whole.name, m_whole.statistics.report());
  return text;
}

} // namespace Kelvaris::CommandLine
