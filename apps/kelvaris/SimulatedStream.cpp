#include "kelvaris/SimulatedStream.h"

#include "kelvaris/NumberList.h"
#include "kelvaris/PropertiesFile.h"
#include "kelvaris/Quantity.h"
#include "kelvaris/Step.h"

#include "Core/Log.h"
#include "Lib/Algorithm.h"
#include "Lib/Data.h"
#include "Lib/ImageDescriptor.h"

#include <CLI/CLI.hpp>
#include <Eigen/Core>
#include <fmt/format.h>

#include <cmath>
#include <map>
#include <stdexcept>

namespace Kelvaris::CommandLine {
namespace {

const std::map<std::string, int> kPhantoms = {{"point", 0}, {"grid", 1}};
const std::map<std::string, int> kPixels = {{"byte", PixelInt8},     {"ubyte", PixelUInt8},   {"short", PixelInt16},
                                            {"ushort", PixelUInt16}, {"int", PixelInt32},     {"uint", PixelUInt32},
                                            {"float", PixelFloat},   {"double", PixelDouble}, {"half", PixelHalf}};

Eigen::Vector3d parsePlace(const std::string& text) {
  const auto parts = splitText(text, ',');
  if (parts.size() != 3)
    throw std::invalid_argument(fmt::format(
        "\"{}\" is no place; expected x,y,z in mm: along the array, in depth, and across the picture", text));
  return {parseLength(parts[0]), parseLength(parts[1]), parseLength(parts[2])};
}

double checkedAmplitude(const char* what, double amplitude) {
  if (!(amplitude >= 0.0 && amplitude < 1e30))
    throw std::invalid_argument(fmt::format("The amplitude of the {} is {}, it must be 0 or more", what, amplitude));
  return amplitude;
}

} // namespace

void SimulationOptions::addTo(CLI::App& command) {
  command.add_option("--sequence", sequence, "What fires (XML, see kelvaris sequence)")->required();
  const char* group = "Phantom";
  command
      .add_option("--phantom", phantom, "A point, or a grid of 11 x 6 points 5 mm apart that goes down from the origin")
      ->capture_default_str()
      ->check(CLI::IsMember(&kPhantoms))
      ->group(group);
  command
      .add_option("--origin", origin,
                  "Place of the point, or of the middle of the grid's first row: x,y,z in mm along the array, in "
                  "depth, and across the picture")
      ->capture_default_str()
      ->group(group);
  group = "Signals";
  command.add_option("--echo", echo, "Amplitude of an echo")->capture_default_str()->group(group);
  command.add_option("--transmit", transmit, "Amplitude of the transmit pulse in the channels, 0: none")
      ->capture_default_str()
      ->group(group);
  command.add_option("--noise", noise, "Standard deviation of the noise, 0: none")->capture_default_str()->group(group);
  command.add_option("--pixel", pixel, "Type of the samples")
      ->capture_default_str()
      ->check(CLI::IsMember(&kPixels))
      ->group(group);
  command.add_option("--rate", rate, "Emissions per second")->capture_default_str()->group(group);
  command.add_flag("--simus", simus, "Echoes by SIMUS, where it is installed, instead of travel times alone")
      ->group(group);
}

SimulationSettings SimulationSettings::of(const SimulationOptions& options) {
  SimulationSettings settings;
  settings.rate = parseFrequency(options.rate);
  if (!(settings.rate >= 1e-3 && settings.rate <= 1e6))
    throw std::invalid_argument(
        fmt::format("The rate is {} per second, it must be from 0.001 to 1000000", settings.rate));
  Properties& p = settings.properties;
  p.setParam("useSIMUS", options.simus);
  p.setParam("pixelType", kPixels.at(options.pixel));
  p.setParam("targetFrameRate", settings.rate);
  p.setParam("echoAmplitude", checkedAmplitude("echoes", options.echo));
  p.setParam("transmitAmplitude", checkedAmplitude("transmit pulse", options.transmit));
  p.setParam("noiseAmplitude", checkedAmplitude("noise", options.noise));
  p.setParam("phantomOrigin", parsePlace(options.origin));
  p.setParam("phantomType", kPhantoms.at(options.phantom));
  const Properties sequence = readPropertiesFile(options.sequence, "a sequence");
  settings.sequence = summarizeSequence(sequence);
  p.subProperties("sequence") = sequence;
  return settings;
}

SimulatedStream::SimulatedStream(const Properties& settings)
    : m_sink(Log::addSink([this](const Log::Entry& entry) {
        if (entry.level < Log::Error) return;
        const std::scoped_lock lock(m_mutex);
        if (m_error.empty()) m_error = entry.message;
        m_changed.notify_all();
      })) {
  try {
    Properties all = settings;
    all.setParam("autoOpen", false);
    const auto algorithm = findAlgorithm("CreateStreamIoSimulatedChannelData").create(DataList{});
    if (!algorithm) throw std::runtime_error("The simulation can't be made");
    algorithm->configure(&all);
    algorithm->compute();
    auto output = algorithm->takeOutput();
    m_stream = output.extract<ImageStream>();
    const std::scoped_lock lock(m_mutex);
    if (!m_error.empty()) throw std::runtime_error(m_error);
    if (!m_stream) throw std::runtime_error("The simulation makes no stream of images");
  } catch (...) {
    Log::removeSink(m_sink);
    throw;
  }
}

SimulatedStream::~SimulatedStream() {
  m_stream.reset();
  Log::removeSink(m_sink);
}

void SimulatedStream::start() {
  if (!m_stream->openAsync().get() || !m_stream->startAsync().get())
    throw std::runtime_error("The simulation can't be started; the log above says why");
}

void SimulatedStream::notify() {
  const std::scoped_lock lock(m_mutex);
  m_changed.notify_all();
}

void SimulatedStream::check(Stream::State state) const {
  if (!m_error.empty()) throw std::runtime_error(m_error);
  if (state != Stream::State::Running) throw std::runtime_error("The simulation has stopped by itself");
}

} // namespace Kelvaris::CommandLine
