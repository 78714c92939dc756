#include "kelvaris/StreamCommand.h"

#include "kelvaris/CancelOnInterrupt.h"
#include "kelvaris/SimulatedStream.h"
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
};

void runSimulated(const Options& options) {
  if (!(options.seconds > 0.0 && options.seconds <= 1e6))
    throw std::invalid_argument(
        fmt::format("The stream can't run for {} seconds, it must be above 0 and at most 1000000", options.seconds));
  const SimulationSettings settings = SimulationSettings::of(options.simulation);
  PluginManager::get().loadAll();
  Progress progress;
  const CancelOnInterrupt guard(progress);
  SimulatedStream simulation(settings.properties);

  ArrivalStatistics arrivals; // of the worker thread
  auto connection = simulation.stream().dataSignal.connectBlocking(
      [&](const std::shared_ptr<const StreamData>&) { arrivals.add(Clock::now()); });
  simulation.start();
  const auto end =
      Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options.seconds));
  simulation.waitFor([&] { return Clock::now() >= end || progress.wasCanceled(); });
  simulation.stream().closeAsync().wait();
  connection.disconnect();
  fmt::print("{}", arrivals.report(settings.rate));
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
  command.callback([options, &job] { job = [options] { runSimulated(*options); }; });
}

} // namespace Kelvaris::CommandLine
