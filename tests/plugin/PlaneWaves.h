#pragma once

#include "Core/PropertiesIO.h"
#include "Lib/DataComponentFactory.h"

namespace Kelvaris::Tests {

/// The acquisition of two plane waves, for 16 channels. The plugin must be loaded.
inline std::unique_ptr<DataComponentBase> planeWaves() {
  const auto properties = PropertiesIO::fromXml(R"(<properties>
    <properties key="transducer">
      <param key="type">linear</param> <param key="numberElements">16</param> <param key="pitch">0.3</param>
    </properties>
    <param key="eventType">1</param> <param key="endDepth">5</param>
    <param key="pulseFrequency">5e6</param> <param key="pulseLength">2</param> <param key="speedOfSound">1.54e6</param>
    <param key="maxTransmitAperture">16</param> <param key="maxReceiveAperture">16</param>
    <param key="receiveSamplingFrequency">20e6</param>
    <param key="planeAngleRange">0.2</param> <param key="numberApertures">1</param>
    <param key="numberEventsPerAperture">2</param>
  </properties>)");
  std::unique_ptr<DataComponentBase> made = DataComponentFactory::get().create("FrameAcquisition");
  made->configure(&*properties);
  return made;
}

} // namespace Kelvaris::Tests
