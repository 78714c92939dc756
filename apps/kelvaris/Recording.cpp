#include "kelvaris/Recording.h"

#include "kelvaris/NumberList.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <stdexcept>

namespace Kelvaris::CommandLine {
namespace {

constexpr std::size_t kNoTrace = std::numeric_limits<std::size_t>::max();
constexpr std::array<const char*, 5> kAxisNames = {"channels", "fastTime", "slowTime", "frames", "traces"};
constexpr std::array kOwnOrder = {RecordingAxis::Channels, RecordingAxis::FastTime, RecordingAxis::SlowTime,
                                  RecordingAxis::Frames};

std::string counted(std::size_t n, const char* what) {
  return fmt::format("{} {}{}", n, what, n == 1 ? "" : "s");
}

template <typename Names> std::string layoutText(const Names& names) {
  std::string text;
  for (const RecordingAxis axis : names)
    text += fmt::format("{}{}", text.empty() ? "" : ",", kAxisNames[static_cast<std::size_t>(axis)]);
  return text;
}

/// Elements of the pairs, counted from 0.
std::pair<std::vector<int>, std::vector<int>> elementsOf(const TracePairs& pairs, int numElements) {
  double lowest = std::numeric_limits<double>::infinity(), highest = -lowest;
  for (const std::vector<double>* list : {&pairs.transmit, &pairs.receive})
    for (const double v : *list) {
      if (v != std::floor(v)) throw std::invalid_argument(fmt::format("{} in the pairs is no element", v));
      lowest = std::min(lowest, v);
      highest = std::max(highest, v);
    }
  int base = pairs.base.value_or(lowest == 0.0 ? 0 : 1);
  if (!pairs.base && lowest > 0.0 && highest < numElements)
    throw std::invalid_argument(
        fmt::format("The pairs name the elements {} to {}; say whether the first element is 0 or 1", lowest, highest));
  if (lowest < base || highest >= base + numElements)
    throw std::invalid_argument(
        fmt::format("The pairs name the elements {} to {}, but the array has the elements {} to {}", lowest, highest,
                    base, base + numElements - 1));
  const auto shifted = [&](const std::vector<double>& list) {
    std::vector<int> elements(list.size());
    std::transform(list.begin(), list.end(), elements.begin(), [&](double v) { return static_cast<int>(v) - base; });
    return elements;
  };
  return {shifted(pairs.transmit), shifted(pairs.receive)};
}

} // namespace

std::vector<RecordingAxis> parseLayout(const std::string& text) {
  std::vector<RecordingAxis> layout;
  for (const std::string& name : splitText(text, ',')) {
    const auto found = std::find(kAxisNames.begin(), kAxisNames.end(), name);
    if (found == kAxisNames.end())
      throw std::invalid_argument(
          fmt::format("\"{}\" is no axis; there are channels, fastTime, slowTime, frames and traces", name));
    const auto axis = static_cast<RecordingAxis>(found - kAxisNames.begin());
    if (std::find(layout.begin(), layout.end(), axis) != layout.end())
      throw std::invalid_argument(fmt::format("The layout \"{}\" names {} twice", text, name));
    layout.push_back(axis);
  }
  return layout;
}

double Recording::mean(const SampleArray& samples) {
  const SampleArray::Extents& shape = samples.shape();
  SampleArray::Extents start(shape.size(), 0), count = shape;
  const std::size_t slowest = samples.firstIndexFastest() ? shape.size() - 1 : 0;
  double sum = 0.0;
  if (shape.empty()) return samples.readAll().at(0);
  count[slowest] = 1;
  for (std::size_t& i = start[slowest]; i < shape[slowest]; ++i) {
    const auto bytes = samples.read(start, count);
    sum += dispatchSampleType(samples.type(), [&]<typename T>() {
      const auto* values = reinterpret_cast<const T*>(bytes.data());
      double part = 0.0;
      for (std::size_t k = 0; k < bytes.size() / sizeof(T); ++k)
        part += static_cast<double>(values[k]);
      return part;
    });
  }
  return sum / static_cast<double>(samples.size());
}

Recording::Recording(std::unique_ptr<SampleArray> samples, const AcquisitionSummary& acquisition,
                     RecordingOptions options)
    : m_samples(std::move(samples)), m_options(std::move(options)) {
  if (m_samples->size() == 0)
    throw std::invalid_argument(fmt::format("The array of shape {} holds no samples", shapeText(m_samples->shape())));
  std::vector<RecordingAxis> names = m_options.layout;
  if (names.empty()) {
    names.assign(kOwnOrder.begin(), kOwnOrder.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(
                                                            m_samples->shape().size(), kOwnOrder.size())));
    if (!m_samples->firstIndexFastest()) std::reverse(names.begin(), names.end());
  }
  const bool traces = std::find(names.begin(), names.end(), RecordingAxis::Traces) != names.end();
  if (traces != m_options.pairs.has_value())
    throw std::invalid_argument("The axis \"traces\" and the pairs of elements of the traces go together, but only one "
                                "of them was given");
  m_layout = layoutFor(names);
  const std::string reason = misfit(m_layout, acquisition);
  if (!reason.empty())
    throw std::invalid_argument(fmt::format("The samples of shape {}, read as {}, don't fit the acquisition: {}{}",
                                            shapeText(m_samples->shape()), layoutText(names), reason,
                                            traces ? "" : fittingLayouts(acquisition)));
  describeFrame(acquisition);
  if (traces) resolvePairs(acquisition);
}

