#include "kelvaris/StreamCommand.h"

#include "kelvaris/CancelOnInterrupt.h"
#include "kelvaris/LiveChain.h"
#include "kelvaris/Quantity.h"
#include "kelvaris/SimulatedStream.h"
#include "kelvaris/StreamRecorder.h"
#include "kelvaris/StreamStatistics.h"

#include "Lib/PluginManager.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <chrono>
#include <memory>
#include <stdexcept>

namespace Kelvaris::CommandLine {
namespace {

using Clock = std::chrono::steady_clock;

struct Options {
  SimulationOptions simulation;
  double seconds = 10.0;
  std::vector<std::string> steps;
  std::string chain;
  int frame = 0;
  std::string record;
  std::vector<std::string> pngEvery; ///< the interval and the folder
};

std::vector<Step> stepsOf(const Options& options) {
  if (!options.chain.empty()) return readChain(options.chain);
  std::vector<Step> steps;
  for (const std::string& step : options.steps)
    steps.push_back(parseStep(step));
  return steps;
}

StreamRecorder::Options recordingOf(const Options& options) {
  StreamRecorder::Options recording;
  if (!options.record.empty()) recording.file = options.record;
  if (!options.pngEvery.empty()) {
    recording.pictureInterval = parseTime(options.pngEvery.at(0));
    recording.pictures = options.pngEvery.at(1);
  }
  return recording;
}

void runSimulated(const Options& options) {
  if (!(options.seconds > 0.0 && options.seconds <= 1e6))
    throw std::invalid_argument(
        fmt::format("The stream can't run for {} seconds, it must be above 0 and at most 1000000", options.seconds));
  const SimulationSettings settings = SimulationSettings::of(options.simulation);
  const std::vector<Step> steps = stepsOf(options);
  const StreamRecorder::Options recording = recordingOf(options);
  if (const int frames = static_cast<int>(settings.sequence.frames.size());
      options.frame < 0 || options.frame >= frames)
    throw std::invalid_argument(
        fmt::format("There is no frame {} in the sequence, its frames are 0 to {}", options.frame, frames - 1));
  PluginManager::get().loadAll();
  Progress progress;
  const CancelOnInterrupt guard(progress);
  SimulatedStream simulation(settings.properties);

  ArrivalStatistics arrivals; // of the worker thread
  auto connection = simulation.stream().dataSignal.connectBlocking(
      [&](const std::shared_ptr<const StreamData>&) { arrivals.add(Clock::now()); });
  LiveChain chain(simulation.stream(), steps, options.frame);
  StreamRecorder recorder(chain.output(), recording, [&] { simulation.notify(); });
  chain.watchOutput();
  simulation.start();
  const auto end =
      Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options.seconds));
  simulation.waitFor([&] { return Clock::now() >= end || progress.wasCanceled() || recorder.failed(); });
  simulation.stream().closeAsync().wait();
  connection.disconnect();
  chain.waitUntilEmpty();
  const std::string written = recorder.finish();
  fmt::print("{}{}{}", arrivals.report(settings.rate), chain.report(), written);
}

} // namespace

void addStreamCommand(CLI::App& app, Job& job) {
  CLI::App& streams = *app.add_subcommand("stream", "Run a live stream");
  streams.require_subcommand(1);
  CLI::App& command = *streams.add_subcommand(
      "simulated", "Channel data of a sequence and a phantom, live; tells how well it keeps the rate. Ctrl-C ends it");
  auto options = std::make_shared<Options>();
  options->simulation.addTo(command);
  command.add_option("--seconds", options->seconds, "How long it runs")->capture_default_str();
  const char* group = "Processing";
  CLI::Option* step = command
                          .add_option("--step", options->steps,
                                      "An algorithm on each emission, as for kelvaris run; may be given several times, "
                                      "each works on a thread of its own and drops what it can't keep up with")
                          ->allow_extra_args(false)
                          ->group(group);
  command.add_option("--chain", options->chain, "A file with steps (XML), in place of --step")
      ->excludes(step)
      ->group(group);
  command.add_option("--frame", options->frame, "The frame of the sequence that the steps work on")
      ->capture_default_str()
      ->group(group);
  command.add_option("--record", options->record, "What comes out at the end, as X.kvx")->group(group);
  command
      .add_option("--png-every", options->pngEvery, "Pictures of what comes out at the end: time between two, folder")
      ->type_name("TIME FOLDER")
      ->expected(2)
      ->group(group);
  command.callback([options, &job] { job = [options] { runSimulated(*options); }; });
}

} // namespace Kelvaris::CommandLine
