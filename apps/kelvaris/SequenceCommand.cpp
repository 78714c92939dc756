#include "kelvaris/SequenceCommand.h"

#include "kelvaris/NumberList.h"
#include "kelvaris/PropertiesFile.h"
#include "kelvaris/Quantity.h"
#include "kelvaris/SequenceDesign.h"
#include "kelvaris/SequenceSummary.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <map>
#include <memory>

namespace Kelvaris::CommandLine {
namespace {

struct Options {
  std::vector<std::string> acquisitions;
  std::string ensemble = "1", mode = "per-frame", delay = "none";
  std::string output;
};

const std::map<std::string, FiringOrder> kOrders = {{"per-event", FiringOrder::PerEvent},
                                                    {"per-frame", FiringOrder::PerFrame},
                                                    {"interleaved", FiringOrder::Interleaved}};

void run(const Options& options) {
  SequenceDesign design;
  design.order = kOrders.at(options.mode);
  design.ensembles = parseWholeNumbers(options.ensemble);
  design.delays.clear();
  for (const std::string& delay : splitText(options.delay, ','))
    design.delays.push_back(delay == "none" ? std::nullopt : std::optional(parseTime(delay)));
  for (const std::string& path : options.acquisitions)
    design.acquisitions.push_back(readPropertiesFile(path, "an acquisition"));
  const Properties sequence = design.toProperties();
  writePropertiesFile(options.output, sequence);
  fmt::print("{}:\n{}", options.output, describeSequence(summarizeSequence(sequence), 2, false));
}

} // namespace

void addSequenceCommand(CLI::App& app, Job& job) {
  auto options = std::make_shared<Options>();
  CLI::App& command = *app.add_subcommand("sequence", "Say in which order the events of acquisitions fire, for "
                                                      "simulation");
  command.add_option("ACQUISITION", options->acquisitions, "The frames (XML, see kelvaris acquisition), of one array")
      ->required();
  command.add_option("--output,-o", options->output, "The sequence as XML")->required();
  command.add_option("--ensemble", options->ensemble, "How often each event fires: a number, or one a frame as 1,8")
      ->capture_default_str();
  command
      .add_option("--mode", options->mode,
                  "Frames one after the other, each event's firings together (per-event) or the frame again and again "
                  "(per-frame); or one firing of each frame in turn (interleaved)")
      ->capture_default_str()
      ->check(CLI::IsMember(&kOrders));
  command
      .add_option("--delay", options->delay,
                  "From a firing to the next: a time as 100us, or none, or one a frame as 100us,none")
      ->capture_default_str();
  command.callback([options, &job] { job = [options] { run(*options); }; });
}

} // namespace Kelvaris::CommandLine
