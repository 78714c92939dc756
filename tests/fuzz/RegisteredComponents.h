#pragma once

#include "Lib/DataComponentFactory.h"
#include "Lib/DataComponentsIO.h"
#include "US/FrameGeometryConvexSteered.h"
#include "US/FrameGeometryMetadata.h"
#include "US/FrameGeometrySector.h"
#include "US/UltrasoundMetadata.h"
#include "beamforming/BeamformingCases.h"
#include "model/ChannelDataLayout.h"

namespace Kelvaris::Tests {

template <typename T> void registerComponent() {
  DataComponentFactory::get().registerComponent(
      T().id(), []() -> std::unique_ptr<DataComponentBase> { return std::make_unique<T>(); });
}

/// The component types of the plugin, under their ids, as the plugin does it.
inline void registerComponents() {
  registerComponent<US::BeamformingRois>();
  registerComponent<US::ChannelDataLayout>();
  registerComponent<US::FrameAcquisition>();
  registerComponent<US::PulseEchoEvent>();
  registerComponent<US::Transducer>();
}

template <typename T> std::string xmlOf(const T& component) {
  DataComponentList components;
  components.add<T>(component);
  return DataComponentsIO::toXml(components);
}

/// The XML of one list of components for each type, with contents.
inline std::vector<std::string> componentExamples() {
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

} // namespace Kelvaris::Tests
