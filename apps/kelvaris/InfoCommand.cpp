#include "kelvaris/InfoCommand.h"

#include "kelvaris/PropertiesFile.h"
#include "kelvaris/SequenceSummary.h"

#include "Lib/IntensityMask.h"
#include "Lib/KelvarisFile.h"
#include "Lib/PluginManager.h"
#include "US/FrameGeometryMetadata.h"
#include "US/UltrasoundMetadata.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <memory>
#include <sstream>
#include <vector>

namespace Kelvaris::CommandLine {
namespace {

struct InfoOptions {
  std::string file;
  bool full = false;
  bool values = false;
};

/// Longest text of a parameter that is shown whole.
constexpr std::size_t kShownText = 72;

std::string shortened(const std::string& text) {
  if (text.size() <= kShownText) return text;
  const auto words = std::count(text.begin(), text.end(), ' ') + 1;
  return fmt::format("{}... ({} values)", text.substr(0, text.rfind(' ', kShownText - 20) + 1), words);
}

std::string describeBounds(const US::FrameGeometry& geometry) {
  const Geometry::AlignedBox bounds = geometry.bounds();
  if (bounds.isEmpty()) return "an empty frame";
  return fmt::format(
      "(mm, degrees; the frame reaches from {:.6g} to {:.6g} mm along the array, from {:.6g} to {:.6g} mm "
      "in depth)",
      bounds.min().x(), bounds.max().x(), bounds.min().y(), bounds.max().y());
}

std::string describeComponents(const DataComponentList& components, int indent, bool full) {
  std::string text;
  for (const auto& component : components) {
    Properties contents;
    component->configuration(&contents);
    text += fmt::format("{:{}}{}\n{}", "", indent, component->id(), describeProperties(contents, indent + 2, full));
    if (const auto* frame = dynamic_cast<const US::FrameGeometryMetadata*>(component.get());
        frame && frame->frameGeometry())
      text += fmt::format("{:{}}{}\n", "", indent + 2, describeBounds(*frame->frameGeometry()));
  }
  return text;
}

std::string kindText(int images, bool volumes) {
  return fmt::format("{} {}{}", images, volumes ? "volume" : "image", images == 1 ? "" : "s");
}

std::string modalityText(int modality) {
  if (modality == Data::Ultrasound) return "ultrasound";
  return modality == Data::UnknownModality ? "unknown" : fmt::format("number {}", modality);
}

std::string describeImage(const ImageDescriptor& d) {
  std::string text = fmt::format("{} (width x height x slices), spacing {:.6g} x {:.6g} x {:.6g}{}", d.toString(),
                                 d.spacing().x(), d.spacing().y(), d.spacing().z(), d.isMetric() ? " mm" : "");
  if (d.shift() != 0.0 || d.scale() != 1.0) text += fmt::format(", value = stored / {} - {}", d.scale(), d.shift());
  return text;
}

std::string describeMask(const Mask& mask) {
  if (const auto* intensity = dynamic_cast<const IntensityMask*>(&mask))
    return fmt::format(", mask: the value {:.6g} is invalid", intensity->value());
  return fmt::format(", mask: {}", mask.id());
}

/// What the image says of itself beside its descriptor.
std::string describeScan(const ImageDescriptor& d, const DataComponentList& components) {
  const auto* settings = components.get<US::UltrasoundMetadata>();
  if (!settings) return "";
  if (settings->scanConverted)
    return fmt::format(", scan-converted: {:.6g} x {:.6g} mm", d.width() * d.spacing().x(),
                       d.height() * d.spacing().y());
  const auto* frame = components.get<US::FrameGeometryMetadata>();
  return frame && frame->frameGeometry() ? ", lines and depths (pre-scan)" : "";
}

/// Smallest and largest valid sample, and how many are invalid.
std::string describeValues(const SharedImage& image) {
  const std::shared_ptr<MemImage> pixels = image.mem();
  double least = std::numeric_limits<double>::infinity(), most = -least;
  std::size_t invalid = 0;
  std::vector<unsigned char> valid(static_cast<std::size_t>(pixels->width()), 1);
  dispatchPixelType(image.descriptor().pixelType(), [&]<typename T>() {
    const T* sample = static_cast<const T*>(pixels->data());
    for (int row = 0; row < pixels->height() * pixels->slices(); ++row) {
      if (image.mask())
        image.mask()->evaluate(*pixels, 0, row % pixels->height(), row / pixels->height(), pixels->width(),
                               valid.data());
      for (const unsigned char isValid : valid)
        for (int channel = 0; channel < pixels->channels(); ++channel) {
          const auto value = static_cast<double>(*sample++);
          if (std::isnan(value) || !isValid) {
            ++invalid;
            continue;
          }
          least = std::min(least, value);
          most = std::max(most, value);
        }
    }
  });
  if (least > most) return "no valid sample";
  return fmt::format("samples {:.6g} to {:.6g}, {} invalid", least, most, invalid);
}

/// One line for each run of images that look alike.
void printImages(const KelvarisFile::Reader& reader, bool values) {
  const auto print = [](int first, int last, const std::string& text) {
    if (first == last)
      fmt::print("  image {}: {}\n", first, text);
    else
      fmt::print("  images {} to {}: {}\n", first, last, text);
  };
  std::string previous;
  int first = 0;
  for (int i = 0; i < reader.size(); ++i) {
    std::string text = describeImage(reader.descriptor(i)) + describeScan(reader.descriptor(i), reader.components(i));
    if (const std::shared_ptr<const Mask> mask = reader.mask(i)) text += describeMask(*mask);
    if (values) text += ", " + describeValues(*reader.image(i));
    if (i > 0 && text != previous) {
      print(first, i - 1, previous);
      first = i;
    }
    previous = std::move(text);
  }
  if (reader.size() > 0) print(first, reader.size() - 1, previous);
}

/// An acquisition or a sequence.
void printDescription(const InfoOptions& options) {
  const Properties properties = readPropertiesFile(options.file, "an acquisition or a sequence");
  if (isSequence(properties)) {
    const SequenceSummary summary = summarizeSequence(properties);
    fmt::print("{}: sequence of {} frame{}, {} firings\n{}", options.file, summary.frames.size(),
               summary.frames.size() == 1 ? "" : "s", summary.order.size(), describeSequence(summary, 2, options.full));
  } else {
    const AcquisitionSummary summary = summarizeAcquisition(properties);
    fmt::print("{}: acquisition\n  {}\n  {}\n", options.file, describeArray(summary), describeEvents(summary));
  }
}

void info(const InfoOptions& options) {
  if (std::filesystem::path(options.file).extension() == ".xml") return printDescription(options);
  PluginManager::get().loadAll();
  const KelvarisFile::Reader reader(options.file);
  bool volumes = reader.set().isVolumetric();
  for (int i = 0; i < reader.size(); ++i)
    volumes = volumes || reader.descriptor(i).slices() > 1;
  fmt::print("{}: {}, modality {}\n", options.file, kindText(reader.size(), volumes),
             modalityText(reader.set().modality()));
  printImages(reader, options.values);
  if (reader.size() > 0)
    fmt::print("  timestamps: {} to {} ms\n", reader.timestamp(0), reader.timestamp(reader.size() - 1));
  if (!reader.set().properties().empty())
    fmt::print("Properties:\n{}", describeProperties(reader.set().properties(), 2, options.full));
  if (!reader.set().components().empty())
    fmt::print("Components of the set:\n{}", describeComponents(reader.set().components(), 2, options.full));

  // Images of one recording usually carry equal components; they are shown once.
  std::string shown;
  for (int i = 0; i < reader.size(); ++i) {
    const std::string text = describeComponents(reader.components(i), 2, options.full);
    if (text.empty() || text == shown) continue;
    fmt::print("Components from image {} on:\n{}", i, text);
    shown = text;
  }
}

} // namespace

std::string describeProperties(const Properties& properties, int indent, bool full) {
  std::string text;
  for (const auto& [key, value] : properties.params())
    text += fmt::format("{:{}}{}: {}\n", "", indent, key, full ? value : shortened(value));
  std::string previous;
  for (const auto& [name, child] : properties.children()) {
    if (!full && name == previous) continue;
    previous = name;
    const std::size_t count = properties.allSubProperties(name).size();
    text += fmt::format("{:{}}{}{}\n{}", "", indent, name,
                        !full && count > 1 ? fmt::format(" (the first of {})", count) : "",
                        describeProperties(child, indent + 2, full));
  }
  return text;
}

void addInfoCommand(CLI::App& app, Job& job) {
  CLI::App* command = app.add_subcommand("info", "Say what is in a file");
  auto options = std::make_shared<InfoOptions>();
  command->add_option("FILE", options->file, "Images (.kvx), an acquisition or a sequence (.xml)")->required();
  command->add_flag("--full", options->full, "Show long lists and repeated parts whole");
  command->add_flag("--values", options->values, "Read the samples and show the smallest and the largest");
  command->callback([options, &job] { job = [options] { info(*options); }; });
}

} // namespace Kelvaris::CommandLine
