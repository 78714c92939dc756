#pragma once

#include "CUDA/DeviceBufferImage.h"
#include "CUDA/DeviceMemory.h"
#include "CUDA/VectorTypes.h"
#include "Lib/SharedImage.h"
#include "gpu/BeamformerType.h"
#include "gpu/ElementSearch.h"
#include "gpu/EventInfo.h"

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace Kelvaris::US {
class ChannelDataLayout;
class FrameAcquisition;
class FrameGeometry;
} // namespace Kelvaris::US

namespace Kelvaris::US::GPU {

struct BeamformingArguments;

/// Delay-and-sum beamforming of frames that follow one acquisition: its events, element positions and channel table lie
/// in device memory, and each frame is one launch of the kernel (BeamformingKernel.h), whatever its number of events.
///
/// Immutable; frames may be beamformed from several threads at once.
class Beamforming {
public:
  /// Uploads the acquisition. One that can't be beamformed (no events or elements, a receive aperture that doesn't lie
  /// in the array, a mapping without a channel for each of its elements) is told by beamform(). Throws like
  /// DeviceMemory.
  explicit Beamforming(const FrameAcquisition& acquisition);
  ~Beamforming();

  /// Beamforms channel data (float or 16-bit integers, RF or, with two components, IQ) laid out as `layout` to an image
  /// as geometry.imgDescPrescan() describes it, which must have the input's pixel type and components.
  /// `samplePositions` are float images of two components, the position (mm) of each output pixel, in one slice or in
  /// one per event.
  ///
  /// A focused acquisition gives one column per event, another one compounded image (`coherentCompounding`) or one
  /// slice per event. Invalid pixels are NaN or -32768 and are masked. The result has the input's metadata and its
  /// pixels on the device; the launch may still be running.
  ///
  /// Null, with an error in the log, if the input's type is not supported, the acquisition can't be beamformed, or
  /// images don't fit it or one another (a channel of the acquisition lies outside the data, the output has another
  /// type, ...). Slow-time entries beyond the number of events are ignored, with one warning per object.
  std::shared_ptr<SharedImage> beamform(const SharedImage& input, const ChannelDataLayout& layout,
                                        const FrameGeometry& geometry, const SharedImage& samplePositions,
                                        double fNumber, double outputValueScaling, BeamformerType type,
                                        bool coherentCompounding) const;

private:
  struct Channel {
    int channel, event, element;
  };

  void fillTable(const FrameAcquisition& acquisition);
  std::optional<std::string> problem(const ImageDescriptor& data, const ChannelDataLayout& layout,
                                     const ImageDescriptor& output, const ImageDescriptor& positions) const;

  CUDA::DeviceVector<EventInfo> m_events;
  CUDA::DeviceVector<CUDA::float3> m_elementPositions;
  /// Channel of each element (width) in each event (height), -1 outside the event's receive aperture.
  std::shared_ptr<CUDA::DeviceBufferImage> m_elementToChannel;
  double m_pitch = 0;
  int m_numElements = 0;
  int m_numEvents = 0;
  bool m_focused = false;

  ElementSearch m_search;
  std::vector<Channel> m_largestChannels; ///< of each event with an aperture
  mutable std::once_flag m_warned;
  std::string m_problem; ///< why the acquisition can't be beamformed; empty if it can
};

} // namespace Kelvaris::US::GPU
