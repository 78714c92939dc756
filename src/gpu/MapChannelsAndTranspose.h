#pragma once

#include "CUDA/DeviceBufferImage.h"
#include "Lib/SharedImage.h"
#include "model/ChannelDataLayout.h"
#include "model/FrameAcquisition.h"

#include <memory>

namespace Kelvaris::US::GPU {

/// Brings channel data into the order channels x samples x events and permutes the channels of each event, in one
/// kernel that reads and writes every sample once. What happens to the channels is fixed when the object is made; after
/// that it may be used from several threads.
class MapChannelsAndTranspose {
public:
  /// The data of element k of an event's receive aperture move from channel `elementToChannelMapping[k]` of the
  /// input's event to that of the output's. Where the output maps several elements to one channel, the last one wins;
  /// a channel that gets no element takes channel 0.
  ///
  /// Throws std::runtime_error unless both acquisitions are the same but for these mappings and the output's receive
  /// apertures have one size; also for no events, an empty aperture, a mapping that is shorter than the aperture, a
  /// negative channel, and an output channel beyond the aperture's size. Throws like DeviceMemory, too.
  MapChannelsAndTranspose(const FrameAcquisition& input, const FrameAcquisition& output);

  /// `input` (float or int16; one component, or two for IQ data), whose axes are as `layout` tells, as a new image of
  /// channels x samples x events on the device. It has the input's descriptor but for the extent, and no mask. Channels
  /// beyond the aperture, and those that come from a channel which the input doesn't have, are zero. Null, with a
  /// logged error, for other images and for a layout that doesn't name each axis once. Throws like DeviceMemory.
  std::unique_ptr<SharedImage> mapAndTranspose(const SharedImage& input, ChannelDataLayout layout) const;

private:
  std::unique_ptr<CUDA::DeviceBufferImage> m_table; ///< int, receive channels x events
};

} // namespace Kelvaris::US::GPU
