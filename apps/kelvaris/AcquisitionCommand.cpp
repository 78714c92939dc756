#include "kelvaris/AcquisitionCommand.h"

#include "kelvaris/AcquisitionDesign.h"
#include "kelvaris/NumberList.h"
#include "kelvaris/PropertiesFile.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cmath>
#include <map>
#include <memory>
#include <numbers>
#include <optional>

namespace Kelvaris::CommandLine {
namespace {

/// What stands on the command line, in its units: mm, m/s, MHz, microseconds, degrees.
struct Options {
  AcquisitionDesign design;
  double speedOfSound = 1540.0;
  double frequency = 0.0;
  double samplingFrequency = 0.0;
  double startTime = 0.0;
  double pulseDelay = 0.0;
  std::string wave, timeZero = "first-element", channels = "wrapped";
  std::string angles, origins, points, firing, x, depth;
  std::optional<double> sector;
  std::string output;
};

template <typename T> using Choices = std::map<std::string, T>;

const Choices<Wave> kWaves = {{"plane", Wave::Plane},
                              {"focused", Wave::Focused},
                              {"diverging", Wave::Diverging},
                              {"single-element", Wave::SingleElement}};
const Choices<TimeZero> kTimeZeros = {{"first-element", TimeZero::FirstElement}, {"origin", TimeZero::Origin}};
const Choices<ChannelOrder> kChannelOrders = {
    {"wrapped", ChannelOrder::Wrapped}, {"element", ChannelOrder::Element}, {"aperture", ChannelOrder::Aperture}};

AcquisitionDesign designOf(const Options& options) {
  AcquisitionDesign design = options.design;
  design.wave = kWaves.at(options.wave);
  design.timeZero = kTimeZeros.at(options.timeZero);
  design.channelOrder = kChannelOrders.at(options.channels);
  design.speedOfSound = options.speedOfSound * 1e3;
  design.pulseFrequency = options.frequency * 1e6;
  design.samplingFrequency = options.samplingFrequency * 1e6;
  design.startTime = options.startTime / 1e6;
  design.pulseDelay = options.pulseDelay / 1e6;
  if (!options.angles.empty()) {
    design.angles = parseNumbers(options.angles);
    for (double& angle : design.angles)
      angle *= std::numbers::pi / 180.0;
  }
  if (!options.origins.empty()) design.origins = parseNumbers(options.origins);
  if (!options.points.empty()) design.points = parsePoints(options.points);
  if (!options.firing.empty()) design.firing = parseWholeNumbers(options.firing);
  if (options.sector) design.sector = *options.sector * std::numbers::pi / 180.0;
  if (!options.x.empty()) design.x = parseInterval(options.x);
  if (options.depth.find(':') != std::string::npos)
    std::tie(design.startDepth, design.endDepth) = parseInterval(options.depth);
  else
    design.endDepth = parseNumbers(options.depth).at(0);
  return design;
}

void run(const Options& options) {
  const AcquisitionDesign design = designOf(options);
  const Properties properties = design.toProperties();
  writePropertiesFile(options.output, properties);
  const auto events = properties.allSubProperties("events");
  if (events.empty()) {
    fmt::print("{}: stored as parameters\n", options.output);
    return;
  }
  double start = 0.0, end = 0.0;
  const Properties& receive = *events[0]->findSubProperties("receive");
  receive.param("startTime", start);
  receive.param("endTime", end);
  fmt::print("{}: {} {} of {} samples from {:.6g} to {:.6g} us after the first firing\n", options.output, events.size(),
             events.size() == 1 ? "event" : "events", std::lround((end - start) * design.samplingFrequency),
             start * 1e6, end * 1e6);
}

} // namespace

void addAcquisitionCommand(CLI::App& app, Job& job) {
  auto options = std::make_shared<Options>();
  AcquisitionDesign& design = options->design;
  CLI::App& command = *app.add_subcommand("acquisition", "Describe how channel data was recorded, for import");

  command.add_option("--output,-o", options->output, "The acquisition as XML")->required();
  command.add_option("--wave", options->wave, "Kind of wave")->required()->check(CLI::IsMember(&kWaves));

  const char* group = "Array";
  command.add_option("--elements", design.numElements, "Elements of the array")->required()->group(group);
  command.add_option("--pitch", design.pitch, "Distance between neighbouring elements, mm")->required()->group(group);
  command.add_option("--radius", design.radius, "Radius of curvature of a convex array, mm")->group(group);

  group = "Medium and pulse";
  command.add_option("--speed-of-sound", options->speedOfSound, "m/s")->capture_default_str()->group(group);
  command.add_option("--frequency", options->frequency, "Centre frequency, MHz")->required()->group(group);
  command.add_option("--cycles", design.pulseLength, "Length of the pulse")->capture_default_str()->group(group);

  group = "Waves";
  command
      .add_option("--angles", options->angles,
                  "Degrees from the depth axis (with --beams: from the array's normal), as 0,5,10 or first:step:last")
      ->default_str("0")
      ->group(group);
  command
      .add_option("--origins", options->origins, "Where waves start along the array, mm from its centre, as --angles")
      ->default_str("0")
      ->group(group);
  command.add_option("--apertures", design.apertures, "Start at so many apertures, evenly from end to end")
      ->group(group);
  command.add_option("--beams", design.beams, "Start at so many points, evenly from the first element to the last")
      ->group(group);
  command
      .add_option("--distance", design.distance,
                  "mm from the origin to the focus, or back from it to the virtual source of a diverging wave")
      ->group(group);
  command
      .add_option("--positions", options->points,
                  "Foci or virtual sources instead of angles and distance, x,z;x,z;... in mm")
      ->group(group);
  command.add_option("--firing", options->firing, "Elements that fire one by one, counted from 0, as --angles")
      ->default_str("all")
      ->group(group);
  command.add_option("--transmit-aperture", design.transmitAperture, "Elements that fire together")
      ->default_str("all")
      ->group(group);
  command.add_option("--receive-aperture", design.receiveAperture, "Elements that record")
      ->default_str("all")
      ->group(group);

  group = "Recording";
  command.add_option("--sampling-frequency", options->samplingFrequency, "MHz")->required()->group(group);
  command.add_option("--samples", design.samples, "Samples of a recording")
      ->default_str("to the last echo from the picture")
      ->group(group);
  command.add_option("--start-time", options->startTime, "Time of the first sample, microseconds")
      ->capture_default_str()
      ->group(group);
  command.add_option("--pulse-delay", options->pulseDelay, "By which echoes come too late, microseconds")
      ->capture_default_str()
      ->group(group);
  command
      .add_option("--time-zero", options->timeZero,
                  "Time 0 of the recording: the first element fires, or the wave passes the origin")
      ->capture_default_str()
      ->check(CLI::IsMember(&kTimeZeros))
      ->group(group);
  command
      .add_option(
          "--channels", options->channels,
          "Channel of an element: wrapped (element modulo receive aperture), element, or aperture (counted from "
          "the first receiving element)")
      ->capture_default_str()
      ->check(CLI::IsMember(&kChannelOrders))
      ->group(group);

  group = "Picture";
  command.add_option("--depth", options->depth, "mm, as 35 or 10:35; along the lines of focused beams and sectors")
      ->required()
      ->group(group);
  command.add_option("--x", options->x, "mm, as -12.5:12.5")->default_str("the width of the array")->group(group);
  command
      .add_option("--sector", options->sector,
                  "Degrees to either side: a fan of lines in place of a rectangle, for "
                  "waves that aren't focused")
      ->group(group);
  command.add_option("--apex", design.apex, "mm from the array back to the point where the lines of the sector meet")
      ->capture_default_str()
      ->group(group);

  command.callback([options, &job] { job = [options] { run(*options); }; });
}

} // namespace Kelvaris::CommandLine
