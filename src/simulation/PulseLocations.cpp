#include "simulation/PulseLocations.h"

#include "Core/Log.h"
#include "model/FrameAcquisition.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Kelvaris::US {
namespace {

/// Without the fraction, held within the integers; NaN, a time that doesn't exist, is no pulse.
std::int32_t sampleAt(double samples) {
  constexpr double lowest = std::numeric_limits<std::int32_t>::lowest(),
                   highest = std::numeric_limits<std::int32_t>::max();
  return std::isnan(samples) ? -1 : static_cast<std::int32_t>(std::clamp(samples, lowest, highest));
}

/// Calls f(element, channel) for each of the `count` elements from the receive aperture's first on that has a channel
/// of the frame's; the others go to lost(element, channel), with -1 for no channel at all.
template <typename F, typename Lost>
void forEachChannel(const PulseEchoEvent::Receive& receive, std::size_t count, int channels, F&& f, Lost&& lost) {
  for (std::size_t entry = 0; entry < count; ++entry) {
    const int element = receive.apertureFirst + static_cast<int>(entry);
    const int channel = entry < receive.elementToChannelMapping.size() ? receive.elementToChannelMapping[entry] : -1;
    if (channel >= 0 && channel < channels)
      f(element, channel);
    else
      lost(element, channel);
  }
}

std::size_t widthOf(const PulseEchoEvent::Receive& receive) {
  return static_cast<std::size_t>(std::max(receive.apertureLast - receive.apertureFirst + 1, 0));
}

constexpr auto kIgnore = [](int, int) {};

} // namespace

std::vector<std::int32_t> transmitPulseLocations(const FrameAcquisition& frame, const FrameSizes& sizes) {
  const auto channels = static_cast<std::size_t>(sizes.channels);
  std::vector<std::int32_t> table(static_cast<std::size_t>(sizes.events) * channels);
  for (std::size_t e = 0; e < frame.events().size(); ++e) {
    const PulseEchoEvent& event = frame.events()[e];
    const std::vector<double> delays = event.transmit.calculateDelays(frame.transducer());
    const auto locationOf = [&](int element) {
      const int i = element - event.transmit.apertureFirst;
      return i < 0 || i >= static_cast<int>(delays.size())
                 ? -1
                 : sampleAt(delays[static_cast<std::size_t>(i)] * event.receive.samplingFrequency);
    };
    forEachChannel(
        event.receive, widthOf(event.receive), sizes.channels,
        [&](int element, int channel) {
          table[e * channels + static_cast<std::size_t>(channel)] = locationOf(element);
        },
        kIgnore);
  }
  return table;
}

std::vector<std::int32_t> echoPulseLocations(const FrameAcquisition& frame, const FrameSizes& sizes,
                                             std::span<const Eigen::Vector3d> scatterers,
                                             std::span<const Eigen::Vector3d> offsets) {
  const auto channels = static_cast<std::size_t>(sizes.channels);
  const auto transmitElements = static_cast<std::size_t>(sizes.transmitElements);
  const std::size_t pulses = transmitElements * scatterers.size();
  std::vector<std::int32_t> table(static_cast<std::size_t>(sizes.events) * channels * pulses);
  const std::vector<Eigen::Vector3d> elements = frame.transducer().elementPositions();
  std::vector<double> departures(pulses); // |transmitting element - s| / c + delay
  for (std::size_t e = 0; e < frame.events().size(); ++e) {
    const PulseEchoEvent& event = frame.events()[e];
    const double c = event.transmit.speedOfSound;
    const std::vector<double> delays = event.transmit.calculateDelays(frame.transducer());
    const std::size_t transmitting = std::min(delays.size(), transmitElements);
    for (std::size_t s = 0; s < scatterers.size(); ++s)
      for (std::size_t i = 0; i < transmitting; ++i) {
        const Eigen::Vector3d& element = elements[static_cast<std::size_t>(event.transmit.apertureFirst) + i];
        departures[s * transmitElements + i] = (element - (scatterers[s] + offsets[e])).norm() / c + delays[i];
      }
    forEachChannel(
        event.receive,
        std::min(event.receive.elementToChannelMapping.size(),
                 elements.size() - static_cast<std::size_t>(event.receive.apertureFirst)),
        sizes.channels,
        [&](int element, int channel) {
          std::int32_t* const column = table.data() + (e * channels + static_cast<std::size_t>(channel)) * pulses;
          for (std::size_t s = 0; s < scatterers.size(); ++s) {
            const double back = (elements[static_cast<std::size_t>(element)] - (scatterers[s] + offsets[e])).norm() / c;
            for (std::size_t i = 0; i < transmitting; ++i) {
              const std::size_t pulse = s * transmitElements + i;
              column[pulse] = sampleAt((departures[pulse] + back) * event.receive.samplingFrequency);
            }
          }
        },
        kIgnore);
  }
  return table;
}

void reportLostChannels(const FrameAcquisition& frame, const FrameSizes& sizes) {
  bool isReported = false;
  for (std::size_t e = 0; e < frame.events().size() && !isReported; ++e)
    forEachChannel(frame.events()[e].receive, widthOf(frame.events()[e].receive), sizes.channels, kIgnore,
                   [&](int element, int channel) {
                     if (isReported) return;
                     isReported = true;
                     Log::warning("SimulatedChannelDataStream",
                                  "Event {} receives element {} on channel {}; what lies outside of the first event's "
                                  "channels, 0 to {}, is "
                                  "left out",
                                  e, element, channel, sizes.channels - 1);
                   });
}

} // namespace Kelvaris::US
