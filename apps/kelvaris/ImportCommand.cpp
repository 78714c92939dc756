#include "kelvaris/ImportCommand.h"

#include "kelvaris/AcquisitionSummary.h"
#include "kelvaris/CancelOnInterrupt.h"
#include "kelvaris/MakeComponent.h"
#include "kelvaris/NumberList.h"
#include "kelvaris/ProgressBar.h"
#include "kelvaris/PropertiesFile.h"
#include "kelvaris/Recording.h"

#include "Core/Progress.h"
#include "Lib/KelvarisFile.h"
#include "Lib/PluginManager.h"
#include "Lib/SampleFile.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <chrono>
#include <cmath>
#include <memory>

namespace Kelvaris::CommandLine {
namespace {

struct ImportOptions {
  std::string input, acquisition, output;
  std::string dataset, layout, pairs;
  std::optional<int> indexBase;
  std::string shape, type;
  bool columnMajor = false;
  std::size_t headerBytes = 0;
  std::string offset = "0", pixel = "auto";
  double frameRate = 0.0;
  bool anyLength = false;
};

std::unique_ptr<SampleArray> openSamples(const ImportOptions& options) {
  if (options.shape.empty() != options.type.empty())
    throw std::invalid_argument("Raw samples need both --shape and --type");
  if (options.shape.empty()) return SampleFile::open(options.input)->array(options.dataset);
  SampleArray::Extents shape;
  for (const int extent : parseWholeNumbers(options.shape)) {
    if (extent < 1) throw std::invalid_argument(fmt::format("The shape {} has an extent below 1", options.shape));
    shape.push_back(static_cast<std::size_t>(extent));
  }
  return openRawSamples(options.input, sampleTypeFromName(options.type), shape, options.columnMajor,
                        options.headerBytes);
}

RecordingOptions recordingOptions(const ImportOptions& options, const SampleArray& samples) {
  RecordingOptions recording;
  if (!options.layout.empty()) recording.layout = parseLayout(options.layout);
  if (!options.pairs.empty()) {
    const auto names = splitText(options.pairs, ',');
    if (names.size() != 2)
      throw std::invalid_argument(fmt::format("\"{}\" doesn't name two variables as in tx,rx", options.pairs));
    const auto file = SampleFile::open(options.input);
    recording.pairs = {file->array(names[0])->readAll(), file->array(names[1])->readAll(), options.indexBase};
  }
  if (options.offset == "mean")
    recording.offset = Recording::mean(samples);
  else if (options.offset == "trace-mean")
    recording.subtractTraceMeans = true;
  else if (const auto offset = parseNumbers(options.offset); offset.size() == 1)
    recording.offset = offset[0];
  else
    throw std::invalid_argument(
        fmt::format("\"{}\" is no offset; there are a number, mean and trace-mean", options.offset));
  if (options.pixel != "auto") recording.pixelType = options.pixel == "short" ? PixelInt16 : PixelFloat;
  recording.anyLength = options.anyLength;
  return recording;
}

void run(const ImportOptions& options) {
  if (!(options.frameRate >= 0.0 && std::isfinite(options.frameRate)))
    throw std::invalid_argument(fmt::format("The frame rate is {} Hz, it must be a number above 0", options.frameRate));
  const auto start = std::chrono::steady_clock::now();
  PluginManager::get().loadAll();
  Progress progress;
  const CancelOnInterrupt guard(progress);
  const Properties acquisition = readPropertiesFile(options.acquisition, "an acquisition");
  const AcquisitionSummary summary = summarizeAcquisition(acquisition);
  auto samples = openSamples(options);
  const std::string described = fmt::format("{} {}", sampleTypeName(samples->type()), shapeText(samples->shape()));
  const RecordingOptions recordingOptions = CommandLine::recordingOptions(options, *samples);
  const Recording recording(std::move(samples), summary, recordingOptions);

  // Algorithms look for these beside each image, not beside the set.
  DataComponentList components;
  components.add(makeComponent("FrameAcquisition", acquisition));
  Properties layout;
  layout.setParam("axisSemantics",
                  std::vector<int>(recording.axisSemantics().begin(), recording.axisSemantics().end()));
  components.add(makeComponent("ChannelDataLayout", layout));

  KelvarisFile::Writer writer(options.output);
  {
    ProgressBar bar(recording.size(), 1);
    for (int i = 0; i < recording.size(); ++i) {
      if (progress.wasCanceled()) throw Canceled();
      writer.append(SharedImage(recording.frame(i)), components,
                    options.frameRate > 0.0 ? 1000.0 * i / options.frameRate : 0.0);
      bar.stepDone();
    }
  }
  SharedImageSet set;
  set.setModality(Data::Ultrasound);
  set.setVolumetric(true);
  writer.close(set);
  if (progress.wasCanceled()) throw Canceled();
  writer.finish();
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  fmt::print("Import: {} -> {}, {} frame{} of {} in {:.3f} s on the CPU\n", described,
             ImageDescriptor::pixelTypeName(recording.descriptor().pixelType()), recording.size(),
             recording.size() == 1 ? "" : "s", recording.frameText(), seconds.count());
  fmt::print("Wrote {}\n", options.output);
}

} // namespace

void addImportCommand(CLI::App& app, Job& job) {
  auto options = std::make_shared<ImportOptions>();
  CLI::App& command = *app.add_subcommand("import", "Bring in recorded samples as channel data");
  command.add_option("SAMPLES", options->input, "An HDF5, MATLAB (5 to 7.3), NumPy or raw binary file")->required();
  command.add_option("--acquisition,-a", options->acquisition, "How they were recorded (see kelvaris acquisition)")
      ->required();
  command.add_option("--output,-o", options->output, "The channel data (.kvx)")->required();
  command.add_option("--dataset", options->dataset,
                     "The variable: RF, exp_data.time_data, /group/rf; needed if the file holds several");
  command
      .add_option("--layout", options->layout,
                  "What the indices of the variable count, in the order in which its own tools show its shape: "
                  "channels, fastTime, slowTime (events), frames, traces")
      ->default_str("channels,fastTime,slowTime of a MATLAB variable, slowTime,fastTime,channels of others");
  command.add_option("--frame-rate", options->frameRate, "Hz; gives the frames their times");
  command.add_flag("--any-length", options->anyLength,
                   "Take recordings that are longer or shorter than the acquisition's time window");

  const char* group = "Samples";
  command
      .add_option("--offset", options->offset,
                  "Subtracted from the samples: a number, mean (of all samples) or trace-mean (of each trace)")
      ->capture_default_str()
      ->group(group);
  command.add_option("--pixel", options->pixel, "Type to store; auto: short for integers of up to 16 bits, else float")
      ->capture_default_str()
      ->check(CLI::IsMember({"auto", "short", "float"}))
      ->group(group);

  group = "Traces by pairs of elements";
  command
      .add_option(
          "--pairs", options->pairs,
          "Variables with the transmitting and the receiving element of each trace, as tx,rx; missing pairs are "
          "filled by reciprocity")
      ->group(group);
  command.add_option("--index-base", options->indexBase, "Number of the first element in --pairs, 0 or 1")
      ->default_str("told from the numbers")
      ->check(CLI::Range(0, 1))
      ->group(group);

  group = "Raw binary files (little-endian)";
  command.add_option("--shape", options->shape, "Extents, as 32,128,334: the last index runs fastest")->group(group);
  command.add_option("--type", options->type, "int8, uint8, int16, uint16, int32, uint32, float, double")->group(group);
  command.add_flag("--column-major", options->columnMajor, "The first index runs fastest")->group(group);
  command.add_option("--header-bytes", options->headerBytes, "Bytes before the samples")->group(group);

  command.callback([options, &job] { job = [options] { run(*options); }; });
}

} // namespace Kelvaris::CommandLine
