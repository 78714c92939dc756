#pragma once

#include "Lib/SharedImage.h"
#include "model/FrameAcquisition.h"
#include "support/Images.h"
#include "support/Samples.h"

namespace Kelvaris::Tests {

/// Two events; the second has other frequencies.
inline US::FrameAcquisition twoEvents(double samplingFrequency, double pulseFrequency) {
  std::vector<US::PulseEchoEvent> events(2);
  events[0].receive.samplingFrequency = samplingFrequency;
  events[0].transmit.pulseFrequency = pulseFrequency;
  events[1].receive.samplingFrequency = 3.0 * samplingFrequency;
  events[1].transmit.pulseFrequency = 7e6;
  return US::FrameAcquisition(US::Transducer(), events);
}

inline std::shared_ptr<SharedImage> ultrasoundNoise(const ImageDescriptor& descriptor) {
  auto image = std::make_shared<SharedImage>(noiseImage(descriptor));
  image->setModality(Data::Ultrasound);
  return image;
}

/// Same size and same samples, bit by bit.
inline bool equal(const SharedImage& a, const SharedImage& b) {
  return a.descriptor().isApprox(b.descriptor()) && sameBytes(*a.mem(), *b.mem());
}

/// The parameters, as texts.
inline void set(Algorithm& algorithm, const std::vector<std::pair<const char*, std::string>>& parameters) {
  Properties properties;
  for (const auto& [key, text] : parameters)
    properties.setParam(key, text);
  algorithm.configure(&properties);
}

} // namespace Kelvaris::Tests