Recording::Layout Recording::layoutFor(const std::vector<RecordingAxis>& names) const {
  const SampleArray::Extents& shape = m_samples->shape();
  if (names.size() >= shape.size()) {
    // Axes at the slow end that count one thing only are often not stored.
    const auto dropped = static_cast<std::ptrdiff_t>(names.size() - shape.size());
    return m_samples->firstIndexFastest() ? Layout(names.begin(), names.end() - dropped)
                                          : Layout(names.begin() + dropped, names.end());
  }
  Layout layout;
  auto next = names.begin();
  for (const std::size_t e : shape)
    if (e == 1)
      layout.emplace_back();
    else if (next != names.end())
      layout.emplace_back(*next++);
  if (layout.size() != shape.size() || next != names.end())
    throw std::invalid_argument(fmt::format("The layout {} names {} axes, but the samples have the shape {}",
                                            layoutText(names), names.size(), shapeText(shape)));
  return layout;
}

std::size_t Recording::extent(const Layout& layout, RecordingAxis axis) const {
  const auto found = std::find(layout.begin(), layout.end(), axis);
  return found == layout.end() ? 1 : m_samples->shape()[static_cast<std::size_t>(found - layout.begin())];
}

std::string Recording::misfit(const Layout& layout, const AcquisitionSummary& acquisition) const {
  const auto numEvents = static_cast<std::size_t>(acquisition.numEvents);
  const auto numChannels = static_cast<std::size_t>(acquisition.numChannels);
  const auto samples = extent(layout, RecordingAxis::FastTime);
  if (samples < 2) return "there is no axis fastTime of at least two samples";
  if (acquisition.samples && !m_options.anyLength &&
      std::abs(static_cast<double>(samples) - static_cast<double>(*acquisition.samples)) > 1.0)
    return fmt::format("a recording has {}, the acquisition's time window {} (another length may be allowed)",
                       counted(samples, "sample"), *acquisition.samples);
  if (m_options.pairs) return {};
  const auto channels = extent(layout, RecordingAxis::Channels);
  if (channels < numChannels ||
      (channels > numChannels && channels != static_cast<std::size_t>(acquisition.numElements)))
    return fmt::format("there are {}, the acquisition has {}", counted(channels, "channel"), numChannels);
  const auto events = extent(layout, RecordingAxis::SlowTime);
  if (events % numEvents != 0)
    return fmt::format("slow time holds {}, the acquisition has {}", counted(events, "event"), numEvents);
  return {};
}

std::string Recording::fittingLayouts(const AcquisitionSummary& acquisition) const {
  const auto rank = m_samples->shape().size();
  std::string text;
  std::array axes = kOwnOrder;
  std::sort(axes.begin(), axes.end());
  std::vector<std::vector<RecordingAxis>> seen;
  do {
    const std::vector<RecordingAxis> names(axes.begin(),
                                           axes.begin() + static_cast<std::ptrdiff_t>(std::min(rank, axes.size())));
    if (names.size() != rank || std::find(seen.begin(), seen.end(), names) != seen.end()) continue;
    seen.push_back(names);
    if (misfit(Layout(names.begin(), names.end()), acquisition).empty())
      text += fmt::format("{} {}", text.empty() ? ". Layouts that fit:" : " or", layoutText(names));
  } while (std::next_permutation(axes.begin(), axes.end()));
  return text;
}

