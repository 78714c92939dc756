#pragma once

#include "kelvaris/OutputFile.h"
#include "kelvaris/Step.h"

#include "Core/Progress.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Kelvaris::CommandLine {

/// Runs images through steps, one after the other. Each step's algorithm is made once, when the first image reaches it,
/// and keeps its caches; an image is let go as soon as the step behind it has its result, so that two images are held
/// at a time, however many pass.
class Chain {
public:
  /// The progress is asked for cancelling before every step; it must outlive the chain. Throws std::invalid_argument
  /// for an unknown algorithm.
  Chain(const std::vector<Step>& steps, Progress& progress);
  ~Chain();

  int size() const;
  /// The result of the step goes to the output; -1 is what comes in. The output must outlive the chain.
  void addOutput(int step, OutputFile& output);
  /// Called after each step of each image.
  void setStepDone(std::function<void()> stepDone) { m_stepDone = std::move(stepDone); }

  /// Runs the images of the set through all steps and takes them out of it. `index` is their place in the file, for
  /// messages. Throws std::runtime_error if a step fails or doesn't work on what it gets, std::invalid_argument for
  /// parameters that the algorithm doesn't have, and Canceled.
  void run(SharedImageSet& images, int index);

  /// One line a step: what came out, how long it took, what ran it where that is known.
  std::vector<std::string> report() const;

private:
  struct Stage;
  void create(Stage& stage) const;
  std::unique_ptr<SharedImageSet> compute(Stage& stage, int index) const;

  Progress& m_progress;
  std::vector<std::unique_ptr<Stage>> m_stages;
  std::vector<OutputFile*> m_inputOutputs;
  std::function<void()> m_stepDone;
};

} // namespace Kelvaris::CommandLine
