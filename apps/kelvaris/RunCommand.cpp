#include "kelvaris/RunCommand.h"

#include "kelvaris/CancelOnInterrupt.h"
#include "kelvaris/Chain.h"
#include "kelvaris/OutputFile.h"
#include "kelvaris/PictureStyle.h"
#include "kelvaris/ProgressBar.h"
#include "kelvaris/Step.h"

#include "Core/Progress.h"
#include "Lib/KelvarisFile.h"
#include "Lib/PendingFile.h"
#include "Lib/PluginManager.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <charconv>
#include <fstream>
#include <memory>
#include <set>
#include <stdexcept>
#include <vector>

namespace Kelvaris::CommandLine {
namespace {

struct RunOptions {
  std::string input;
  std::string images;
  std::string saveChain;
  std::string maskColor = "transparent";
  std::string pixels = "square";
  std::vector<std::string> steps, chains, outputs;
  /// The three lists above in the order in which their elements stand on the command line.
  std::vector<const CLI::Option*> order;
  const CLI::Option *stepOption = nullptr, *chainOption = nullptr, *outputOption = nullptr;
};

/// What to run: the steps, and for each output the index of the step whose result it gets (-1: the input).
struct Plan {
  std::vector<Step> steps;
  std::vector<std::pair<std::string, int>> outputs;
};

Plan planOf(const RunOptions& options) {
  Plan plan;
  std::size_t step = 0, chain = 0, output = 0;
  for (const CLI::Option* option : options.order) {
    if (option == options.stepOption) {
      plan.steps.push_back(parseStep(options.steps[step++]));
    } else if (option == options.chainOption) {
      for (Step& read : readChain(options.chains[chain++]))
        plan.steps.push_back(std::move(read));
    } else if (option == options.outputOption) {
      plan.outputs.emplace_back(options.outputs[output++], static_cast<int>(plan.steps.size()) - 1);
    }
  }
  std::set<std::string> paths;
  for (const auto& [path, index] : plan.outputs)
    if (!paths.insert(path).second) throw std::invalid_argument(fmt::format("The output {} is given twice", path));
  if (plan.outputs.empty()) throw std::invalid_argument("There is no --output");
  if (plan.outputs.back().second != static_cast<int>(plan.steps.size()) - 1)
    throw std::invalid_argument(fmt::format(
        "The result of {} is not written: an --output gets the result of the step before it", plan.steps.back().id));
  return plan;
}

void saveChain(const std::string& path, const std::vector<Step>& steps) {
  PendingFile file(path);
  std::ofstream stream(file.path(), std::ios::binary);
  stream << chainToXml(steps);
  stream.close();
  if (!stream) throw std::runtime_error(fmt::format("Can't write {}", path));
  file.commit();
}

void run(const RunOptions& options) {
  const Plan plan = planOf(options);
  const PictureStyle style{.maskColor = parseMaskColor(options.maskColor), .squarePixels = options.pixels == "square"};
  PluginManager::get().loadAll();
  Progress progress;
  const CancelOnInterrupt guard(progress);

  const KelvarisFile::Reader reader(options.input);
  const auto [first, last] = parseRange(options.images, reader.size());

  // Before the chain, which they must outlive.
  std::vector<std::unique_ptr<OutputFile>> outputs;
  Chain chain(plan.steps, progress);
  for (const auto& [path, step] : plan.outputs)
    chain.addOutput(step, *outputs.emplace_back(OutputFile::create(path, last - first > 1, style)));
  {
    ProgressBar bar((last - first) * chain.size(), chain.size());
    chain.setStepDone([&bar] { bar.stepDone(); });
    const std::unique_ptr<SharedImageSet> images = reader.set().clone(3);
    for (int i = first; i < last; ++i) {
      if (progress.wasCanceled()) throw Canceled();
      images->add(reader.image(i), reader.timestamp(i));
      images->elementwiseComponents().components(0) = reader.components(i);
      chain.run(*images, i);
    }
  }
  for (const auto& output : outputs)
    output->close();
  if (progress.wasCanceled()) throw Canceled();
  for (const auto& output : outputs)
    output->finish();
  if (!options.saveChain.empty()) saveChain(options.saveChain, plan.steps);

  for (const std::string& line : chain.report())
    fmt::print("{}\n", line);
  for (const auto& output : outputs)
    fmt::print("Wrote {}\n", output->summary());
}

} // namespace

std::pair<int, int> parseRange(const std::string& text, int size) {
  if (size == 0) throw std::invalid_argument("The file holds no images");
  const auto number = [&](std::string_view digits, int missing) {
    if (digits.empty()) return missing;
    int value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (error != std::errc() || end != digits.data() + digits.size() || value < 0)
      throw std::invalid_argument(fmt::format("\"{}\" is no range of images; expected a:b, a:, :b or a", text));
    return value;
  };
  if (text.empty()) return {0, size};
  const std::string_view view = text;
  const auto colon = view.find(':');
  const int first = number(view.substr(0, colon), 0);
  const int last = colon == std::string_view::npos ? first + 1 : number(view.substr(colon + 1), size);
  if (first >= last || last > size)
    throw std::invalid_argument(fmt::format("There are no images {} in the file; it holds {}, the first is 0 (a:b are "
                                            "the images a to b - 1)",
                                            text, size));
  return {first, last};
}

void addRunCommand(CLI::App& app, Job& job) {
  CLI::App* command = app.add_subcommand("run", "Run the images of a file through a chain of algorithms");
  auto options = std::make_shared<RunOptions>();
  command->add_option("FILE", options->input, "The images (.kvx)")->required();
  options->stepOption =
      command
          ->add_option("--step", options->steps,
                       "An algorithm and its parameters, ID or ID:key=value,...; may be given several times. A value "
                       "with commas goes into quotes or brackets, two numbers may be written 512x512")
          ->allow_extra_args(false);
  options->chainOption = command->add_option("--chain", options->chains, "A file with steps (XML), in place of --step")
                             ->allow_extra_args(false);
  options->outputOption = command
                              ->add_option("--output", options->outputs,
                                           "Where the result of the step before it goes: .kvx, or .png (name_0000.png, "
                                           "... for several images); may be given several times")
                              ->allow_extra_args(false);
  command->add_option("--images", options->images, "Only the images a to b - 1, counted from 0, as a:b");
  command->add_option("--save-chain", options->saveChain, "Write the steps as a file for --chain");
  const char* const pictures = "Pictures (.png)";
  command
      ->add_option("--mask-color", options->maskColor,
                   "What invalid pixels look like: transparent, #rrggbb, or a name as black, white, gray, navy")
      ->capture_default_str()
      ->group(pictures);
  command
      ->add_option(
          "--png-pixels", options->pixels,
          "square: pictures whose shape is known in mm are brought to square pixels; as-is: one pixel a sample")
      ->capture_default_str()
      ->check(CLI::IsMember({"square", "as-is"}))
      ->group(pictures);
  command->callback([command, options, &job] {
    options->order = {command->parse_order().begin(), command->parse_order().end()};
    job = [options] { run(*options); };
  });
}

} // namespace Kelvaris::CommandLine