void Recording::describeFrame(const AcquisitionSummary& acquisition) {
  m_frames = extent(m_layout, RecordingAxis::Frames);
  const auto numEvents = static_cast<std::size_t>(acquisition.numEvents);
  m_extents = {extent(m_layout, RecordingAxis::Channels), extent(m_layout, RecordingAxis::FastTime), numEvents};
  if (m_options.pairs)
    m_extents[0] = static_cast<std::size_t>(acquisition.numChannels);
  else
    m_framesInSlowTime = extent(m_layout, RecordingAxis::SlowTime) / numEvents;
  if (m_frames * m_framesInSlowTime > std::numeric_limits<int>::max())
    throw std::invalid_argument(fmt::format("There are {} frames, that is too many", m_frames * m_framesInSlowTime));

  // The frame's indices from the fastest on.
  Layout order = m_layout;
  if (!m_samples->firstIndexFastest()) std::reverse(order.begin(), order.end());
  std::size_t stride = 1, dimension = 0;
  std::array<bool, 3> placed = {};
  const auto place = [&](std::size_t axis) {
    m_axes[dimension++] = static_cast<int>(axis);
    placed[axis] = true;
  };
  for (const auto& axis : order) {
    if (!axis || *axis == RecordingAxis::Frames) continue;
    const bool trace = *axis == RecordingAxis::Traces;
    const auto logical = trace ? 0 : static_cast<std::size_t>(*axis);
    m_strides[logical] = stride;
    stride *= trace ? extent(m_layout, RecordingAxis::Traces) : m_extents[logical];
    if (!m_options.pairs) place(logical);
  }
  for (const std::size_t axis : std::array<std::size_t, 3>{1, 0, 2})
    if (!placed[axis]) place(axis);

  Eigen::Vector3i dimensions;
  for (int i = 0; i < 3; ++i) {
    const std::size_t e = m_extents[static_cast<std::size_t>(m_axes[static_cast<std::size_t>(i)])];
    if (e > std::numeric_limits<int>::max())
      throw std::invalid_argument(fmt::format("An axis of {} is too long for an image", e));
    dimensions[i] = static_cast<int>(e);
  }
  const SampleType type = m_samples->type();
  const bool fits = (type == SampleType::Int8 || type == SampleType::UInt8 || type == SampleType::Int16) &&
                    !m_options.subtractTraceMeans && m_options.offset == std::round(m_options.offset);
  m_descriptor = ImageDescriptor(m_options.pixelType.value_or(fits ? PixelInt16 : PixelFloat), dimensions.x(),
                                 dimensions.y(), dimensions.z());
  m_descriptor.setMetric(false);
}

void Recording::resolvePairs(const AcquisitionSummary& acquisition) {
  const auto numTraces = extent(m_layout, RecordingAxis::Traces);
  const TracePairs& pairs = *m_options.pairs;
  if (pairs.transmit.size() != numTraces || pairs.receive.size() != numTraces)
    throw std::invalid_argument(fmt::format("There are {} traces, but {} transmitting and {} receiving elements",
                                            numTraces, pairs.transmit.size(), pairs.receive.size()));
  const auto [transmit, receive] = elementsOf(pairs, acquisition.numElements);
  std::map<std::pair<int, int>, std::size_t> traceOfPair;
  for (std::size_t i = 0; i < numTraces; ++i)
    if (!traceOfPair.try_emplace({transmit[i], receive[i]}, i).second)
      throw std::invalid_argument(
          fmt::format("Two traces have the same pair of elements, {} and {} counted from 0", transmit[i], receive[i]));

  if (acquisition.events.empty())
    throw std::invalid_argument("Pairs of elements need an acquisition that holds its events one by one");
  m_traceOf.assign(m_extents[0] * m_extents[2], kNoTrace);
  std::size_t missing = 0;
  std::pair<int, int> firstMissing;
  for (std::size_t e = 0; e < acquisition.events.size(); ++e) {
    const AcquisitionSummary::Event& event = acquisition.events[e];
    if (event.transmitFirst != event.transmitLast)
      throw std::invalid_argument(fmt::format("Event {} fires the elements {} to {}, but pairs have one transmitting "
                                              "element",
                                              e, event.transmitFirst, event.transmitLast));
    for (int element = event.receiveFirst; element <= event.receiveLast; ++element) {
      auto found = traceOfPair.find({event.transmitFirst, element});
      if (found == traceOfPair.end()) found = traceOfPair.find({element, event.transmitFirst});
      const auto channel =
          static_cast<std::size_t>(event.channels[static_cast<std::size_t>(element - event.receiveFirst)]);
      if (found != traceOfPair.end())
        m_traceOf[e * m_extents[0] + channel] = found->second;
      else if (missing++ == 0)
        firstMissing = {event.transmitFirst, element};
    }
  }
  if (missing)
    throw std::invalid_argument(fmt::format("{} of elements that the acquisition records have no trace in either "
                                            "direction, the first is {} and {} counted from 0",
                                            counted(missing, "pair"), firstMissing.first, firstMissing.second));
}

