#pragma once

#include "Lib/SharedImage.h"
#include "model/FrameAcquisition.h"
#include "support/Samples.h"

namespace Kelvaris::US::Tests {

inline FrameParameters parameters(int eventType) {
  FrameParameters parameters;
  parameters.eventType = eventType;
  parameters.endDepth = 10;
  parameters.pulseFrequency = 5e6;
  parameters.pulseLength = 2;
  parameters.speedOfSound = 1.54e6;
  parameters.maxTransmitAperture = 16;
  parameters.maxReceiveAperture = 16;
  parameters.receiveSamplingFrequency = 20e6;
  return parameters;
}

const Transducer kSmallArray = Transducer::createLinear(16, 0.3);

/// `events` plane waves (at least 2) from all 16 elements of an array.
inline FrameAcquisition planeWaves(int events = 3, double angleRange = 0.3, const Transducer& array = kSmallArray) {
  FrameParameters p = parameters(1);
  p.planeWave = {.planeAngleRange = angleRange, .numberApertures = 1, .numberEventsPerAperture = events};
  return FrameAcquisition(array, p);
}

/// Parallel beams, focused at a depth of 6 mm.
inline FrameAcquisition focusedBeams(int beams = 5, const Transducer& array = kSmallArray) {
  FrameParameters p = parameters(0);
  p.focused = {.focalDepth = 6, .steeringAngle = 0, .numberFocusedBeamsTotal = beams};
  return FrameAcquisition(array, p);
}

/// Of channel data in the default layout, one row more than the acquisition's recordings have samples.
inline ImageDescriptor dataDescriptor(const FrameAcquisition& acquisition, int pixelType = PixelFloat,
                                      int components = 1) {
  const auto& receive = acquisition.events().front().receive;
  const double samples = std::ceil((receive.endTime - receive.startTime) * receive.samplingFrequency) + 1;
  return {pixelType, acquisition.transducer().numElements(), static_cast<int>(samples),
          static_cast<int>(acquisition.events().size()), components};
}

/// Channel data of whole numbers from -1000 to 1000.
inline std::shared_ptr<MemImage> noise(const FrameAcquisition& acquisition, int pixelType = PixelFloat,
                                       int components = 1) {
  std::mt19937 random(1);
  return Kelvaris::Tests::imageOf(dataDescriptor(acquisition, pixelType, components),
                                  [&](int, int, int, int) { return static_cast<int>(random() % 2001) - 1000; });
}

inline DataComponentList componentsOf(const FrameAcquisition& acquisition, const DataComponentList& others = {}) {
  DataComponentList components;
  components.add<FrameAcquisition>(acquisition);
  components.add(others);
  return components;
}

} // namespace Kelvaris::US::Tests
