#pragma once

#include "viewer/DataItem.h"
#include "viewer/ReportedProgress.h"
#include "viewer/Step.h"

#include <memory>
#include <string>
#include <vector>

namespace Kelvaris::Viewer {

/// One compute() of a step. Of the main thread until it is given to the worker, and again when that is done.
struct Run {
  Run(Step& s, CoalescedCall& call) : step(&s), algorithm(&s.algorithm()), inputs(s.inputs()), reported(call) {}

  Step* step; ///< null when it has been removed; of the main thread
  Algorithm* algorithm;
  std::vector<DataItem*> inputs;
  ReportedProgress reported;
  bool superseded = false; ///< another run is due before this one is done; of the main thread
  // What a run needs that was removed meanwhile, in the order in which it has to go.
  std::unique_ptr<Step> removedStep;
  std::vector<std::unique_ptr<DataItem>> removedItems;

  int status = Algorithm::Failure;
  std::unique_ptr<SharedImageSet> output;
  std::string error;
};

} // namespace Kelvaris::Viewer
