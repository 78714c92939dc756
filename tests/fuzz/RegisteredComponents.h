#pragma once

#include "Lib/DataComponentFactory.h"
#include "Lib/DataComponentsIO.h"
#include "US/FrameGeometryConvexSteered.h"
#include "US/FrameGeometryMetadata.h"
#include "US/FrameGeometrySector.h"
#include "US/UltrasoundMetadata.h"
#include "beamforming/BeamformingCases.h"
#include "model/BeamformingRois.h"
#include "model/ChannelDataLayout.h"
#include "model/FrameAcquisition.h"
#include "model/PulseEchoEvent.h"
#include "model/Transducer.h"

#include <memory>
#include <string>
#include <vector>

namespace Kelvaris::Tests {

template <typename T> void registerComponent(const void* owner) {
  const DataComponentFactory::OwnerScope scope(owner);
  DataComponentFactory::get().registerComponent(
      T().id(), []() -> std::unique_ptr<DataComponentBase> { return std::make_unique<T>(); });
}

template <typename T> std::string xmlOf(const T& component) {
  DataComponentList components;
  components.add<T>(component);
  return DataComponentsIO::toXml(components);
}

/// While it lives, the component types of the plugin are registered under their ids, as the plugin does it.
class RegisteredComponents {
public:
  RegisteredComponents() {
    registerComponent<US::BeamformingRois>(this);
    registerComponent<US::ChannelDataLayout>(this);
    registerComponent<US::FrameAcquisition>(this);
    registerComponent<US::PulseEchoEvent>(this);
    registerComponent<US::Transducer>(this);
  }
  ~RegisteredComponents() { DataComponentFactory::get().unregisterComponentsOf(this); }
  RegisteredComponents(const RegisteredComponents&) = delete;
  RegisteredComponents& operator=(const RegisteredComponents&) = delete;

  /// The XML of one list of components for each type, with contents.
  std::vector<std::string> examples() const {
    US::BeamformingRois rois;
    rois.add(Geometry::Polygon2D({{0.0, 0.0}, {10.0, 0.5}, {10.0, 40.0}}));
    rois.add(Geometry::Polygon2D({{0.0, 0.0}, {0.0, 40.0}}));
    const auto array = US::Transducer::createConvex(16, 0.3, 60.0);
    const auto acquisition = US::Tests::planeWaves(3, 0.2, array);
    return {xmlOf(rois),
            xmlOf(US::ChannelDataLayout()),
            xmlOf(US::PulseEchoEvent()),
            xmlOf(acquisition),
            xmlOf(US::FrameAcquisition(array, acquisition.events())), // a list of events in place of parameters
            xmlOf(array),
            xmlOf(US::FrameGeometryMetadata(US::FrameGeometrySector())),
            xmlOf(US::FrameGeometryMetadata(US::FrameGeometryConvexSteered())),
            xmlOf(US::UltrasoundMetadata())};
  }
};

} // namespace Kelvaris::Tests