std::string Recording::frameText() const {
  return fmt::format("{}, {}, {}", counted(m_extents[1], "sample"), counted(m_extents[0], "channel"),
                     counted(m_extents[2], "event"));
}

template <typename In, typename Out> void Recording::convert(const In* samples, Out* pixels) const {
  std::array<std::size_t, 3> outStrides;
  for (std::size_t i = 0, stride = 1; i < 3; ++i) {
    const auto axis = static_cast<std::size_t>(m_axes[i]);
    outStrides[axis] = stride;
    stride *= m_extents[axis];
  }
  const auto [numChannels, numSamples, numEvents] = m_extents;
  for (std::size_t event = 0; event < numEvents; ++event)
    for (std::size_t channel = 0; channel < numChannels; ++channel) {
      Out* out = pixels + event * outStrides[2] + channel * outStrides[0];
      const std::size_t trace = m_options.pairs ? m_traceOf[event * numChannels + channel] : channel;
      if (trace == kNoTrace) {
        for (std::size_t k = 0; k < numSamples; ++k)
          out[k * outStrides[1]] = 0;
        continue;
      }
      const In* in = samples + trace * m_strides[0] + (m_options.pairs ? 0 : event * m_strides[2]);
      double offset = m_options.offset;
      if (m_options.subtractTraceMeans) {
        offset = 0.0;
        for (std::size_t k = 0; k < numSamples; ++k)
          offset += static_cast<double>(in[k * m_strides[1]]);
        offset /= static_cast<double>(numSamples);
      }
      for (std::size_t k = 0; k < numSamples; ++k) {
        const auto stored = static_cast<double>(in[k * m_strides[1]]);
        double value = stored - offset;
        if constexpr (std::is_integral_v<Out>) value = std::round(value);
        if (!(value >= std::numeric_limits<Out>::lowest() && value <= std::numeric_limits<Out>::max()))
          throw std::runtime_error(fmt::format("Sample {} of channel {} in event {} is {}{}", k, channel, event, stored,
                                               std::isfinite(stored) ? ", which doesn't fit 16 bits; import as float"
                                                                     : ", expected a number"));
        out[k * outStrides[1]] = static_cast<Out>(value);
      }
    }
}

std::unique_ptr<MemImage> Recording::frame(int index) const {
  const auto frame = static_cast<std::size_t>(index) / m_framesInSlowTime;
  const auto block = static_cast<std::size_t>(index) % m_framesInSlowTime;
  SampleArray::Extents start(m_layout.size(), 0), count = m_samples->shape();
  for (std::size_t i = 0; i < m_layout.size(); ++i) {
    if (m_layout[i] == RecordingAxis::Frames) {
      start[i] = frame;
      count[i] = 1;
    } else if (m_layout[i] == RecordingAxis::SlowTime) {
      start[i] = block * m_extents[2];
      count[i] = m_extents[2];
    }
  }
  const std::vector<std::byte> bytes = m_samples->read(start, count);
  auto image = MemImage::create(m_descriptor);
  dispatchSampleType(m_samples->type(), [&]<typename T>() {
    const auto* samples = reinterpret_cast<const T*>(bytes.data());
    if (m_descriptor.pixelType() == PixelInt16)
      convert(samples, static_cast<short*>(image->data()));
    else
      convert(samples, static_cast<float*>(image->data()));
  });
  return image;
}

} // namespace Kelvaris::CommandLine
