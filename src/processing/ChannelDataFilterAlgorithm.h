#pragma once

#include "Core/Parameter.h"
#include "Core/Signal.h"
#include "Lib/Algorithm.h"
#include "Lib/SharedImageSet.h"
#include "processing/SignalProcessing.h"

#include <memory>
#include <mutex>
#include <utility>

namespace Kelvaris::US {

/// Limits channel data to a band: an FIR filter along fast time (Signal::createFirFilter, GPU::ConvolutionFilter1D).
///
/// Input: volumes of any pixel type but double, neither shifted nor scaled, with a FrameAcquisition, from whose first
/// event the sampling frequency is taken, and with a ChannelDataLayout where the axes differ from the default. Of
/// several components the first is filtered, and the others of the output are undefined.
/// Output: the same extent and pixel type; integers saturate at 16 bits, whatever their width. All components stay, and
/// a ChannelDataLayout is among them.
///
/// Parameters: `filterType` (Bandpass); `cutoffFrequencyLower` and `cutoffFrequencyUpper` in MHz (0.25 and 1.75 times
/// the pulse frequency of the input's first event); `filterLength` (int, 51), odd.
///
/// Keeps the filter on the device: designed with the first frame, and again when the sampling frequency of a frame
/// differs and, from the first frame on, whenever a parameter changes. Takes device memory for the output and, during
/// processImage(), the input.
class ChannelDataFilterAlgorithm : public Algorithm, public SequentialImageProcessor, public SignalReceiver {
public:
  /// The input, which sets the cut-offs, must outlive the algorithm. Throws std::invalid_argument if it is null or no
  /// channel data, std::out_of_range if its acquisition has no events.
  explicit ChannelDataFilterAlgorithm(const SharedImageSet* input);
  ~ChannelDataFilterAlgorithm() override;

  static bool createCompatible(const DataList& data, Algorithm** algorithm);

  /// Hz, of the first event's reception. Throws std::invalid_argument without an acquisition, std::out_of_range without
  /// events.
  static float getDataSamplingFrequency(const DataComponentList& components);
  /// Hz, of the first event's pulse. Throws alike.
  static float getDataPulseFrequency(const SharedImageSet& images);

  /// Throws like processImage().
  void compute() override;
  OwningDataList takeOutput() override;

  /// May run on several threads at once, and while parameters change: a call works with the filter that it began with.
  /// Besides what is reported by a null image, it throws std::out_of_range for an acquisition without events,
  /// std::invalid_argument for an even `filterLength` or one below 1, and what the device throws. A change of a
  /// parameter that leads to such a length throws alike, once there is a filter; the filter then stays as it was.
  std::pair<std::shared_ptr<SharedImage>, DataComponentList>
  processImage(const SharedImage& image, const DataComponentList& components) const override;

private:
  struct Impl;

  /// Designs the filter for that rate (Hz); `lock` shows that the mutex is held.
  void updateFilter(float samplingFrequency, std::unique_lock<std::mutex>& lock) const;
  void onParametersChanged();

  Parameter<Signal::FilterType> m_filterType{"filterType", Signal::FilterType::Bandpass};
  Parameter<double> m_cutoffFrequencyLower{"cutoffFrequencyLower", 1.0};
  Parameter<double> m_cutoffFrequencyUpper{"cutoffFrequencyUpper", 4.0};
  Parameter<int> m_filterLength{"filterLength", 51};
  const SharedImageSet* m_input;
  std::unique_ptr<SharedImageSet> m_output;
  std::unique_ptr<Impl> m_impl;
};

} // namespace Kelvaris::US
