#include "kelvaris/SimulateCommand.h"

#include "kelvaris/CancelOnInterrupt.h"
#include "kelvaris/MakeComponent.h"
#include "kelvaris/OutputFile.h"
#include "kelvaris/ProgressBar.h"
#include "kelvaris/Recording.h"
#include "kelvaris/SimulatedStream.h"

#include "Lib/PluginManager.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <atomic>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>

namespace Kelvaris::CommandLine {
namespace {

namespace fs = std::filesystem;

struct Options {
  SimulationOptions simulation;
  int frames = 1;
  std::string layout = "channels,fastTime,slowTime";
  std::string output;
};

/// "fastTime,channels,slowTime" as a stored layout.
Properties layoutOf(const std::string& text) {
  const std::vector<RecordingAxis> axes = parseLayout(text);
  std::vector<int> stored;
  for (const RecordingAxis axis : axes)
    if (axis <= RecordingAxis::SlowTime) stored.push_back(static_cast<int>(axis));
  if (axes.size() != 3 || stored.size() != 3)
    throw std::invalid_argument(fmt::format(
        "The layout \"{}\" must name channels, fastTime and slowTime, in the order width, height, slices", text));
  Properties properties;
  properties.setParam("axisSemantics", stored);
  return properties;
}

/// What the emissions become: one file with all images, or a folder with a file for each frame of the sequence.
class Files {
public:
  Files(const fs::path& path, std::size_t frames) : m_folder(path), m_isFolder(path.extension() != ".kvx") {
    if (!m_isFolder) {
      m_files.push_back(OutputFile::create(path, true));
      return;
    }
    std::error_code error;
    m_madeFolder = fs::create_directory(path, error);
    if (!fs::is_directory(path, error))
      throw std::runtime_error(fmt::format("{} can't be made a folder, and a file must end in .kvx", path.string()));
    for (std::size_t i = 0; i < frames; ++i)
      m_files.push_back(OutputFile::create(path / fmt::format("frame-{}.kvx", i), true));
  }
  ~Files() {
    m_files.clear();
    std::error_code error;
    if (m_madeFolder) fs::remove(m_folder, error); // unless there is something in it
  }
  Files(const Files&) = delete;
  Files& operator=(const Files&) = delete;

  /// One image of each frame of the sequence.
  void append(const SharedImageSet& emission) {
    if (!m_isFolder) return m_files[0]->append(emission);
    for (int i = 0; i < emission.size(); ++i) {
      const auto one = emission.clone(3);
      one->add(emission.shared(i), emission.timestamp(i));
      one->elementwiseComponents().components(0) = emission.elementwiseComponents().components(i);
      m_files.at(static_cast<std::size_t>(i))->append(*one);
    }
  }
  void close() {
    for (const auto& file : m_files)
      file->close();
  }
  void finish() {
    for (const auto& file : m_files) {
      file->finish();
      fmt::print("Wrote {}\n", file->summary());
    }
  }

private:
  fs::path m_folder;
  bool m_isFolder;
  bool m_madeFolder = false;
  std::vector<std::unique_ptr<OutputFile>> m_files;
};

void run(const Options& options) {
  if (options.frames < 1)
    throw std::invalid_argument(fmt::format("There are {} frames to simulate, it must be 1 or more", options.frames));
  SimulationSettings settings = SimulationSettings::of(options.simulation);
  const Properties layout = layoutOf(options.layout);
  settings.properties.subProperties("channelDataLayout") = layout;
  // As fast as it goes; the time that the images are given is that of the rate.
  settings.properties.setParam("targetFrameRate", 1e9);

  PluginManager::get().loadAll();
  const auto layoutComponent = makeComponent("ChannelDataLayout", layout);
  Progress progress;
  const CancelOnInterrupt guard(progress);
  SimulatedStream simulation(settings.properties);
  Files files(options.output, settings.sequence.frames.size());

  std::optional<ProgressBar> bar(std::in_place, options.frames, 1);
  int count = 0;              // of the worker thread
  std::exception_ptr failure; // set before `done`
  std::atomic<bool> done = false;
  auto connection = simulation.stream().dataSignal.connectBlocking([&](const std::shared_ptr<const StreamData>& data) {
    const auto* emission = dynamic_cast<const ImageStreamData*>(data.get());
    if (!emission || done) return;
    try {
      const auto images = emission->images()->clone(4);
      for (int i = 0; i < images->size(); ++i) {
        images->setTimestamp(1000.0 * count / settings.rate, i);
        images->elementwiseComponents().components(i).add(layoutComponent->clone());
      }
      files.append(*images);
    } catch (...) {
      failure = std::current_exception();
    }
    bar->stepDone();
    if (failure || ++count == options.frames) {
      done = true;
      simulation.stream().stopAsync();
      simulation.notify();
    }
  });
  simulation.start();
  simulation.waitFor([&] { return done || progress.wasCanceled(); });
  simulation.stream().closeAsync().wait();
  connection.disconnect();
  bar.reset();
  if (failure) std::rethrow_exception(failure);
  if (!done) throw Canceled();
  files.close();
  if (progress.wasCanceled()) throw Canceled();
  files.finish();
}

} // namespace

void addSimulateCommand(CLI::App& app, Job& job) {
  auto options = std::make_shared<Options>();
  CLI::App& command = *app.add_subcommand("simulate", "Channel data of a sequence and a phantom");
  options->simulation.addTo(command);
  command.add_option("--frames", options->frames, "Emissions, each with an image of every frame of the sequence")
      ->capture_default_str();
  command
      .add_option("--layout", options->layout, "The axes that the width, the height and the slices of an image carry")
      ->capture_default_str();
  command
      .add_option(
          "--output,-o", options->output,
          "A file X.kvx for all images, or a folder that gets frame-0.kvx, ...: one file a frame of the sequence")
      ->required();
  command.callback([options, &job] { job = [options] { run(*options); }; });
}

} // namespace Kelvaris::CommandLine
