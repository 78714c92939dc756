#pragma once

#include "Core/Signal.h"
#include "Lib/Algorithm.h"
#include "Lib/SharedImageSet.h"

#include <memory>
#include <mutex>
#include <utility>

namespace Kelvaris::US {

class FrameAcquisition;

/// Brings channel data as hardware delivers them into the order that the other steps work on fastest: receive channels
/// along the width, samples along the height, events along the slices, and element e of every event's receive aperture
/// on channel e modulo the aperture's size.
///
/// Input: float or int16, one component or two (IQ), with a FrameAcquisition whose events all receive on as many
/// elements, and with a ChannelDataLayout unless the axes are in order already.
/// Output: the same samples; channels beyond the aperture, and those that come from a channel which the input doesn't
/// have, are zero. The FrameAcquisition has the new mappings, the ChannelDataLayout is the default one. Timestamps are
/// not carried over by compute().
///
/// No parameters. Takes device memory for the output and, during processImage(), the input.
class ChannelDataRemappingAlgorithm : public Algorithm, public SequentialImageProcessor, public SignalReceiver {
public:
  /// The input must outlive the algorithm. Throws std::invalid_argument unless it is channel data.
  explicit ChannelDataRemappingAlgorithm(const SharedImageSet* input);
  ~ChannelDataRemappingAlgorithm() override;

  static bool createCompatible(const DataList& data, Algorithm** algorithm);

  /// Throws like processImage().
  void compute() override;
  OwningDataList takeOutput() override;

  /// Besides what is reported by a null image, it throws std::runtime_error for an acquisition without events, with
  /// events of different or empty apertures, or with mappings that don't fit (GPU::MapChannelsAndTranspose). Such an
  /// acquisition is refused once; further images with it are remapped as the acquisition before it was, or give null
  /// where there was none.
  std::pair<std::shared_ptr<SharedImage>, DataComponentList>
  processImage(const SharedImage& input, const DataComponentList& components) const override;

private:
  struct Impl;
  /// Makes what the output's components get in place of the input's; `lock` shows that the mutex is held.
  void updateResultingFrameAcquisition(const FrameAcquisition& input, std::unique_lock<std::mutex>& lock) const;

  const SharedImageSet* m_input;
  std::unique_ptr<SharedImageSet> m_output;
  std::unique_ptr<Impl> m_impl;
};

} // namespace Kelvaris::US
