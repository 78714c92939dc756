#include "kelvaris/Chain.h"

#include "kelvaris/Command.h"

#include "CUDA/Device.h"
#include "Lib/FactoryRegistry.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>

namespace Kelvaris::CommandLine {
namespace {

using Clock = std::chrono::steady_clock;

/// Moves images and set-wide state.
void handOver(SharedImageSet& from, SharedImageSet& to) {
  to.removeImages();
  for (int i = 0; i < from.size(); ++i) {
    to.add(from.shared(i), from.timestamp(i));
    to.elementwiseComponents().components(i) = std::move(from.elementwiseComponents().components(i));
  }
  to.components() = from.components();
  to.properties() = from.properties();
  to.setModality(from.modality());
  to.setVolumetric(from.isVolumetric());
  to.setName(from.name());
  from.removeImages();
}

std::string describe(const SharedImageSet& set) {
  if (set.size() == 0) return "no image";
  return fmt::format("{}{}", set.get(0).descriptor().toString(),
                     set.modality() == Data::Ultrasound ? "" : ", not marked as ultrasound");
}

/// What an algorithm may miss: that images of a file are no live stream, and which components they carry.
std::string describeData(const SharedImageSet& set) {
  std::string text = "images of a file: " + describe(set);
  std::vector<std::string> ids;
  const auto collect = [&](const DataComponentList& components) {
    for (const auto& component : components)
      if (std::find(ids.begin(), ids.end(), component->id()) == ids.end()) ids.push_back(component->id());
  };
  collect(set.components());
  if (set.size() > 0) collect(set.elementwiseComponents().components(0));
  return ids.empty() ? text : fmt::format("{}, with {}", text, fmt::join(ids, ", "));
}

/// What made the image, where its form shows it; pixels in main memory may have come from anywhere.
std::string executorOf(const SharedImage& image) {
  if (image.hasForm(ImageForm::Device)) return " on " + CUDA::Device::current().name();
  return image.hasForm(ImageForm::Gl) ? " on OpenGL" : "";
}

} // namespace

struct Chain::Stage {
  Step step;
  AlgorithmFactory::Descriptor descriptor;
  SharedImageSet input; ///< outlives the algorithm that was made for it
  std::unique_ptr<Algorithm> algorithm;
  std::vector<OutputFile*> outputs;

  std::string inputText, outputText, executor;
  int images = 0;
  Clock::duration time{};
};

Chain::Chain(const std::vector<Step>& steps, Progress& progress) : m_progress(progress) {
  for (const Step& step : steps) {
    auto stage = std::make_unique<Stage>();
    stage->step = step;
    stage->descriptor = findAlgorithm(step.id);
    m_stages.push_back(std::move(stage));
  }
}

Chain::~Chain() = default;

int Chain::size() const {
  return static_cast<int>(m_stages.size());
}

void Chain::addOutput(int step, OutputFile& output) {
  (step < 0 ? m_inputOutputs : m_stages.at(static_cast<std::size_t>(step))->outputs).push_back(&output);
}

void Chain::run(SharedImageSet& images, int index) {
  for (OutputFile* output : m_inputOutputs)
    output->append(images);
  SharedImageSet* current = &images;
  std::unique_ptr<SharedImageSet> result;
  for (const auto& stage : m_stages) {
    if (m_progress.wasCanceled()) throw Canceled();
    handOver(*current, stage->input);
    result = compute(*stage, index);
    for (OutputFile* output : stage->outputs)
      output->append(*result);
    current = result.get();
    if (m_stepDone) m_stepDone();
  }
  if (m_progress.wasCanceled()) throw Canceled();
  images.removeImages();
}

void Chain::create(Stage& stage) const {
  DataList data{&stage.input};
  stage.algorithm = stage.descriptor.create(data);
  if (!stage.algorithm) {
    std::vector<std::string> fitting;
    for (const auto& descriptor : FactoryRegistry::get().compatibleDescriptors(data))
      fitting.push_back(descriptor.id.substr(descriptor.id.find('.') + 1));
    throw std::runtime_error(fmt::format("{} does not work on this data ({}); what does: {}", stage.step.id,
                                         describeData(stage.input),
                                         fitting.empty() ? "nothing" : fmt::format("{}", fmt::join(fitting, ", "))));
  }
  const Properties settings = settingsFor(stage.step, *stage.algorithm);
  stage.algorithm->configure(&settings);
  stage.algorithm->setProgress(&m_progress);
}

std::unique_ptr<SharedImageSet> Chain::compute(Stage& stage, int index) const {
  if (!stage.algorithm) {
    stage.inputText = describe(stage.input);
    create(stage);
  }
  const auto begin = Clock::now();
  stage.algorithm->compute();
  stage.time += Clock::now() - begin;

  if (stage.algorithm->status() == Algorithm::Canceled) throw Canceled();
  auto output = stage.algorithm->takeOutput();
  auto result = output.extract<SharedImageSet>();
  if (stage.algorithm->status() != Algorithm::Success || !result || result->size() == 0)
    throw std::runtime_error(fmt::format("{} failed on image {} ({}) with status {}; the log above says why",
                                         stage.step.id, index, describe(stage.input), stage.algorithm->status()));
  stage.input.removeImages();
  stage.images += result->size();
  if (stage.outputText.empty()) {
    stage.outputText = result->get(0).descriptor().toString();
    stage.executor = executorOf(result->get(0));
  }
  return result;
}

std::vector<std::string> Chain::report() const {
  std::vector<std::string> lines;
  for (const auto& stage : m_stages)
    lines.push_back(fmt::format("{}: {} -> {}; {} image{} in {:.3f} s{}", stage->step.id, stage->inputText,
                                stage->outputText, stage->images, stage->images == 1 ? "" : "s",
                                std::chrono::duration<double>(stage->time).count(), stage->executor));
  return lines;
}

} // namespace Kelvaris::CommandLine
