#include "simulation/FrameSizes.h"

#include "model/FrameAcquisition.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>

namespace Kelvaris::US {
namespace {

int samplesOf(const PulseEchoEvent::Receive& receive) {
  const double samples = std::trunc(receive.endTime * receive.samplingFrequency);
  constexpr int most = std::numeric_limits<int>::max();
  if (!(samples >= 1.0 && samples <= most))
    throw std::invalid_argument(
        fmt::format("its recordings would have {} samples (until {} s at {} Hz); an image has 1 "
                    "to {}",
                    samples, receive.endTime, receive.samplingFrequency, most));
  return static_cast<int>(samples);
}

int pulseSamples(const PulseEchoEvent& event, int most) {
  const double length =
      std::round(event.receive.samplingFrequency / event.transmit.pulseFrequency * event.transmit.pulseLength);
  return length >= 1.0 ? static_cast<int>(std::min<double>(length, most)) : 0;
}

void checkReceiveApertures(const FrameAcquisition& frame) {
  for (std::size_t e = 0; e < frame.events().size(); ++e) {
    const PulseEchoEvent::Receive& receive = frame.events()[e].receive;
    if (receive.apertureFirst < 0 ||
        std::max(receive.apertureLast, receive.apertureFirst - 1) >= frame.transducer().numElements())
      throw std::invalid_argument(
          fmt::format("its event {} receives with the elements {} to {}; those of the array are "
                      "0 to {}",
                      e, receive.apertureFirst, receive.apertureLast, frame.transducer().numElements() - 1));
  }
}

} // namespace

FrameSizes::FrameSizes(const FrameAcquisition& frame) {
  if (frame.events().empty()) throw std::invalid_argument("it has no events; there must be at least one");
  checkReceiveApertures(frame);
  const PulseEchoEvent& first = frame.events().front();
  events = static_cast<int>(frame.events().size());
  channels = std::max(first.receive.apertureLast, -1) - first.receive.apertureFirst + 1;
  if (channels < 1)
    throw std::invalid_argument(fmt::format("its receive aperture, element {} to {}, is empty",
                                            first.receive.apertureFirst, first.receive.apertureLast));
  // One that doesn't fit the array is refused where its delays are computed.
  transmitElements = static_cast<int>(
      std::clamp<std::int64_t>(std::int64_t{first.transmit.apertureLast} - first.transmit.apertureFirst + 1, 0,
                               frame.transducer().numElements()));
  samples = samplesOf(first.receive);
  pulseLength = pulseSamples(first, samples);
}

} // namespace Kelvaris::US
