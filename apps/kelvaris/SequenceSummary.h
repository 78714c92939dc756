#pragma once

#include "kelvaris/AcquisitionSummary.h"

#include "Core/Properties.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Kelvaris::CommandLine {

/// What a scanner's programme holds, from the stored form of an acquisition sequence.
struct SequenceSummary {
  std::vector<AcquisitionSummary> frames;
  std::vector<std::pair<int, int>> order;    ///< frame and event of each firing
  std::vector<std::optional<double>> delays; ///< from each firing to the next, s; empty: not stated
  std::vector<int> repetitions;              ///< how often each event of a frame fires
};

/// Reads and checks the stored form. Throws std::invalid_argument that names the place and the value: like
/// summarizeAcquisition, for frames of different arrays, for firings of events that aren't there, events that fire more
/// often than others of their frame or never, and negative or missing delays.
SequenceSummary summarizeSequence(const Properties& properties);

/// True for the stored form of a sequence, complete or not; an acquisition's is not.
bool isSequence(const Properties& properties);

/// Lines with `indent` blanks in front: the array, the frames, the order of the firings (cut unless `full`) and the
/// delays.
std::string describeSequence(const SequenceSummary& summary, int indent, bool full);

} // namespace Kelvaris::CommandLine
